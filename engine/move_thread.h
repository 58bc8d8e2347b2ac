// The body of one move thread.
#pragma once

#include <pthread.h>

namespace Fennox {

// Serialises the progress accounting of the two threads. Alive only during
// MoveThreadMain.
extern pthread_mutex_t _moveMutex;

// Moves every entry of the MOVE_THREAD_INFO that `record` points to, which is
// this thread's alone until it ends. Always returns null.
void* MVCPMoveThread(void* record);

}  // namespace Fennox
