#include "parameters.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>

#include "bounds.h"
#include "call.h"
#include "webapi_runtime/api_request.h"

namespace host {
namespace {

// Without either header the library would read until the peer closes.
bool HasBody(const httplib::Request& request) {
  return request.has_header("Content-Length") || request.has_header("Transfer-Encoding");
}

std::string ContentType(const httplib::Request& request) {
  std::string type = request.get_header_value("Content-Type");
  type.resize(std::min(type.size(), type.find(';')));
  while (!type.empty() && type.back() == ' ') type.pop_back();
  std::transform(type.begin(), type.end(), type.begin(),
                 [](unsigned char c) { return static_cast<char>(::tolower(c)); });
  return type;
}

bool AnnouncesTooMuch(const httplib::Request& request) {
  return request.get_header_value<std::uint64_t>("Content-Length") > kMaxBody;
}

Fields FormFields(const std::string& text) {
  httplib::Params params;
  httplib::detail::parse_query_text(text, params);
  return {params.begin(), params.end()};
}

BodyStatus ReadText(const httplib::ContentReader& reader, std::string* text) {
  bool too_large = false;
  const bool complete = reader([&](const char* data, std::size_t size) {
    too_large = text->size() + size > kMaxBody;
    if (!too_large) text->append(data, size);
    return !too_large;
  });
  if (too_large) return BodyStatus::kTooLarge;
  return complete ? BodyStatus::kOk : BodyStatus::kBroken;
}

BodyStatus ReadMultipart(const httplib::ContentReader& reader, Fields* fields) {
  std::size_t total = 0;
  const bool complete = reader(
      [&](const httplib::MultipartFormData& part) {
        fields->emplace_back(part.name, std::string());
        total += part.name.size();
        return total <= kMaxBody;
      },
      [&](const char* data, std::size_t size) {
        total += size;
        if (total <= kMaxBody) fields->back().second.append(data, size);
        return total <= kMaxBody;
      });
  if (total > kMaxBody) return BodyStatus::kTooLarge;
  return complete ? BodyStatus::kOk : BodyStatus::kBroken;
}

void AddField(const std::string& name, const std::string& text, Json::Value* out) {
  const Json::Value value = webapi::ValueFromField(text);
  if (!out->isMember(name)) {
    (*out)[name] = value;
    return;
  }
  Json::Value& present = (*out)[name];
  if (!present.isArray()) {
    const Json::Value first = present;
    present = Json::Value(Json::arrayValue);
    present.append(first);
  }
  present.append(value);
}

void AddFields(const Fields& fields, Json::Value* out) {
  for (const auto& [name, text] : fields) {
    if (name != "api" && name != "version" && name != "method") AddField(name, text, out);
  }
}

}  // namespace

void DropBody(const httplib::Request& request, const httplib::ContentReader& reader) {
  if (!HasBody(request)) return;
  static_cast<void>(reader([](const char*, std::size_t) { return true; }));
}

BodyStatus ReadBody(const httplib::Request& request, const httplib::ContentReader& reader,
                    Body* out) {
  if (!HasBody(request)) return BodyStatus::kOk;
  const std::string type = ContentType(request);
  BodyStatus status = BodyStatus::kOk;
  if (type == "multipart/form-data") {
    status = ReadMultipart(reader, &out->fields);
  } else {
    status = ReadText(reader, &out->text);
    if (status == BodyStatus::kOk && type == "application/x-www-form-urlencoded") {
      out->fields = FormFields(out->text);
      out->text.clear();
    } else {
      out->is_json = out->text.find_first_not_of(" \t\r\n") != std::string::npos;
    }
  }
  return status == BodyStatus::kBroken && AnnouncesTooMuch(request) ? BodyStatus::kTooLarge
                                                                    : status;
}

std::string Field(const Fields& fields, const std::string& name) {
  const auto found = std::find_if(fields.begin(), fields.end(),
                                  [&](const auto& field) { return field.first == name; });
  return found == fields.end() ? std::string() : found->second;
}

Fields QueryFields(const httplib::Request& request) {
  return {request.params.begin(), request.params.end()};
}

Json::Value FieldParameters(const Body& body, const Fields& query) {
  Json::Value params(Json::objectValue);
  AddFields(query, &params);
  AddFields(body.fields, &params);
  return params;
}

bool HostParameters(const Body& body, const Fields& query, Json::Value* out, std::string* err) {
  *out = Json::Value(Json::objectValue);
  for (const Fields* fields : {&query, &body.fields}) {
    for (const auto& [name, text] : *fields) (*out)[name] = text;
  }
  return !body.is_json || AddMembers(body.text, out, err);
}

}  // namespace host
