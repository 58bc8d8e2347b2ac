// A name is only ever seen with its whole file behind it.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "copier.h"
#include "core/error.h"
#include "volumes.h"

namespace fileop_test {
namespace {

using Kind = Copier::Kind;

class WholeFiles : public ::testing::Test {
 protected:
  // 40 files of up to 600 kB in 4 folders.
  void FillTree(const std::string& root) {
    for (unsigned i = 0; i < 40; ++i) {
      MakeFolder(root + "/d" + std::to_string(i % 4));
      Write(root + "/d" + std::to_string(i % 4) + "/f" + std::to_string(i),
            Pattern(i * 15000 + 1, i));
    }
  }

  // Every file below `copy` is a whole file of `root`.
  void ExpectOnlyWholeFiles(const std::string& root, const std::string& copy) {
    for (const std::string& folder : List(copy)) {
      if (folder.starts_with(".fennox-")) continue;
      const std::string below = "/" + folder;
      for (const std::string& name : List(copy + below)) {
        std::string file = below;
        file.append("/").append(name);
        if (name.starts_with(".fennox-")) continue;
        EXPECT_TRUE(SameContent(copy + file, root + file)) << file;
        EXPECT_EQ(StatOf(copy + file).st_mtim.tv_nsec, StatOf(root + file).st_mtim.tv_nsec);
      }
    }
  }

