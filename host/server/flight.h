// A bound on what happens at one time.
#pragma once

#include <atomic>

namespace host {

// One of at most `limit` things that count in `count` while they last.
class Flight {
 public:
  Flight(std::atomic<int>* count, int limit) : count_(count), admitted_(++*count <= limit) {}
  ~Flight() { --*count_; }
  Flight(const Flight&) = delete;
  Flight& operator=(const Flight&) = delete;
  bool admitted() const { return admitted_; }

 private:
  std::atomic<int>* count_;
  bool admitted_;
};

}  // namespace host
