// Reading JSON that others wrote: a value of the wrong type reads as absent,
// never as an exception. Numbers and booleans have a text: a form field that
// holds "12345" arrives as a number.
#pragma once

#include <json/value.h>

#include <string>

namespace Fennox {

inline std::string TextOf(const Json::Value& value) {
  return value.isArray() || value.isObject() ? std::string() : value.asString();
}

// The member's value, or `fallback` when there is none.
inline Json::Value MemberOf(const Json::Value& object, const char* name,
                            const Json::Value& fallback) {
  return object.isObject() ? object.get(name, fallback) : fallback;
}

inline std::string TextMemberOf(const Json::Value& object, const char* name) {
  return TextOf(MemberOf(object, name, Json::Value()));
}

// The member as a process id, -1 when there is none.
inline int PidMemberOf(const Json::Value& object) {
  const Json::Value pid = MemberOf(object, "pid", -1);
  return pid.isInt() ? pid.asInt() : -1;
}

}  // namespace Fennox
