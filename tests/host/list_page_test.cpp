#include "host/server/list_page.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace host {
namespace {

Json::Value With(const char* name, const Json::Value& value) {
  Json::Value params(Json::objectValue);
  params[name] = value;
  return params;
}

// The names in the order of pages of `limit` entries, one behind the other.
std::vector<std::string> Pages(ListRequest request, std::size_t limit) {
  const ListEntry entries[] = {
      {"b10", S_IFREG, 1, 30, ""}, {"b2", S_IFREG, 3, -5, ""},       {"B1", S_IFREG, 2, 20, ""},
      {"z", S_IFDIR, 0, 1, ""},    {"\xC3\xA4", S_IFREG, 3, 20, ""}, {".dot", S_IFREG, 0, 0, ""},
      {"a", S_IFLNK, 0, 9, ""},    {"y\xff", S_IFDIR, 0, 2, ""},     {"A", S_IFREG, 0, 9, ""}};
  request.limit = limit;
  std::vector<std::string> names;
  std::string next;
  do {
    ListPage page(request);
    for (const ListEntry& entry : entries) page.Offer(entry);
    for (const ListEntry& entry : page.Take(&next)) names.push_back(entry.name);
    EXPECT_EQ(page.total() + page.left_out(), std::size(entries));
    std::string err;
    EXPECT_TRUE(next.empty() || ReadListRequest(With("after", next), &request, &err)) << err;
  } while (!next.empty());
  return names;
}

TEST(ListPage, PagesOfAnySizeMakeUpTheWholeInOrder) {
  using Sort = ListRequest::Sort;
  const std::string umlaut = "\xC3\xA4";
  const std::string damaged = "y\xff";
  const struct {
    Sort sort;
    bool descending;
    std::vector<std::string> names;
  } cases[] = {
      {Sort::kName, false, {damaged, "z", ".dot", "A", "a", umlaut, "B1", "b2", "b10"}},
      {Sort::kName, true, {"z", damaged, "b10", "b2", "B1", "A", "a", umlaut, ".dot"}},
      {Sort::kSize, true, {"z", damaged, "b2", umlaut, "B1", "b10", "A", "a", ".dot"}},
      {Sort::kTime, false, {"z", damaged, "b2", ".dot", "A", "a", umlaut, "B1", "b10"}},
  };
  for (const auto& c : cases) {
    ListRequest request;
    request.sort = c.sort;
    request.descending = c.descending;
    for (const std::size_t limit : {1, 2, 4, 9, 100}) EXPECT_EQ(Pages(request, limit), c.names);
  }
  ListRequest request;
  request.hidden = false;
  EXPECT_EQ(Pages(request, 3).size(), 8U);
}

TEST(ListPage, WhatIsNoRequestIsRefused) {
  const Json::Value many(std::string(30, '9'));
  Json::Value names(Json::arrayValue);
  for (const char* name : {"a", "b"}) names.append(name);
  ListRequest request;
  std::string err;
  ASSERT_TRUE(ReadListRequest(With("names", names), &request, &err)) << err;
  EXPECT_EQ(request.names, (std::vector<std::string>{"a", "b"}));
  ASSERT_TRUE(ReadListRequest(With("limit", "100000"), &request, &err)) << err;
  EXPECT_EQ(request.limit, 100000U);
  names.append("../b");
  const std::pair<const char*, Json::Value> wrong[] = {{"limit", 0},
                                                       {"limit", -1},
                                                       {"limit", "100001"},
                                                       {"limit", many},
                                                       {"limit", "1x"},
                                                       {"limit", ""},
                                                       {"limit", 1e300},
                                                       {"limit", Json::Value()},
                                                       {"sort", "owner"},
                                                       {"descending", "maybe"},
                                                       {"hidden", 2},
                                                       {"after", "0g"},
                                                       {"after", "abc"},
                                                       {"names", names},
                                                       {"names", ".."},
                                                       {"names", 5},
                                                       {"names", std::string("a\0", 2)}};
  for (const auto& [name, value] : wrong) {
    EXPECT_FALSE(ReadListRequest(With(name, value), &request, &err))
        << name << " " << value.toStyledString();
  }
}

}  // namespace
}  // namespace host
