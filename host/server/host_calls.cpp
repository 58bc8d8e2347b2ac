#include "host_calls.h"

#include <json/value.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

#include "core/config.h"
#include "core/user_list.h"
#include "envelope.h"
#include "folder_list.h"
#include "remote_calls.h"
#include "support/errors.h"
#include "support/identity.h"
#include "support/privilege.h"
#include "support/text.h"
#include "support/transfer_log.h"
#include "tasks/store.h"

namespace host {
namespace {

constexpr int kDefaultLines = 100;
constexpr int kMostLines = 1000;

std::string TextParam(const Call& call, const char* name) {
  const Json::Value& value = call.params[name];
  return value.isString() ? value.asString() : std::string();
}

int LimitParam(const Call& call) {
  const Json::Value& value = call.params["limit"];
  int limit = kDefaultLines;
  if (value.isInt()) {
    limit = value.asInt();
  } else if (value.isString()) {
    const std::string text = value.asString();
    std::from_chars(text.data(), text.data() + text.size(), limit);
  }
  return std::clamp(limit, 1, kMostLines);
}

std::string Shares(const Call& call) {
  Json::Value list(Json::arrayValue);
  for (const support::ShareView& share : support::SharesOf(call.user)) {
    Json::Value value(Json::objectValue);
    value["name"] = share.name;
    value["path"] = "/" + share.name;
    value["writable"] = share.writable;
    value["restrictions"] = share.restrictions;
    value["remote"] = false;
    list.append(value);
  }
  for (const core::RemoteConfig& remote : core::CurrentConfig().remotes) {
    if (!core::IsUserListed(call.user, remote.users)) continue;
    Json::Value value(Json::objectValue);
    value["name"] = remote.name;
    value["path"] = remote.protocol + "://" + remote.name + "/";
    value["writable"] = true;
    value["restrictions"] = 0;
    value["remote"] = true;
    list.append(value);
  }
  return SuccessText(list);
}

std::string List(const Call& call) {
  const std::string path = TextParam(call, "path");
  if (path.empty()) return FailureWords(WEBFM_BAD_PARAMETER, "\"path\" is missing");
  ListRequest request;
  std::string err;
  if (!ReadListRequest(call.params, &request, &err)) {
    return FailureWords(WEBFM_BAD_PARAMETER, err);
  }
  return FolderListText(call.user, path, request);
}

Json::Value RecordValue(const tasks::Record& record) {
  Json::Value value(Json::objectValue);
  value["id"] = record.id;
  value["finished"] = record.finished;
  value["progress"] = record.progress;
  value["data"] = record.data;
  return value;
}

std::string Tasks(const Call& call) {
  Json::Value list(Json::arrayValue);
  for (const tasks::Record& record : tasks::List(call.user)) list.append(RecordValue(record));
  return SuccessText(list);
}

std::string Task(const Call& call) {
  const std::string id = TextParam(call, "id");
  if (id.empty()) return FailureWords(WEBFM_BAD_PARAMETER, "\"id\" is missing");
  tasks::Record record;
  if (!tasks::Read(call.user, id, &record)) {
    return FailureWords(WEBFM_NO_SUCH_TASK, "there is no such task");
  }
  return SuccessText(RecordValue(record));
}

std::string Notifications(const Call& call) {
  return SuccessText(tasks::Notifications(call.user, LimitParam(call)));
}

std::string Log(const Call& call) {
  return SuccessText(support::ReadTransferLog(call.user, LimitParam(call)));
}

// Reasons by code, -1 standing for any other, and notices by key, in one language.
std::string Texts(const Call& call) {
  const std::string language = TextParam(call, "language");
  const std::vector<std::string> languages = support::TextLanguages();
  if (std::find(languages.begin(), languages.end(), language) == languages.end()) {
    return FailureWords(WEBFM_BAD_PARAMETER, "\"language\" is \"enu\" or \"ger\"");
  }
  Json::Value value(Json::objectValue);
  std::vector<int> codes = support::ErrorCodes();
  codes.push_back(-1);
  for (const int code : codes) {
    value["errors"][std::to_string(code)] =
        WfmLibGetText(WfmParseErrorToKVXString(code, 0), language);
  }
  for (const std::string& key : support::TextKeys()) {
    value["notices"][key] = WfmLibGetText(key, language);
  }
  return SuccessText(value);
}

struct Row {
  std::string_view method;
  std::string (*answer)(const Call&);
};

constexpr std::array<Row, 9> kCalls{{{"shares", Shares},
                                     {"list", List},
                                     {"remotes", RemotesText},
                                     {"remote", RemoteText},
                                     {"tasks", Tasks},
                                     {"task", Task},
                                     {"notifications", Notifications},
                                     {"log", Log},
                                     {"texts", Texts}}};

const Row* FindCall(const std::string& method) {
  const auto* found = std::find_if(kCalls.begin(), kCalls.end(),
                                   [&](const Row& row) { return row.method == method; });
  return found == kCalls.end() ? nullptr : found;
}

}  // namespace

bool IsHostCall(const std::string& method) { return FindCall(method) != nullptr; }

std::string AnswerHostCall(const Call& call) {
  const Row* row = FindCall(call.method);
  if (row == nullptr) return FailureWords(WEBFM_UNKNOWN_METHOD, "there is no such call");
  if (WfmLibUGIDSet(nullptr, call.user.c_str()) < 0) {
    return FailureWords(WfmLibGetErr(), "the server cannot act as this user");
  }
  return row->answer(call);
}

}  // namespace host
