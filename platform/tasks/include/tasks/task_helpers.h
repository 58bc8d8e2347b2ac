// What the two sides of a task do with its record.
#pragma once

#include <json/value.h>

#include <string>

#include "tasks/task.h"

// Reloads the task until it has the property (and, in the second form, until
// the property is an object with the member); the load of a new handle is one. Polls fast at
// first (each quarter of a millisecond, later after an eighth of the time waited, at most
// 100 ms), and notices at once what the process that made the record writes, when this is
// one of its children. False after `seconds`, or at once when the record is gone.
bool WaitForTaskDataReady(KVX::Task* task, const char* property, int seconds);
bool WaitForTaskDataKeyReady(KVX::Task* task, const char* property, const char* member,
                             int seconds);

// Writes `snapshot` back as the "data" of a record that still exists but has
// lost its data. False when the record was removed or cannot be written.
bool RecoverTaskData(KVX::Task* task, const Json::Value& snapshot);

// Stores "data", and `ratio` as the property "progress" (a real), in one
// transaction. The ratio is negative while nothing has been counted.
bool SaveTaskData(KVX::Task* task, const Json::Value& data, float ratio);

// Summary of a task for lists of tasks: {"action", "source_count",
// "dest_folder_path", "created" (seconds since the epoch)}.
Json::Value WfmLibBkgTaskInfoCreate(const Json::Value& data, const std::string& action);

// Removes the user's finished records older than the configured hours, and
// records that never got any data and are older than ten minutes.
void CleanTimeOutTasks(const char* user);

// Removes a finished record once the answer that reports it has been given:
// when `task` is released, and only if every isFinished answer it gave was
// true (or `force`). `task` may be null; `workerPid` is -1 when unknown. True
// when the record will be removed.
bool WfmLibRemoveFinishedTask(KVX::Task* task, int workerPid, bool force);

// Ends a worker of the calling process's user: SIGTERM, after checking against
// the store that the pid is still that worker (pid and start time). True when
// the signal was sent or the worker is already gone; false when the pid is not
// a worker of ours or may not be signalled.
bool DoKill(int pid);
