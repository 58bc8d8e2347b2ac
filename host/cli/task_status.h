// A status answer, read once and safely.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace cli {

// Members of JSON objects whose kind may be wrong: then the fallback.
double NumberOf(const Json::Value& object, const char* name, double fallback);
std::string TextOf(const Json::Value& object, const char* name);

struct Failure {
  int code = 0;
  std::string path;
};

// Failures as an "errors" list or an error's detail holds them. What is no
// failure object is left out.
std::vector<Failure> FailuresOf(const Json::Value& list);

struct TaskStatus {
  bool finished = false;
  bool failed = false;   // ended without having run to the end
  std::string state;     // NOT_STARTED, PROCESSING, SUCCESS or FAIL
  double ratio = -1;     // negative while nothing has been counted
  double total = -1;     // bytes or entries, 0 or less while not counted
  double processed = 0;  // of the same kind
  bool in_bytes = true;
  double rate = -1;  // bytes per second, negative when not known
  double found_files = 0;
  double found_bytes = 0;
  std::string path;     // entry in hand
  std::string skipped;  // "all", "some", "none" or ""
  std::vector<Failure> failures;

  bool Measured() const { return ratio >= 0 && total > 0; }
};

TaskStatus ReadStatus(const Json::Value& answer);

}  // namespace cli
