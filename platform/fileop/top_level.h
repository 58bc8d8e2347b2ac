// Copying and moving the paths that callers name.
#pragma once

#include "ends.h"
#include "request.h"

namespace fileop {

// The two kinds of entries.
[[nodiscard]] int CarryFile(Request& request, Ends& ends);
[[nodiscard]] int CarryFolder(Request& request, Ends& ends);

// One top-level path by one of them, with all that goes with it.
[[nodiscard]] int Carry(const char* src, const char* dst, TAVOCOPYOPTIONS* options,
                        _TAVOCOPYARGSEX* args, int (*carry)(Request& request, Ends& ends));

// One regular file outside of any hook; its source stays.
[[nodiscard]] int CopyAlone(const char* src, const char* dst, TAVOCOPYOPTIONS* options,
                            _TAVOCOPYARGSEX* args, bool share_blocks);

}  // namespace fileop
