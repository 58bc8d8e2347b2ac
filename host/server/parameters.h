// The parameters of a request, from its body and its query.
#pragma once

#include <httplib.h>
#include <json/value.h>

#include <string>
#include <utility>
#include <vector>

namespace host {

using Fields = std::vector<std::pair<std::string, std::string>>;

enum class BodyStatus {
  kOk,
  kTooLarge,
  kBroken,  // the peer went away or sent no valid body
};

struct Body {
  std::string text;  // of a JSON body
  bool is_json = false;
  Fields fields;  // of a form
};

// Reads the body of a POST: JSON, a form (URL-encoded or multipart), or nothing. A body
// without a type is taken as JSON. Reads at most kMaxBody.
BodyStatus ReadBody(const httplib::Request& request, const httplib::ContentReader& reader,
                    Body* out);

// Reads the body of a request that is refused; unread, it would be taken for the next
// request.
void DropBody(const httplib::Request& request, const httplib::ContentReader& reader);

// A query or form field, empty when it is missing.
std::string Field(const Fields& fields, const std::string& name);
Fields QueryFields(const httplib::Request& request);

// The fields as parameters of a plug-in's method, but for those that name the method ("api",
// "version", "method"). A field that comes twice is a list.
Json::Value FieldParameters(const Body& body, const Fields& query);

// The parameters of one of the host's own calls: the fields, which are plain texts (a name
// such as "5" or "true" stays a name), and the members of the JSON object. False, with
// words in *err, when the body is no JSON object.
[[nodiscard]] bool HostParameters(const Body& body, const Fields& query, Json::Value* out,
                                  std::string* err);

}  // namespace host
