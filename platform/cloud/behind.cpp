#include "cloud/behind.h"

#include <cerrno>

#include "core/error.h"
#include "server_cloud.h"

namespace TAVOCloud {

void Behind::LetNext(Cloud* cloud) {
  if (auto* server = dynamic_cast<ServerCloud*>(cloud)) server->LetNextStayBehind();
}

std::uint64_t Behind::LastOf(const Cloud* cloud) {
  const auto* server = dynamic_cast<const ServerCloud*>(cloud);
  return server != nullptr ? server->last_behind() : 0;
}

bool Behind::Await(Cloud* cloud, std::uint64_t number) {
  auto* server = dynamic_cast<ServerCloud*>(cloud);
  if (server != nullptr) return server->AwaitBehind(number);
  errno = ECONNABORTED;
  VLIBCErrSetEx(core::kErrInputOutput, __FILE__, __LINE__);
  return false;
}

}  // namespace TAVOCloud
