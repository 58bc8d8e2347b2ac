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

// {"error": {"kind", "code", "message"}}; the code is the server's, 0 when it told none.
Json::Value RefusalValue(const char* kind, int code, const std::string& message) {
  Json::Value value(Json::objectValue);
  Json::Value& refusal = value["error"];
  refusal["kind"] = kind;
  refusal["code"] = code;
  refusal["message"] = message;
  return value;
}

Json::Value CallRefusal(const CallError& error, const std::string& message,
                        const std::string& hint) {
  Json::Value value = RefusalValue(KindName(error.kind), error.code, message);
  Json::Value& refusal = value["error"];
  if (!error.detail.isNull()) refusal["detail"] = error.detail;
  if (error.kind == CallError::Kind::kHttp) refusal["http_status"] = error.http_status;
  if (!hint.empty()) refusal["hint"] = hint;
  return value;
}

}  // namespace

void ReportRefusalsAsJson() { as_json = true; }

int Refuse(const CallError& error, const std::string& what, const std::string& hint) {
  const auto lines = ErrorLines(error);
  if (as_json) {
    std::cout << ToJsonLine(CallRefusal(error, what + lines.front(), hint)) << std::endl;
    return kExitRefused;
  }
  std::cerr << "fennox: " << what << lines.front() << "\n";
  for (std::size_t i = 1; i < lines.size(); ++i) std::cerr << "fennox: " << lines[i] << "\n";
  if (!hint.empty()) std::cerr << "fennox: " << hint << "\n";
  return kExitRefused;
}

int Refuse(const std::string& text) {
  if (as_json) {
    std::cout << ToJsonLine(RefusalValue("usage", 0, text)) << std::endl;
  } else {
    std::cerr << "fennox: " << text << "\n";
  }
  return kExitRefused;
}

}  // namespace cli
