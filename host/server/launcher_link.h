// The front's side of the launcher.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <memory>
#include <string>

#include "call.h"
#include "core/unique_fd.h"
#include "frames.h"
#include "kept_processes.h"
#include "system_login.h"
#include "task_figures.h"

namespace host {

enum class Outcome {
  kAnswered,
  kUnreadable,  // the body of the call is no JSON object; the answer has words for that
  kDied,        // the request process ended without an answer
  kTimeout,     // no answer within kAnswerMs
  kNoProcess,   // the launcher did not take the request
};

class LauncherLink {
 public:
  // Forks the launcher, which loads the plug-in; call while the process has a single
  // thread and holds no secret that plug-ins must not see. False, with words in *err,
  // when the plug-in cannot be loaded.
  [[nodiscard]] bool Start(const std::string& plugin_file, std::size_t idle, std::string* err);

  // Runs one call in a request process and waits for its answer, an envelope's text. May
  // be used by several threads at once.
  Outcome Execute(const Call& call, std::string* answer) const;

  // Checks the password of a system account. May be used by several threads at once.
  LoginAnswer LogIn(const std::string& name, const std::string& address,
                    const SecretText& password) const;

  // Counts the tasks of all users. False when that failed.
  [[nodiscard]] bool CountTasks(TaskFigures* figures) const;

  // The plug-in's table as [{"api","version","method"}…].
  const Json::Value& rows() const { return rows_; }
  bool Serves(const std::string& api, int version, const std::string& method) const;

  // Hangs up when the launcher ends.
  int control() const { return control_.get(); }

 private:
  // A connection to a process that does the errand; invalid when there is none.
  core::UniqueFd Connect(Errand errand) const;

  core::UniqueFd control_;
  Json::Value rows_;
  std::unique_ptr<KeptProcesses> kept_ = std::make_unique<KeptProcesses>();
};

}  // namespace host
