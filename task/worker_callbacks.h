// Callbacks that tie the worker's process to its record.
#pragma once

namespace Fennox {

// SIGTERM asks the worker to stop; any other signal is only logged.
void MVCPSignalHandler(int signal);

// At an ordinary exit after a stop: removes the record.
void MVCPRemoveTask();

// Tells the remote-mount queue whether a task still runs: 1 it does, 0 it does
// not, -1 stop asking. `registry` is the user's KVX::TaskMgr.
int MVCPGetTask(const char* queue, const char* taskId, int pid, void* registry);

}  // namespace Fennox
