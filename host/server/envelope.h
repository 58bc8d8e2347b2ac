// The texts of answers: one JSON envelope each.
#pragma once

#include <json/value.h>

#include <string>

namespace host {

// `value` as compact JSON, its strings byte for byte: for the server's own processes.
std::string RawJsonText(const Json::Value& value);

// `value` as compact JSON for clients. Names and paths may hold any bytes; what is not UTF-8
// comes out as U+FFFD, so that the text is always valid.
std::string JsonText(const Json::Value& value);

// {"success":true,"data":…}; "data" is left out when null.
std::string SuccessText(const Json::Value& data);

// {"success":false,"error":{"code":…,"detail":…}}; "detail" is left out when null.
std::string FailureText(int code, const Json::Value& detail);

// A failure whose detail is {"message": words}.
std::string FailureWords(int code, const std::string& message);

}  // namespace host
