#include <gtest/gtest.h>
#include <json/writer.h>

#include <string>
#include <utility>

#include "core/config.h"
#include "webapi_runtime/api_request.h"
#include "webapi_runtime/api_response.h"
#include "webapi_runtime/tavo_conf.h"
#include "webapi_runtime/web_utils.h"

namespace {

using std::string_literals::operator""s;

TEST(APIRequest, AParameterGivenAsNullIsGiven) {
  TAVO::APIRequestData data;
  data.params["none"] = Json::Value();
  data.params["path"] = "/a";
  const TAVO::APIRequest request(data);
  EXPECT_TRUE(request.HasParam("none"));
  EXPECT_TRUE(request.GetParam("none", "fallback").isNull());
  EXPECT_EQ(request.GetParam("path", ""), "/a");
  EXPECT_FALSE(request.HasParam("other"));
  EXPECT_EQ(request.GetParam("other", true), true);
  EXPECT_EQ(request.GetUILanguage(), "enu");
}

TEST(APIRequest, ParametersThatAreNoObjectAreNone) {
  for (const auto& params : {Json::Value(), Json::Value("x"), Json::Value(Json::arrayValue)}) {
    TAVO::APIRequestData data;
    data.params = params;
    const TAVO::APIRequest request(data);
    EXPECT_FALSE(request.HasParam("path"));
    EXPECT_EQ(request.GetParam("path", 3), 3);
  }
}

TEST(APIResponse, TheLastResultIsTheAnswer) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  TAVO::APIResponse response;
  EXPECT_EQ(Json::writeString(builder, response.Envelope()), R"({"success":true})");
  Json::Value data;
  data["ratio"] = 0.0;
  EXPECT_TRUE(response.SetError(0, data));
  EXPECT_EQ(Json::writeString(builder, response.Envelope()),
            R"({"data":{"ratio":0.0},"success":true})");
  EXPECT_TRUE(response.SetError(400, Json::Value()));
  EXPECT_EQ(Json::writeString(builder, response.Envelope()),
            R"({"error":{"code":400},"success":false})");
  Json::Value detail(Json::arrayValue);
  detail.append("/a");
  EXPECT_TRUE(response.SetError(1002, detail));
  EXPECT_EQ(Json::writeString(builder, response.Envelope()),
            R"({"error":{"code":1002,"detail":["/a"]},"success":false})");
}

TEST(LanguageFromHeader, TheServedLanguageOfMostWeightIsTaken) {
  const std::pair<const char*, const char*> kRows[] = {
      {"", "enu"},
      {"de", "ger"},
      {"DE-at", "ger"},
      {"fr", "enu"},
      {"fr, de;q=0.3", "ger"},
      {"en-US,en;q=0.9,de;q=0.8", "enu"},
      {"en;q=0.5, de;q=0.75", "ger"},
      {"de;q=0.5,en", "enu"},
      {"de;q=0", "enu"},
      {"en;q=0, de;q=0.001", "ger"},
      {"*", "enu"},
      {"de ; level=1 ; q=0.9 , en;q=0.8", "ger"},
      {"de;q=nan, en;q=0.1", "enu"},
      {"de;q=2", "enu"},
      {"den", "enu"},
      {",,;q=1,;;,=", "enu"},
      {"de;q=1.0000000000000000000000000000000001", "ger"},
  };
  for (const auto& [header, code] : kRows) {
    EXPECT_EQ(webapi::LanguageFromHeader(header), code) << header;
  }
}

TEST(EncodeHtml, NothingOfAPathBecomesMarkup) {
  EXPECT_EQ(WebUtils::EncodeHtml("<a href=\"x\">&amp;'</a>", true),
            "&lt;a href=&quot;x&quot;&gt;&amp;amp;&#39;&lt;/a&gt;");
  EXPECT_EQ(WebUtils::EncodeHtml("a\nb", true), "a<br>b");
  EXPECT_EQ(WebUtils::EncodeHtml("a\nb", false), "a\nb");
  EXPECT_EQ(WebUtils::EncodeHtml("\0\xFF<"s, false), "\0\xFF&lt;"s);
}

TEST(TavoConf, ReadsTheCopyMoveTable) {
  core::Config config;
  config.copymove = {{"filebrowserxferlog", "yes"}, {"empty", ""}};
  core::SetConfig(config);
  const TavoConf conf;
  EXPECT_EQ(conf.Info("filebrowserxferlog", "no"), "yes");
  EXPECT_EQ(conf.Info("empty", "x"), "");
  EXPECT_EQ(conf.Info("other", "no"), "no");
  core::SetConfig({});
  EXPECT_EQ(conf.Info("filebrowserxferlog", "no"), "no");
}

}  // namespace
