// Downloads: checked against what the service says the file is.
#include <cerrno>
#include <utility>

#include "core/error.h"
#include "dropbox.h"
#include "dropbox_hash.h"

namespace TAVOCloud {
namespace {

constexpr long kPartialContent = 206;

// Lets data through to the flow only when it is that of the file and the place that
// were asked for.
class Receiver {
 public:
  explicit Receiver(Flow* flow) : flow_(flow) {}

  // Another answer is to come.
  void Restart() { checked_ = false; }
  bool Take(const HttpAnswer& answer, std::string_view data) {
    if (!Check(answer)) return false;
    if (flow_->moved() + data.size() > flow_->size()) return Refuse("the file has grown");
    hash_.Add(data);
    return flow_->Put(data.data(), data.size());
  }
  // For the end of an answer, which need not have had data.
  bool Check(const HttpAnswer& answer);
  bool IsWhole() {
    if (flow_->moved() != flow_->size()) return Refuse("the file has become shorter");
    return hash_.Finish() == wanted_ || Refuse("what came is not what is in the account");
  }
  // Why the answer was refused; null when it was not.
  const char* words() const { return words_; }

 private:
  bool Refuse(const char* words) {
    words_ = words;
    return false;
  }

  Flow* flow_;
  DropboxHash hash_;
  bool checked_ = false;
  std::string version_;
  std::string wanted_;
  const char* words_ = nullptr;
};

bool Receiver::Check(const HttpAnswer& answer) {
  if (checked_) return true;
  const auto told = answer.headers.find("dropbox-api-result");
  const Json::Value file = told == answer.headers.end() ? Json::Value() : ReadJson(told->second);
  const std::string version = TextIn(file, "rev");
  const std::string hash = TextIn(file, "content_hash");
  if (version.empty() || hash.empty()) return Refuse("the service does not say which file comes");
  if (NumberIn(file, "size") != flow_->size()) return Refuse("the file has another size");
  if (!version_.empty() && (version != version_ || hash != wanted_)) {
    return Refuse("the file has changed in the account");
  }
  if (flow_->moved() > 0) {
    const auto range = answer.headers.find("content-range");
    const std::string begin = "bytes " + std::to_string(flow_->moved()) + "-";
    if (answer.response != kPartialContent || range == answer.headers.end() ||
        !range->second.starts_with(begin)) {
      return Refuse("the service sends another part of the file");
    }
  }
  version_ = version;
  wanted_ = hash;
  checked_ = true;
  return true;
}

}  // namespace

bool DropboxCloud::Download(const std::string& serverPath, int fd, std::uint64_t size,
                            ProgressFn progress, CancelFn cancel, ReadSizeFn readSize) {
  if (!CheckPath(serverPath)) return false;
  Flow flow(fd, size, progress, cancel, readSize);
  Receiver receiver(&flow);
  Json::Value argument(Json::objectValue);
  argument["path"] = serverPath;
  const auto take = [&](const HttpAnswer& begun, std::string_view data) {
    return receiver.Take(begun, data);
  };
  const auto receive = [&](int) {
    receiver.Restart();
    return api_.Fetch(argument, flow.moved(), take);
  };
  api_.curl().Watch(&flow);
  const DropboxAnswer answer = Persist(receive, Again::kAfterAll);
  api_.curl().Watch(nullptr);
  if (flow.error() != 0) return FailLocally(flow);
  if (answer.Succeeded() && receiver.Check(answer) && receiver.IsWhole()) return true;
  return receiver.words() != nullptr ? FailWithWords(receiver.words()) : Fail(answer);
}

}  // namespace TAVOCloud
