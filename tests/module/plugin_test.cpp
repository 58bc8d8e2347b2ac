// The built plug-in, as a server meets it.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <json/writer.h>
#include <pwd.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>

#include "core/config.h"
#include "core/process.h"
#include "webapi_runtime/api_table.h"

namespace {

namespace fs = std::filesystem;

std::set<std::string> ExportedSymbols() {
  std::set<std::string> names;
  FILE* nm = popen("nm -D --defined-only --format=posix " PLUGIN_PATH, "r");
  char name[256];
  while (nm != nullptr && std::fscanf(nm, "%255s%*[^\n]", name) == 1) names.insert(name);
  EXPECT_EQ(pclose(nm), 0);
  return names;
}

TEST(Plugin, ExportsExactlyItsSevenNames) {
  EXPECT_EQ(ExportedSymbols(),
            (std::set<std::string>{"GetAPITable", "gTable", "_mapCopyParam", "_destCopyParam",
                                   "MVCPReadWriteData", "MVCPReadWriteDataEx", "MoveThreadMain"}));
}

const APITableEntry* TableOf(void* plugin) {
  return reinterpret_cast<const APITableEntry* (*)()>(dlsym(plugin, "GetAPITable"))();
}

TEST(Plugin, LoadsServesItsTableAndUnloadsAgainAndAgain) {
  for (int round = 0; round < 20; ++round) {
    void* plugin = dlopen(PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(plugin, nullptr) << dlerror();
    const APITableEntry* table = TableOf(plugin);
    EXPECT_EQ(table, dlsym(plugin, "gTable"));
    int methods = 0;
    for (const APITableEntry* row = table; row->api != nullptr; ++row) ++methods;
    EXPECT_EQ(methods, 9);

    TAVO::APIRequestData data;
    data.method = "none";
    data.loginUser = "no-such-user-here";
    TAVO::APIRequest request(data);
    TAVO::APIResponse response;
    table->handler(&request, &response);
    EXPECT_NE(response.code(), 0);

    ASSERT_EQ(dlclose(plugin), 0);
    EXPECT_EQ(dlopen(PLUGIN_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr) << "still loaded";
  }
}

// A server with the shares "in" and "out", and the plug-in loaded.
class PluginTasks : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = fs::temp_directory_path() / "fennox-plugin-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    root_ = fs::canonical(pattern);
    core::Config config;
    config.server.state = root_ / "state";
    for (const char* name : {"in", "out"}) {
      core::ShareConfig share;
      share.name = name;
      share.path = root_ / name;
      share.write = {"*"};
      fs::create_directories(share.path);
      config.shares.push_back(share);
    }
    fs::create_directories(root_ / "state");
    core::SetConfig(config);
    fs::create_directories(root_ / "in/tree/deep/er");
    for (std::size_t i = 0; i < 50; ++i) {
      std::ofstream(root_ / "in/tree/deep" / std::to_string(i)) << std::string(i * 1000UL, 'x');
    }
    std::ofstream(root_ / "in/single") << "one";
    plugin_ = dlopen(PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(plugin_, nullptr) << dlerror();
  }
  void TearDown() override {
    if (plugin_ != nullptr) dlclose(plugin_);
    fs::remove_all(root_);
  }

  TAVO::APIResponse Serve(const char* method, const Json::Value& params) {
    TAVO::APIRequestData data;
    data.apiClass = "TAVO.Fennox.CopyMove";
    data.method = method;
    data.version = 3;
    data.loginUser = getpwuid(geteuid())->pw_name;
    data.params = params;
    TAVO::APIRequest request(data);
    TAVO::APIResponse response;
    TableOf(plugin_)->handler(&request, &response);
    return response;
  }
  // Starts a task for both entries of "in" and follows it to its end.
  Json::Value Run(bool move) {
    Json::Value params;
    params["path"] = "/in/tree,/in/single";
    params["dest_folder_path"] = "/out";
    params["remove_src"] = move;
    const TAVO::APIResponse started = Serve("start", params);
    EXPECT_EQ(started.code(), 0) << started.data();
    for (int i = 0; i < 6000; ++i) {
      Json::Value status = Serve("status", started.data()).data();
      if (status["finished"].asBool()) return status;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return {};
  }

  fs::path root_;
  void* plugin_ = nullptr;
};

TEST_F(PluginTasks, CopyAndMoveWholeTrees) {
  fs::copy(root_ / "in", root_ / "expected", fs::copy_options::recursive);
  const std::string same = "diff -r " + (root_ / "expected").string() + " ";
  Json::Value status = Run(false);
  EXPECT_EQ(status["progress"], Json::Value(1.0)) << status;
  EXPECT_FALSE(status.isMember("errors")) << status;
  EXPECT_EQ(status["processed_size"], status["total"]) << status;
  EXPECT_EQ(std::system((same + (root_ / "out").string()).c_str()), 0);
  EXPECT_EQ(std::system((same + (root_ / "in").string()).c_str()), 0);

  fs::remove_all(root_ / "out");
  fs::create_directory(root_ / "out");
  status = Run(true);
  EXPECT_EQ(status["progress"], Json::Value(1.0)) << status;
  EXPECT_FALSE(status.isMember("errors")) << status;
  EXPECT_EQ(std::system((same + (root_ / "out").string()).c_str()), 0);
  EXPECT_TRUE(fs::is_empty(root_ / "in"));
}

TEST_F(PluginTasks, ConflictWithoutAPolicyIsRefused) {
  std::ofstream(root_ / "out/single") << "kept";
  Json::Value params;
  params["path"] = "/in/single";
  params["dest_folder_path"] = "/out";
  const TAVO::APIResponse refused = Serve("start", params);
  EXPECT_EQ(refused.code(), 1000);
  EXPECT_EQ(refused.data()[0]["code"], 1003);
  EXPECT_EQ(fs::file_size(root_ / "out/single"), 4U);
}

}  // namespace
