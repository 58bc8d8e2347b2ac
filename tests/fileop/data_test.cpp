// How the data of one file gets across.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/statfs.h>
#include <unistd.h>

#include "copier.h"
#include "core/error.h"
#include "core/unique_fd.h"
#include "platform/fileop/transfer.h"
#include "volumes.h"

namespace fileop_test {
namespace {

using Kind = Copier::Kind;

// Offsets at which data and holes begin.
std::vector<off_t> Extents(const std::string& path) {
  const core::UniqueFd fd(::open(path.c_str(), O_RDONLY));
  std::vector<off_t> found;
  for (off_t at = 0; (at = ::lseek(fd.get(), at, SEEK_DATA)) >= 0;) {
    found.push_back(at);
    at = ::lseek(fd.get(), at, SEEK_HOLE);
    found.push_back(at);
  }
  return found;
}

void WriteAt(const std::string& path, off_t offset, const std::string& text) {
  const core::UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT, 0644));
  ASSERT_EQ(::pwrite(fd.get(), text.data(), text.size(), offset),
            static_cast<ssize_t>(text.size()));
}

class Data : public ::testing::Test {
 protected:
  Scratch scratch_;
};

TEST_F(Data, EverySizeArrivesWholeOnEveryPairOfVolumes) {
  SKIP_UNLESS_ROOT();
  const Volume ext4("ext4", 96);
  const Volume xfs("xfs", 320);
  const Volume btrfs("btrfs", 200);
  const Volume vfat("vfat", 64);
  const Volume tmpfs("tmpfs", 64);
  const std::vector<std::size_t> sizes{0, 1, 4096, 65536, 65537, 1 << 20, (9 << 20) + 1};
  for (const Volume* from : {&ext4, &xfs, &btrfs, &tmpfs}) {
    for (const Volume* to : {&ext4, &xfs, &btrfs, &vfat, &tmpfs}) {
      if (!from->mounted() || !to->mounted()) continue;
      MakeFolder(*from / "src");
      for (const std::size_t size : sizes) {
        Write((*from / "src/") + std::to_string(size), Pattern(size, 1 + size % 97));
      }
      Copier copier(Kind::kCopy);
      ASSERT_EQ(copier.Folder(*from / "src", *to / "dst"), 0) << copier.error;
      unsigned long long total = 0;
      for (const std::size_t size : sizes) {
        const std::string name = "/" + std::to_string(size);
        EXPECT_TRUE(SameContent((*from / "src") + name, (*to / "dst") + name)) << name;
        total += size;
      }
      EXPECT_EQ(copier.progress, total);
      ASSERT_EQ(std::system(("rm -rf " + (*to / "dst")).c_str()), 0);
    }
  }
}

TEST_F(Data, ReflinkSharesBlocksWhereTheFileSystemCan) {
  SKIP_UNLESS_ROOT();
  for (const char* type : {"btrfs", "xfs"}) {
    const Volume volume(type, 320);
    if (!volume.mounted()) continue;
    Write(volume / "src", Pattern(8 << 20));
    ::sync();
    struct statfs before {};
    struct statfs after {};
    ::statfs(volume.path().c_str(), &before);
    Copier copier(Kind::kCopy);
    ASSERT_EQ(copier.File(volume / "src", volume / "dst"), 0);
    ::sync();
    ::statfs(volume.path().c_str(), &after);
    EXPECT_EQ(copier.reflinked, 1U);
    EXPECT_EQ(copier.progress, 8U << 20);
    EXPECT_TRUE(SameContent(volume / "src", volume / "dst"));
    EXPECT_LT((before.f_bfree - after.f_bfree) * before.f_bsize, 4U << 20) << type;
  }
}

