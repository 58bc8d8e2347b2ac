#include <iconv.h>

#include <array>
#include <cerrno>
#include <memory>
#include <optional>
#include <type_traits>

#include "support/text.h"

namespace {

struct IconvCloser {
  void operator()(iconv_t converter) const {
    const int saved = errno;
    iconv_close(converter);
    errno = saved;
  }
};
using Iconv = std::unique_ptr<std::remove_pointer_t<iconv_t>, IconvCloser>;

Iconv OpenIconv(const std::string& from, const std::string& to) {
  // A suffix such as //TRANSLIT would turn a failure into another name.
  if (from.empty() || to.empty() || (from + to).find('/') != std::string::npos) return nullptr;
  // The "no converter" value is (iconv_t)-1, an integer in a pointer's clothes.
  const iconv_t converter = iconv_open(to.c_str(), from.c_str());
  return Iconv(reinterpret_cast<std::intptr_t>(converter) == -1 ? nullptr : converter);
}

// `in` null flushes the shift state. False on a character that has no place in
// the target set.
bool Feed(const Iconv& converter, char** in, std::size_t* inLeft, std::string* out) {
  std::array<char, 1024> buffer{};
  while (true) {
    char* next = buffer.data();
    std::size_t room = buffer.size();
    const std::size_t result = iconv(converter.get(), in, inLeft, &next, &room);
    out->append(buffer.data(), buffer.size() - room);
    if (result == 0) return true;
    if (result != static_cast<std::size_t>(-1) || errno != E2BIG) return false;
  }
}

// The thread's converter, at its first shift state. A task asks for the same one for each
// of its files, and opening it takes longer than converting a name.
const Iconv& ConverterOf(const std::string& from, const std::string& to) {
  struct Latest {
    std::string from;
    std::string to;
    Iconv converter;
  };
  thread_local Latest latest;
  if (latest.converter && latest.from == from && latest.to == to) {
    iconv(latest.converter.get(), nullptr, nullptr, nullptr, nullptr);
  } else {
    latest = {from, to, OpenIconv(from, to)};
  }
  return latest.converter;
}

std::optional<std::string> Convert(const std::string& text, const std::string& from,
                                   const std::string& to) {
  const Iconv& converter = ConverterOf(from, to);
  if (!converter) return std::nullopt;
  std::string source = text;
  char* in = source.data();
  std::size_t left = source.size();
  std::string out;
  if (!Feed(converter, &in, &left, &out) || !Feed(converter, nullptr, nullptr, &out)) {
    return std::nullopt;
  }
  return out;
}

}  // namespace

bool WfmLibConv(std::string& out, const std::string& text, const std::string& from,
                const std::string& to) {
  const int saved = errno;
  std::optional<std::string> converted = Convert(text, from, to);
  errno = saved;
  const bool done = converted.has_value();
  out = done ? std::move(*converted) : std::string(text);
  return done;
}
