#include "host/cli/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>

#include "host/cli/refusal.h"

namespace cli {
namespace {

constexpr const char* kAbout =
    "Copies and moves files on a Fennox server.\n"
    "Paths are those of the server: /SHARE/rest, /home/rest or sftp://MOUNT/rest.";
constexpr const char* kFooter =
    "Environment: FENNOX_URL (default http://127.0.0.1:5050), FENNOX_TOKEN (else the token\n"
    "that \"fennox login\" stored).\n"
    "Exit status: 0 done, 1 finished with failures, 2 refused, 130 stopped.";

struct Conflicts {
  bool overwrite = false;
  bool skip = false;
  bool rename = false;

  Conflict Chosen() const {
    if (overwrite) return Conflict::kOverwrite;
    if (skip) return Conflict::kSkip;
    return rename ? Conflict::kRename : Conflict::kRefuse;
  }
};

void AddJson(CLI::App* command, Options* options) {
  command->add_flag("--json", options->json, "Print the result as JSON");
}

void AddTransfer(CLI::App* app, Command which, const char* name, const char* about,
                 Options* options, Conflicts* conflicts) {
  CLI::App* command = app->add_subcommand(name, about);
  command->add_option("PATHS", options->sources)
      ->required()
      ->expected(2, -1)
      ->option_text("SRC... DEST: the sources, then the folder that they go into");
  auto* overwrite = command->add_flag("--overwrite", conflicts->overwrite,
                                      "Replace files that exist at the destination");
  auto* skip = command->add_flag("--skip", conflicts->skip, "Leave existing files alone");
  auto* rename = command->add_flag("--rename", conflicts->rename,
                                   "Give a source a free name when its name is taken");
  overwrite->excludes(skip)->excludes(rename);
  skip->excludes(rename);
  command->add_flag(
      "--no-accurate-progress", [options](std::int64_t) { options->accurate_progress = false; },
      "Count entries instead of bytes");
  command->add_flag("--detach", options->detach, "Print the task's id and return at once");
  AddJson(command, options);
  command->callback([options, which] { options->command = which; });
}

CLI::App* AddPlain(CLI::App* app, Command which, const char* name, const char* about,
                   Options* options) {
  CLI::App* command = app->add_subcommand(name, about);
  command->callback([options, which] { options->command = which; });
  return command;
}

void AddTarget(CLI::App* command, const char* name, const char* about, Options* options) {
  command->add_option(name, options->target, about)->required()->option_text(" ");
}

void AddSessionCommands(CLI::App* app, Options* options) {
  CLI::App* login = AddPlain(app, Command::kLogin, "login",
                             "Store a token for the server; it, or with --user the password, is "
                             "read from a prompt or from standard input",
                             options);
  login->add_option("--user", options->target, "Log in as this user with the system password");
  AddJson(login, options);
  CLI::App* logout =
      AddPlain(app, Command::kLogout, "logout", "End the login and forget its token", options);
  logout->add_flag("--all", options->everywhere, "End all your logins, in every browser too");
  AddJson(logout, options);
}

void AddCommands(CLI::App* app, Options* options, Conflicts* conflicts) {
  AddTransfer(app, Command::kCopy, "copy", "Copy sources into a folder", options, conflicts);
  AddTransfer(app, Command::kMove, "move", "Move sources into a folder", options, conflicts);

  CLI::App* status = AddPlain(app, Command::kStatus, "status", "Show a task's progress", options);
  AddTarget(status, "ID", "Task", options);
  status->add_flag("--watch", options->watch, "Follow the task to its end");
  AddJson(status, options);

  CLI::App* stop = AddPlain(app, Command::kStop, "stop", "Stop a task", options);
  AddTarget(stop, "ID", "Task", options);
  AddJson(stop, options);

  AddJson(AddPlain(app, Command::kList, "list", "List your tasks", options), options);

  CLI::App* watch =
      AddPlain(app, Command::kWatch, "watch", "Follow all your tasks, until Ctrl-C", options);
  watch->add_flag("--until-idle", options->until_idle, "End when no task runs");
  AddJson(watch, options);

  CLI::App* log = AddPlain(app, Command::kLog, "log",
                           "Show what your tasks transferred, newest first", options);
  log->add_option("--limit", options->limit, "How many lines (default 100)")
      ->check(CLI::Range(1, 1000));
  AddJson(log, options);

  CLI::App* ls =
      AddPlain(app, Command::kLs, "ls", "List a folder of the server; / lists the shares", options);
  AddTarget(ls, "PATH", "Folder", options);
  AddJson(ls, options);

  CLI::App* task = app->add_subcommand("task", "Look at a task's record");
  task->require_subcommand(1);
  CLI::App* show = AddPlain(task, Command::kTaskShow, "show", "Print the record as JSON", options);
  AddTarget(show, "ID", "Task", options);
  AddJson(show, options);

  CLI::App* remote = app->add_subcommand("remote", "Look at the remote servers");
  remote->require_subcommand(1);
  AddJson(AddPlain(remote, Command::kRemoteList, "list", "List those that you may use", options),
          options);
  CLI::App* check = AddPlain(remote, Command::kRemoteCheck, "check",
                             "Say whether a server is ready, or what is wrong", options);
  AddTarget(check, "NAME", "Configured name", options);
  AddJson(check, options);

  AddSessionCommands(app, options);

  // For the shell's completion.
  CLI::App* complete = AddPlain(app, Command::kCompletePath, "complete-path", "", options);
  complete->add_option("PREFIX", options->target);
  complete->group("");
}

// Arguments that make no sense are not parsed to their end.
bool AsksForJson(int argc, const char* const* argv) {
  return std::any_of(argv, argv + argc,
                     [](const char* argument) { return std::string_view(argument) == "--json"; });
}

}  // namespace

std::optional<int> ParseOptions(int argc, const char* const* argv, Options* options) {
  CLI::App app(kAbout, "fennox");
  app.footer(kFooter);
  app.set_version_flag("--version", "fennox " FENNOX_VERSION);
  app.require_subcommand(1);
  Conflicts conflicts;
  AddCommands(&app, options, &conflicts);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const bool help = e.get_exit_code() == 0;
    if (!help && AsksForJson(argc, argv)) {
      ReportRefusalsAsJson();
      return Refuse(e.what());
    }
    return app.exit(e) == 0 ? kExitDone : kExitRefused;
  }
  options->conflict = conflicts.Chosen();
  if (options->command == Command::kCopy || options->command == Command::kMove) {
    options->target = options->sources.back();
    options->sources.pop_back();
  }
  return std::nullopt;
}

}  // namespace cli
