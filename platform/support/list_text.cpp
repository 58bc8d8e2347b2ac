#include <json/reader.h>

#include <algorithm>
#include <memory>

#include "support/text.h"

namespace {

using Json::Value;

bool IsScalar(const Value& value) {
  return value.isString() || value.isBool() || value.isNumeric();
}

bool IsText(const Value& value, bool orEmpty) {
  const char* begin = nullptr;
  const char* end = nullptr;
  return value.isString() && value.getString(&begin, &end) && (orEmpty || begin != end);
}

Value TextsOf(const Value& array, bool keepEmpty) {
  // Nearly always so, and one copy is cheaper than many.
  const bool asIs = std::all_of(array.begin(), array.end(),
                                [=](const Value& element) { return IsText(element, keepEmpty); });
  if (asIs) return array;
  Value list(Json::arrayValue);
  for (const Value& element : array) {
    if (!IsScalar(element)) return Value(Json::arrayValue);
    Value text(element.asString());
    if (keepEmpty || !text.asString().empty()) list.append(std::move(text));
  }
  return list;
}

Value Split(const std::string& text, const std::string& separator, bool keepEmpty) {
  Value list(Json::arrayValue);
  if (text.empty()) return list;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = separator.empty() ? std::string::npos : text.find(separator, start);
    const std::string part = text.substr(start, end == std::string::npos ? end : end - start);
    if (keepEmpty || !part.empty()) list.append(part);
    if (end == std::string::npos) return list;
    start = end + separator.size();
  }
}

// The array that `text` holds, or null. Paths begin with a slash or a protocol,
// so no list of paths is taken for an array by accident.
Value ParseArray(const std::string& text) {
  const std::size_t start = text.find_first_not_of(" \t\r\n");
  if (start == std::string::npos || text[start] != '[') return {};
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Value value;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) return {};
  } catch (const Json::Exception&) {  // nested too deeply
    return {};
  }
  return value.isArray() ? value : Value();
}

}  // namespace

Value StringExplodeEx(const Value& value, const char* separator, int version, bool keepEmpty) {
  if (value.isArray()) return TextsOf(value, keepEmpty);
  if (!value.isString()) return Value(Json::arrayValue);
  const std::string text = value.asString();
  if (version >= 2) {
    const Value array = ParseArray(text);
    if (array.isArray()) return TextsOf(array, keepEmpty);
  }
  return Split(text, separator ? separator : "", keepEmpty);
}

std::string ParseJsonPathToString(const Value& paths, std::string& out) {
  std::string joined;
  if (paths.isArray()) {
    for (const Value& path : TextsOf(paths, true)) {
      if (!joined.empty()) joined += ", ";
      joined += path.asString();
    }
  }
  out = joined;
  return joined;
}

std::string WfmLibStringFormat(const std::string& format, const std::string& arg1,
                               const std::string& arg2) {
  const std::string* const args[] = {&arg1, &arg2};
  std::string out;
  std::size_t used = 0;
  for (std::size_t i = 0; i < format.size(); ++i) {
    const char next = i + 1 < format.size() ? format[i + 1] : '\0';
    if (format[i] != '%' || (next != 's' && next != '%')) {
      out += format[i];
      continue;
    }
    ++i;
    if (next == '%') {
      out += '%';
    } else if (used < std::size(args)) {
      out += *args[used++];
    }
  }
  return out;
}
