#include "module_fixture.h"

#include <json/reader.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <utility>

#include "core/config.h"
#include "core/process.h"
#include "scripted_faults.h"
#include "webapi/api_table.h"
#include "webapi/module_state.h"

using namespace Fennox;

Json::Value Parse(const std::string& text) {
  Json::Value value;
  std::string problem;
  std::istringstream in(text);
  EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &value, &problem)) << problem;
  return value;
}

std::string SaidByChild(const std::function<void()>& body) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(InChild([&] { return body(), 0; }), 0);
  return testing::internal::GetCapturedStderr();
}

namespace {

core::ShareConfig ShareAt(const std::filesystem::path& root, const std::string& name,
                          std::vector<std::string> read, std::vector<std::string> write,
                          int restrictions) {
  std::filesystem::create_directory(root / name);
  std::filesystem::permissions(root / name, std::filesystem::perms::all);
  core::ShareConfig share;
  share.name = name;
  share.path = root / name;
  share.read = std::move(read);
  share.write = std::move(write);
  share.restrictions = restrictions;
  return share;
}

core::RemoteConfig RemoteNamed(const std::filesystem::path& root, const std::string& protocol,
                               const std::string& name) {
  std::filesystem::create_directory(root / ("mount-" + name));
  core::RemoteConfig remote;
  remote.name = name;
  remote.protocol = protocol;
  remote.host = "127.0.0.1";
  remote.user = "nobody";
  remote.mount = root / ("mount-" + name);
  return remote;
}

// The configuration may be set only once in a process.
class Server : public ::testing::Environment {
 public:
  void SetUp() override {
    std::string pattern = std::filesystem::temp_directory_path() / "fennox-module-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    root = std::filesystem::canonical(pattern);
    std::filesystem::permissions(root, std::filesystem::perms(0755));
    std::filesystem::create_directory(root / "state");
    core::Config config;
    config.server.state = root / "state";
    const std::vector<std::string> all{"*"};
    config.shares = {
        ShareAt(root, "docs", all, all, 0),
        ShareAt(root, "backup", all, all, 0),
        ShareAt(root, "look", all, {}, 0),
        ShareAt(root, "keep", all, all, core::kNoChange | core::kNoDelete),
        ShareAt(root, "shut", all, all, core::kNoDownload),
        ShareAt(root, "hidden", {}, {}, 0),
    };
    config.remotes = {RemoteNamed(root, "sftp", "nas"), RemoteNamed(root, "sftp", "far"),
                      RemoteNamed(root, "dropbox", "box")};
    core::SetConfig(config);
    core::OpenLog("module-test", true);
  }
  void TearDown() override { std::filesystem::remove_all(root); }
  // Leaves only the folders of the configuration.
  void Empty() const {
    for (const auto& folder : std::filesystem::directory_iterator(root)) {
      for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::filesystem::remove_all(entry);
      }
    }
  }

  std::filesystem::path root;
};

Server* const server =
    static_cast<Server*>(::testing::AddGlobalTestEnvironment(std::make_unique<Server>().release()));

void ResetModuleState() {
  _taskDataSnapshot = Json::Value();
  _srcPathInfos.clear();
  _destPathInfo = PathInfo();
  _dirSizeCache.clear();
  _processingPath.clear();
  _accurateProgress = _notStarted = true;
  _hadFailure = false;
  _cancelRequested = 0;
  _processedBytes = _lastChunkBytes = _totalAmount = _processedNum = _bytesAtLastWrite = 0;
  _foundDirNum = _foundFileNum = _foundFileSize = 0;
  _lastWriteTime = 0;
  _lastRateClock = {};
}

}  // namespace

const std::filesystem::path& ModuleTest::root() { return server->root; }

void ModuleTest::SetUp() {
  ASSERT_TRUE(core::EnsureUserStateFolder(CurrentUser(), geteuid(), getegid()));
  ResetModuleState();
}

void ModuleTest::TearDown() {
  faults = {};
  handler_.reset();
  delete _task;
  _task = nullptr;
  server->Empty();
}

void ModuleTest::MakeRequest(const std::string& method, const Json::Value& params, int version) {
  TAVO::APIRequestData data;
  data.apiClass = "TAVO.Fennox.CopyMove";
  data.method = method;
  data.version = version;
  data.loginUser = login;
  data.sessionId = "session";
  if (params.isObject()) data.params = params;
  // A handler that goes takes its task with it; the record in hand stays.
  KVX::Task* const inHand = std::exchange(_task, nullptr);
  handler_.reset();
  _task = inHand;
  request_ = std::make_unique<TAVO::APIRequest>(data);
  response_ = std::make_unique<TAVO::APIResponse>();
}

FennoxMVCPHandler& ModuleTest::Handler(const std::string& method, const Json::Value& params,
                                       int version) {
  MakeRequest(method, params, version);
  return handler_.emplace(request_.get(), response_.get());
}

Outcome ModuleTest::Delivered() {
  handler_->OutputResponse();
  return {response_->code(), response_->data()};
}

Outcome ModuleTest::Serve(const std::string& method, const Json::Value& params, int version) {
  MakeRequest(method, params, version);
  MVCPWebAPIEntry(request_.get(), response_.get());
  return {response_->code(), response_->data()};
}

KVX::Task& ModuleTest::NewTask(const Json::Value& data) {
  delete _task;
  _task = nullptr;
  KVX::TaskMgr registry(CurrentUser().c_str());
  _task = new KVX::Task(CurrentUser().c_str(), registry.getUniqueTaskId("Fennox_").c_str());
  const bool stored = data.isNull() || _task->setProperty("data", data);
  EXPECT_TRUE(stored);
  return *_task;
}

Json::Value ModuleTest::StoredData() {
  KVX::TaskMgr registry(CurrentUser().c_str());
  const std::unique_ptr<KVX::Task> task(registry.getTaskWithThrow(_task->getTaskId().c_str()));
  return task->getProperty("data");
}
