// One web-API request as the server hands it to a plug-in.
#pragma once

#include <json/value.h>

#include <string>

namespace TAVO {

// What the server knows of a request.
struct APIRequestData {
  std::string apiClass;  // web-API name
  std::string method;
  int version = 0;
  std::string loginUser;
  std::string sessionId;
  std::string uiLanguage = "enu";  // three-letter code, see webapi::LanguageFromHeader
  Json::Value params = Json::Value(Json::objectValue);
};

class APIRequest {
 public:
  explicit APIRequest(APIRequestData data);

  // True when the parameter was given, whatever its value.
  bool HasParam(const std::string& name) const;
  // The parameter's value, or `fallback` when it was not given.
  Json::Value GetParam(const std::string& name, const Json::Value& fallback) const;
  std::string GetAPIClass() const;
  std::string GetAPIMethod() const;
  int GetAPIVersion() const;
  std::string GetLoginUserName() const;
  std::string GetSessionID() const;
  std::string GetUILanguage() const;

 private:
  APIRequestData data_;
};

}  // namespace TAVO

namespace webapi {

// Value of a form or query field: a text that parses whole as one JSON value
// becomes that value, anything else is the text itself.
Json::Value ValueFromField(const std::string& text);

// Parses a JSON body that must be one object. At most 1000 levels deep. False
// with words in *err when it is not.
[[nodiscard]] bool ObjectFromBody(const std::string& body, Json::Value* out, std::string* err);

// UI language ("enu", "ger") for an Accept-Language header, by its weights;
// English when nothing fits.
std::string LanguageFromHeader(const std::string& accept_language);

}  // namespace webapi
