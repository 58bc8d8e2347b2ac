#include "host/cli/folder_pages.h"

#include "host/cli/task_status.h"

namespace cli {

bool EachPage(Client* client, const std::string& path,
              const std::function<void(const Json::Value&)>& each, CallError* error) {
  std::multimap<std::string, std::string> query{{"path", path}};
  while (true) {
    Json::Value page;
    if (!client->Get("list", query, &page, error)) return false;
    if (!page.isObject()) {
      error->kind = CallError::Kind::kAnswer;
      error->text = "the answer is not one of a Fennox server";
      return false;
    }
    each(page);
    const std::string next = TextOf(page, "next");
    if (next.empty()) return true;
    query = {{"path", path}, {"after", next}};
  }
}

}  // namespace cli
