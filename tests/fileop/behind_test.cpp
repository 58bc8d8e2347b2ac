// Files that are still on their way when the data hook has returned.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "copier.h"
#include "core/config.h"
#include "core/unique_fd.h"
#include "fileop/behind.h"
#include "volumes.h"

namespace fileop_test {
namespace {

namespace fs = std::filesystem;
using Kind = Copier::Kind;

// A server whose folder stands for its mount, too.
struct Server {
  struct OnItsWay {
    std::string content, to;
    core::UniqueFd into;  // of what is fetched
  };
  std::function<bool(const std::string& name)> loses = [](const std::string&) { return false; };
  std::function<void(const std::string& to)> before_arrival = [](const std::string&) {};
  bool may_leave = false;
  unsigned long long latest = 0, last = 0;
  std::map<unsigned long long, OnItsWay> files;
  std::size_t most = 0, left = 0, ordinary = 0;
};
Server* server = nullptr;

int Streams(const char* /*src*/, const char* dst, long /*size*/) {
  return std::string(dst).find("/server/") != std::string::npos ? 1 : 0;
}
int Fetches(const char* src, const char* /*dst*/, long /*size*/) {
  return std::string(src).find("/server/") != std::string::npos ? 1 : 0;
}
void LetNext(int /*fetch*/) { server->may_leave = true; }
unsigned long long Last(int /*fetch*/) { return server->last; }

int Refuse(int error) {
  errno = error;
  return -1;
}

int Put(const Server::OnItsWay& file, bool replaces) {
  if (file.into) {
    return pwrite(file.into.get(), file.content.data(), file.content.size(), 0) < 0 ? -1 : 0;
  }
  if (!replaces && fs::exists(file.to)) return Refuse(EEXIST);
  Write(file.to, file.content);
  return 0;
}

int Await(int /*fetch*/, const char* /*dst*/, unsigned long long number) {
  const Server::OnItsWay file = std::move(server->files.at(number));
  EXPECT_EQ(number, server->files.begin()->first) << "their ends are heard in order";
  server->files.erase(number);
  server->before_arrival(file.to);
  if (server->loses(fs::path(file.to).filename())) return Refuse(EACCES);
  return Put(file, false);
}

class BehindTest : public ::testing::Test {
 protected:
  BehindTest() {
    server = &server_;
    MakeFolder(At("server"));
    MakeFolder(At("near"));
    core::RemoteConfig remote;
    remote.name = "far";
    remote.protocol = "sftp";
    remote.mount = fs::canonical(At("server"));
    core::Config config;
    config.remotes.push_back(remote);
    core::SetConfig(config);
  }
  ~BehindTest() override { core::SetConfig({}); }

  void SetUp() override { SKIP_UNLESS_MOUNTED(far_); }

  std::string At(const std::string& name) const {
    return name.starts_with("server") ? far_ / name : scratch_ / name;
  }

  static int Data(const std::string& src, const std::string& dst, int* src_fd, int* dst_fd) {
    const bool leave = std::exchange(server_now().may_leave, false);
    server->last = leave ? ++server->latest : 0;
    (leave ? server->left : server->ordinary) += 1;
    Server::OnItsWay file{Read(src), dst, {}};
    if (Fetches(src.c_str(), "", 0) != 0) {
      EXPECT_TRUE(!leave || *src_fd == -1) << "nothing is opened on the mount";
      file.to = src;
      file.into.reset(dup(*dst_fd));
    }
    if (!leave) {
      if (server->loses("always " + fs::path(file.to).filename().string())) return Refuse(EACCES);
      return Put(file, true);
    }
    server->files.emplace(server->last, std::move(file));
    server->most = std::max(server->most, server->files.size());
    return 0;
  }

  int Carry(Kind kind, const std::string& from, const std::string& to, int policy = 0) {
    Copier copier(kind, policy);
    copier.on_data = Data;
    TAVOCopyArgsExSetStreams(copier.args, Streams);
    TAVOCopyArgsExSetBehind(copier.args, {Fetches, LetNext, Last, Await});
    const int result = copier.Folder(fs::canonical(At(from)), fs::canonical(At(to)) / "tree");
    EXPECT_TRUE(server_.files.empty()) << "all were waited for";
    return result;
  }

  void Fill(const std::string& root) {
    for (const char* folder : {"/d0", "/d1"}) MakeFolder(At(root + folder));
    for (unsigned i = 0; i < 60; ++i) {
      Write(At(root + "/d" + std::to_string(i % 2) + "/f" + std::to_string(i)), Pattern(i * 9, i));
    }
  }
  void ExpectAll(const std::string& root) {
    for (unsigned i = 0; i < 60; ++i) {
      const std::string path = At(root + "/d" + std::to_string(i % 2) + "/f" + std::to_string(i));
      EXPECT_EQ(Read(path), Pattern(i * 9, i)) << path;
    }
  }

