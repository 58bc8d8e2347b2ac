// What the entry maps need to know of a source, which the worker may ask before its turn.
#pragma once

#include <sys/types.h>

namespace Fennox {

struct SourceLook {
  mode_t mode;
  off_t size;  // bytes
};

// Looks at the sources in _srcPathInfos, all of them local, from the last one backwards.
// WebFMParseInputFiles takes the answers and does the rest itself.
void LookAtSourcesEarly();

}  // namespace Fennox
