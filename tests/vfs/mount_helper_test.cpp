#include "mount_helper.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "helper_process.h"
#include "tests/common/scratch.h"

namespace {

using vfs::TroubleKind;

TEST(Trouble, IsToldByWhatWasSaid) {
  const std::pair<const char*, TroubleKind> said[] = {
      {"Host key verification failed.", TroubleKind::kHostKey},
      {"SSL peer certificate or SSH remote key was not OK", TroubleKind::kHostKey},
      {"ssh: Could not resolve hostname nas.invalid: Name or service not known",
       TroubleKind::kNotResolved},
      {"ssh: connect to host 127.0.0.1 port 1: Connection refused", TroubleKind::kRefused},
      {"dial tcp 127.0.0.1:1: connect: connection refused", TroubleKind::kRefused},
      {"Connection timed out during banner exchange", TroubleKind::kTimedOut},
      {"Connection timeout after 5001 ms", TroubleKind::kTimedOut},
      {"backup@nas: Permission denied (publickey,password).", TroubleKind::kLoginFailed},
      {"Access denied: 530", TroubleKind::kLoginFailed},
      {"SSL certificate problem: self-signed certificate", TroubleKind::kCertificate},
      {"x509: certificate signed by unknown authority", TroubleKind::kCertificate},
      {"server:/none: No such file or directory", TroubleKind::kNoFolder},
      {"read: Connection reset by peer", TroubleKind::kUnreachable},
      {"something else", TroubleKind::kOther},
  };
  for (const auto& [words, kind] : said) {
    EXPECT_EQ(vfs::TroubleFromWords(words).kind, kind) << words;
    EXPECT_STRNE(vfs::NameOf(kind), "");
    EXPECT_NE(vfs::ErrnoOf(kind), 0);
  }
  EXPECT_FALSE(vfs::Trouble{});
  EXPECT_STREQ(vfs::NameOf(TroubleKind::kNone), "");
}

class MountHelperTest : public testing::Test {
 protected:
  MountHelperTest() {
    remote_.name = "nas";
    remote_.host = "127.0.0.1";
    remote_.user = "backup";
    remote_.path = "/srv/x y";
    remote_.password_file = WriteFile(folder_ + "/password", std::string(kSecret) + "\n", 0600);
    remote_.known_hosts = WriteFile(folder_ + "/known hosts", "");
  }

  vfs::Trouble Prepare(const std::string& protocol) {
    remote_.protocol = protocol;
    program_ = {};
    return vfs::PrepareHelper(remote_, {1000, 100, folder_ + "/mnt", folder_, folder_ + "/orders"},
                              &program_);
  }

  static bool Holds(const std::vector<std::string>& texts, const std::string& part) {
    return std::any_of(texts.begin(), texts.end(), [&](const std::string& text) {
      return text.find(part) != std::string::npos;
    });
  }

  static constexpr const char* kSecret = "p4ss word";
  const TempFolder own_;
  const std::string folder_ = own_.path();
  core::RemoteConfig remote_;
  vfs::Program program_;
};

TEST_F(MountHelperTest, NoSecretIsOnACommandLineOrOnDisk) {
  for (const char* protocol : {"sftp", "ftp", "ftps", "webdav", "webdavs"}) {
    const vfs::Trouble trouble = Prepare(protocol);
    if (trouble.kind == TroubleKind::kNotAvailable) GTEST_SKIP() << trouble.words;
    ASSERT_FALSE(trouble) << trouble.words;
    EXPECT_FALSE(Holds(program_.arguments, "p4ss")) << protocol;
    EXPECT_FALSE(Holds(program_.environment, "p4ss")) << protocol;
    const bool sftp = std::string(protocol) == "sftp";
    EXPECT_EQ(program_.input, sftp ? std::string(kSecret) + "\n" : "");
    EXPECT_EQ(Holds(program_.environment, "_PASS="), !sftp);
    EXPECT_TRUE(Holds(program_.arguments, "umask=077"));
    EXPECT_TRUE(Holds(program_.arguments, "uid=1000"));
  }
  const std::string text = ReadFile(folder_ + "/ssh_config");
  EXPECT_EQ(text.find("p4ss"), std::string::npos);
  EXPECT_NE(text.find("StrictHostKeyChecking yes"), std::string::npos);
  EXPECT_NE(text.find("UserKnownHostsFile \"" + remote_.known_hosts + "\""), std::string::npos);
}

TEST_F(MountHelperTest, WhatIsMissingIsSaid) {
  EXPECT_EQ(Prepare("dropbox").kind, TroubleKind::kNotAvailable);
  remote_.password_file = folder_ + "/none";
  EXPECT_EQ(Prepare("ftp").kind, TroubleKind::kNotAvailable);
  remote_.known_hosts.clear();
  if (access("/usr/bin/sshfs", X_OK) != 0 || access("/dev/fuse", R_OK | W_OK) != 0) return;
  EXPECT_EQ(Prepare("sftp").kind, TroubleKind::kHostKey);
}

TEST_F(MountHelperTest, AProgramGetsItsInputAndIsEndedInTime) {
  std::string output;
  EXPECT_TRUE(vfs::RunProgram({{"cat"}, {}, "through"}, 60, &output));
  EXPECT_EQ(output, "through");
  EXPECT_FALSE(vfs::RunProgram({{"false"}, {}, ""}, 60, &output));
  EXPECT_FALSE(vfs::RunProgram({{"no-such-program-here"}, {}, ""}, 60, &output));
  EXPECT_FALSE(vfs::RunProgram({{"sleep", "600"}, {}, ""}, 1, &output));
}

TEST_F(MountHelperTest, AHelperThatEndsLeavesItsWordsAndNoFolder) {
  const vfs::MountOrder order{geteuid(), getegid(), folder_ + "/mnt", folder_, folder_ + "/orders"};
  ASSERT_EQ(mkdir(order.folder.c_str(), 0700), 0);
  const pid_t pid = vfs::StartHelper({{"sh", "-c", "echo told >&2"}, {}, ""}, order, "nas");
  ASSERT_GT(pid, 0);
  int status = 0;
  ASSERT_TRUE(vfs::EndsWithin(pid, 60'000, &status));
  EXPECT_EQ(vfs::WordsOfHelper(folder_), "told\n");
  EXPECT_FALSE(std::filesystem::exists(order.folder));

  ASSERT_EQ(mkdir(order.folder.c_str(), 0700), 0);
  const pid_t lasting = vfs::StartHelper({{"sleep", "600"}, {}, ""}, order, "nas");
  ASSERT_GT(lasting, 0);
  for (int i = 0; i < 6000 && !std::filesystem::exists(folder_ + "/helper"); ++i) usleep(10'000);
  vfs::EndHelper(folder_);
  EXPECT_TRUE(vfs::EndsWithin(lasting, 60'000, &status));
  EXPECT_FALSE(std::filesystem::exists(order.folder));
}

}  // namespace
