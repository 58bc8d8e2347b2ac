#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "webapi_runtime/api_request.h"

namespace webapi {
namespace {

constexpr int kFullWeight = 1000;  // weights in thousandths

struct Language {
  std::string_view tag;
  std::string_view code;
};

constexpr std::array<Language, 2> kLanguages = {{{"en", "enu"}, {"de", "ger"}}};

std::string_view Trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t";
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Takes the text up to `divider` off the front.
std::string_view Take(std::string_view* text, char divider) {
  const auto end = text->find(divider);
  const std::string_view part = text->substr(0, end);
  text->remove_prefix(end == std::string_view::npos ? text->size() : end + 1);
  return Trim(part);
}

// "0.8" as 800; a weight that cannot be read makes its language count for nothing.
int ParseWeight(std::string_view text) {
  if (text != "0" && text != "1" && !text.starts_with("0.") && !text.starts_with("1.")) return 0;
  int weight = (text[0] - '0') * kFullWeight;
  int place = kFullWeight / 10;
  for (const char c : text.substr(std::min<std::size_t>(2, text.size()))) {
    if (c < '0' || c > '9') return 0;
    weight += (c - '0') * place;
    place /= 10;
  }
  return std::min(weight, kFullWeight);
}

int WeightOf(std::string_view parameters) {
  while (!parameters.empty()) {
    const std::string_view parameter = Take(&parameters, ';');
    if (parameter.starts_with("q=") || parameter.starts_with("Q=")) {
      return ParseWeight(parameter.substr(2));
    }
  }
  return kFullWeight;
}

// The code of a tag such as "de-AT" by its main part; empty when not served.
std::string_view CodeOf(std::string_view tag) {
  if (tag == "*") return kLanguages[0].code;
  std::string main;
  for (const char c : tag.substr(0, tag.find('-'))) {
    main += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  for (const Language& language : kLanguages) {
    if (language.tag == main) return language.code;
  }
  return {};
}

}  // namespace

std::string LanguageFromHeader(const std::string& accept_language) {
  std::string_view rest = accept_language;
  std::string_view best = kLanguages[0].code;
  int best_weight = 0;
  while (!rest.empty()) {
    std::string_view item = Take(&rest, ',');
    const std::string_view code = CodeOf(Take(&item, ';'));
    const int weight = WeightOf(item);
    if (!code.empty() && weight > best_weight) {
      best = code;
      best_weight = weight;
    }
  }
  return std::string(best);
}

}  // namespace webapi
