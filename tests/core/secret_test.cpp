#include "core/secret.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

namespace {

class SecretTest : public testing::Test {
 protected:
  SecretTest() {
    folder_ = testing::TempDir() + "/secret-XXXXXX";
    EXPECT_NE(mkdtemp(folder_.data()), nullptr);
  }
  ~SecretTest() override { std::filesystem::remove_all(folder_); }

  std::string File(const std::string& name, const std::string& content, mode_t mode) {
    const std::string path = folder_ + "/" + name;
    std::ofstream(path) << content;
    EXPECT_EQ(chmod(path.c_str(), mode), 0);
    return path;
  }

  // What a child that has become another user answers.
  static int AsNobody(const std::function<int()>& ask) {
    const pid_t pid = fork();
    if (pid == 0) _exit(setresgid(65534, 65534, 65534) || setresuid(65534, 65534, 65534) || ask());
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::string folder_;
};

TEST_F(SecretTest, OnlyAFileOfItsOwnerAloneIsRead) {
  std::string content;
  std::string err;
  EXPECT_TRUE(core::ReadSecretFile(File("good", "word\n", 0600), &content, &err)) << err;
  EXPECT_EQ(content, "word\n");
  for (const auto& [path, words] : {std::pair{File("open", "word", 0640), "only its owner"},
                                    {File("empty", "", 0600), "empty"},
                                    {folder_ + "/none", "No such file"},
                                    {folder_, "must be a file"}}) {
    EXPECT_FALSE(core::ReadSecretFile(path, &content, &err));
    EXPECT_NE(err.find(words), std::string::npos) << err;
  }
}

TEST_F(SecretTest, WhatIsKeptGoesAlongToAUserWhoCannotReadIt) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  const std::string kept = File("kept", "word", 0600);
  const std::string other = File("other", "word", 0600);
  const std::string open = File("open", "word", 0644);
  core::KeepSecret(kept);
  core::KeepSecret(open);
  EXPECT_TRUE(core::IsSecretKept(kept));
  EXPECT_FALSE(core::IsSecretKept(other));
  std::string content;
  std::string err;
  EXPECT_EQ(AsNobody([&] {
              return core::ReadSecretFile(kept, &content, &err) && content == "word" ? 0 : 1;
            }),
            0);
  EXPECT_EQ(AsNobody([&] { return core::ReadSecretFile(other, &content, &err) ? 1 : 0; }), 0);
  EXPECT_EQ(AsNobody([&] {
              return core::ReadSecretFile(open, &content, &err) ||
                     err.find("only its owner") == std::string::npos;
            }),
            0)
      << "the reason is kept too";
}

}  // namespace
