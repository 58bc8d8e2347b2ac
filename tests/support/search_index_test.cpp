#include "support/search_index.h"

#include <set>
#include <thread>
#include <vector>

#include "scratch.h"
#include "tests/common/sql.h"

namespace {

class SearchIndexTest : public Scratch {
 protected:
  SearchIndexTest() {
    EXPECT_TRUE(support::CreateSearchIndex(OwnName(), "vol"));
    FileSearch::WfmSearchDBTaskMgr registry(OwnName().c_str());
    task_.reset(registry.getDBTask("vol", "id"));
  }

  static TAVOSTAT Sized(off_t size, mode_t mode = S_IFREG | 0644) {
    TAVOSTAT stat{};
    stat.st.st_size = size;
    stat.st.st_mode = mode;
    return stat;
  }

  bool Insert(const std::string& share, const std::string& path, off_t size = 1) {
    TAVOSTAT stat = Sized(size);
    return task_->insertFile("ignored", "/ignored", share, path, stat);
  }

  bool Update(const std::string& oldShare, const std::string& oldPath, const std::string& share,
              const std::string& path, off_t size) {
    TAVOSTAT stat = Sized(size);
    return task_->updateFile(oldShare, oldPath, share, path, stat);
  }

  // "share:path=size" of every record.
  std::set<std::string> Records() const {
    std::set<std::string> records;
    for (const auto& row : Sql(File(), "SELECT share, path, size FROM files")) {
      records.insert(row[0] + ":" + row[1] + "=" + row[2]);
    }
    return records;
  }

  std::string File() const { return At("state/users/" + OwnName() + "/search/vol.db"); }

  std::unique_ptr<FileSearch::WfmSearchDBTask> task_;
};

using Set = std::set<std::string>;

TEST_F(SearchIndexTest, AnInsertReplacesTheRecordOfThePlace) {
  ASSERT_TRUE(Insert("a", "/s/a/x", 1));
  ASSERT_TRUE(Insert("b", "/s/a/x", 2));
  ASSERT_TRUE(Insert("a", "/s/a/x", 3));
  EXPECT_EQ(Records(), (Set{"a:/s/a/x=3", "b:/s/a/x=2"}));
}

TEST_F(SearchIndexTest, AFolderTakesWhatIsBelowItAlongAndNothingElse) {
  const std::string wild = "/s/a_%";
  const std::string paths[] = {wild,       wild + "-x/z", wild + "/x", wild + "/d/y",
                               wild + "0", "/s/abc",      "/s/abc/x",  wild + "/\xE4\xF6"};
  for (const std::string& path : paths) {
    ASSERT_TRUE(Insert("a", path));
  }
  ASSERT_TRUE(Insert("other", wild + "/x"));
  ASSERT_TRUE(Insert("b", "/t/new/x", 9));
  ASSERT_TRUE(Update("a", wild, "b", "/t/new", 5));
  EXPECT_EQ(Records(), (Set{"b:/t/new=5", "b:/t/new/x=1", "b:/t/new/d/y=1", "b:/t/new/\xE4\xF6=1",
                            "a:/s/a_%0=1", "a:/s/a_%-x/z=1", "a:/s/abc=1", "a:/s/abc/x=1",
                            "other:/s/a_%/x=1"}));
  ASSERT_TRUE(task_->delRecs("b", "/t/new"));
  ASSERT_TRUE(task_->delRecs("a", wild));
  EXPECT_EQ(Records().size(), 5U);
  ASSERT_TRUE(task_->delRecs("a", "/s/abc"));
  EXPECT_EQ(Records(), (Set{"a:/s/a_%0=1", "a:/s/a_%-x/z=1", "other:/s/a_%/x=1"}));
}

TEST_F(SearchIndexTest, NamesNeedNotBeValidUtf8) {
  for (const char* path : {"/s/\xE4\xBD", "/s/\xE4\xBD/\xA0x", "/s/\xE4", "/s/\xE4/\xA0"}) {
    ASSERT_TRUE(Insert("a", path));
  }
  ASSERT_TRUE(Update("a", "/s/\xE4\xBD", "a", "/t", 2));
  ASSERT_TRUE(Update("a", "/s/\xE4", "a", "/u\xFC", 3));
  EXPECT_EQ(Records(), (Set{"a:/t=2", "a:/t/\xA0x=1", "a:/u\xFC=3", "a:/u\xFC/\xA0=1"}));
}

TEST_F(SearchIndexTest, AnUpdateInPlaceChangesOnlyTheRecordAndMakesAMissingOne) {
  ASSERT_TRUE(Insert("a", "/s/f", 1));
  ASSERT_TRUE(Insert("a", "/s/f/x", 1));
  ASSERT_TRUE(Update("a", "/s/f", "a", "/s/f", 7));
  ASSERT_TRUE(Update("a", "/s/none", "a", "/s/new", 8));
  EXPECT_EQ(Records(), (Set{"a:/s/f=7", "a:/s/f/x=1", "a:/s/new=8"}));
}

TEST_F(SearchIndexTest, AFailedUpdateChangesNothing) {
  ASSERT_TRUE(Insert("a", "/s/f", 1));
  Sql(File(), "CREATE TRIGGER full BEFORE INSERT ON files BEGIN SELECT RAISE(ABORT, 'full'); END");
  EXPECT_FALSE(Update("a", "/s/f", "a", "/s/g", 2));
  EXPECT_EQ(Records(), (Set{"a:/s/f=1"}));
}

TEST_F(SearchIndexTest, WritersWaitForEachOther) {
  std::vector<std::thread> writers;
  writers.reserve(4);
  for (int w = 0; w < 4; ++w) {
    writers.emplace_back([this, w] {
      for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(Insert("a", "/" + std::to_string(w) + "/" + std::to_string(i)));
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(Records().size(), 80U);
}

TEST_F(SearchIndexTest, OnlyPlainNamesOfExistingIndexesAreFound) {
  FileSearch::WfmSearchDBTaskMgr registry(OwnName().c_str());
  Write("state/users/" + OwnName() + "/outside.db", "");
  const std::pair<const char*, const char*> rows[] = {
      {"none", "id"}, {"../outside", "id"}, {"", "id"}, {"..", "id"}, {"vol", ""}, {"vol", "a/b"}};
  for (const auto& [volume, id] : rows) {
    EXPECT_EQ(registry.getDBTask(volume, id), nullptr) << volume << " " << id;
  }
  EXPECT_EQ(FileSearch::WfmSearchDBTaskMgr(nullptr).getDBTask("vol", "id"), nullptr);
  EXPECT_EQ(FileSearch::WfmSearchDBTaskMgr("../x").getDBTask("vol", "id"), nullptr);
  EXPECT_FALSE(support::CreateSearchIndex(OwnName(), "../outside"));
  EXPECT_FALSE(support::CreateSearchIndex("no-such-user-here", "vol"));
  std::filesystem::remove(File());
  EXPECT_FALSE(Insert("a", "/x"));
  EXPECT_FALSE(std::filesystem::exists(File()));
}

TEST_F(SearchIndexTest, ANewSearchStartsEmpty) {
  ASSERT_TRUE(Insert("a", "/x"));
  ASSERT_TRUE(support::CreateSearchIndex(OwnName(), "vol"));
  EXPECT_EQ(Records(), Set{});
}

}  // namespace