  Scratch scratch_;
};

TEST_F(WholeFiles, FileHasNoFinalNameWhileItsDataMoves) {
  for (const int policy : {-1, 1}) {
    const std::string dst = scratch_ / "dst";
    Write(scratch_ / "src", Pattern(3 << 20));
    if (policy == 1) Write(dst, "old content");
    Copier copier(Kind::kCopy, policy);
    copier.on_data = [&](const std::string&, const std::string& shown, int*, int*) {
      EXPECT_EQ(Read(dst), policy == 1 ? "old content" : "(none)");
      EXPECT_NE(shown, dst);
      EXPECT_EQ(::access(shown.c_str(), W_OK), 0);
      return 1;
    };
    ASSERT_EQ(copier.File(scratch_ / "src", dst), 0);
    EXPECT_TRUE(SameContent(dst, scratch_ / "src"));
    ::unlink(dst.c_str());
  }
  EXPECT_EQ(Leftovers(scratch_.path()).size(), 0U);
}

TEST_F(WholeFiles, FilesOfANewFolderAreNotSeenUnderItsNameBeforeTheyAreWhole) {
  FillTree(scratch_ / "src");
  Copier copier(Kind::kCopy);
  copier.reflink = false;
  unsigned calls = 0;
  copier.on_data = [&](const std::string& src, const std::string&, int*, int*) {
    ++calls;
    EXPECT_FALSE(Exists((scratch_ / "dst") + src.substr((scratch_ / "src").size())));
    return 1;
  };
  ASSERT_EQ(copier.Folder(scratch_ / "src", scratch_ / "dst"), 0);
  EXPECT_EQ(calls, 40U);
  EXPECT_EQ(Describe(scratch_ / "src"), Describe(scratch_ / "dst"));
}

TEST_F(WholeFiles, CancelLeavesNoPartialFileAndKeepsTheOldContent) {
  FillTree(scratch_ / "src");
  MakeFolder(scratch_ / "dst/d1");
  Write(scratch_ / "dst/d1/f37", "old content");
  for (const bool merged : {false, true}) {
    const std::string dst = merged ? scratch_ / "dst" : scratch_ / "new";
    Copier copier(Kind::kCopy, 1);
    copier.reflink = false;
    copier.on_read_size = [](unsigned long long bytes) {
      return static_cast<long long>(std::min<unsigned long long>(bytes, 100000));
    };
    unsigned checks = 0;
    copier.on_cancel_check = [&] { return ++checks > 150; };
    ASSERT_LT(copier.Folder(scratch_ / "src", dst), 0);
    EXPECT_EQ(copier.error, ECANCELED);
    const std::string old = Read(scratch_ / "dst/d1/f37");
    EXPECT_TRUE(old == "old content" || old == Read(scratch_ / "src/d1/f37"));
    Write(scratch_ / "src/d1/f37", old);
    EXPECT_GT(Describe(dst).size(), 2U);
    if (!merged) ExpectOnlyWholeFiles(scratch_ / "src", dst);
    EXPECT_EQ(Leftovers(scratch_.path()).size(), 0U);
  }
}

TEST_F(WholeFiles, AStopInTheNextFolderLeavesTheOneBeforeWholeUnderItsName) {
  FillTree(scratch_ / "src");
  std::vector<std::string> folders;
  Copier copier(Kind::kCopy);
  copier.reflink = false;
  copier.on_data = [&](const std::string& src, const std::string&, int*, int*) {
    const std::string folder = src.substr(0, src.rfind('/'));
    if (folders.empty() || folders.back() != folder) folders.push_back(folder);
    return 1;
  };
  copier.on_cancel_check = [&] { return folders.size() == 2; };
  ASSERT_LT(copier.Folder(scratch_ / "src", scratch_ / "dst"), 0);
  const std::string before = folders.front().substr((scratch_ / "src").size());
  EXPECT_EQ(Describe(scratch_ / ("dst" + before)), Describe(scratch_ / ("src" + before)));
  EXPECT_EQ(Leftovers(scratch_ / "dst").size(), 0U);
}

TEST_F(WholeFiles, AnAbortByTheReadSizeHookStopsTheTree) {
  FillTree(scratch_ / "src");
  Copier copier(Kind::kCopy);
  copier.reflink = false;
  unsigned asked = 0;
  copier.on_read_size = [&](unsigned long long bytes) {
    // 0 means "not yet", so the file is not given up for it.
    if (++asked == 5) return 0LL;
    return asked > 10 ? -1LL : static_cast<long long>(bytes);
  };
  ASSERT_LT(copier.Folder(scratch_ / "src", scratch_ / "dst"), 0);
  EXPECT_EQ(asked, 11U);
  ExpectOnlyWholeFiles(scratch_ / "src", scratch_ / "dst");
  EXPECT_EQ(Leftovers(scratch_.path()).size(), 0U);
}

TEST_F(WholeFiles, WhatALivingTaskWorksOnIsNotCleanedUp) {
  Write(scratch_ / "a", Pattern(1000));
  MakeFolder(scratch_ / "src");
  Write(scratch_ / "src/f", "f");
  std::string mine = ".fennox-notes";
  Write(scratch_ / mine, "a user's own file");
  Copier outer(Kind::kCopy);
  outer.on_data = [&](const std::string&, const std::string&, int*, int*) {
    // Another task in the same folder, while a folder is being built there.
    EXPECT_EQ(Leftovers(scratch_.path()).size(), 2U);
    EXPECT_EQ(::fork() == 0 ? (::execl("/bin/true", "true", nullptr), 0) : 0, 0);
    TAVOCOPYOPTIONS options = outer.options;
    EXPECT_EQ(TAVOFileCopyEx((scratch_ / "a").c_str(), (scratch_ / "b").c_str(), &options, nullptr),
              0);
    EXPECT_EQ(Leftovers(scratch_.path()).size(), 2U);
    return 1;
  };
  ASSERT_EQ(outer.Folder(scratch_ / "src", scratch_ / "dst"), 0) << outer.code;
  EXPECT_EQ(Read(scratch_ / "dst/f"), "f");
  EXPECT_EQ(Read(scratch_ / mine), "a user's own file");
  ::wait(nullptr);
}

TEST_F(WholeFiles, AFullVolumeStopsTheTreeAndLeavesWholeFiles) {
  SKIP_UNLESS_ROOT();
  for (const char* type : {"ext4", "tmpfs"}) {
    Volume small(type, 16);
    SKIP_UNLESS_MOUNTED(small);
    FillTree(scratch_ / "src");
    for (int i = 0; i < 20; ++i) {
      Write(scratch_ / ("src/d0/big" + std::to_string(i)), Pattern(1 << 20));
    }
    Copier copier(Kind::kCopy);
    unsigned asked_after = 0;
    copier.on_file = [&](const char*, const char*, void*) {
      ++asked_after;
      return 1;
    };
    ASSERT_LT(copier.Folder(scratch_ / "src", small / "dst"), 0);
    EXPECT_EQ(copier.error, ENOSPC);
    EXPECT_EQ(copier.code, core::kErrNoSpace);
    EXPECT_LT(asked_after, 60U);
    ExpectOnlyWholeFiles(scratch_ / "src", small / "dst");
    EXPECT_EQ(Leftovers(small.path()).size(), 0U);
  }
}

TEST_F(WholeFiles, AFolderThatAppearsMeanwhileIsMerged) {
  FillTree(scratch_ / "src");
  Copier copier(Kind::kCopy, 0);
  copier.on_data = [&](const std::string& src, const std::string&, int*, int*) {
    if (src.ends_with("d2/f2")) {
      MakeFolder(scratch_ / "dst/d2");
      Write(scratch_ / "dst/d2/f6", "theirs");
    }
    return 1;
  };
  copier.reflink = false;
  ASSERT_EQ(copier.Folder(scratch_ / "src", scratch_ / "dst"), 0);
  EXPECT_EQ(Read(scratch_ / "dst/d2/f6"), "theirs");
  EXPECT_TRUE(SameContent(scratch_ / "dst/d2/f10", scratch_ / "src/d2/f10"));
  EXPECT_EQ(List(scratch_ / "dst/d2").size(), 10U);
  EXPECT_EQ(Leftovers(scratch_.path()).size(), 0U);
}

}  // namespace
}  // namespace fileop_test
