#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include "core/file.h"
#include "failure.h"
#include "fileop/copy.h"

namespace {

constexpr int kMostTries = 10000;

std::size_t NameLimit(const std::string& folder) {
  const long limit = ::pathconf(folder.empty() ? "/" : folder.c_str(), _PC_NAME_MAX);
  return limit > 0 ? static_cast<std::size_t>(limit) : NAME_MAX;
}

// Where the extension begins; the name's end when it has none.
std::size_t ExtensionAt(const std::string& path, const std::string& name) {
  struct stat st;
  if (::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return name.size();
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? name.size() : dot;
}

// Cuts to at most `size` bytes, not within a UTF-8 character.
void Cut(std::string* text, std::size_t size) {
  if (text->size() <= size) return;
  while (size > 0 && (static_cast<unsigned char>((*text)[size]) & 0xC0) == 0x80) --size;
  text->resize(size);
}

std::string Numbered(std::string stem, const std::string& extension, int number,
                     std::size_t limit) {
  std::string tail = " (" + std::to_string(number) + ")" + extension;
  if (tail.size() >= limit) Cut(&tail, limit - 1);
  Cut(&stem, limit - tail.size());
  return stem + tail;
}

}  // namespace

int Default_GenerateNewName(const char* path, char* buffer, int size) {
  if (path == nullptr || buffer == nullptr || size <= 0) {
    return fileop::Fail(EINVAL, fileop::Side::kUnknown);
  }
  const int saved = errno;
  const std::string whole = path;
  const std::size_t slash = whole.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : whole.substr(0, slash);
  const std::string name = slash == std::string::npos ? whole : whole.substr(slash + 1);
  const std::string head = whole.substr(0, whole.size() - name.size());
  const std::size_t limit = NameLimit(folder);
  const std::size_t dot = ExtensionAt(whole, name);
  for (int number = 1; number <= kMostTries; ++number) {
    const std::string made = head + Numbered(name.substr(0, dot), name.substr(dot), number, limit);
    if (VLIBCFileExist(made.c_str()) != 0) continue;
    if (made.size() >= static_cast<std::size_t>(size)) {
      return fileop::Fail(ENAMETOOLONG, fileop::Side::kUnknown);
    }
    std::memcpy(buffer, made.c_str(), made.size() + 1);
    errno = saved;
    return 0;
  }
  return fileop::Fail(EEXIST, fileop::Side::kUnknown);
}
