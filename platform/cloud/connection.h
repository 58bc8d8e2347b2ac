// Requests to one FTP or FTPS server, over a connection that is kept.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/config.h"
#include "curl_handle.h"
#include "flow.h"
#include "leftovers.h"

namespace TAVOCloud {

// What is known of a file that was sent.
struct FileFacts {
  std::uint64_t size;
  std::uint32_t changed = 0;  // seconds since 1970; 0: the server's own time stays
  bool only_new = false;      // it may replace nothing
};

// Not for several threads at a time. Every path is absolute on the server and
// sendable (see IsSendablePath).
class Connection {
 public:
  explicit Connection(core::RemoteConfig remote);

  const core::RemoteConfig& remote() const { return remote_; }

  // Requests end when `flow` is told to stop; null: they do not.
  void Watch(Flow* flow) { curl_.Watch(flow); }
  // Requests give up after a few seconds: for cleaning up after a stop.
  void Hurry(bool hurry) { curl_.Hurry(hurry); }

  // Logs in, if no connection stands.
  Outcome Open();
  // The size of a file in bytes.
  Outcome Size(const std::string& path, std::uint64_t* size);
  // Succeeds for a folder.
  Outcome Folder(const std::string& path);
  // Moves a file's data from `offset` on; `flow` has its place there.
  Outcome Download(const std::string& path, std::uint64_t offset, Flow* flow);
  Outcome Upload(const std::string& path, std::uint64_t offset, Flow* flow);
  // Gives `picker` the names in a folder, whose path ends with a slash.
  Outcome List(const std::string& folder, LeftoverPicker* picker);
  // Runs commands in order, up to the first that fails.
  Outcome Run(const std::vector<std::string>& commands);
  // Renames a file that has its size, in one go. A failure says nothing of the
  // file; with *whole it had the size. CURLE_REMOTE_FILE_EXISTS: the name is taken.
  Outcome RenameWhole(const std::string& from, const std::string& to, const FileFacts& facts,
                      bool* whole);

 private:
  [[nodiscard]] bool Prepare(const std::string& path, std::string* err);
  void PrepareSecurity();
  [[nodiscard]] bool PrepareLogin(std::string* err);
  Outcome RunPrepared(const std::vector<std::string>& commands);
  Outcome Perform();
  static Outcome Unprepared(const std::string& err);

  core::RemoteConfig remote_;
  std::string password_;
  bool have_password_ = false;
  bool takes_times_ = true;  // as far as the server has not said otherwise
  CurlHandle curl_;
};

}  // namespace TAVOCloud
