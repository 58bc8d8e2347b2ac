#include "host/cli/refusal.h"

#include <iostream>

#include "host/cli/format.h"
#include "host/cli/options.h"
#include "host/cli/words.h"

namespace cli {
namespace {

// How refusals are told is decided once, when the arguments are known.
bool as_json = false;

const char* KindName(CallError::Kind kind) {
  switch (kind) {
    case CallError::Kind::kUnreachable:
      return "unreachable";
    case CallError::Kind::kHttp:
      return "http";
    case CallError::Kind::kApi:
      return "refused";
    case CallError::Kind::kAnswer:
      break;
  }
  return "answer";
}

Json::Value UsageValue(const std::string& text) {
  Json::Value value(Json::objectValue);
  value["error"]["kind"] = "usage";
  value["error"]["code"] = 0;
  value["error"]["message"] = text;
  return value;
}

}  // namespace

void ReportRefusalsAsJson() { as_json = true; }

Json::Value RefusalValue(const CallError& error, const std::string& what, const std::string& hint) {
  Json::Value value(Json::objectValue);
  Json::Value& refusal = value["error"];
  refusal["kind"] = KindName(error.kind);
  refusal["code"] = error.code;
  refusal["message"] = what + ErrorLines(error).front();
  if (!error.detail.isNull()) refusal["detail"] = error.detail;
  if (error.kind == CallError::Kind::kHttp) refusal["http_status"] = error.http_status;
  if (!hint.empty()) refusal["hint"] = hint;
  return value;
}

int Refuse(const CallError& error, const std::string& what, const std::string& hint) {
  if (as_json) {
    std::cout << ToJsonLine(RefusalValue(error, what, hint)) << std::endl;
    return kExitRefused;
  }
  const auto lines = ErrorLines(error);
  std::cerr << "fennox: " << what << lines.front() << "\n";
  for (std::size_t i = 1; i < lines.size(); ++i) std::cerr << "fennox: " << lines[i] << "\n";
  if (!hint.empty()) std::cerr << "fennox: " << hint << "\n";
  return kExitRefused;
}

int Refuse(const std::string& text) {
  if (as_json) {
    std::cout << ToJsonLine(UsageValue(text)) << std::endl;
  } else {
    std::cerr << "fennox: " << text << "\n";
  }
  return kExitRefused;
}

}  // namespace cli
