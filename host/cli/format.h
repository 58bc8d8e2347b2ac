// Texts for people: pure functions.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <string>

namespace cli {

// `text` safe for a terminal: control characters, characters that change the
// reading direction and bytes that are not UTF-8 become \n, \t, \r or \xNN.
std::string Printable(const std::string& text);

// Columns that printable UTF-8 text takes. Characters of the wide scripts count two,
// combining marks none.
std::size_t Columns(const std::string& text);

// `text` (printable) in at most `columns` columns; when it is longer its middle
// is replaced by "...".
std::string FitColumns(const std::string& text, std::size_t columns);

// "999 B", "1.5 kB", "12 MB": powers of 1000, two digits at least.
std::string FormatBytes(double bytes);
// "0:07", "12:34", "1:02:03"; whole seconds, rounded down.
std::string FormatDuration(double seconds);
// "950 ms", "4.2 s", then as FormatDuration.
std::string FormatElapsed(double seconds);
// " 43 %", rounded down so that only a whole is 100.
std::string FormatPercent(double fraction);
// "30,000".
std::string FormatCount(double count);

// "[#####-----]" of `width` columns.
std::string Bar(double fraction, std::size_t width);
// A bar without a measure: a block that wanders to and fro with `seconds`.
std::string WanderingBar(double seconds, std::size_t width);

// One line of JSON, ASCII only.
std::string ToJsonLine(const Json::Value& value);
// Indented JSON, ASCII only.
std::string ToJsonText(const Json::Value& value);

}  // namespace cli
