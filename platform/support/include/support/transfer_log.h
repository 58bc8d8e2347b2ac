// The transfer log: one JSON line for each copied or moved entry, in a file of
// the user's state folder, rotated at 8 MiB with one older file kept.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

enum : int {
  kXferCopy = 5,
  kXferMove = 6,
};

// Appends one line: {"time","user","action" ("copy" or "move"),"size","folder","text"}.
// One write call, so lines of several workers never mix. False on failure.
bool WfmLibDoLog(const char* user, const char* text, std::uint64_t size, int action, bool isDir);

// Reads the JSON object in the extended attribute "user.tavo.sharing" of a
// path. False when there is none.
bool WfmLibGetFileXAtrr(const char* path, Json::Value& value);

namespace support {

// The user's latest lines, newest first.
Json::Value ReadTransferLog(const std::string& user, int limit);

}  // namespace support
