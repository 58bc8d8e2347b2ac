// Mounts that the server makes by itself: `mount = "auto"`.
//
// Each user has a mount of their own of each remote, at STATE/mounts/UID/NAME. It is made
// when the user first needs it, by a helper (sshfs or rclone) that runs as the server's
// own user and alone knows the password; the mounted folder belongs to the user and is
// closed to all others. A mount outlives the server as long as a task waits or runs on
// it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "core/config.h"
#include "vfs/trouble.h"

namespace vfs {

// Mounts the remote for the user when it is not, and makes sure that it answers. For a
// process that is root, or the server's only user; call it before the process becomes
// the user. Takes at most about twice the remote's connect timeout. What went wrong is
// also kept, for TroubleOf in this process and those forked from it.
[[nodiscard]] Trouble EnsureMounted(const core::RemoteConfig& remote, uid_t uid, gid_t gid);

// Why the remote that holds the path (PROTOCOL://NAME/rest) is not mounted; none when it
// is, or when there is no such remote.
[[nodiscard]] Trouble TroubleOf(const std::string& path);

// After a file was sent to its server past the mount that shows it, PROTOCOL://NAME/rest:
// makes an automatic mount forget what it knew of it, and waits, a second at most, until it
// shows the size in bytes. Keeps errno.
void AwaitUploaded(const std::string& uri, std::uint64_t size);

// Whether the errno of a call on a mount may come from a server that is gone or hangs.
[[nodiscard]] bool MayMeanServerLost(int err);

// A path of the same file by way of its folder, which the calling thread keeps open, as it does the
// one it was asked for before: a mount that remembers no names is not asked for each folder above.
// `path` itself when its folder cannot be opened. Keeps errno.
[[nodiscard]] std::string ShortPath(const std::string& path);

// Returns when what the mount that holds the absolute local path shows of it is no older than
// the call: at once, or, where listings are remembered, after that time, which is true. Keeps
// errno.
bool AwaitFresh(const std::string& path);

// False when the server behind the mount that holds the absolute local path gives no
// answer within its connect timeout and a few seconds, 15 at most; true for a path on no
// mount. Asked after something has failed. From then on this process takes the mount for
// lost and does not ask again; the helper of an automatic mount whose server hangs is
// ended, so that no call on the mount waits any more: all fail with ENOTCONN, and the next
// request mounts anew. Keeps errno.
[[nodiscard]] bool MountAnswers(const std::string& path);

// Unmounts all mounts of this server that no task uses: what it mounted before it ends,
// and, at start, what one that was killed has left. For the server's own user.
void ReleaseMounts();

}  // namespace vfs
