#include "support/transfer_log.h"

#include <json/reader.h>
#include <sys/xattr.h>

#include <map>
#include <sstream>

#include "core/user.h"
#include "scratch.h"

namespace {

class TransferLogTest : public Scratch {
 protected:
  std::string LogFile() const { return At("state/users/" + OwnName() + "/transfer.log"); }

  static bool Log(const std::string& text, std::uint64_t size = 0, int action = kXferCopy,
                  bool isDir = false) {
    return WfmLibDoLog(OwnName().c_str(), text.c_str(), size, action, isDir);
  }
};

Json::Value Parse(const std::string& line) {
  Json::Value value;
  std::istringstream in(line);
  std::string error;
  EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &value, &error)) << error;
  return value;
}

TEST_F(TransferLogTest, ALineHasTheAgreedMembers) {
  ASSERT_TRUE(Log("/a -> /b", 5));
  ASSERT_TRUE(Log("/c -> /d", 1ULL << 40, kXferMove, true));
  std::istringstream content(ReadFile(LogFile()));
  std::string line;
  ASSERT_TRUE(std::getline(content, line));
  const Json::Value first = Parse(line);
  EXPECT_TRUE(first["time"].isInt64());
  EXPECT_EQ(first["user"], OwnName());
  EXPECT_EQ(first["action"], "copy");
  EXPECT_EQ(first["size"].asUInt64(), 5U);
  EXPECT_EQ(first["folder"], false);
  EXPECT_EQ(first["text"], "/a -> /b");
  ASSERT_TRUE(std::getline(content, line));
  const Json::Value second = Parse(line);
  EXPECT_EQ(second["action"], "move");
  EXPECT_EQ(second["size"].asUInt64(), 1ULL << 40);
  EXPECT_EQ(second["folder"], true);
  EXPECT_FALSE(std::getline(content, line));
}

TEST_F(TransferLogTest, AnyNameMakesOneValidLine) {
  ASSERT_TRUE(Log("\xE4 \xC3\xA4\n\"\\\t\x01 \xF0\x9F\x98\x80 \xED\xA0\x80"));
  const std::string content = ReadFile(LogFile());
  EXPECT_EQ(content.find('\n'), content.size() - 1);
  EXPECT_EQ(
      Parse(content)["text"],
      "\xEF\xBF\xBD \xC3\xA4\n\"\\\t\x01 \xF0\x9F\x98\x80 \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST_F(TransferLogTest, BadCallsWriteNothing) {
  EXPECT_FALSE(WfmLibDoLog(nullptr, "x", 0, kXferCopy, false));
  EXPECT_FALSE(WfmLibDoLog(OwnName().c_str(), nullptr, 0, kXferCopy, false));
  EXPECT_FALSE(WfmLibDoLog("../root", "x", 0, kXferCopy, false));
  EXPECT_FALSE(Log("x", 0, 7));
  EXPECT_FALSE(std::filesystem::exists(LogFile()));
}

TEST_F(TransferLogTest, ReadingGivesTheNewestFirstAcrossBothFiles) {
  EXPECT_EQ(support::ReadTransferLog(OwnName(), 10).size(), 0U);
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(Log(std::to_string(i)));
  std::filesystem::rename(LogFile(), LogFile() + ".1");
  ASSERT_TRUE(Log("3"));
  std::ofstream(LogFile(), std::ios::app) << "{\"damaged\n";
  ASSERT_TRUE(Log("4"));
  const auto texts = [](int limit) {
    std::string joined;
    for (const Json::Value& line : support::ReadTransferLog(OwnName(), limit)) {
      joined += line["text"].asString();
    }
    return joined;
  };
  EXPECT_EQ(texts(100), "43210");
  EXPECT_EQ(texts(4), "4321");
  EXPECT_EQ(texts(1), "4");
  EXPECT_EQ(texts(0), "");
  EXPECT_EQ(texts(-1), "");
}

TEST_F(TransferLogTest, LinesOfManyWritersStayWholeAcrossARotation) {
  constexpr int kWriters = 8;
  constexpr int kLines = 160;
  const std::string filler(8000, 'f');  // 10 MB in all: one rotation
  ASSERT_TRUE(Log("first"));
  pid_t writers[kWriters];
  for (int w = 0; w < kWriters; ++w) {
    writers[w] = StartChild([&, w] {
      for (int i = 0; i < kLines; ++i) {
        std::string text = std::to_string(w);
        text.append("/").append(std::to_string(i)).append("/").append(filler);
        if (!Log(text)) return 1;
      }
      return 0;
    });
  }
  for (const pid_t writer : writers) EXPECT_EQ(StatusOf(writer), 0);

  ASSERT_TRUE(std::filesystem::exists(LogFile() + ".1"));
  std::map<std::string, int> next;
  int lines = 0;
  for (const std::string& file : {LogFile() + ".1", LogFile()}) {
    EXPECT_LT(std::filesystem::file_size(file), 8U * 1024 * 1024 + 10000);
    std::istringstream content(ReadFile(file));
    for (std::string line; std::getline(content, line); ++lines) {
      const std::string text = Parse(line)["text"].asString();
      if (text == "first") continue;
      const std::string writer = text.substr(0, text.find('/'));
      // Each writer's lines are all there, in order and unmixed.
      std::string expected = writer;
      expected.append("/").append(std::to_string(next[writer]++)).append("/").append(filler);
      EXPECT_EQ(text, expected);
    }
  }
  EXPECT_EQ(lines, kWriters * kLines + 1);
}

TEST_F(TransferLogTest, SharingAttributesAreReadAsAnObject) {
  Write("f", "x");
  Json::Value value("old");
  EXPECT_FALSE(WfmLibGetFileXAtrr(At("f").c_str(), value));
  EXPECT_FALSE(WfmLibGetFileXAtrr(nullptr, value));
  const auto set = [this](const std::string& text) {
    return setxattr(At("f").c_str(), "user.tavo.sharing", text.data(), text.size(), 0);
  };
  if (set("[1]") != 0) GTEST_SKIP() << "no extended attributes on this file system";
  EXPECT_FALSE(WfmLibGetFileXAtrr(At("f").c_str(), value));
  ASSERT_EQ(set("{\"name\":\"x\""), 0);
  EXPECT_FALSE(WfmLibGetFileXAtrr(At("f").c_str(), value));
  EXPECT_EQ(value, "old");
  ASSERT_EQ(set(R"({"name":"x","path":"/p"})"), 0);
  ASSERT_TRUE(WfmLibGetFileXAtrr(At("f").c_str(), value));
  EXPECT_EQ(value["name"], "x");
  EXPECT_EQ(value["path"], "/p");
}

}  // namespace
