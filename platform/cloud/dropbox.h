// Dropbox, over the service's HTTP API.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "dropbox_api.h"
#include "retry.h"
#include "server_cloud.h"

namespace TAVOCloud {

// Server paths are those of the account, "/" is its root folder; the service tells
// names apart without regard to case. An upload has its name only once the service has
// all of it, and is done when the service confirms its size and hash. Calls that the
// service puts off, and transfers whose connection breaks, are taken up where they
// stopped, a bounded number of times.
class DropboxCloud final : public ServerCloud {
 public:
  // Larger files are sent in parts of this size, each of which is held in memory until
  // the service has it.
  static constexpr std::size_t kPart = 8U << 20U;

  DropboxCloud(const core::RemoteConfig& remote, const std::string& serverId,
               std::size_t part = kPart);

  std::string Name() const override { return api_.remote().name; }
  bool Connect(std::string* err) override;
  // True for the files that the service's own programs make in a folder that they
  // keep, and that it takes from nobody.
  bool IsIgnoredPath(const std::string& sourcePath) override;
  bool IsAcceptedSize(std::uint64_t bytes) override;
  int Kind() const override { return 3; }
  bool Stat(const std::string& serverPath, std::uint64_t* size, bool* folder) override;
  bool MakeFolder(const std::string& serverPath) override;
  // A folder only when it is empty.
  bool Remove(const std::string& serverPath) override;
  // Never replaces anything.
  bool Rename(const std::string& from, const std::string& to) override;
  bool Download(const std::string& serverPath, int fd, std::uint64_t size, ProgressFn progress,
                CancelFn cancel, ReadSizeFn readSize) override;
  bool Upload(const std::string& serverPath, int fd, std::uint64_t size, ProgressFn progress,
              CancelFn cancel, ReadSizeFn readSize) override;
  // A file replaces a file.
  bool CopyOnServer(const std::string& from, const std::string& to) override;
  // The same from another account.
  bool CopyFromAccount(DropboxCloud* source, const std::string& from, const std::string& to);

 private:
  using Call = std::function<DropboxAnswer(int attempt)>;

  using ServerCloud::Fail;
  bool Fail(const DropboxAnswer& answer);
  bool FailWithWords(const char* words);
  bool CheckPath(const std::string& path);

  DropboxAnswer Persist(const Call& call, Again again);
  DropboxAnswer Look(const std::string& path);
  DropboxAnswer List(const std::string& folder);
  DropboxAnswer Move(const std::string& from, const std::string& to);
  bool IsSame(const std::string& one, const std::string& other);
  bool MoveThrough(const std::string& from, const std::string& to);

  std::vector<std::string> LeftoversIn(const std::string& folder) override;
  void RemoveLeftover(const std::string& path) override { Discard(path, {}); }

  bool Place(const std::function<DropboxAnswer(const std::string& to)>& copy,
             const std::string& to);
  bool Replace(const std::string& temporary, const std::string& to);
  void Discard(const std::string& path, const std::string& version);

  struct UploadSession;
  bool SendWhole(const std::string& path, Flow* flow);
  bool SendLarge(const std::string& path, Flow* flow);
  bool SendInParts(const std::string& path, Flow* flow, bool* lost);
  DropboxAnswer SendPart(UploadSession* session, std::string_view data, bool last);
  DropboxAnswer Finish(UploadSession* session, std::string_view data);
  bool Confirm(const std::string& path, const Json::Value& metadata, const Flow& flow,
               const std::string& hash);

  DropboxApi api_;
  std::size_t part_;
};

}  // namespace TAVOCloud
