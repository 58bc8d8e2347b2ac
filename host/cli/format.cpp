#include "host/cli/format.h"

#include <json/writer.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace cli {
namespace {

struct Decoded {
  std::uint32_t code = 0;
  std::size_t length = 0;  // 0: not UTF-8
};

std::size_t SequenceLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xc2 && lead < 0xe0) return 2;
  if (lead >= 0xe0 && lead < 0xf0) return 3;
  return lead >= 0xf0 && lead < 0xf5 ? 4 : 0;
}

Decoded DecodeAt(const std::string& text, std::size_t at) {
  const auto lead = static_cast<unsigned char>(text[at]);
  const std::size_t length = SequenceLength(lead);
  if (length == 0 || at + length > text.size()) return {};
  std::uint32_t code = length == 1 ? lead : lead & (0x7fU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xc0) != 0x80) return {};
    code = code << 6 | (next & 0x3f);
  }
  constexpr std::array<std::uint32_t, 5> kSmallest = {0, 0, 0x80, 0x800, 0x10000};
  if (code < kSmallest[length] || code > 0x10ffff || (code >= 0xd800 && code < 0xe000)) return {};
  return {code, length};
}

// Characters that a terminal obeys, or that make a name read as another one.
bool IsUnsafe(std::uint32_t code) {
  return code < 0x20 || (code >= 0x7f && code < 0xa0) || code == 0x61c ||
         (code >= 0x200b && code <= 0x200f) || (code >= 0x2028 && code <= 0x202e) ||
         (code >= 0x2060 && code <= 0x206f) || code == 0xfeff ||
         (code >= 0xfff9 && code <= 0xfffb) || (code >= 0xe0000 && code <= 0xe007f);
}

std::string Escaped(unsigned char byte) {
  switch (byte) {
    case '\n':
      return "\\n";
    case '\t':
      return "\\t";
    case '\r':
      return "\\r";
    default:
      break;
  }
  std::array<char, 8> out{};
  std::snprintf(out.data(), out.size(), "\\x%02x", byte);
  return out.data();
}

bool InRange(std::uint32_t code, std::uint32_t first, std::uint32_t last) {
  return code >= first && code <= last;
}

std::size_t Width(std::uint32_t code) {
  if (InRange(code, 0x300, 0x36f) || InRange(code, 0x1ab0, 0x1aff) ||
      InRange(code, 0x20d0, 0x20ff) || InRange(code, 0xfe00, 0xfe0f)) {
    return 0;
  }
  const bool wide = InRange(code, 0x1100, 0x115f) || InRange(code, 0x2e80, 0xa4cf) ||
                    InRange(code, 0xac00, 0xd7a3) || InRange(code, 0xf900, 0xfaff) ||
                    InRange(code, 0xfe30, 0xfe6f) || InRange(code, 0xff00, 0xff60) ||
                    InRange(code, 0xffe0, 0xffe6) || InRange(code, 0x1f300, 0x1faff) ||
                    InRange(code, 0x20000, 0x3fffd);
  return wide ? 2 : 1;
}

// Length in bytes of the longest start of `text` that fits `columns`.
std::size_t Head(const std::string& text, std::size_t columns) {
  std::size_t at = 0;
  while (at < text.size()) {
    const Decoded next = DecodeAt(text, at);
    const std::size_t width = next.length == 0 ? 1 : Width(next.code);
    if (width > columns) break;
    columns -= width;
    at += std::max<std::size_t>(next.length, 1);
  }
  return at;
}

// Where the longest end of `text` that fits `columns` begins.
std::size_t Tail(const std::string& text, std::size_t columns) {
  const std::size_t all = Columns(text);
  std::size_t at = 0;
  for (std::size_t left = all; left > columns && at < text.size();) {
    const Decoded next = DecodeAt(text, at);
    left -= next.length == 0 ? 1 : Width(next.code);
    at += std::max<std::size_t>(next.length, 1);
  }
  return at;
}

template <typename... Args>
std::string Print(const char* format, Args... args) {
  std::array<char, 64> out{};
  std::snprintf(out.data(), out.size(), format, args...);
  return out.data();
}

