#include "token_bucket.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <ctime>

#include "core/unique_fd.h"

namespace support {

namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;  // in nanoseconds
// An idle user saves up this much time's tokens.
constexpr std::uint64_t kBurst = kSecond;
constexpr std::size_t kFileSize = 4096;

// Boot time keeps going while the machine sleeps and never steps.
std::uint64_t Now() {
  timespec ts{};
  clock_gettime(CLOCK_BOOTTIME, &ts);
  return static_cast<std::uint64_t>(ts.tv_sec) * kSecond + static_cast<std::uint64_t>(ts.tv_nsec);
}

bool Sleep(std::uint64_t nanoseconds) {
  const timespec ts{static_cast<time_t>(nanoseconds / kSecond),
                    static_cast<long>(nanoseconds % kSecond)};
  return nanosleep(&ts, nullptr) == 0;
}

bool HasRoom(int fd) {
  struct stat st {};
  if (fstat(fd, &st) != 0) return false;
  return st.st_size >= static_cast<off_t>(kFileSize) || ftruncate(fd, kFileSize) == 0;
}

}  // namespace

std::unique_ptr<TokenBucket> TokenBucket::Open(const std::string& file, std::uint64_t rate) {
  const core::UniqueFd fd(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!fd || !HasRoom(fd.get())) return nullptr;
  void* memory = mmap(nullptr, kFileSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
  if (memory == MAP_FAILED) return nullptr;
  return std::unique_ptr<TokenBucket>(new TokenBucket(static_cast<Instant*>(memory), rate));
}

TokenBucket::~TokenBucket() { munmap(used_, kFileSize); }

std::uint64_t TokenBucket::TryTake(std::uint64_t want, std::uint64_t least, std::uint64_t* wait) {
  const double perByte = static_cast<double>(kSecond) / static_cast<double>(rate_);
  while (true) {
    // Read before the clock: an instant to come is then no other process's, but
    // from before the machine was last started.
    std::uint64_t stored = used_->load();
    const std::uint64_t now = Now();
    const std::uint64_t earliest = now > kBurst ? now - kBurst : 0;
    const std::uint64_t used = stored > now ? earliest : std::max(stored, earliest);
    const auto have = static_cast<std::uint64_t>(static_cast<double>(now - used) / perByte);
    if (have < least) {
      *wait = static_cast<std::uint64_t>(std::ceil(static_cast<double>(least - have) * perByte));
      return 0;
    }
    const std::uint64_t taken = std::min(have, want);
    const auto cost = static_cast<std::uint64_t>(std::ceil(static_cast<double>(taken) * perByte));
    if (used_->compare_exchange_strong(stored, std::min(used + cost, now))) return taken;
  }
}

std::uint64_t TokenBucket::Take(std::uint64_t want) {
  // Waiting for a tenth of a second's tokens keeps grants from becoming tiny.
  const std::uint64_t least = std::min(want, std::max<std::uint64_t>(rate_ / 10, 1));
  const std::uint64_t deadline = Now() + kSecond;
  while (true) {
    std::uint64_t wait = 0;
    const std::uint64_t taken = TryTake(want, least, &wait);
    if (taken > 0) return taken;
    const std::uint64_t now = Now();
    if (now >= deadline || !Sleep(std::min(wait, deadline - now))) return 0;
  }
}

}  // namespace support