TEST_F(Data, EveryRungMovesTheSameBytesAndGoesOnWhereAnotherStopped) {
  const std::string src = scratch_ / "src";
  WriteAt(src, 0, Pattern(300000));
  WriteAt(src, 4 << 20, Pattern(300000, 2));
  ASSERT_EQ(::truncate(src.c_str(), 6 << 20), 0);
  using Rungs = std::vector<fileop::Rung (*)(fileop::Transfer&)>;
  for (const bool holes : {false, true}) {
    for (const Rungs& rungs :
         {Rungs{fileop::KernelCopy, fileop::PlainCopy},
          Rungs{fileop::ExtentCopy, fileop::PlainCopy}, Rungs{fileop::PlainCopy}}) {
      const core::UniqueFd in(::open(src.c_str(), O_RDONLY));
      const core::UniqueFd out(
          ::open((scratch_ / "dst").c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644));
      fileop::Pacer pacer(nullptr, nullptr, nullptr);
      fileop::Transfer transfer;
      transfer.src = in.get();
      transfer.dst = out.get();
      transfer.expected = 6 << 20;
      transfer.seekable = true;
      transfer.holes = holes;
      transfer.pacer = &pacer;
      // Some bytes have gone by another way.
      ASSERT_EQ(fileop::BufferRange(transfer, 100000), fileop::Rung::kDone);
      fileop::Rung rung = fileop::Rung::kNotHere;
      for (std::size_t i = 0; i < rungs.size() && rung == fileop::Rung::kNotHere; ++i) {
        rung = rungs[i](transfer);
      }
      EXPECT_EQ(rung, fileop::Rung::kDone);
      EXPECT_EQ(transfer.position, 6 << 20);
      EXPECT_TRUE(SameContent(src, scratch_ / "dst"));
      if (holes && rungs.size() > 1) {
        EXPECT_EQ(Extents(scratch_ / "dst"), Extents(src));
      }
    }
  }
}

TEST_F(Data, HolesStayHoles) {
  struct Case {
    const char* name;
    off_t data_at;
    off_t size;
  };
  for (const Case& at : {Case{"only-hole", -1, 5 << 20}, Case{"hole-data-hole", 2 << 20, 6 << 20},
                         Case{"small-hole", -1, 60000}, Case{"data-at-end", 40 << 20, 0}}) {
    const std::string src = scratch_ / at.name;
    if (at.data_at >= 0) WriteAt(src, at.data_at, Pattern(100000));
    if (at.data_at < 0) Write(src, "");
    if (at.size > 0) {
      ASSERT_EQ(::truncate(src.c_str(), at.size), 0);
    }
    for (const bool reflink : {false, true}) {
      Copier copier(Kind::kCopy, 1);
      copier.reflink = reflink;
      ASSERT_EQ(copier.File(src, scratch_ / "dst"), 0) << at.name;
      EXPECT_TRUE(SameContent(src, scratch_ / "dst")) << at.name;
      EXPECT_EQ(Extents(scratch_ / "dst"), Extents(src)) << at.name;
      EXPECT_LE(StatOf(scratch_ / "dst").st_blocks, StatOf(src).st_blocks + 16) << at.name;
      EXPECT_EQ(copier.progress, static_cast<unsigned long long>(StatOf(src).st_size));
    }
  }
}

TEST_F(Data, FilesThatSayTheyAreEmptyAreReadToTheirEnd) {
  const std::string src = "/proc/" + std::to_string(::getpid()) + "/limits";
  Copier copier(Kind::kCopy);
  ASSERT_EQ(copier.File(src, scratch_ / "limits"), 0);
  EXPECT_TRUE(SameContent(src, scratch_ / "limits"));
}

TEST_F(Data, ACopyThatEndsElsewhereThanItsSourceIsAnError) {
  struct Case {
    const char* name;
    off_t cut_to;  // what the source becomes while it is read
  };
  for (const Case& at : {Case{"cut", 1 << 20}, Case{"emptied", 0}}) {
    for (const bool holes : {false, true}) {
      const std::string src = scratch_ / "src";
      Write(src, Pattern(3 << 20));
      if (holes) {
        ASSERT_EQ(::truncate(src.c_str(), 8 << 20), 0);
      }
      Copier copier(Kind::kCopy, 1);
      copier.reflink = false;
      copier.on_read_size = [&](unsigned long long bytes) {
        if (copier.progress > (2 << 20)) (void)!::truncate(src.c_str(), at.cut_to);
        return static_cast<long long>(std::min<unsigned long long>(bytes, 256 << 10));
      };
      EXPECT_LT(copier.File(src, scratch_ / "dst"), 0) << at.name << holes;
      EXPECT_EQ(copier.code, core::kErrInputOutput);
      EXPECT_FALSE(Exists(scratch_ / "dst"));
    }
  }
  // A hook that says it is done but is not.
  Write(scratch_ / "src", Pattern(1000));
  Copier copier(Kind::kCopy);
  copier.on_data = [](const std::string&, const std::string&, int*, int* dst) {
    EXPECT_EQ(::write(*dst, "short", 5), 5);
    return 0;
  };
  EXPECT_LT(copier.File(scratch_ / "src", scratch_ / "dst"), 0);
  EXPECT_FALSE(Exists(scratch_ / "dst"));
}

