// Whether the server behind a folder still answers.
#pragma once

namespace fileop {

// Failures after which the server of a remote folder may be gone or hang.
bool MayBeLost(int code, int err);

// Lists the folder anew. False when that fails, too, for such a reason; a connection
// that has broken is asked for a second one. Takes as long as the mount waits.
bool Answers(int folder);

}  // namespace fileop
