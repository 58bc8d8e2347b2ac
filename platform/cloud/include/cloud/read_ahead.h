// Small files of a server, read before their turn over a few connections of their own.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cloud/cloud.h"

namespace TAVOCloud {

// For several threads at a time, but for its beginning and its end.
class ReadAhead {
 public:
  // For the server of `cloud`, whose own connection is not used. As many connections as the
  // remote's `max_connections` leaves beside that one and the mount's, three at most.
  explicit ReadAhead(const Cloud& cloud);
  ~ReadAhead();
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  // Writes the whole file into `fd` from its position on. `cancel` is asked by the calling
  // thread. False, with the last error set, when its size in bytes is not `size` or it was not
  // read; at once when there is no connection: none is left, or the server has refused one or
  // was lost, after which all are closed.
  [[nodiscard]] bool Fetch(const std::string& serverPath, int fd, std::uint64_t size,
                           CancelFn cancel);

  // Closes all connections: others need them.
  void GiveUp();

 private:
  std::unique_ptr<Cloud> Take();
  void GiveBack(std::unique_ptr<Cloud> cloud, bool closes);

  std::mutex mutex_;
  std::vector<std::unique_ptr<Cloud>> idle_;
  bool closed_ = false;
};

}  // namespace TAVOCloud
