#include "long_lists.h"

#include "json_text.h"

namespace tasks::internal {
namespace {

// Shorter ones cost less than a row.
constexpr Json::ArrayIndex kLongest = 64;

}  // namespace

Json::Value TakeLongLists(Json::Value* data) {
  Json::Value lists;
  if (!data->isObject() || !data->isMember("params")) return lists;
  Json::Value& params = (*data)["params"];
  if (!params.isObject()) return lists;
  for (const std::string& name : params.getMemberNames()) {
    if (!params[name].isArray() || params[name].size() <= kLongest) continue;
    lists[name].swap(params[name]);
    params.removeMember(name);
  }
  return lists;
}

void PutLongLists(const std::string& text, Json::Value* data) {
  Json::Value lists = TextToJson(text);
  const bool sound = lists.isObject() && data->isObject() &&
                     (!data->isMember("params") || (*data)["params"].isObject());
  if (!sound) {
    *data = Json::Value();
    return;
  }
  Json::Value& params = (*data)["params"];
  for (const std::string& name : lists.getMemberNames()) {
    if (!params.isMember(name)) params[name].swap(lists[name]);
  }
}

}  // namespace tasks::internal
