// The built plug-in, as a server meets it.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

#include "webapi_runtime/api_table.h"

namespace {

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

}  // namespace
