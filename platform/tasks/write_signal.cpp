#include "write_signal.h"

#include <semaphore.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <ctime>
#include <thread>

namespace tasks::internal {
namespace {

struct Shared {
  sem_t* semaphore = nullptr;
  pid_t maker = 0;
};

Shared Make() {
  void* memory =
      mmap(nullptr, sizeof(sem_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return {};
  auto* semaphore = static_cast<sem_t*>(memory);
  return sem_init(semaphore, 1, 0) == 0 ? Shared{semaphore, getpid()} : Shared{};
}

Shared& TheShared() {
  static Shared shared;
  return shared;
}

void Wait(sem_t* semaphore, std::chrono::microseconds longest) {
  timespec until{};
  clock_gettime(CLOCK_MONOTONIC, &until);
  const std::int64_t nanoseconds = until.tv_nsec + std::chrono::nanoseconds(longest).count();
  until.tv_sec += nanoseconds / 1'000'000'000;
  until.tv_nsec = nanoseconds % 1'000'000'000;
  (void)sem_clockwait(semaphore, CLOCK_MONOTONIC, &until);
}

}  // namespace

void ShareWritesWithChildren() {
  static const Shared made = TheShared() = Make();
  (void)made;
}

void AnnounceWrite() {
  sem_t* semaphore = TheShared().semaphore;
  int waiting_for_a_look = 0;
  if (semaphore == nullptr || sem_getvalue(semaphore, &waiting_for_a_look) != 0) return;
  // One is enough, and many would only be slept through one by one later.
  if (waiting_for_a_look == 0) sem_post(semaphore);
}

void AwaitWrite(std::chrono::microseconds longest) {
  sem_t* semaphore = TheShared().semaphore;
  if (semaphore == nullptr) {
    std::this_thread::sleep_for(longest);
  } else {
    Wait(semaphore, longest);
  }
}

void AwaitFirstWrite(std::chrono::microseconds longest) {
  const Shared& shared = TheShared();
  if (shared.semaphore != nullptr && shared.maker != getpid()) Wait(shared.semaphore, longest);
}

}  // namespace tasks::internal