TEST_F(Data, AFileThatGrowsWhileItIsReadIsCopiedToItsEnd) {
  const std::string src = scratch_ / "src";
  for (const std::size_t size : {1000UL, 3UL << 20}) {
    Write(src, Pattern(size));
    Copier copier(Kind::kCopy, 1);
    copier.reflink = false;
    bool grown = false;
    copier.on_read_size = [&](unsigned long long bytes) {
      if (!grown) WriteAt(src, static_cast<off_t>(size), Pattern(700000, 2));
      grown = true;
      return static_cast<long long>(bytes);
    };
    ASSERT_EQ(copier.File(src, scratch_ / "dst"), 0);
    EXPECT_TRUE(SameContent(src, scratch_ / "dst"));
    EXPECT_EQ(StatOf(src).st_size, static_cast<off_t>(size + 700000));
  }
}

TEST_F(Data, AHookMayCloseTheDescriptors) {
  Write(scratch_ / "src", Pattern(1000));
  ASSERT_EQ(::chmod((scratch_ / "src").c_str(), 0640), 0);
  for (const int policy : {-1, 1}) {
    Copier copier(Kind::kCopy, policy);
    copier.on_data = [](const std::string& src, const std::string& dst, int* src_fd, int* dst_fd) {
      ::close(*src_fd);
      ::close(*dst_fd);
      *src_fd = *dst_fd = -1;
      Write(dst, Read(src));
      return 0;
    };
    ASSERT_EQ(copier.File(scratch_ / "src", scratch_ / "dst"), 0);
    EXPECT_TRUE(SameContent(scratch_ / "src", scratch_ / "dst"));
    EXPECT_EQ(StatOf(scratch_ / "dst").st_mode, S_IFREG | 0640U);
  }
}

TEST_F(Data, ProgressComesInStepsOfAtMostEightMebibytes) {
  Write(scratch_ / "src", Pattern(40 << 20));
  Copier copier(Kind::kCopy);
  copier.reflink = false;
  ASSERT_EQ(copier.File(scratch_ / "src", scratch_ / "dst"), 0);
  EXPECT_EQ(copier.progress, 40U << 20);
  EXPECT_LE(copier.largest_step, 8U << 20);
}

TEST_F(Data, DescriptorsAreCopiedFromWhereTheyStand) {
  Write(scratch_ / "src", Pattern(300000));
  const core::UniqueFd src(::open((scratch_ / "src").c_str(), O_RDONLY));
  const core::UniqueFd dst(::open((scratch_ / "dst").c_str(), O_RDWR | O_CREAT, 0644));
  ASSERT_EQ(::write(dst.get(), "head", 4), 4);
  ASSERT_EQ(::lseek(src.get(), 100000, SEEK_SET), 100000);
  ASSERT_EQ(TAVOCopyFileFdEx(src.get(), dst.get(), 200000, nullptr, nullptr, nullptr), 0);
  EXPECT_TRUE(Read(scratch_ / "dst") == "head" + Pattern(300000).substr(100000));
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  const core::UniqueFd out(pipe[0]);
  core::UniqueFd in(pipe[1]);
  ASSERT_EQ(::write(in.get(), "12345", 5), 5);
  in.reset();
  EXPECT_LT(TAVOCopyFileFdEx(out.get(), dst.get(), 10, nullptr, nullptr, nullptr), 0);
}

TEST_F(Data, PlainCopyStandsAloneWithoutItsPass) {
  Write(scratch_ / "src", "content");
  Copier copier(Kind::kCopy, 1);
  Write(scratch_ / "dst", "old");
  ASSERT_EQ(TAVOCopyFileExI((scratch_ / "src").c_str(), (scratch_ / "dst").c_str(), &copier.options,
                            -1, -1, 1, nullptr),
            0);
  EXPECT_EQ(Read(scratch_ / "dst"), "content");
  ASSERT_EQ(TAVOFileReflinkCopy((scratch_ / "src").c_str(), (scratch_ / "two").c_str(),
                                &copier.options, nullptr),
            0);
  EXPECT_EQ(Read(scratch_ / "two"), "content");
  ASSERT_EQ(::symlink(scratch_.path().c_str(), (scratch_ / "link").c_str()), 0);
  EXPECT_LT(TAVOFileReflinkCopy((scratch_ / "link/src").c_str(), (scratch_ / "three").c_str(),
                                &copier.options, nullptr),
            0);
  EXPECT_EQ(errno, ELOOP);
}

}  // namespace
}  // namespace fileop_test
