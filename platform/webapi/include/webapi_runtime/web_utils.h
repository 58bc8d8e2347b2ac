// Text helpers for answers that end up in a page.
#pragma once

#include <string>

class WebUtils {
 public:
  // `text` with & < > " ' written as character references. With
  // `keepLineBreaks` a line feed becomes "<br>"; otherwise it stays.
  static std::string EncodeHtml(const std::string& text, bool keepLineBreaks);
};
