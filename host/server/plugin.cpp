#include "plugin.h"

#include <dlfcn.h>

namespace host {
namespace {

// A table without its end must not send the reader astray.
constexpr int kMaxRows = 1000;

bool IsSound(const APITableEntry* table) {
  for (int i = 0; i < kMaxRows; ++i) {
    if (table[i].api == nullptr) return true;
    if (table[i].method == nullptr || table[i].handler == nullptr) return false;
  }
  return false;
}

}  // namespace

bool Plugin::Load(const std::string& file, std::string* err) {
  void* library = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    *err = ::dlerror();
    return false;
  }
  using GetTable = const APITableEntry* (*)();
  const auto get = reinterpret_cast<GetTable>(::dlsym(library, "GetAPITable"));
  const APITableEntry* table = get != nullptr ? get() : nullptr;
  if (table == nullptr || !IsSound(table)) {
    *err = file + " has no table of served methods";
    ::dlclose(library);
    return false;
  }
  table_ = table;
  return true;
}

const APITableEntry* Plugin::Find(const std::string& api, int version,
                                  const std::string& method) const {
  for (const APITableEntry* row = table_; row != nullptr && row->api != nullptr; ++row) {
    if (row->version == version && method == row->method && api == row->api) return row;
  }
  return nullptr;
}

Json::Value Plugin::Rows() const {
  Json::Value rows(Json::arrayValue);
  for (const APITableEntry* row = table_; row != nullptr && row->api != nullptr; ++row) {
    Json::Value value(Json::objectValue);
    value["api"] = row->api;
    value["version"] = row->version;
    value["method"] = row->method;
    rows.append(value);
  }
  return rows;
}

}  // namespace host
