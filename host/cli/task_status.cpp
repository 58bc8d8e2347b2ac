#include "host/cli/task_status.h"

namespace cli {
namespace {

const Json::Value& MemberOf(const Json::Value& object, const char* name) {
  return object.isObject() ? object[name] : Json::Value::nullSingleton();
}

}  // namespace

double NumberOf(const Json::Value& object, const char* name, double fallback) {
  const Json::Value& value = MemberOf(object, name);
  return value.isNumeric() ? value.asDouble() : fallback;
}

std::string TextOf(const Json::Value& object, const char* name) {
  const Json::Value& value = MemberOf(object, name);
  return value.isString() ? value.asString() : "";
}

std::vector<Failure> FailuresOf(const Json::Value& list) {
  std::vector<Failure> failures;
  if (!list.isArray()) return failures;
  for (const Json::Value& item : list) {
    const Json::Value& code = MemberOf(item, "code");
    if (code.isInt()) failures.push_back({code.asInt(), TextOf(item, "path")});
  }
  return failures;
}

TaskStatus ReadStatus(const Json::Value& answer) {
  TaskStatus status;
  const Json::Value& finished = MemberOf(answer, "finished");
  status.finished = finished.isBool() && finished.asBool();
  status.ratio = NumberOf(answer, "progress", -1);
  status.failed = status.finished && status.ratio < 0;
  status.state = TextOf(answer, "status");
  status.total = NumberOf(answer, "total", -1);
  status.in_bytes = !MemberOf(answer, "processed_num").isNumeric() ||
                    MemberOf(answer, "processed_size").isNumeric();
  status.processed = NumberOf(answer, status.in_bytes ? "processed_size" : "processed_num", 0);
  status.rate = NumberOf(answer, "transfer_rate", -1);
  status.found_files = NumberOf(answer, "found_file_num", 0);
  status.found_bytes = NumberOf(answer, "found_file_size", 0);
  status.path = TextOf(answer, "processing_path");
  status.skipped = TextOf(MemberOf(answer, "skipstatus"), "status");
  status.failures = FailuresOf(MemberOf(answer, "errors"));
  return status;
}

}  // namespace cli
