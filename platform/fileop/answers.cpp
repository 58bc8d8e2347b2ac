#include "answers.h"

#include "core/error.h"
#include "failure.h"
#include "vfs/mounts.h"

namespace fileop {
namespace {

bool MayBeLost(const Failure& failure) {
  return failure.code == core::kErrHostDown || vfs::MayMeanServerLost(failure.err);
}

}  // namespace

bool IsServerLost(const Failure& failure, const std::string& src, const std::string& dst) {
  return MayBeLost(failure) && !(vfs::MountAnswers(src) && vfs::MountAnswers(dst));
}

Failure ServerLost() { return {core::kErrHostDown, EHOSTDOWN, Side::kUnknown}; }

}  // namespace fileop
