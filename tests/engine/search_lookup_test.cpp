#include "engine/search_lookup.h"

#include <pwd.h>
#include <unistd.h>

#include "engine_fixture.h"
#include "tasks/task.h"

using namespace Fennox;

namespace {

class SearchLookUpTest : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    user_ = getpwuid(geteuid())->pw_name;
    ASSERT_TRUE(support::CreateSearchIndex(user_, "volume1"));
    task_ = std::make_unique<KVX::Task>(user_.c_str(), "search-1");
  }

  SearchFollowUp Find(const std::string& dest, const Json::Value& id = "search-1") {
    Json::Value params(Json::objectValue);
    params["search_taskid"] = id;
    FileSearch::WfmSearchDBTaskMgr indexes(user_.c_str());
    return FindSearchTask(Handler(params), dest, indexes);
  }

  void Describe(const Json::Value& location) {
    Json::Value data(Json::objectValue);
    data["sdbvol"] = "volume1";
    data["sdbid"] = "index";
    data["location"] = location;
    ASSERT_TRUE(task_->setProperty("data", data));
  }

  std::string user_;
  std::unique_ptr<KVX::Task> task_;
};

TEST_F(SearchLookUpTest, NoTaskOrNoDescriptionMeansNothingToFollow) {
  FileSearch::WfmSearchDBTaskMgr indexes(user_.c_str());
  EXPECT_EQ(FindSearchTask(Handler(), "/a", indexes).index, nullptr);
  EXPECT_EQ(Logged(1804), 0);
  EXPECT_EQ(Find("/a", "unknown").index, nullptr);
  EXPECT_EQ(Logged(1804), 1);
  EXPECT_EQ(Find("/a").index, nullptr);
  Json::Value incomplete(Json::objectValue);
  incomplete["sdbvol"] = "volume1";
  incomplete["location"].append("/a");
  ASSERT_TRUE(task_->setProperty("data", incomplete));
  const SearchFollowUp found = Find("/a");
  EXPECT_EQ(found.index, nullptr);
  EXPECT_FALSE(found.destInScope);
  EXPECT_EQ(Logged(1804), 1);
}

TEST_F(SearchLookUpTest, TheDestinationIsInScopeBelowALocation) {
  Json::Value locations(Json::arrayValue);
  locations.append("/other");
  locations.append("/a/b");
  Describe(locations);
  EXPECT_NE(Find("/a/b").index, nullptr);
  EXPECT_TRUE(Find("/a/b").destInScope);
  EXPECT_TRUE(Find("/a/b/c").destInScope);
  for (const char* path : {"/a/bc", "/a", "/a/b2/c"}) EXPECT_FALSE(Find(path).destInScope) << path;
  EXPECT_NE(Find("/a/bc").index, nullptr);
}

TEST_F(SearchLookUpTest, AnIdOfDigitsArrivesAsANumber) {
  task_ = std::make_unique<KVX::Task>(user_.c_str(), "12345");
  Describe("/a");
  EXPECT_NE(Find("/a", 12345).index, nullptr);
}

TEST_F(SearchLookUpTest, ALocationThatIsNoListHoldsNothing) {
  Describe("/a");
  const SearchFollowUp found = Find("/a");
  EXPECT_NE(found.index, nullptr);
  EXPECT_FALSE(found.destInScope);
}

}  // namespace
