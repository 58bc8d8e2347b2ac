// Streaming transfers to and from servers.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace TAVOCloud {

using ProgressFn = int (*)(unsigned long long bytes, unsigned long long);
using CancelFn = int (*)();
using ReadSizeFn = long long (*)(unsigned long long bytes);

// One connection to a configured server, for one thread at a time. Server paths are
// absolute, in bytes as they stand there. What fails has set the last error and errno.
// The order of the virtual members is part of the interface.
class Cloud {
 public:
  virtual ~Cloud() = default;

  virtual std::string Name() const = 0;        // configured name of the mount
  virtual bool Connect(std::string* err) = 0;  // false: *err says why in words
  // Path test: true when the file needs no transfer at all (a file that the
  // server makes by itself).
  virtual bool IsIgnoredPath(const std::string& sourcePath) = 0;
  // Size test: false when the server takes no file of this size; the last
  // error is set to kErrTooLarge then.
  virtual bool IsAcceptedSize(std::uint64_t bytes) = 0;
  virtual int Kind() const = 0;  // 1 FTP family, 2 WebDAV, 3 Dropbox
  // What is at a path; *size is in bytes, and 0 for a folder.
  virtual bool Stat(const std::string& serverPath, std::uint64_t* size, bool* folder) = 0;
  virtual bool MakeFolder(const std::string& serverPath) = 0;
  virtual bool Remove(const std::string& serverPath) = 0;  // a file or an empty folder
  // Replaces nothing, where the server can be told so.
  virtual bool Rename(const std::string& from, const std::string& to) = 0;
  // The transfers below, for a path on the server.
  virtual bool Download(const std::string& serverPath, int fd, std::uint64_t size,
                        ProgressFn progress, CancelFn cancel, ReadSizeFn readSize) = 0;
  virtual bool Upload(const std::string& serverPath, int fd, std::uint64_t size,
                      ProgressFn progress, CancelFn cancel, ReadSizeFn readSize) = 0;
  // Copies on the server itself; EOPNOTSUPP where it cannot.
  virtual bool CopyOnServer(const std::string& from, const std::string& to) = 0;

  // Whole-file transfers between a server and an open descriptor, or between
  // two servers through a bounded buffer. `size` is the expected size in bytes.
  // `progress` (may be null) gets the bytes just moved, `cancel` (may be null)
  // ends the transfer within a second when it answers non-zero, `readSize` (may be
  // null) is asked before each read. They run on the calling thread, but for CopyFile's
  // `cancel`, which two threads ask. False on failure, with the last error set and
  // GetErrorCode telling why.
  static bool DownloadFile(Cloud* cloud, const std::string& remotePath, int fd, std::uint64_t size,
                           ProgressFn progress, CancelFn cancel, ReadSizeFn readSize);
  static bool UploadFile(Cloud* cloud, const std::string& remotePath, int fd, std::uint64_t size,
                         ProgressFn progress, CancelFn cancel, ReadSizeFn readSize);
  static bool CopyFile(Cloud* source, Cloud* dest, const std::string& sourcePath,
                       const std::string& destPath, std::uint64_t size, ProgressFn progress,
                       CancelFn cancel, ReadSizeFn readSize);

  // Around all use of the library in a process, while it has a single thread.
  static void InitCurlGlobal();
  static void CleanupCurlGlobal();

  // For what has no such function of its own, the copies on the server: `cancel` ends
  // them within a second when it answers non-zero. Null: nothing does.
  void StopWhen(CancelFn cancel) { cancel_ = cancel; }

  // The path on the server of a path on the mount, PROTOCOL://NAME/rest, its rest in
  // bytes as they stand there; an absolute path is one already. Empty for a path on
  // another mount.
  std::string GetServerPathBySharePath(const std::string& remotePath) const;
  // The server's id, equal to the mount's base URI.
  std::string GetServerID() const { return serverId_; }
  // Why the last transfer failed: 0 none, 40 the server will not open one more
  // connection, other values as the kind gives them.
  int GetErrorCode() const { return errorCode_; }

 protected:
  std::string serverId_;
  int errorCode_ = 0;
  CancelFn cancel_ = nullptr;
};

class Dropbox {
 public:
  // Copies between two accounts by reference. `source` is the object of the
  // account that holds the file, `dest` that of the other one.
  static bool CopyFromRef(Cloud* dest, const std::string& sourceServerPath,
                          const std::string& destServerPath, Cloud* source);
};

class Utils {
 public:
  // A new object for the server behind `uri`, the base URI of a mount or any path on
  // it, owned by the caller; null, with the last error and errno set, when there is no
  // such mount or the user may not use it. `configMode` is not used.
  static Cloud* CreateCloudByURI(uid_t uid, const std::string& uri, int configMode);
};

}  // namespace TAVOCloud
