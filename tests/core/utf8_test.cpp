#include "core/utf8.h"

#include <gtest/gtest.h>

using std::string_view_literals::operator""sv;

TEST(IsUtf8, TakesEveryWellFormedText) {
  for (const auto text :
       {""sv, "plain"sv, "a\0b"sv, "\xC3\xBC"sv, "\xE2\x82\xAC"sv, "\xED\x9F\xBF"sv,
        "\xEE\x80\x80"sv, "\xF0\x9F\x93\x81"sv, "\xF4\x8F\xBF\xBF"sv}) {
    EXPECT_TRUE(core::IsUtf8(text)) << text;
  }
}

TEST(IsUtf8, RefusesMalformedText) {
  for (const auto text :
       {"\x80"sv, "\xFF"sv, "\xC3"sv, "\xC3("sv, "\xC0\xAF"sv, "\xC1\xBF"sv, "\xE0\x9F\xBF"sv,
        "\xE2\x82"sv, "\xE2\x82("sv, "\xED\xA0\x80"sv, "\xF0\x8F\xBF\xBF"sv, "\xF4\x90\x80\x80"sv,
        "\xF5\x80\x80\x80"sv, "\xF0\x9F\x93"sv}) {
    EXPECT_FALSE(core::IsUtf8(text)) << ::testing::PrintToString(std::string(text));
  }
}
