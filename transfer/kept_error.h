// Keeps the reason of a failure through the clean-up that follows it.
#pragma once

#include <cerrno>

#include "core/error.h"

namespace Fennox {

// Puts errno and the last core error back when it goes out of scope.
class KeptError {
 public:
  KeptError() = default;
  ~KeptError() {
    if (VLIBCErrGet() != core_) VLIBCErrSetEx(core_, place_.file, place_.line);
    errno = system_;
  }
  KeptError(const KeptError&) = delete;
  KeptError& operator=(const KeptError&) = delete;

 private:
  int system_ = errno;
  int core_ = VLIBCErrGet();
  core::ErrorPlace place_ = core::LastErrorPlace();
};

}  // namespace Fennox
