#include <gtest/gtest.h>
#include <json/writer.h>

#include <string>
#include <utility>
#include <vector>

#include "webapi_runtime/api_request.h"

namespace {

using std::string_literals::operator""s;

std::string Compact(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

std::string Nested(int depth, const std::string& open, const std::string& close) {
  std::string text;
  for (int i = 0; i < depth; ++i) text += open;
  text += "1";
  for (int i = 0; i < depth; ++i) text += close;
  return text;
}

TEST(ValueFromField, ATextThatIsJsonBecomesItsValue) {
  const std::pair<const char*, const char*> kRows[] = {
      {"true", "true"},
      {"false", "false"},
      {"null", "null"},
      {"0", "0"},
      {"-12", "-12"},
      {"1.5", "1.5"},
      {"2.0", "2.0"},
      {"1e2", "100.0"},
      {"\"x\"", "\"x\""},
      {" 7\n", "7"},
      {"[\"a,b\", 1]", "[\"a,b\",1]"},
      {"{\"a\":{}}", "{\"a\":{}}"},
      {"\"\\u00e9\\ud83d\\ude00\"", "\"\\u00e9\\ud83d\\ude00\""},
      {"18446744073709551615", "18446744073709551615"},
  };
  for (const auto& [text, json] : kRows) {
    EXPECT_EQ(Compact(webapi::ValueFromField(text)), json) << text;
  }
  EXPECT_TRUE(webapi::ValueFromField("2.0").isDouble());
  EXPECT_EQ(webapi::ValueFromField("2").type(), Json::intValue);
}

TEST(ValueFromField, AnyOtherTextStaysAsItIs) {
  const std::vector<std::string> kTexts = {"",
                                           " ",
                                           "/photos/a",
                                           "True",
                                           "TRUE",
                                           "yes",
                                           "007",
                                           "-01",
                                           "+1",
                                           "1.",
                                           ".5",
                                           "1.5.2",
                                           "1e",
                                           "--1",
                                           "1-2",
                                           "0x10",
                                           "NaN",
                                           "Infinity",
                                           "-Infinity",
                                           "1e999",
                                           "'x'",
                                           "\"x",
                                           "\"a\" \"b\"",
                                           "1 2",
                                           "[1,]",
                                           "[,1]",
                                           "[01]",
                                           "{a:1}",
                                           "{\"a\":1,\"a\":2}",
                                           "// c\n1",
                                           "1 /* c */",
                                           "/**/",
                                           "[1]x",
                                           "\"\\ud800\"",
                                           "\"\\udc00\"",
                                           "\"\\ud800\\u0041\"",
                                           "\"\\x41\"",
                                           "\"\\u00g0\"",
                                           "\"line\nfeed\"",
                                           "\"nul\0\""s,
                                           "1\0"s,
                                           "\0"s,
                                           "\xEF\xBB\xBF"
                                           "1",
                                           "\"\xFF\"",
                                           "\xFF\xFE name",
                                           "[",
                                           "{\"a\"",
                                           "\"\\",
                                           "\"\\u",
                                           "-",
                                           "[\"a\" \"b\"]",
                                           "{\"a\" 1}"};
  for (const auto& text : kTexts) {
    const Json::Value value = webapi::ValueFromField(text);
    EXPECT_TRUE(value.isString()) << text;
    EXPECT_EQ(value, Json::Value(text));
  }
}

TEST(ValueFromField, AHostileDepthStaysText) {
  for (const auto& [open, close] : {std::pair{"[", "]"}, {"{\"a\":", "}"}}) {
    const std::string deep = Nested(300000, open, close);
    EXPECT_EQ(webapi::ValueFromField(deep), Json::Value(deep));
    EXPECT_EQ(webapi::ValueFromField(std::string(300000, open[0])).type(), Json::stringValue);
  }
}

TEST(ObjectFromBody, ABodyIsOneObject) {
  Json::Value out;
  std::string err;
  ASSERT_TRUE(
      webapi::ObjectFromBody(" {\"path\":[\"/a\"],\"n\":1.0,\"z\":\"\\u0000\"}\n", &out, &err))
      << err;
  EXPECT_EQ(out["path"][0], "/a");
  EXPECT_TRUE(out["n"].isDouble());
  EXPECT_EQ(out["z"].asString(), "\0"s);
}

TEST(ObjectFromBody, AnythingElseIsRefusedWithWords) {
  for (const auto& body :
       {""s, "[]"s, "1"s, "null"s, "\"{}\""s, "{"s, "{}{}"s, "{}x"s, "{} // c"s, "{\"a\":NaN}"s,
        "{\"a\":1,\"a\":1}"s, "{\"a\":01}"s, "{\"a\":\"\xC3\"}"s, "{}\0"s, "{\0}"s,
        "{\"a\":1e999}"s, "path=/a&x=1"s, Nested(100000, "{\"a\":", "}")}) {
    Json::Value out = "untouched";
    std::string err;
    EXPECT_FALSE(webapi::ObjectFromBody(body, &out, &err)) << body.substr(0, 40);
    EXPECT_FALSE(err.empty()) << body.substr(0, 40);
    EXPECT_EQ(out, "untouched");
  }
}

TEST(ObjectFromBody, DepthEndsAtAThousand) {
  Json::Value out;
  std::string err;
  EXPECT_TRUE(webapi::ObjectFromBody(Nested(999, "{\"a\":", "}"), &out, &err)) << err;
  EXPECT_FALSE(webapi::ObjectFromBody(Nested(1001, "{\"a\":", "}"), &out, &err));
}

}  // namespace
