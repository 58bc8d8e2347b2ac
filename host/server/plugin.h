// The plug-in: a shared library that brings a table of served methods.
#pragma once

#include <json/value.h>

#include <string>

#include "webapi_runtime/api_table.h"

namespace host {

// Loads a plug-in for the life of the process.
class Plugin {
 public:
  // False, with words in *err, when the file cannot be loaded or has no sound table.
  [[nodiscard]] bool Load(const std::string& file, std::string* err);

  // The row that serves the method, null when there is none.
  const APITableEntry* Find(const std::string& api, int version, const std::string& method) const;

  // The rows as [{"api","version","method"}…].
  Json::Value Rows() const;

 private:
  const APITableEntry* table_ = nullptr;
};

}  // namespace host
