// Wakes a child that waits for its parent's write of a record: it need not sleep and look.
//
// One semaphore in memory that a process shares with all that it forks afterwards. It only
// shortens waits: who is woken looks at the record, and who misses it looks a little later.
#pragma once

#include <chrono>

namespace tasks::internal {

// To be called before the fork; further calls do nothing. Without memory for it all waits
// are sleeps.
void ShareWritesWithChildren();

// After a write is done.
void AnnounceWrite();

// Sleeps for `longest`, or until a write is announced, or a signal comes.
void AwaitWrite(std::chrono::microseconds longest);

// The same, and at once in a process that shares nothing with a parent.
void AwaitFirstWrite(std::chrono::microseconds longest);

}  // namespace tasks::internal
