// What a WebDAV server sends of a file.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "flow.h"
#include "http_request.h"

namespace TAVOCloud {

// Lets data through to the flow only when it is that of the file and the place that
// were asked for.
class WebDavReceiver {
 public:
  explicit WebDavReceiver(Flow* flow) : flow_(flow) {}

  // Makes ready for another answer. Without a way to tell that the file is still the
  // same it comes from its start. False, with the words, when that cannot be.
  [[nodiscard]] bool Begin();
  // Headers that ask for what is missing.
  std::vector<std::string> Headers() const;
  [[nodiscard]] bool Take(const HttpAnswer& begun, std::string_view data);

  // Why data was refused; empty when it was not.
  const std::string& words() const { return words_; }

 private:
  [[nodiscard]] bool IsWanted(const HttpAnswer& begun);
  bool IsSameFile(const HttpAnswer& begun) const;
  bool Refuse(const char* words);

  Flow* flow_;
  std::uint64_t offset_ = 0;
  bool wanted_ = false;
  // What the server said first to tell one state of the file from another.
  std::string etag_;
  std::string modified_;
  std::string words_;
};

}  // namespace TAVOCloud
