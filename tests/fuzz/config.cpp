// The configuration file.
#include "core/config.h"

#include <sys/mman.h>
#include <unistd.h>

#include "core/unique_fd.h"
#include "fuzz.h"

namespace fuzz {

void Fuzz(std::string_view input) {
  std::uint64_t bytes = 0;
  (void)core::ParseByteAmount(std::string(input), &bytes);
  const core::UniqueFd file(memfd_create("fennox.toml", MFD_CLOEXEC));
  Require(write(file.get(), input.data(), input.size()) == static_cast<ssize_t>(input.size()),
          "the file is written");
  const std::string path = "/proc/self/fd/" + std::to_string(file.get());
  core::Config config;
  std::string err;
  if (!core::LoadConfig(path, &config, &err)) {
    return Require(err.starts_with(path + ":"), "a fault is placed");
  }
  Require(core::CheckConfig(config, &err), "what is taken is sound");
}

}  // namespace fuzz
