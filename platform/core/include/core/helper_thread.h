// Threads and processes that work for the one that starts them.
#pragma once

#include <sys/types.h>

#include <functional>
#include <thread>

namespace core {

// Runs `work`, which must not throw, on a new thread. It takes no signal, since those are for the
// caller, whose waits they have to interrupt; and it begins on another processor than the
// caller's. Throws std::system_error where no thread is to be had.
[[nodiscard]] std::thread StartHelper(std::function<void()> work);

// Moves a process of one thread, or a thread, to another processor than the caller's, where
// there is one; once, later it may run on any. On some machines what is new waits for the
// processor of who made it, even beside an idle one. Keeps errno.
void MoveToAnotherProcessor(pid_t id);

}  // namespace core
