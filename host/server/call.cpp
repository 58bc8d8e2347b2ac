#include "call.h"

#include <json/reader.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

#include "envelope.h"
#include "webapi_runtime/api_request.h"

namespace host {
namespace {

// A little deeper than what the front accepts as parameters.
constexpr int kMaxDepth = 1100;

// The rest of a call is one line.
constexpr char kBodyFollows = '\n';

bool Parse(std::string_view text, Json::Value* out, std::string* err) {
  Json::CharReaderBuilder builder;
  builder["stackLimit"] = kMaxDepth;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  try {
    return reader->parse(text.data(), text.data() + text.size(), out, err);
  } catch (const Json::Exception& e) {
    *err = e.what();
    return false;
  }
}

}  // namespace

bool OnlyReadsRecords(const Call& call) {
  if (!call.api.empty()) return call.method == "status";
  return call.method == "tasks" || call.method == "task" || call.method == "notifications";
}

std::string EncodeCall(const Call& call) {
  Json::Value value(Json::objectValue);
  value["api"] = call.api;
  value["method"] = call.method;
  value["version"] = call.version;
  value["user"] = call.user;
  value["session"] = call.session;
  value["language"] = call.language;
  value["params"] = call.params;
  return RawJsonText(value) + kBodyFollows + call.body;
}

bool DecodeCall(const std::string& text, Call* out, std::string* err) {
  Json::Value value;
  const std::size_t end = std::min(text.find(kBodyFollows), text.size());
  if (!Parse(std::string_view(text).substr(0, end), &value, err)) return false;
  if (!value.isObject() || !value["version"].isInt() || !value["params"].isObject()) {
    *err = "not a call";
    return false;
  }
  const std::array<std::pair<const char*, std::string*>, 5> texts{{{"api", &out->api},
                                                                   {"method", &out->method},
                                                                   {"user", &out->user},
                                                                   {"session", &out->session},
                                                                   {"language", &out->language}}};
  for (const auto& [name, target] : texts) {
    if (!value[name].isString()) {
      *err = std::string("\"") + name + "\" is not a text";
      return false;
    }
    *target = value[name].asString();
  }
  out->version = value["version"].asInt();
  out->params = std::move(value["params"]);
  out->body = text.substr(std::min(end + 1, text.size()));
  return true;
}

bool AddMembers(const std::string& body, Json::Value* params, std::string* err) {
  Json::Value object;
  if (!webapi::ObjectFromBody(body, &object, err)) return false;
  for (const std::string& name : object.getMemberNames()) (*params)[name].swap(object[name]);
  return true;
}

}  // namespace host
