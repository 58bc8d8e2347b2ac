#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include "accounts.h"
#include "core/config.h"
#include "core/process.h"
#include "drop_root.h"
#include "front.h"
#include "launcher_link.h"
#include "login_policy.h"
#include "names.h"
#include "options.h"
#include "tasks/store.h"
#include "vfs/vfs.h"

namespace {

constexpr int kRefused = 2;
constexpr std::size_t kIdleProcesses = 4;
// For answers that are on their way when the server is told to stop.
constexpr std::chrono::milliseconds kStopGrace{500};
constexpr std::chrono::milliseconds kUnmountPatience{10000};

int Fail(const std::string& err) {
  std::cerr << "fennoxd: " << err << "\n";
  return kRefused;
}

std::string DefaultModule() {
  std::error_code ec;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
  return (self.parent_path() / "TAVO.Fennox.CopyMove.so").string();
}

// Blocks the signals that end the server, for this thread and all started later.
int WatchEndSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  ::signal(SIGPIPE, SIG_IGN);
  return ::signalfd(-1, &set, SFD_CLOEXEC);
}

// Waits for an end signal or the launcher's end; then ends the process, after a moment for
// answers that are being written. Requests that still wait are not waited for.
void EndWhenTold(int signals, int control, host::Front* front) {
  std::array<pollfd, 2> pollers{pollfd{signals, POLLIN, 0}, pollfd{control, 0, 0}};
  while (::poll(pollers.data(), pollers.size(), -1) <= 0) {
  }
  const bool launcher_lost = pollers[0].revents == 0;
  if (launcher_lost) ::syslog(LOG_ERR, "the launcher ended; the server ends too");
  front->Stop();
  std::this_thread::sleep_for(kStopGrace);
  // The launcher ends too, and first unmounts what it has mounted.
  ::shutdown(control, SHUT_WR);
  pollfd launcher{control, 0, 0};
  ::poll(&launcher, 1, static_cast<int>(kUnmountPatience.count()));
  std::fflush(nullptr);
  ::_exit(launcher_lost ? 1 : 0);
}

std::string PageAddress(const std::string& address, const host::Front& front) {
  const bool v6 = address.find(':') != std::string::npos;
  return std::string(front.secure() ? "https://" : "http://") + (v6 ? "[" : "") + address +
         (v6 ? "]" : "") + ":" + std::to_string(front.port()) + "/";
}

// Whoever collects the output of a service shall not collect its token.
void Announce(const std::string& page, const std::string& state, const std::string& token) {
  const bool shown = !token.empty() && ::isatty(STDOUT_FILENO) == 1;
  std::cout << "listening on " << page << (shown ? "?token=" + token : "") << std::endl;
  if (!token.empty() && !shown) {
    std::cout << "the token that logs in is in " << state << "/token" << std::endl;
  }
}

bool ReadSettings(const core::Config& config, host::FrontSettings* out, std::string* err) {
  const core::ServerConfig& server = config.server;
  if (!host::SplitAddress(server.listen, &out->address, &out->port)) {
    *err = "\"" + server.listen + "\" is no address to listen on: ADDRESS:PORT";
    return false;
  }
  if (!server.metrics.empty() &&
      !host::SplitAddress(server.metrics, &out->metrics_address, &out->metrics_port)) {
    *err = "\"" + server.metrics + "\" is no address for figures: ADDRESS:PORT";
    return false;
  }
  out->certificate = server.certificate;
  out->key = server.key;
  out->several_users = host::HasSeveralUsers(config);
  out->passwords = server.auth == "pam";
  out->session_idle = std::chrono::hours(config.login.idle_hours);
  out->session_life = std::chrono::hours(config.login.max_hours);
  out->connection.head = std::chrono::seconds(config.limits.header_seconds);
  out->connection.body = std::chrono::seconds(config.limits.body_seconds);
  out->requests_per_second = config.limits.requests_per_second;
  out->requests_at_once = config.limits.requests_at_once;
  return true;
}

// With one user it is known who comes.
void PrepareOwnRecords() {
  if (const passwd* self = ::getpwuid(::geteuid())) tasks::Prepare(self->pw_name);
}

int Serve(const core::Config& config, const std::string& module) {
  host::FrontSettings settings;
  std::string err;
  if (!ReadSettings(config, &settings, &err)) return Fail(err);
  if (!host::PrepareState(config, &err)) return Fail(err);
  // Workers of several users share the queue's file, which only the server can make.
  if (settings.several_users && !config.remotes.empty() && !vfs::PrepareQueue()) {
    return Fail(config.server.state + "/run: " + std::strerror(errno));
  }
  // Before any thread, and before any secret is read: what it forks inherits its memory.
  host::LauncherLink launcher;
  if (!launcher.Start(module, kIdleProcesses, &err)) return Fail(err);

  if (!settings.several_users) PrepareOwnRecords();
  const int signals = WatchEndSignals();
  host::Tokens tokens;
  std::string own_token;
  if (!host::LoadTokens(config, &tokens, &own_token, &err)) return Fail(err);
  host::Front front(settings, std::move(tokens), launcher);
  if (!front.Bind(&err)) return Fail(err);
  const std::string folder = host::PrepareFrontFolder(config, &err);
  if (folder.empty() || !host::GiveUpRights(config, &err) || !front.OpenSessions(folder, &err)) {
    return Fail(err);
  }
  Announce(PageAddress(settings.address, front), config.server.state, own_token);
  std::thread(EndWhenTold, signals, launcher.control(), &front).detach();
  front.Serve();
  // Listening ends only on the watcher's word; it ends the process.
  while (true) ::pause();
}

}  // namespace

int main(int argc, char** argv) {
  host::Options options;
  switch (host::ParseOptions(argc, argv, &options)) {
    case host::ParseResult::kDone:
      return 0;
    case host::ParseResult::kWrong:
      return kRefused;
    case host::ParseResult::kRun:
      break;
  }
  core::Config config;
  std::string err;
  if (!host::BuildConfig(options, &config, &err)) return Fail(err);
  if (config.server.auth == "pam" && ::geteuid() != 0 && !options.check_config) {
    return Fail("auth = \"pam\" needs root: only root can check passwords and act as other users");
  }
  if (options.check_config) {
    std::cout << "the configuration is good\n";
    return 0;
  }
  core::OpenLog("fennoxd", options.log_to_stderr);
  core::SetConfig(config);
  return Serve(config, options.module.empty() ? DefaultModule() : options.module);
}
