// JSON values as stored text.
#pragma once

#include <json/value.h>

#include <string>

namespace tasks::internal {

// Keeps types (a real stays a real), every digit of a real, not-a-number and
// infinity, and strings byte by byte, valid UTF-8 or not.
std::string JsonToText(const Json::Value& value);

// Null for damaged text.
Json::Value TextToJson(const std::string& text);

}  // namespace tasks::internal
