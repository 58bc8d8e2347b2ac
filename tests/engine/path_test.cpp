#include "engine_fixture.h"
#include "webapi/module_calls.h"

using namespace Fennox;

namespace {

class PathTest : public EngineTest {};

TEST_F(PathTest, APathIsWithinItselfAndItsFoldersOnly) {
  EXPECT_TRUE(MVCPIsWithinPath("/a/b", "/a/b"));
  EXPECT_TRUE(MVCPIsWithinPath("/a/b/c", "/a/b"));
  EXPECT_FALSE(MVCPIsWithinPath("/a/bc", "/a/b"));
  EXPECT_FALSE(MVCPIsWithinPath("/a", "/a/b"));
  EXPECT_FALSE(MVCPIsWithinPath("/a/b", "/a/b/"));
}

TEST_F(PathTest, ASearchLocationHoldsItselfAndWhatIsBelow) {
  FennoxMVCPHandler& handler = Handler();
  EXPECT_TRUE(handler.IsSubPath("/a/b", "/a"));
  EXPECT_TRUE(handler.IsSubPath("/a/b", "/a/b"));
  EXPECT_FALSE(handler.IsSubPath("/a/bc", "/a/b"));
  EXPECT_FALSE(handler.IsSubPath("/a", "/a/b"));
}

TEST_F(PathTest, OnlyATakenNameIsReplaced) {
  EXPECT_EQ(MVCPGenerateNewName(At("free.txt")), At("free.txt"));
  Write("taken.txt", "x");
  const std::string fresh = MVCPGenerateNewName(At("taken.txt"));
  EXPECT_NE(fresh, At("taken.txt"));
  EXPECT_FALSE(std::filesystem::exists(fresh));
  EXPECT_EQ(std::filesystem::path(fresh).parent_path(), root_);
}

}  // namespace
