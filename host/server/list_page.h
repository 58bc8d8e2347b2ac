// One page of a folder's entries: in which order, how many, and where the next one begins.
#pragma once

#include <json/value.h>
#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace host {

// The most entries of one answer, and the most names that can be asked about at once.
constexpr std::size_t kMostEntries = 100000;

struct ListRequest {
  enum class Sort { kName, kSize, kTime };
  Sort sort = Sort::kName;
  bool descending = false;
  bool hidden = true;  // false: hidden entries are left out
  std::size_t limit = kMostEntries;
  std::string after;  // the order of the entry before the page; empty: the first page
  bool only_names = false;
  std::vector<std::string> names;  // with only_names: what is asked about
};

// Reads "sort", "descending", "hidden", "limit", "after" and "names". False, with words in
// *err, when one of them is wrong.
[[nodiscard]] bool ReadListRequest(const Json::Value& params, ListRequest* out, std::string* err);

struct ListEntry {
  std::string name;
  mode_t mode = 0;  // only the type counts
  std::uint64_t size = 0;
  std::int64_t mtime = 0;
  std::string order;  // entries are in the order of these bytes
};

[[nodiscard]] bool IsHidden(const std::string& name);

// Takes a folder's entries in any order and keeps those of the page. Needs memory for two
// pages, however many entries there are.
class ListPage {
 public:
  explicit ListPage(const ListRequest& request);
  ~ListPage();
  ListPage(const ListPage&) = delete;
  ListPage& operator=(const ListPage&) = delete;

  void Offer(ListEntry entry);

  // What was offered, and the hidden entries that were left out.
  [[nodiscard]] std::uint64_t total() const { return total_; }
  [[nodiscard]] std::uint64_t left_out() const { return left_out_; }

  // The page in its order: folders first, then as "sort" says, then by name as people sort
  // names: without regard to case, numbers by their value. *next is what "after" is for the
  // page behind it, empty when there is none. Once.
  [[nodiscard]] std::vector<ListEntry> Take(std::string* next);

 private:
  class Names;

  void SetOrder(ListEntry* entry);
  void Trim();

  const ListRequest request_;
  std::unique_ptr<Names> names_;
  std::vector<ListEntry> kept_;
  bool more_ = false;
  std::string bound_;  // when not empty: what comes behind it is not of the page
  std::uint64_t total_ = 0;
  std::uint64_t left_out_ = 0;
};

}  // namespace host
