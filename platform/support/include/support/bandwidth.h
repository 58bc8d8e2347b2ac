// Pacing of copies: one token bucket per user, shared by all of that user's
// workers through a file in the user's state folder. Within a process for one
// thread alone.
#pragma once

#include <sys/types.h>

// Starts accounting in this process. `chunk` is the largest grant in bytes. An
// earlier start is ended first. False when the shared state cannot be opened.
bool WfmlibBwInit(bool destIsVfs, bool srcIsVfs, unsigned int uid, const char* folderName,
                  unsigned long long chunk);

// Asks for `bytes` more bytes of a copy that has moved `processed` of `total`
// so far. Waits for tokens (at most a second a call; granted may then be 0) and
// grants at most the chunk. Without a limit the grant is the request, capped at
// the chunk; a request of 0 is granted a whole chunk. False before
// WfmlibBwInit, or when the state is lost.
bool WfmlibBwRun(unsigned long long processed, unsigned long long bytes, unsigned long long total,
                 long long& granted);

// Ends accounting. Harmless when it was never started.
void WfmlibBwEnd();
