#include "utf8.h"

#include <strings.h>

#include <string>

namespace support {

bool IsUtf8Name(std::string_view codePage) {
  const std::string name(codePage);
  return name.empty() || strcasecmp(name.c_str(), "UTF-8") == 0 ||
         strcasecmp(name.c_str(), "UTF8") == 0;
}

}  // namespace support