double Sane(double value) { return std::isfinite(value) && value > 0 ? value : 0.0; }

std::string Framed(const std::string& bar) { return std::string("[").append(bar).append("]"); }

std::string Write(const Json::Value& value, const char* indentation) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = indentation;
  builder["emitUTF8"] = false;
  return Json::writeString(builder, value);
}

}  // namespace

std::string Printable(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const Decoded next = DecodeAt(text, at);
    const std::size_t length = std::max<std::size_t>(next.length, 1);
    if (next.length != 0 && !IsUnsafe(next.code)) {
      out.append(text, at, length);
    } else {
      for (std::size_t i = 0; i < length; ++i) {
        out += Escaped(static_cast<unsigned char>(text[at + i]));
      }
    }
    at += length;
  }
  return out;
}

std::size_t Columns(const std::string& text) {
  std::size_t columns = 0;
  for (std::size_t at = 0; at < text.size();) {
    const Decoded next = DecodeAt(text, at);
    columns += next.length == 0 ? 1 : Width(next.code);
    at += std::max<std::size_t>(next.length, 1);
  }
  return columns;
}

std::string FitColumns(const std::string& text, std::size_t columns) {
  constexpr std::size_t kDots = 3;
  if (Columns(text) <= columns) return text;
  if (columns <= kDots) return text.substr(0, Head(text, columns));
  const std::size_t head = (columns - kDots) / 2;
  return text.substr(0, Head(text, head)) + "..." + text.substr(Tail(text, columns - kDots - head));
}

std::string FormatBytes(double bytes) {
  constexpr std::array<const char*, 7> kUnits = {"B", "kB", "MB", "GB", "TB", "PB", "EB"};
  double value = Sane(bytes);
  std::size_t unit = 0;
  // 999.5 would be printed as 1000 of the smaller unit.
  while (value >= 999.5 && unit + 1 < kUnits.size()) {
    value /= 1000;
    ++unit;
  }
  return Print(unit > 0 && value < 9.95 ? "%.1f %s" : "%.0f %s", value, kUnits[unit]);
}

std::string FormatDuration(double seconds) {
  const auto whole = static_cast<long long>(std::min(Sane(seconds), 1e12));
  if (whole >= 3600) return Print("%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
  return Print("%lld:%02lld", whole / 60, whole % 60);
}

std::string FormatElapsed(double seconds) {
  const double value = Sane(seconds);
  if (value < 0.9995) return Print("%.0f ms", value * 1000);
  return value < 59.95 ? Print("%.1f s", value) : FormatDuration(value);
}

std::string FormatPercent(double fraction) {
  return Print("%3.0f %%", std::floor(std::min(Sane(fraction), 1.0) * 100));
}

std::string FormatCount(double count) {
  std::string digits = Print("%.0f", Sane(count));
  for (auto at = static_cast<std::ptrdiff_t>(digits.size()) - 3; at > 0; at -= 3) {
    digits.insert(static_cast<std::size_t>(at), 1, ',');
  }
  return digits;
}

std::string Bar(double fraction, std::size_t width) {
  if (width < 3) return "";
  const std::size_t inner = width - 2;
  const auto full =
      static_cast<std::size_t>(std::min(Sane(fraction), 1.0) * static_cast<double>(inner));
  return Framed(std::string(full, '#').append(inner - full, '-'));
}

std::string WanderingBar(double seconds, std::size_t width) {
  if (width < 3) return "";
  constexpr double kColumnsPerSecond = 12;
  const std::size_t inner = width - 2;
  const std::size_t block = std::min<std::size_t>(inner, 4);
  const std::size_t way = inner - block;
  std::string bar(inner, '-');
  std::size_t at = 0;
  if (way > 0) {
    at = static_cast<std::size_t>(
        std::fmod(Sane(seconds) * kColumnsPerSecond, 2.0 * static_cast<double>(way)));
    if (at > way) at = 2 * way - at;
  }
  bar.replace(at, block, block, '#');
  return Framed(bar);
}

std::string ToJsonLine(const Json::Value& value) { return Write(value, ""); }
std::string ToJsonText(const Json::Value& value) { return Write(value, "  "); }

}  // namespace cli
