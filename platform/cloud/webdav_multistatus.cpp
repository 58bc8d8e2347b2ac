#include "webdav_multistatus.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <charconv>
#include <limits>
#include <memory>
#include <string_view>

namespace TAVOCloud {
namespace {

// Of an answer about one thing; what is larger is nonsense.
constexpr std::size_t kLargestText = 4U << 20U;

struct FreeDocument {
  void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
};
struct FreeContext {
  void operator()(xmlParserCtxt* context) const { xmlFreeParserCtxt(context); }
};
struct FreeText {
  void operator()(xmlChar* text) const { xmlFree(text); }
};

std::string_view View(const xmlChar* text) {
  return text == nullptr ? std::string_view() : reinterpret_cast<const char*>(text);
}

bool IsDav(const xmlNode* node, std::string_view name) {
  return node->type == XML_ELEMENT_NODE && View(node->name) == name && node->ns != nullptr &&
         View(node->ns->href) == "DAV:";
}

// The next element of that name among `node` and those after it.
const xmlNode* Find(const xmlNode* node, std::string_view name) {
  while (node != nullptr && !IsDav(node, name)) node = node->next;
  return node;
}

const xmlNode* Child(const xmlNode* node, std::string_view name) {
  return Find(node->children, name);
}

std::string TextOf(const xmlNode* node) {
  const std::unique_ptr<xmlChar, FreeText> all(xmlNodeGetContent(node));
  constexpr std::string_view kBlanks = " \t\r\n";
  std::string_view text = View(all.get());
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return std::string(text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin));
}

template <typename Number>
std::optional<Number> NumberOf(std::string_view text, int base = 10) {
  Number number{};
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (text.empty() || problem != std::errc() || end != text.data() + text.size()) return {};
  return number;
}

// The number in "HTTP/1.1 404 Not Found"; 0 without one.
long StatusIn(std::string_view line) {
  const std::size_t blank = line.find(' ');
  if (blank == std::string_view::npos) return 0;
  return NumberOf<unsigned short>(line.substr(blank + 1, 3)).value_or(0);
}

std::string Decoded(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::string_view digits = text[i] == '%' ? text.substr(i + 1, 2) : std::string_view();
    const auto byte = digits.size() == 2 ? NumberOf<unsigned char>(digits, 16) : std::nullopt;
    plain += byte ? static_cast<char>(*byte) : text[i];
    if (byte) i += 2;
  }
  return plain;
}

// A path, or a whole URL.
std::string PathIn(std::string_view href) {
  const std::size_t scheme = href.find("://");
  if (scheme != std::string_view::npos && scheme < href.find('/')) {
    const std::size_t slash = href.find('/', scheme + 3);
    href = slash == std::string_view::npos ? "/" : href.substr(slash);
  }
  while (href.size() > 1 && href.back() == '/') href.remove_suffix(1);
  return Decoded(href);
}

void ReadProperties(const xmlNode* properties, DavEntry* entry) {
  if (const xmlNode* type = Child(properties, "resourcetype")) {
    entry->folder = Child(type, "collection") != nullptr;
  }
  if (const xmlNode* length = Child(properties, "getcontentlength")) {
    entry->size = NumberOf<std::uint64_t>(TextOf(length));
  }
}

std::optional<DavEntry> ReadEntry(const xmlNode* response) {
  const xmlNode* href = Child(response, "href");
  if (href == nullptr) return {};
  DavEntry entry;
  entry.path = PathIn(TextOf(href));
  if (const xmlNode* status = Child(response, "status")) entry.status = StatusIn(TextOf(status));
  for (const xmlNode* group = Child(response, "propstat"); group != nullptr;
       group = Find(group->next, "propstat")) {
    const xmlNode* status = Child(group, "status");
    const xmlNode* properties = Child(group, "prop");
    if (status == nullptr || properties == nullptr || StatusIn(TextOf(status)) != 200) continue;
    ReadProperties(properties, &entry);
  }
  return entry;
}

void RefuseDocumentType(void* context, const xmlChar* /*name*/, const xmlChar* /*external*/,
                        const xmlChar* /*system*/) {
  xmlStopParser(static_cast<xmlParserCtxt*>(context));
}

std::unique_ptr<xmlDoc, FreeDocument> Parse(const std::string& text) {
  const std::unique_ptr<xmlParserCtxt, FreeContext> context(xmlNewParserCtxt());
  if (context == nullptr || text.size() > kLargestText) return nullptr;
  context->sax->internalSubset = &RefuseDocumentType;
  return std::unique_ptr<xmlDoc, FreeDocument>(xmlCtxtReadMemory(
      context.get(), text.data(), static_cast<int>(text.size()), nullptr, nullptr,
      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NOCDATA));
}

}  // namespace

std::optional<std::vector<DavEntry>> ReadMultistatus(const std::string& text) {
  const std::unique_ptr<xmlDoc, FreeDocument> document = Parse(text);
  if (document == nullptr) return {};
  const xmlNode* root = xmlDocGetRootElement(document.get());
  if (root == nullptr || !IsDav(root, "multistatus")) return {};
  std::vector<DavEntry> entries;
  for (const xmlNode* response = Child(root, "response"); response != nullptr;
       response = Find(response->next, "response")) {
    std::optional<DavEntry> entry = ReadEntry(response);
    if (!entry) return {};
    entries.push_back(std::move(*entry));
  }
  return entries;
}

const DavEntry* EntryOf(const std::vector<DavEntry>& entries, const std::string& path) {
  std::string wanted = path;
  while (wanted.size() > 1 && wanted.back() == '/') wanted.pop_back();
  for (const DavEntry& entry : entries) {
    if (entry.path == wanted) return &entry;
  }
  return entries.size() == 1 ? &entries.front() : nullptr;
}

}  // namespace TAVOCloud
