#include "json_text.h"

#include <json/reader.h>
#include <json/writer.h>

#include <exception>
#include <memory>

namespace tasks::internal {
namespace {

Json::StreamWriterBuilder MakeWriterSettings() {
  Json::StreamWriterBuilder builder;
  builder["commentStyle"] = "None";
  builder["indentation"] = "";
  builder["emitUTF8"] = true;  // raw bytes: file names need not be valid UTF-8
  builder["precision"] = 17;
  builder["useSpecialFloats"] = true;
  return builder;
}

Json::CharReaderBuilder MakeReaderSettings() {
  Json::CharReaderBuilder builder;
  builder["collectComments"] = false;
  builder["allowSpecialFloats"] = true;
  builder["failIfExtra"] = true;
  return builder;
}

}  // namespace

std::string JsonToText(const Json::Value& value) {
  static const Json::StreamWriterBuilder settings = MakeWriterSettings();
  return Json::writeString(settings, value);
}

Json::Value TextToJson(const std::string& text) {
  static const Json::CharReaderBuilder settings = MakeReaderSettings();
  const std::unique_ptr<Json::CharReader> reader(settings.newCharReader());
  Json::Value value;
  try {
    if (reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) return value;
  } catch (const std::exception&) {
    // The parser throws at text nested deeper than its limit.
  }
  return {};
}

}  // namespace tasks::internal
