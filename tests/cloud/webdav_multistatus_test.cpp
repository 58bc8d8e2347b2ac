// What servers, and those who want us harm, answer about files.
#include "webdav_multistatus.h"

#include <gtest/gtest.h>

namespace {

using TAVOCloud::DavEntry;
using TAVOCloud::EntryOf;
using TAVOCloud::ReadMultistatus;

std::string Around(const std::string& inside) {
  return R"(<?xml version="1.0"?><multistatus xmlns="DAV:">)" + inside + "</multistatus>";
}

std::string About(const std::string& href, const std::string& properties,
                  const std::string& status = "HTTP/1.1 200 OK") {
  return "<response><href>" + href + "</href><propstat><prop>" + properties + "</prop><status>" +
         status + "</status></propstat></response>";
}

std::string Length(const std::string& text) {
  return Around(About("/f", "<getcontentlength>" + text + "</getcontentlength>"));
}

TEST(WebDavMultistatus, PlacesAndKindsAreReadHoweverTheyAreWritten) {
  struct Case {
    std::string text;
    std::string path;
    bool folder;
  };
  const std::string folder = "<resourcetype><collection/></resourcetype>";
  for (const Case& one : std::vector<Case>{
           {Around(About("/a%20b/", folder)), "/a b", true},
           {Around(About("http://h:80/a%2Fb", "")), "/a/b", false},
           {Around(About("HTTP://h", folder)), "/", true},
           {Around(About(" /%C3%BC%e9 ", "")), "/\xC3\xBC\xE9", false},
           {Around(About("/100%25%4", "")), "/100%%4", false},
           {Around(About("/%zz%", "")), "/%zz%", false},
           {Around(About("<![CDATA[/c]]>", folder)), "/c", true},
           {Around(About("/a&amp;b&#33;", "")), "/a&b!", false},
           {Around(About("/x", folder, "HTTP/1.1 404 Not Found")), "/x", false},
           {R"(<D:multistatus xmlns:D="DAV:" xmlns:o="urn:o"><D:response><o:href>/no</o:href>)"
            "<D:href>/yes</D:href><D:propstat><D:prop><o:resourcetype><D:collection/>"
            "</o:resourcetype></D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat>"
            "</D:response></D:multistatus>",
            "/yes", false},
       }) {
    SCOPED_TRACE(one.text);
    const auto entries = ReadMultistatus(one.text);
    ASSERT_TRUE(entries && entries->size() == 1);
    EXPECT_EQ(entries->front().path, one.path);
    EXPECT_EQ(entries->front().folder, one.folder);
  }
}

TEST(WebDavMultistatus, OnlyWholeNumbersAreSizes) {
  EXPECT_EQ(ReadMultistatus(Length("0"))->front().size, 0U);
  EXPECT_EQ(ReadMultistatus(Length(" 42\n"))->front().size, 42U);
  EXPECT_EQ(ReadMultistatus(Length("18446744073709551615"))->front().size, 18446744073709551615U);
  for (const char* text : {"", "-1", "+1", "1.5", "0x10", "1 2", "18446744073709551616", "1e3",
                           "1<b/>2x", "99999999999999999999999999999999999"}) {
    EXPECT_FALSE(ReadMultistatus(Length(text))->front().size) << text;
  }
}

TEST(WebDavMultistatus, WhatIsNoneIsRefused) {
  std::string laughs = "<!DOCTYPE m [<!ENTITY a \"ha\">";
  for (char c = 'b'; c < 'q'; ++c) {
    laughs += std::string("<!ENTITY ") + c + " \"";
    for (int i = 0; i < 10; ++i) laughs += std::string("&") + static_cast<char>(c - 1) + ";";
    laughs += "\">";
  }
  laughs += "]>";
  const std::string fetch = R"(<!DOCTYPE m [<!ENTITY a SYSTEM "file:///etc/hostname">]>)";
  const auto without_head = [](const std::string& text) { return text.substr(text.find("<m")); };
  std::string deep;
  for (int i = 0; i < 100'000; ++i) deep += "<a>";
  for (const std::string& text : std::vector<std::string>{
           "",
           "OK",
           "<html><body>200</body></html>",
           "<multistatus/>",                  // of no namespace
           "<multistatus xmlns=\"DAV:x\"/>",  // of another one
           Around("<response><href>/a</href>"),
           Around("<response></response>"),  // about nothing
           Around(About("/a", "")) + "<more/>",
           Around(About(std::string("/a\0b", 4), "")),
           Around(About("/\x01", "")),
           Around(About("/\xFF", "")),
           Around(About("&unknown;", "")),
           Around(deep),
           std::string(5U << 20U, ' ') + Around(""),
           laughs + without_head(Around(About("/&p;", ""))),
           fetch + without_head(Around(About("/&a;", ""))),
           R"(<!DOCTYPE multistatus SYSTEM "http://127.0.0.1:1/x.dtd">)" + without_head(Around("")),
       }) {
    EXPECT_FALSE(ReadMultistatus(text)) << text.substr(0, 200);
  }
  EXPECT_TRUE(ReadMultistatus(Around(""))->empty());
}

TEST(WebDavMultistatus, AnyPartOfAnAnswerIsReadOrRefusedWithoutHarm) {
  const std::string text = Around(About("/a%20b", "<getcontentlength>12</getcontentlength>") +
                                  "<response><href>/b</href><status>HTTP/1.1 423 Locked</status>"
                                  "</response>");
  const auto whole = ReadMultistatus(text);
  ASSERT_TRUE(whole && whole->size() == 2);
  EXPECT_EQ(whole->back().status, 423);
  for (std::size_t length = 0; length < text.size(); ++length) {
    EXPECT_FALSE(ReadMultistatus(text.substr(0, length))) << length;
  }
  for (std::size_t place = 0; place < text.size(); ++place) {
    for (const char c : {'<', '>', '&', '"', '%', '/', '\0', '\xC3'}) {
      std::string other = text;
      other[place] = c;
      const auto entries = ReadMultistatus(other);
      EXPECT_LE(entries ? entries->size() : 0, 2U);
    }
  }
}

TEST(WebDavMultistatus, AnEntryIsFoundByItsPathOrBeingTheOnlyOne) {
  DavEntry a;
  a.path = "/a";
  DavEntry b;
  b.path = "/b";
  const std::vector<DavEntry> both{a, b};
  EXPECT_EQ(EntryOf(both, "/b/"), &both[1]);
  EXPECT_EQ(EntryOf(both, "/c"), nullptr);
  const std::vector<DavEntry> one{a};
  EXPECT_EQ(EntryOf(one, "/c"), one.data());
  EXPECT_EQ(EntryOf({}, "/a"), nullptr);
}

}  // namespace
