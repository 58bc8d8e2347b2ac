#include <charconv>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "core/config.h"

namespace core {
namespace {

constexpr int kMaxFractionDigits = 9;

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Factor of a unit such as "", "b", "k", "MB", "GiB"; 0 when there is none.
std::uint64_t UnitFactor(std::string_view unit) {
  constexpr std::string_view kLetters = "kmgt";
  std::string lower;
  for (const char c : unit) lower += Lower(c);
  if (lower.empty() || lower == "b") return 1;
  const auto power = kLetters.find(lower[0]);
  if (power == std::string_view::npos) return 0;
  const std::string_view rest = std::string_view(lower).substr(1);
  std::uint64_t base = 0;
  if (rest.empty() || rest == "b") base = 1000;
  if (rest == "i" || rest == "ib") base = 1024;
  std::uint64_t factor = base;
  for (std::size_t i = 0; i < power; ++i) factor *= base;
  return factor;
}

// Takes leading digits off; false when there are none or they do not fit.
bool TakeNumber(std::string_view* text, std::uint64_t* out) {
  const char* end = text->data() + text->size();
  const auto [rest, error] = std::from_chars(text->data(), end, *out);
  if (error != std::errc()) return false;
  text->remove_prefix(static_cast<std::size_t>(rest - text->data()));
  return true;
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

}  // namespace

bool ParseByteAmount(const std::string& text, std::uint64_t* out) {
  std::string_view rest = Trim(text);
  std::uint64_t whole = 0;
  if (!TakeNumber(&rest, &whole)) return false;

  std::uint64_t fraction = 0;
  std::uint64_t scale = 1;
  if (rest.starts_with('.')) {
    rest.remove_prefix(1);
    const std::size_t before = rest.size();
    if (!TakeNumber(&rest, &fraction)) return false;
    const std::size_t digits = before - rest.size();
    if (digits > kMaxFractionDigits) return false;
    for (std::size_t i = 0; i < digits; ++i) scale *= 10;
  }

  const std::uint64_t factor = UnitFactor(Trim(rest));
  if (factor == 0) return false;
  // fraction < scale <= 10^9 and factor < 2^41: split so that nothing overflows.
  const std::uint64_t part = factor / scale * fraction + factor % scale * fraction / scale;
  if (whole > (std::numeric_limits<std::uint64_t>::max() - part) / factor) return false;
  *out = whole * factor + part;
  return true;
}

}  // namespace core
