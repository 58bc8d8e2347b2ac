// The hooks by which the data hook may leave small files behind.
#pragma once

#include "fileop/behind.h"

namespace Fennox {

// They speak for the server at the one end that is remote.
extern const TAVOBEHINDHOOKS kBehindHooks;

}  // namespace Fennox
