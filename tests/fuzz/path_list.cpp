// Lists of paths, as an array or as a text with commas.
#include <json/value.h>

#include "fuzz.h"
#include "support/text.h"
#include "webapi_runtime/api_request.h"

namespace fuzz {
namespace {

std::string Joined(const Json::Value& list) {
  std::string text;
  for (const Json::Value& part : list) text += (&part == &list[0U] ? "" : ",") + part.asString();
  return text;
}

}  // namespace

void Fuzz(std::string_view input) {
  const std::string text(input);
  Require(Joined(StringExplodeEx(text, ",", 1, true)) == text, "nothing is lost in splitting");
  const Json::Value field = webapi::ValueFromField(text);
  for (const int version : {1, 2}) {
    for (const Json::Value& value : {Json::Value(text), field}) {
      const Json::Value list = StringExplodeEx(value, ",", version, false);
      Require(list.isArray(), "a list comes out");
      for (const Json::Value& part : list) {
        Require(part.isString() && !part.asString().empty(), "its parts are texts");
      }
      std::string words;
      (void)ParseJsonPathToString(list, words);
    }
  }
}

}  // namespace fuzz
