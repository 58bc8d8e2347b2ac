// A token bucket that several processes share.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace support {

// The state is one number in a mapped file: the instant up to which the bucket
// has been used up. It is changed by compare-and-swap alone, so a process that
// dies at any moment leaves it whole and holds nothing back from the others.
class TokenBucket {
 public:
  // Opens the state file, making it when missing. `rate` is in bytes a second
  // and not 0. Null with errno set on failure.
  [[nodiscard]] static std::unique_ptr<TokenBucket> Open(const std::string& file,
                                                         std::uint64_t rate);
  ~TokenBucket();
  TokenBucket(const TokenBucket&) = delete;
  TokenBucket& operator=(const TokenBucket&) = delete;

  // Takes up to `want` bytes, waiting at most a second for them; less, and in the
  // end 0, when there are fewer. A signal ends the wait.
  std::uint64_t Take(std::uint64_t want);

 private:
  using Instant = std::atomic<std::uint64_t>;
  static_assert(Instant::is_always_lock_free);

  TokenBucket(Instant* used, std::uint64_t rate) : used_(used), rate_(rate) {}
  // At least `least` bytes, or 0 and the nanoseconds until they are there.
  std::uint64_t TryTake(std::uint64_t want, std::uint64_t least, std::uint64_t* wait);

  Instant* used_;
  std::uint64_t rate_;
};

}  // namespace support
