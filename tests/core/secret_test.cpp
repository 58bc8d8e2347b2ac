#include "core/secret.h"

#include "scratch.h"

namespace {

class SecretTest : public Scratch {
 protected:
  std::string File(const std::string& name, const std::string& content, mode_t mode) {
    return WriteFile(At(name), content, mode);
  }
};

TEST_F(SecretTest, OnlyAFileOfItsOwnerAloneIsRead) {
  std::string content;
  std::string err;
  EXPECT_TRUE(core::ReadSecretFile(File("good", "word\n", 0600), &content, &err)) << err;
  EXPECT_EQ(content, "word\n");
  for (const auto& [path, words] : {std::pair{File("open", "word", 0640), "only its owner"},
                                    {File("empty", "", 0600), "empty"},
                                    {At("none"), "No such file"},
                                    {path_, "must be a file"}}) {
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
