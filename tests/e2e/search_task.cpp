// Makes a search task with an empty index, as a running search has them:
//   search_task STATE USER VOLUME LOCATION…    prints the task's id
#include <cstdio>
#include <utility>

#include "core/config.h"
#include "support/search_index.h"
#include "tasks/task.h"

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  core::Config config;
  config.server.state = argv[1];
  core::SetConfig(std::move(config));
  if (!support::CreateSearchIndex(argv[2], argv[3])) return 1;

  KVX::TaskMgr registry(argv[2]);
  KVX::Task task(argv[2], registry.getUniqueTaskId("Search_").c_str());
  Json::Value data(Json::objectValue);
  data["sdbid"] = "index";
  data["sdbvol"] = argv[3];
  data["location"] = Json::Value(Json::arrayValue);
  for (int i = 4; i < argc; ++i) data["location"].append(argv[i]);
  if (!task.setProperty("data", data)) return 1;
  std::printf("%s\n", task.getTaskId().c_str());
  return 0;
}
