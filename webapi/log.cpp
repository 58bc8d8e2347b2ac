#include "webapi/log.h"

#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace Fennox {
namespace {

std::string Format(const char* format, va_list args) __attribute__((format(printf, 1, 0)));

std::string Format(const char* format, va_list args) {
  char* text = nullptr;
  if (vasprintf(&text, format, args) < 0) return format;
  std::string copy(text);
  std::free(text);
  return copy;
}

// A file name with a line feed must not look like a log line of its own; the
// one that ends a message is the log's business.
void HideControlCharacters(std::string& text) {
  if (text.ends_with('\n')) text.pop_back();
  for (char& c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) c = '?';
  }
}

void Write(const std::string& prefix, const char* format, va_list args)
    __attribute__((format(printf, 2, 0)));

void Write(const std::string& prefix, const char* format, va_list args) {
  std::string text = prefix + Format(format, args);
  HideControlCharacters(text);
  syslog(LOG_ERR, "%s", text.c_str());
}

}  // namespace

void LogError(int number, const char* format, ...) {
  const int saved = errno;
  va_list args;
  va_start(args, format);
  Write(std::string(kModuleName) + ':' + std::to_string(number) + ' ', format, args);
  va_end(args);
  errno = saved;
}

void LogErrorWithPrefix(const char* prefix, const char* format, ...) {
  const int saved = errno;
  va_list args;
  va_start(args, format);
  Write(prefix, format, args);
  va_end(args);
  errno = saved;
}

}  // namespace Fennox
