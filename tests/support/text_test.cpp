#include "support/text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Json::Value;

std::vector<std::string> Explode(const Value& value, int version, bool keepEmpty = false,
                                 const char* separator = ",") {
  std::vector<std::string> list;
  const Value array = StringExplodeEx(value, separator, version, keepEmpty);
  EXPECT_TRUE(array.isArray());
  for (const Value& element : array) {
    EXPECT_TRUE(element.isString());
    list.push_back(element.asString());
  }
  return list;
}

using List = std::vector<std::string>;

Value ArrayOf(std::initializer_list<Value> elements) {
  Value array(Json::arrayValue);
  for (const Value& element : elements) array.append(element);
  return array;
}

TEST(StringExplode, SplitsTextAndTakesArraysAsTheyAre) {
  EXPECT_EQ(Explode("/a,/b", 1), (List{"/a", "/b"}));
  EXPECT_EQ(Explode("/a,,/b,", 1), (List{"/a", "/b"}));
  EXPECT_EQ(Explode("/a,,/b,", 1, true), (List{"/a", "", "/b", ""}));
  EXPECT_EQ(Explode("a::b:c", 1, false, "::"), (List{"a", "b:c"}));
  EXPECT_EQ(Explode("", 3, true), List{});
  EXPECT_EQ(Explode(ArrayOf({"/a,b", true, false, 7}), 1), (List{"/a,b", "true", "false", "7"}));
  EXPECT_EQ(Explode(ArrayOf({"", "x"}), 1), List{"x"});
  EXPECT_EQ(Explode(ArrayOf({"", "x"}), 1, true), (List{"", "x"}));
}

TEST(StringExplode, TextThatHoldsAnArrayIsOneFromVersionTwoOn) {
  EXPECT_EQ(Explode(R"(["/a,b","/c"])", 2), (List{"/a,b", "/c"}));
  EXPECT_EQ(Explode(R"( [true,"x"] )", 3), (List{"true", "x"}));
  EXPECT_EQ(Explode(R"(["/a,b","/c"])", 1), (List{R"(["/a)", R"(b")", R"("/c"])"}));
  EXPECT_EQ(Explode("[broken,/b", 2), (List{"[broken", "/b"}));
  EXPECT_EQ(Explode("[1] trailing", 2), (List{"[1] trailing"}));
  EXPECT_EQ(Explode(std::string(100000, '['), 2).size(), 1U);
}

TEST(StringExplode, WhatIsNoListOfTextsIsEmpty) {
  EXPECT_EQ(Explode(Value(), 3), List{});
  EXPECT_EQ(Explode(true, 3), List{});
  EXPECT_EQ(Explode(3.5, 3), List{});
  EXPECT_EQ(Explode(Value(Json::objectValue), 3), List{});
  EXPECT_EQ(Explode(ArrayOf({"/a", ArrayOf({"/b"})}), 3), List{});
  EXPECT_EQ(Explode(ArrayOf({"/a", Value()}), 3), List{});
  EXPECT_EQ(Explode(R"(["/a",{"b":1}])", 3), List{});
}

TEST(Text, PathsAreJoinedForPeople) {
  std::string out = "old";
  EXPECT_EQ(ParseJsonPathToString(ArrayOf({"/a", "/b c"}), out), "/a, /b c");
  EXPECT_EQ(out, "/a, /b c");
  EXPECT_EQ(ParseJsonPathToString(Value(), out), "");
  EXPECT_EQ(out, "");
}

TEST(Text, ConversionGoesBothWaysOrLeavesTheTextUnchanged) {
  std::string out;
  EXPECT_TRUE(WfmLibConv(out, "\xE4.txt", "ISO-8859-1", "UTF-8"));
  EXPECT_EQ(out, "ä.txt");
  EXPECT_TRUE(WfmLibConv(out, out, "UTF-8", "ISO-8859-1"));
  EXPECT_EQ(out, "\xE4.txt");
  EXPECT_TRUE(WfmLibConv(out, std::string(5000, 'x') + "日本", "UTF-8", "ISO-2022-JP"));
  EXPECT_TRUE(out.ends_with("\x1B(B"));  // back in its first state
  std::string back;
  EXPECT_TRUE(WfmLibConv(back, out, "ISO-2022-JP", "UTF-8"));
  EXPECT_EQ(back, std::string(5000, 'x') + "日本");

  const List rows[] = {{"日本", "UTF-8", "ISO-8859-1"},    {"\xE4", "UTF-8", "ISO-8859-1"},
                       {"\xC3", "UTF-8", "UTF-8"},         {"x", "UTF-8", "NO-SUCH-SET"},
                       {"日", "UTF-8", "ASCII//TRANSLIT"}, {"x", "", "UTF-8"}};
  for (const List& row : rows) {
    EXPECT_FALSE(WfmLibConv(out, row[0], row[1], row[2])) << row[2];
    EXPECT_EQ(out, row[0]);
  }
}

TEST(Text, FormatsReplacePlaceholdersInOrder) {
  EXPECT_EQ(WfmLibStringFormat("%s -> %s", "a", "b"), "a -> b");
  EXPECT_EQ(WfmLibStringFormat("%s", "%s%%"), "%s%%");
  EXPECT_EQ(WfmLibStringFormat("100%% of %s%", "it"), "100% of it%");
  EXPECT_EQ(WfmLibStringFormat("[%s][%s][%s]", "a"), "[a][][]");
  EXPECT_EQ(WfmLibStringFormat("%d", "a"), "%d");
}

TEST(Text, NoticesHaveTextsInEachLanguage) {
  for (const std::string action : {"copy", "move"}) {
    for (const char* end :
         {"_completed", "_completed_skip_all", "_completed_skip_some", "_failed"}) {
      std::string key = "filebrowser:filebrowser_";
      key.append(action).append(end);
      EXPECT_NE(WfmLibGetText(key, "enu"), key);
      EXPECT_NE(WfmLibGetText(key, "ger"), key);
      EXPECT_NE(WfmLibGetText(key, "enu"), WfmLibGetText(key, "ger"));
    }
  }
  EXPECT_NE(WfmLibStringFormat(WfmLibGetText("download_log_desc", "ger"), "x").find('x'),
            std::string::npos);
  EXPECT_EQ(WfmLibGetText("download_log_desc", "xyz"), WfmLibGetText("download_log_desc", "enu"));
  EXPECT_EQ(WfmLibGetText("no:such_key", "ger"), "no:such_key");
  EXPECT_EQ(WfmLibGetText("error:no_such", "enu"), "error:no_such");
}

}  // namespace
