// What all fuzz targets share. A target implements Fuzz; the rest is harness.cpp.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace fuzz {

// Tries one input. A fault shows as a sanitizer's report, a failed Require, a hang or
// an exception.
void Fuzz(std::string_view input);

// Ends the process, and keeps the input, unless what must hold does.
void Require(bool holds, const char* what);

// Takes one byte off the front, 0 from an empty input: what a target varies besides
// the text that it tries.
std::uint8_t TakeByte(std::string_view* input);

// A folder of this process's own, in memory where the system has such a place;
// removed at the end.
const std::string& Folder();

// Overwrites a file.
void Write(const std::string& path, std::string_view bytes);

}  // namespace fuzz
