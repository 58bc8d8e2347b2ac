#include "webapi/module_calls.h"
#include "webapi/module_state.h"

int Fennox::MVCPIsCancelled() { return _cancelRequested; }
