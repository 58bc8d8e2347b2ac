#include "engine_fixture.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <fstream>
#include <mutex>
#include <sstream>

#include "core/config.h"
#include "core/error.h"
#include "fake_cloud.h"
#include "fake_mounts.h"
#include "support/bandwidth.h"
#include "webapi/module_state.h"

using namespace Fennox;

namespace {

std::mutex logMutex;
std::vector<std::string> logLines;

}  // namespace

extern "C" void syslog(int /*priority*/, const char* format, ...) {
  char line[8192];
  va_list args;
  va_start(args, format);
  std::vsnprintf(line, sizeof line, format, args);
  va_end(args);
  const std::lock_guard lock(logMutex);
  logLines.emplace_back(line);
}

extern "C" int setxattr(const char* path, const char* name, const void* value, std::size_t size,
                        int flags) noexcept {
  const long result = ::syscall(SYS_setxattr, path, name, value, size, flags);
  if (std::string(name) == "tavo::cacheclean") {
    const int reason = errno;
    if (++staleMarks == 1 && !makeAfterFirstMark.empty())
      std::ofstream(makeAfterFirstMark).put('x');
    errno = reason;
  }
  return static_cast<int>(result);
}

extern "C" int rename(const char* from, const char* to) noexcept {
  if (renameFailure == 0) return static_cast<int>(::syscall(SYS_rename, from, to));
  errno = renameFailure;
  return -1;
}

std::vector<std::string> LogLines() {
  const std::lock_guard lock(logMutex);
  return logLines;
}

int Logged(int number) {
  int found = 0;
  const std::string prefix = "TAVO.Fennox.CopyMove:" + std::to_string(number) + " ";
  for (const std::string& line : LogLines()) found += line.starts_with(prefix) ? 1 : 0;
  return found;
}

ENTRY_STAT Entry(const std::string& sharePath, int overwriteMode, int error) {
  return {sharePath, "UTF-8", error, overwriteMode, MOVE_NOT_PROCESSED, false};
}

namespace {

void ResetModuleState() {
  _mapCopyParam.clear();
  _destCopyParam = COPY_PARM();
  _taskDataSnapshot = Json::Value();
  _srcPathInfos.clear();
  _destPathInfo = PathInfo();
  _dirSizeCache.clear();
  _processingPath.clear();
  _accurateProgress = true;
  _notStarted = _hadFailure = false;
  _cancelRequested = 0;
  _processedBytes = _lastChunkBytes = _totalAmount = _processedNum = 0;
  _lastWriteTime = 0;
  _copyOptions = TAVOCOPYOPTIONS{};
  _srcFsType = _destFsType = -1;
  delete _srcCloud;
  delete _destCloud;
  _srcCloud = _destCloud = nullptr;
  delete _task;
  _task = nullptr;
}

}  // namespace

void EngineTest::SetUp() {
  core::Config config;
  config.server.state = At("state");
  Folder("state");
  core::SetConfig(config);
  ASSERT_TRUE(core::EnsureUserStateFolder(OwnName(), geteuid(), getegid()));
  ResetModuleState();
  fakeMounts.clear();
  cloudScript = CloudScript();
  cloudScript.root = At("server");
  staleMarks = renameFailure = 0;
  makeAfterFirstMark.clear();
  KVX::TaskMgr registry(OwnName().c_str());
  _task =
      std::make_unique<KVX::Task>(OwnName().c_str(), registry.getUniqueTaskId("Fennox_").c_str())
          .release();
  ASSERT_TRUE(_task->setProperty("data", Json::Value(Json::objectValue)));
  ASSERT_TRUE(WfmlibBwInit(false, false, geteuid(), "dest", 8388608));
  VLIBCErrSetEx(0, "test", 0);
  errno = 0;
  const std::lock_guard lock(logMutex);
  logLines.clear();
}

void EngineTest::TearDown() {
  handler_.reset();
  WfmlibBwEnd();
  ResetModuleState();
}

void EngineTest::Folder(const std::string& rest) const {
  std::filesystem::create_directories(root_ / rest);
}

void EngineTest::Write(const std::string& rest, const std::string& content) const {
  std::filesystem::create_directories((root_ / rest).parent_path());
  WriteFile(root_ / rest, content);
}

std::string EngineTest::Read(const std::string& rest) const {
  return std::filesystem::exists(root_ / rest) ? ReadFile(root_ / rest) : "(none)";
}

std::string EngineTest::OtherVolume() {
  struct stat here {};
  struct stat there {};
  if (stat(root_.c_str(), &here) != 0 || stat("/dev/shm", &there) != 0) return "";
  if (here.st_dev == there.st_dev) return "";
  if (!other_) other_.emplace("/dev/shm");
  return other_->path();
}

FennoxMVCPHandler& EngineTest::Handler(const Json::Value& params, const std::string& user) {
  TAVO::APIRequestData data;
  data.method = "start";
  data.version = 3;
  data.loginUser = user.empty() ? OwnName() : user;
  data.params = params;
  request_ = std::make_unique<TAVO::APIRequest>(data);
  response_ = std::make_unique<TAVO::APIResponse>();
  KVX::Task* task = std::exchange(_task, nullptr);
  handler_.reset();
  _task = task;
  return handler_.emplace(request_.get(), response_.get());
}

std::vector<int> EngineTest::FailureCodes() const {
  std::vector<int> codes;
  _task->reload();
  const Json::Value data = _task->getProperty("data");
  for (const Json::Value& failure : data["errors"]) codes.push_back(failure["code"].asInt());
  return codes;
}

std::string EngineTest::taskId() const { return _task->getTaskId(); }