  static Server& server_now() { return *server; }
  Scratch scratch_;
  Volume far_{"tmpfs", 16};  // a move there is no rename
  Server server_;
};

TEST_F(BehindTest, WhatDoesNotArriveIsCarriedAgainAndAMoveRemovesAllSources) {
  for (const auto& [from, to] :
       {std::pair("near/tree", "server"), std::pair("server/tree", "near")}) {
    SCOPED_TRACE(from);
    fs::remove_all(At("near/tree"));
    fs::remove_all(At("server/tree"));
    Fill(from);
    server_.left = server_.ordinary = 0;
    server_.loses = [](const std::string& name) {
      return name.ends_with("7") && !name.starts_with("always");
    };
    EXPECT_EQ(Carry(Kind::kMove, from, to), 0);
    ExpectAll(std::string(to) + "/tree");
    EXPECT_FALSE(fs::exists(At(from)));
    EXPECT_GE(server_.left, 58U);
    EXPECT_GE(server_.ordinary, 5U);
    EXPECT_GT(server_.most, 1U);
    EXPECT_LE(server_.most, 16U);
  }
}

// What the hook is lent of a small file is what was read of it past its mount, where it was.
TEST_F(BehindTest, FilesAreReadPastTheirMountWhereThatWorks) {
  static std::atomic<int> given_up, read;
  struct Past : TAVOAHEADSOURCE {
    explicit Past(std::string folder) : path(std::move(folder)) {}
    bool Read(const char* name, int fd, std::uint64_t size) override {
      const std::string content = fileop_test::Read(path + "/" + name);
      if (std::string(name).ends_with("7") || content.size() != size) return false;
      ++read;
      return pwrite(fd, "past ", 5, 0) == 5;
    }
    void GiveUp() override { ++given_up; }
    std::string path;
  };
  const auto data = [](const std::string&, const std::string&, int* src, int* dst) {
    std::array<char, 1000> text{};
    const ssize_t got = ::read(*src, text.data(), text.size());
    return got >= 0 && write(*dst, text.data(), static_cast<std::size_t>(got)) == got ? 0 : -1;
  };
  Fill("server/tree");
  given_up = read = 0;
  Copier copier(Kind::kMove, 0);
  copier.on_data = data;
  TAVOBEHINDHOOKS hooks{[](const char*, const char*, long) { return 0; }, LetNext, Last, Await};
  hooks.ahead = [](const char* src) -> std::unique_ptr<TAVOAHEADSOURCE> {
    return std::make_unique<Past>(src);
  };
  TAVOCopyArgsExSetBehind(copier.args, hooks);
  ASSERT_EQ(copier.Folder(fs::canonical(At("server/tree")), fs::canonical(At("near")) / "tree"), 0);
  EXPECT_EQ(read, 53) << "the empty one and six others are read through the mount";
  EXPECT_EQ(given_up, 0);
  EXPECT_EQ(Read(At("near/tree/d0/f20")), "past ");
  EXPECT_EQ(Read(At("near/tree/d1/f17")), Pattern(17UL * 9, 17));
  EXPECT_FALSE(fs::exists(At("server/tree")));
}

TEST_F(BehindTest, ASourceStaysWhenItsFileNeverArrives) {
  Fill("near/tree");
  server_.loses = [](const std::string& name) { return name.ends_with("f33"); };  // always
  EXPECT_LT(Carry(Kind::kMove, "near/tree", "server"), 0);
  EXPECT_EQ(Read(At("near/tree/d1/f33")), Pattern(33UL * 9, 33));
  EXPECT_FALSE(fs::exists(At("server/tree/d1/f33")));
  EXPECT_FALSE(fs::exists(At("near/tree/d1/f35")));
  EXPECT_FALSE(fs::exists(At("near/tree/d0")));
}

TEST_F(BehindTest, AFileThatAppearsMeanwhileIsTreatedAsTheConflictsAre) {
  for (const int policy : {0, 1}) {
    SCOPED_TRACE(policy);
    fs::remove_all(At("server/tree"));
    Fill("near/tree");
    server_.before_arrival = [](const std::string& to) {
      if (to.ends_with("/f20")) Write(to, "somebody's");
    };
    server_.loses = [](const std::string&) { return false; };
    EXPECT_EQ(Carry(Kind::kCopy, "near/tree", "server", policy), 0);
    EXPECT_EQ(Read(At("server/tree/d0/f20")), policy == 0 ? "somebody's" : Pattern(20UL * 9, 20));
  }
}

TEST_F(BehindTest, AStopLeavesNothingOnItsWay) {
  Fill("near/tree");
  Copier copier(Kind::kMove, 0);
  copier.on_data = Data;
  copier.on_cancel_check = [this] { return server_.left > 5; };
  server_.loses = [this](const std::string&) { return server_.left > 5; };
  TAVOCopyArgsExSetStreams(copier.args, Streams);
  TAVOCopyArgsExSetBehind(copier.args, {Fetches, LetNext, Last, Await});
  EXPECT_LT(copier.Folder(fs::canonical(At("near/tree")), fs::canonical(At("server")) / "tree"), 0);
  EXPECT_EQ(copier.error, ECANCELED);
  EXPECT_TRUE(server_.files.empty());
  for (const auto& entry : fs::recursive_directory_iterator(At("near/tree"))) {
    const std::string there = At("server/" + fs::relative(entry.path(), At("near")).string());
    EXPECT_FALSE(entry.is_regular_file() && fs::exists(there)) << there;
  }
}

}  // namespace
}  // namespace fileop_test
