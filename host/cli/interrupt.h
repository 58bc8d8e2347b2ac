// Ctrl-C as a flag.
#pragma once

namespace cli {

// From now on the first Ctrl-C sets the flag; a second one ends the program.
// Whether calls in progress go on or end with EINTR.
enum class CallsInProgress { kGoOn, kEnd };
void CatchInterrupt(CallsInProgress calls = CallsInProgress::kGoOn);
bool Interrupted();

}  // namespace cli
