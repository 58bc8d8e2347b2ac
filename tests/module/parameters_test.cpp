// Parameters of "start".
#include "module_fixture.h"
#include "task/start_parameters.h"
#include "tasks/store.h"
#include "webapi/module_state.h"

using namespace Fennox;

namespace {

TEST_F(ModuleTest, BadParametersAreRefusedAndLeaveNoTask) {
  const char* const cases[] = {
      R"({})",
      R"({"path":"/docs/a"})",
      R"({"dest_folder_path":"/backup"})",
      R"({"path":"/docs/a","dest_folder_path":""})",
      R"({"path":"/docs/a","dest_folder_path":",,"})",
      R"({"path":"/docs/a","dest_folder_path":{}})",
      R"({"path":"/docs/a","dest_folder_path":[""]})",
      R"({"path":"","dest_folder_path":"/backup"})",
      R"({"path":{"a":1},"dest_folder_path":"/backup"})",
      R"({"path":null,"dest_folder_path":"/backup"})",
      R"({"path":"/docs/a,/docs/b","dest_folder_path":"/backup","overwrite":"true,false,true"})",
      R"({"path":"/docs/a,/docs/b","dest_folder_path":"/backup","overwrite":"true"})",
      R"({"path":"/docs/a","dest_folder_path":"/backup","overwrite":null})",
      R"({"path":"/docs/a","dest_folder_path":"/backup","overwrite":{}})",
      R"({"path":"/docs/a","dest_folder_path":"/backup","rename":"true,true"})",
      R"({"path":"/docs/a","dest_folder_path":"/backup","rename":7})",
      R"({"path":"/docs/a","dest_folder_path":"/backup","remove_src":"yes"})",
      R"({"path":"/docs/a","dest_folder_path":"/backup","remove_src":{}})",
      R"({"path":"/docs/a","dest_folder_path":"/backup","accurate_progress":[true]})",
  };
  WriteFile(Share("docs") / "a", "a");
  for (const char* params : cases) {
    const Outcome outcome = Serve("start", Parse(params));
    EXPECT_EQ(outcome.code, 400) << params;
    EXPECT_TRUE(outcome.data.isNull()) << params;
  }
  EXPECT_TRUE(tasks::List(CurrentUser()).empty());
}

struct ParameterCase {
  const char* params;  // beside two sources and a destination
  int action;
  bool accurate;
  int overwriteMode;
  bool renameMode;
};

TEST_F(ModuleTest, ParametersBecomeTheStartContext) {
  const ParameterCase cases[] = {
      {R"({})", 2, true, 0, false},
      {R"({"remove_src":true,"accurate_progress":false})", 1, false, 0, false},
      {R"({"remove_src":"true","accurate_progress":"false"})", 1, false, 0, false},
      {R"({"remove_src":1,"accurate_progress":0})", 1, false, 0, false},
      {R"({"remove_src":false,"overwrite":true,"rename":true})", 2, true, 3, true},
      {R"({"overwrite":false,"rename":false})", 2, true, 1, false},
      {R"({"overwrite":"true,false"})", 2, true, 1, false},
      {R"({"overwrite":[true,true],"rename":["true","false"]})", 2, true, 1, true},
  };
  for (const ParameterCase& c : cases) {
    Json::Value params = Parse(c.params);
    params["path"] = "/docs/a,/docs/b";
    params["dest_folder_path"] = "/backup/x,/backup/y";
    TAVO::APIRequestData data;
    data.version = 3;
    data.params = params;
    StartContext start(CurrentUser());
    std::string destination;
    ASSERT_TRUE(ReadStartParameters(TAVO::APIRequest(data), start, destination)) << c.params;
    EXPECT_EQ(destination, "/backup/x") << c.params;
    EXPECT_EQ(start.sourcePaths, Parse(R"(["/docs/a","/docs/b"])"));
    EXPECT_EQ(start.action, c.action) << c.params;
    EXPECT_EQ(_accurateProgress, c.accurate) << c.params;
    EXPECT_EQ(start.overwriteMode, c.overwriteMode) << c.params;
    EXPECT_EQ(start.renameMode, c.renameMode) << c.params;
    EXPECT_EQ(start.overwriteList.size(),
              params["overwrite"].isBool() || params["overwrite"].isNull() ? 0U : 2U);
    EXPECT_EQ(start.renameList.size(), params["rename"].isArray() ? 2U : 0U);
  }
}

}  // namespace
