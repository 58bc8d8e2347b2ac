// Faults that cannot be had from the real parts; a test sets them and puts them back.
#pragma once

#include <functional>
#include <string>

#include "tasks/task.h"

struct Faults {
  bool forkFails = false;
  std::string refusedProtocol;               // no user may use it
  std::function<bool(KVX::Task*)> dataWait;  // when set, the wait for a record's pid
};
extern Faults faults;
