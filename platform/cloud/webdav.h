// WebDAV servers, plain and over TLS.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "retry.h"
#include "server_cloud.h"
#include "webdav_failure.h"
#include "webdav_multistatus.h"
#include "webdav_session.h"

namespace TAVOCloud {

// Uploads and copies on the server stand under a temporary name beside their target
// until the server has confirmed their size, and then replace a file of that name,
// never a folder. A download whose connection breaks is taken up where it stopped as
// long as the file is the same; an upload begins anew. What fails in passing is tried
// again a bounded number of times.
//
// Rename replaces nothing. Remove takes files and empty folders. GetErrorCode is 40
// when the server opened a connection and would not serve it (503, 429), otherwise the
// HTTP status or the transfer library's code.
class WebDav final : public ServerCloud {
 public:
  WebDav(const core::RemoteConfig& remote, const std::string& serverId);

  std::string Name() const override { return session_.remote().name; }
  bool Connect(std::string* err) override;
  bool IsIgnoredPath(const std::string& sourcePath) override;
  bool IsAcceptedSize(std::uint64_t bytes) override;
  int Kind() const override { return 2; }
  bool Stat(const std::string& serverPath, std::uint64_t* size, bool* folder) override;
  bool MakeFolder(const std::string& serverPath) override;
  bool Remove(const std::string& serverPath) override;
  bool Rename(const std::string& from, const std::string& to) override;
  bool Download(const std::string& serverPath, int fd, std::uint64_t size, ProgressFn progress,
                CancelFn cancel, ReadSizeFn readSize) override;
  bool Upload(const std::string& serverPath, int fd, std::uint64_t size, ProgressFn progress,
              CancelFn cancel, ReadSizeFn readSize) override;
  bool CopyOnServer(const std::string& from, const std::string& to) override;

 protected:
  std::unique_ptr<ServerCloud> Another() const override;
  int MostConnections() const override { return session_.remote().max_connections; }

 private:
  enum class Taken { kRefuse, kReplace };
  using Call = std::function<WebDavAnswer(int attempt)>;

  using ServerCloud::Fail;
  bool Fail(const WebDavAnswer& answer);

  WebDavAnswer Persist(const Call& call, Again again = Again::kAfterAll);
  // For what changes something; the answer's status is that of the part that failed.
  WebDavAnswer Change(const HttpRequest& request);
  WebDavAnswer Relocate(const char* method, const std::string& from, const std::string& to,
                        Taken taken);

  WebDavAnswer List(const std::string& path, const char* depth, std::vector<DavEntry>* entries);
  WebDavAnswer LookOnce(const std::string& path, DavEntry* entry);
  WebDavAnswer Look(const std::string& path, DavEntry* entry);

  std::vector<std::string> LeftoversIn(const std::string& folder) override;
  void RemoveLeftover(const std::string& path) override;

  bool Receive(const std::string& path, Flow* flow);
  bool Deliver(const std::string& temporary, Flow* flow);
  bool Confirm(const std::string& path, std::uint64_t size);
  WebDavAnswer Place(const std::string& temporary, const std::string& target, bool* folder);
  bool Publish(const std::string& temporary, const std::string& target, std::uint64_t size);
  bool CopyFile(const std::string& from, const std::string& to, std::uint64_t size, Flow* flow);
  void Discard(const std::string& temporary, bool sent);

  WebDavSession session_;
};

}  // namespace TAVOCloud
