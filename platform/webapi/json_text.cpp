#include <json/reader.h>

#include <memory>
#include <stdexcept>

#include "core/utf8.h"
#include "json_lexis.h"
#include "webapi_runtime/api_request.h"

namespace webapi {
namespace {

constexpr int kMaxDepth = 1000;

// Parses a text that is, blanks around it aside, exactly one JSON value.
bool ParseWhole(const std::string& text, Json::Value* out, std::string* err) {
  if (!core::IsUtf8(text)) {
    *err = "not UTF-8";
    return false;
  }
  if (!HasJsonLexis(text)) {
    *err = "a number or a string that JSON does not allow";
    return false;
  }
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["strictRoot"] = false;
  builder["skipBom"] = false;
  builder["stackLimit"] = kMaxDepth;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  try {
    return reader->parse(text.data(), text.data() + text.size(), out, err);
  } catch (const std::exception& fault) {
    // Depth and number limits are reported this way.
    *err = fault.what();
    return false;
  }
}

}  // namespace

Json::Value ValueFromField(const std::string& text) {
  Json::Value value;
  std::string err;
  return ParseWhole(text, &value, &err) ? value : Json::Value(text);
}

bool ObjectFromBody(const std::string& body, Json::Value* out, std::string* err) {
  Json::Value value;
  if (!ParseWhole(body, &value, err)) return false;
  if (!value.isObject()) {
    *err = "not a JSON object";
    return false;
  }
  *out = std::move(value);
  return true;
}

}  // namespace webapi
