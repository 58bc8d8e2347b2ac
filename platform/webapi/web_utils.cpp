#include "webapi_runtime/web_utils.h"

std::string WebUtils::EncodeHtml(const std::string& text, bool keepLineBreaks) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      case '\n':
        out += keepLineBreaks ? "<br>" : "\n";
        break;
      default:
        out += c;
    }
  }
  return out;
}
