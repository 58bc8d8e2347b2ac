// The action loop's place, filled by a script.
#pragma once

#include <cstdint>
#include <functional>

#include "webapi/handler.h"

using ActionScript =
    std::function<std::int64_t(Fennox::FennoxMVCPHandler&, Fennox::EntryMap&, bool isDirMap)>;
extern ActionScript scriptedAction;
