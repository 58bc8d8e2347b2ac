#include "name_warmer.h"

#include <sys/stat.h>

#include <csignal>
#include <system_error>

#include "webapi/json_read.h"

namespace Fennox {
namespace {

// Below this a thread costs more than it saves.
constexpr std::size_t kFewestSources = 256;

std::string FolderOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

}  // namespace

NameWarmer::NameWarmer(const Json::Value& sources, const std::string& destFolder)
    : sources_(sources), destFolder_(destFolder) {}

NameWarmer::~NameWarmer() {
  checked_ = sources_.size();
  if (thread_.joinable()) thread_.join();
}

void NameWarmer::Checked(const std::vector<PathInfo>& infos) {
  if (infos.size() == 1) Start(infos.front());
  checked_.store(infos.size(), std::memory_order_relaxed);
}

void NameWarmer::Start(const PathInfo& first) {
  if (sources_.size() < kFewestSources || std::thread::hardware_concurrency() < 2) return;
  shareFolder_ = FolderOf(first.sharePath);
  realFolder_ = FolderOf(first.realPath);
  // Signals are for the thread that checks.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    thread_ = std::thread([this] { Run(); });
  } catch (const std::system_error&) {
    // It goes without.
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void NameWarmer::Run() {
  struct stat unused {};
  for (std::size_t i = sources_.size(); i-- > checked_.load(std::memory_order_relaxed);) {
    const std::string path = TextOf(sources_[static_cast<Json::ArrayIndex>(i)]);
    if (!path.starts_with(shareFolder_)) continue;
    const std::string name = path.substr(shareFolder_.size());
    if (name.empty() || name.find('/') != std::string::npos) continue;
    (void)lstat((realFolder_ + name).c_str(), &unused);
    (void)lstat((destFolder_ + "/" + name).c_str(), &unused);
  }
}

}  // namespace Fennox
