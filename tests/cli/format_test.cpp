#include "host/cli/format.h"

#include <core/utf8.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace cli {
namespace {

TEST(Printable, KeepsTextOfAnyScript) {
  for (const std::string text : {"plain", "Grüße", "日本語", "a\\n b", "👍"}) {
    EXPECT_EQ(Printable(text), text);
  }
}

TEST(Printable, NeverLetsATerminalCommandThrough) {
  EXPECT_EQ(Printable("a\x1b[2Jb"), "a\\x1b[2Jb");
  EXPECT_EQ(Printable("a\nb\tc\rd"), "a\\nb\\tc\\rd");
  EXPECT_EQ(Printable(std::string("a\0b\x7f", 4)), "a\\x00b\\x7f");
  EXPECT_EQ(Printable("\xc2\x9b"
                      "2J"),
            "\\xc2\\x9b2J")
      << "control sequence of eight-bit terminals";
  EXPECT_EQ(Printable("\xe2\x80\xae"
                      "gpj.exe"),
            "\\xe2\\x80\\xaegpj.exe")
      << "reversed direction";
}

TEST(Printable, EscapesBytesThatAreNotUtf8) {
  EXPECT_EQ(Printable("\xff"), "\\xff");
  EXPECT_EQ(Printable("\xc3"), "\\xc3") << "cut off";
  EXPECT_EQ(Printable("\xc0\x80"), "\\xc0\\x80") << "overlong";
  EXPECT_EQ(Printable("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "half of a surrogate pair";
  EXPECT_EQ(Printable("\xc3(ok"), "\\xc3(ok");
}

TEST(FitColumns, KeepsBothEndsAndWholeCharacters) {
  EXPECT_EQ(FitColumns("short", 5), "short");
  EXPECT_EQ(FitColumns("abcdefghij", 7), "ab...ij");
  EXPECT_EQ(FitColumns("abcdefghij", 2), "ab");
  EXPECT_EQ(FitColumns("abc", 0), "");
  for (std::size_t columns = 0; columns < 20; ++columns) {
    const std::string fit = FitColumns("日本語のファイル名.txt", columns);
    EXPECT_LE(Columns(fit), columns);
    EXPECT_TRUE(core::IsUtf8(fit)) << columns;
  }
}

TEST(Columns, CountsWideCharactersTwiceAndMarksNotAtAll) {
  EXPECT_EQ(Columns("abc"), 3U);
  EXPECT_EQ(Columns("日本"), 4U);
  EXPECT_EQ(Columns("e\xcc\x81"), 1U);
}

TEST(Formats, AreShortAndNeverSayMoreThanThereIs) {
  const std::pair<std::string, std::string> rows[] = {
      {FormatBytes(0), "0 B"},           {FormatBytes(999), "999 B"},
      {FormatBytes(999.6), "1.0 kB"},  // before four digits
      {FormatBytes(1500), "1.5 kB"},     {FormatBytes(9.96e6), "10 MB"},
      {FormatBytes(999.6e6), "1.0 GB"},  {FormatBytes(2147483648.0), "2.1 GB"},
      {FormatBytes(-5), "0 B"},          {FormatBytes(1.0 / 0.0), "0 B"},
      {FormatDuration(7.9), "0:07"},     {FormatDuration(754), "12:34"},
      {FormatDuration(3723), "1:02:03"}, {FormatElapsed(0.0123), "12 ms"},
      {FormatElapsed(4.21), "4.2 s"},    {FormatElapsed(61), "1:01"},
      {FormatPercent(0.9999), " 99 %"},  // a hundred only when whole
      {FormatPercent(1), "100 %"},       {FormatPercent(7), "100 %"},
      {FormatPercent(-1), "  0 %"},      {FormatCount(999), "999"},
      {FormatCount(30000), "30,000"},    {FormatCount(1234567), "1,234,567"},
      {Bar(0, 12), "[----------]"},      {Bar(0.55, 12), "[#####-----]"},
      {Bar(1, 12), "[##########]"},      {Bar(2, 12), "[##########]"},
  };
  for (const auto& [made, wanted] : rows) EXPECT_EQ(made, wanted);
}

TEST(WanderingBar, MovesToAndFroInsideItsWidth) {
  std::string before;
  int moves = 0;
  for (int step = 0; step < 200; ++step) {
    const std::string bar = WanderingBar(step * 0.1, 26);
    ASSERT_EQ(bar.size(), 26U);
    ASSERT_NE(bar.find("####"), std::string::npos);
    if (bar != before) ++moves;
    before = bar;
  }
  EXPECT_GT(moves, 150);
}

}  // namespace
}  // namespace cli
