// Remote mounts: which paths lie on one, what they can do, and whose turn it is.
//
// A path on a remote mount is written PROTOCOL://NAME/rest, NAME being a
// configured mount. PROTOCOL://NAME/ with its last slash is the mount's base URI
// and its server id.
#pragma once

#include <sys/types.h>

#include <json/value.h>
#include <string>
#include <vector>

namespace TAVOVFS {

// Prepares the process for the acting user. False for the unknown user, (uid_t)-1.
bool InitGlobal(uid_t uid, bool readOnly);

// The user given to InitGlobal, or the process's own.
uid_t GetActorUID();

// Kinds of per-user settings.
enum _VFS_USER_CONFIG_ : int {
  VFS_USER_CONFIG_PROTOCOL = 1,  // may the user use the protocol
};

class Cfg {
 public:
  // True when the user may use some configured mount of that protocol.
  static bool CheckPermissionByUserName(const char* user, _VFS_USER_CONFIG_ kind,
                                        const char* protocol);
};

class Utils {
 public:
  // The protocol of a remote path. False when the path is on no mount.
  static bool GetProtocol(const char* path, std::string& protocol);
  // The base URI of a remote path; with `checked` only of a configured mount.
  static bool GetBaseURI(const char* path, std::string& uri, bool checked);
};

class Protocol {
 public:
  // Description of a protocol, among others "enable_curl" ("true" when file
  // data streams through the cloud library). False for an unknown protocol.
  static bool GetProtocol(const char* protocol, Json::Value& description);
};

// Tells the queue whether a task still runs: queue name, task id, worker pid,
// the pointer given by the caller. 1 running, 0 not, -1 stop asking.
using TaskProbe = int (*)(const char*, const char*, int, void*);

// The queue of tasks on remote mounts, shared by all processes of a server:
// first come, first served, at most `slots` run at once. Entries of dead
// processes are dropped, by pid and start time.
class TaskMgr {
 public:
  explicit TaskMgr(unsigned int slots);
  // Joins the queue. False when the entry cannot be written.
  bool Add(const char* queue, const char* taskId, int pid);
  // Non-zero when the task may run now.
  int IsRunnable(const char* queue, const char* taskId, int pid, TaskProbe probe, void* user);
  // Leaves the queue; with `all` also drops every other entry that no longer runs.
  void Clean(const char* queue, const char* taskId, int pid, TaskProbe probe, void* user, bool all);

 private:
  unsigned int slots_;
};

}  // namespace TAVOVFS

namespace vfs {

// Makes the queue's file in STATE/run. A server for several users calls it once
// at start-up, as the user that owns the state folder: workers of other users
// may write the file but not make it. Where all processes are one user's the
// queue makes it itself. False with errno set on failure.
[[nodiscard]] bool PrepareQueue();

// Facts about the mount that holds a path.
struct MountInfo {
  std::string name;  // configured name
  std::string protocol;
  std::string base_uri;     // PROTOCOL://NAME/
  std::string mount_path;   // local folder it is mounted on, no trailing slash
  std::string remote_base;  // folder on the server that the mount shows
  std::string code_page;
  int max_connections = 0;  // 0: the server decides
  // A cloud-storage mount: Dropbox. WebDAV is a protocol of file servers like
  // FTP and SFTP, with their limits and not those of a storage service.
  bool cloud = false;
  std::vector<std::string> users;  // who may use it: users, "@group" or "*"
};

// Both look among the configured remotes whose `mount` is a folder that exists, or
// that are mounted automatically for the acting user, when the calling thread first
// asks for that user. They ask the file systems nothing after
// that, and are cheap where no remote is configured.
//
// The mount of a path as the user names it (PROTOCOL://NAME/rest). False when
// there is none.
[[nodiscard]] bool FindBySharePath(const std::string& path, MountInfo* out);
// The mount that holds an absolute local path. False when there is none.
[[nodiscard]] bool FindByFullPath(const std::string& path, MountInfo* out);

}  // namespace vfs
