#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "fuzz.h"

namespace fuzz {
namespace {

struct TemporaryFolder {
  TemporaryFolder() {
    std::string pattern = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    pattern += "/fennox-fuzz-XXXXXX";
    Require(mkdtemp(pattern.data()) != nullptr, "a temporary folder can be made");
    path = pattern;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  std::string path;
};

}  // namespace

void Require(bool holds, const char* what) {
  if (holds) return;
  std::cerr << "does not hold: " << what << std::endl;
  abort();
}

std::uint8_t TakeByte(std::string_view* input) {
  if (input->empty()) return 0;
  const auto byte = static_cast<std::uint8_t>(input->front());
  input->remove_prefix(1);
  return byte;
}

const std::string& Folder() {
  static const TemporaryFolder folder;
  return folder.path;
}

void Write(const std::string& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<long>(bytes.size()));
}

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Fuzz({reinterpret_cast<const char*>(data), size});
  return 0;
}
