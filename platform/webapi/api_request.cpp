#include "webapi_runtime/api_request.h"

#include <utility>

namespace TAVO {

APIRequest::APIRequest(APIRequestData data) : data_(std::move(data)) {
  if (!data_.params.isObject()) data_.params = Json::Value(Json::objectValue);
}

bool APIRequest::HasParam(const std::string& name) const { return data_.params.isMember(name); }

Json::Value APIRequest::GetParam(const std::string& name, const Json::Value& fallback) const {
  return HasParam(name) ? data_.params[name] : fallback;
}

std::string APIRequest::GetAPIClass() const { return data_.apiClass; }
std::string APIRequest::GetAPIMethod() const { return data_.method; }
int APIRequest::GetAPIVersion() const { return data_.version; }
std::string APIRequest::GetLoginUserName() const { return data_.loginUser; }
std::string APIRequest::GetSessionID() const { return data_.sessionId; }
std::string APIRequest::GetUILanguage() const { return data_.uiLanguage; }

}  // namespace TAVO
