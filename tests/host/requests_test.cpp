#include <gtest/gtest.h>
#include <json/value.h>

#include "host/server/call.h"
#include "host/server/envelope.h"
#include "host/server/names.h"
#include "host/server/parameters.h"

namespace host {
namespace {

TEST(Envelope, IsValidWhateverBytesANameHolds) {
  const struct {
    std::string raw;
    std::string shown;
  } cases[] = {
      {"plain", "plain"},
      {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {"a\xff", "a\xEF\xBF\xBD"},
      {"\xC3", "\xEF\xBF\xBD"},
      {"\xC0\xAF", "\xEF\xBF\xBD\xEF\xBF\xBD"},                  // overlong
      {"\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},  // half a surrogate pair
      {"\xF4\x90\x80\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(SuccessText(Json::Value(c.raw)), R"({"data":")" + c.shown + R"(","success":true})");
  }
  EXPECT_EQ(SuccessText(Json::Value()), R"({"success":true})");
  EXPECT_EQ(FailureWords(400, "no"),
            R"({"error":{"code":400,"detail":{"message":"no"}},"success":false})");
}

TEST(Call, SurvivesItsTextAndNothingElseIsTakenForOne) {
  Call call;
  call.api = "Api";
  call.method = "start";
  call.version = 3;
  call.user = "alice";
  call.params["path"] = std::string("raw\xff\0name", 9);
  call.params["real"] = 0.0;
  call.body = "{\n\"more\": [1]\n}";
  Call read;
  std::string err;
  ASSERT_TRUE(DecodeCall(EncodeCall(call), &read, &err)) << err;
  EXPECT_EQ(read.params, call.params);
  EXPECT_TRUE(read.params["real"].isDouble());
  EXPECT_EQ(read.user, "alice");
  EXPECT_EQ(read.body, call.body);
  for (const std::string& text :
       {std::string(), std::string("{}"), std::string("[]"), std::string("{\"version\":1"),
        std::string(5000, '['), std::string(R"({"version":1,"params":{},"api":1})")}) {
    EXPECT_FALSE(DecodeCall(text, &read, &err)) << text;
  }
}

TEST(Parameters, FieldsBecomeJsonForPluginsAndStayTextForTheHost) {
  const Fields query = {{"method", "start"}, {"version", "3"}, {"flag", "true"},
                        {"name", "5"},       {"list", "a"},    {"list", "b"}};
  Json::Value params = FieldParameters(Body{}, query);
  std::string err;
  EXPECT_FALSE(params.isMember("method"));
  EXPECT_EQ(params["flag"], true);
  EXPECT_EQ(params["name"], 5);
  EXPECT_EQ(params["list"].size(), 2U);
  ASSERT_TRUE(HostParameters(Body{}, query, &params, &err));
  EXPECT_EQ(params["name"], "5");

  Body body{R"({"flag":"json wins","more":[1]})", true, {}};
  ASSERT_TRUE(HostParameters(body, query, &params, &err));
  EXPECT_EQ(params["flag"], "json wins");
  EXPECT_EQ(params["name"], "5");
  for (const char* text : {"[1]", "{", "5", "{} {}", "{\"a\":}"}) {
    body.text = text;
    EXPECT_FALSE(HostParameters(body, query, &params, &err)) << text;
    EXPECT_FALSE(err.empty());
  }
}

TEST(Names, AddressesHostsAndCookiesAreReadExactly) {
  std::string address;
  int port = 0;
  ASSERT_TRUE(SplitAddress("127.0.0.1:5050", &address, &port));
  EXPECT_EQ(address, "127.0.0.1");
  EXPECT_EQ(port, 5050);
  ASSERT_TRUE(SplitAddress("[::1]:0", &address, &port));
  EXPECT_EQ(address, "::1");
  for (const char* bad : {"", "5050", "host:", ":5050", "host:x", "host:70000", "::1:80", "h:-1"}) {
    EXPECT_FALSE(SplitAddress(bad, &address, &port)) << bad;
  }
  for (const char* own : {"localhost", "LOCALHOST:80", "127.0.0.1:5050", "[::1]:80", "127.1.2.3"}) {
    EXPECT_TRUE(IsLoopbackName(HostOf(own))) << own;
  }
  for (const char* foreign : {"", "evil.example", "127.0.0.1.evil.example", "localhost.evil", "[",
                              "10.0.0.1", "[::2]:80", "0.0.0.0"}) {
    EXPECT_FALSE(IsLoopbackName(HostOf(foreign))) << foreign;
  }
  EXPECT_EQ(CookieValue("a=1; fennox_80=x=y; b=2", "fennox_80"), "x=y");
  EXPECT_EQ(CookieValue("xfennox_80=1; fennox_801=2", "fennox_80"), "");
}

}  // namespace
}  // namespace host
