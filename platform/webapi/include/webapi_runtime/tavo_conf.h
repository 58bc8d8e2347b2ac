// Reader of the server's settings for plug-ins.
#pragma once

#include <string>

class TavoConf {
 public:
  // The setting `key` of the configuration's [copymove] table as a text, or
  // `fallback` when it is not set.
  std::string Info(const char* key, const char* fallback) const;
};
