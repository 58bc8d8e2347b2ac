// Lists, character sets and localised texts.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

// A list parameter as a JSON array of strings. A JSON array gives its elements
// as texts; a string is split at `separator`, and from version 2 on a string that
// holds a JSON array is taken as that array. Empty elements are kept only with
// `keepEmpty`; the empty string is the empty list. A value that is no list, or
// an array with an element that is no scalar, gives the empty list.
Json::Value StringExplodeEx(const Json::Value& value, const char* separator, int version,
                            bool keepEmpty);

// The paths of a JSON array as one text for people, joined by ", "; in `out`, too.
std::string ParseJsonPathToString(const Json::Value& paths, std::string& out);

// Converts `text` between character sets. On a character that cannot be
// converted (or an unknown set) `out` is the text unchanged and the result is
// false.
bool WfmLibConv(std::string& out, const std::string& text, const std::string& from,
                const std::string& to);

// Localised text for a key; English when the language lacks it, the key itself
// when no language has it. Languages: "enu", "ger".
std::string WfmLibGetText(const std::string& key, const std::string& language);

// `format` with its %s placeholders replaced, in order. "%%" is a percent sign;
// a placeholder without an argument becomes empty.
std::string WfmLibStringFormat(const std::string& format, const std::string& arg1 = "",
                               const std::string& arg2 = "");

namespace support {

// The keys of the text table that are no error keys, and the languages it has.
std::vector<std::string> TextKeys();
std::vector<std::string> TextLanguages();

}  // namespace support
