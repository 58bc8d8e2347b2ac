#include "tasks/task.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <string_view>
#include <utility>

#include "long_lists.h"
#include "notifications.h"
#include "records.h"
#include "write_signal.h"

namespace KVX {

using tasks::internal::Result;

namespace {

std::string TextOf(const char* text) { return text == nullptr ? std::string() : text; }

const char* ReasonOf(Result result) {
  switch (result) {
    case Result::kGone:
      return "no such task";
    case Result::kTaken:
      return "the id is taken";
    case Result::kBusy:
      return "the task store is locked";
    case Result::kDamaged:
      return "the task store is damaged";
    default:
      return "the task store cannot be used";
  }
}

// What the thread's latest handle had loaded. Who asks for one record again and again
// parses only what has changed in it: a load compares the texts.
struct Latest {
  std::string user;
  std::string id;
  Json::Value properties;
  tasks::internal::StoredTexts texts;
};

Latest& TheLatest() {
  thread_local Latest latest;
  return latest;
}

}  // namespace

Task::Task(const char* user, const char* taskId)
    : user_(TextOf(user)), id_(TextOf(taskId)), properties_(Json::objectValue) {
  if (user_.empty() || id_.empty()) throw TaskError("a task needs a user and an id");
  const Result result = tasks::internal::CreateRecord(user_, id_);
  if (result != Result::kDone) throw TaskError(ReasonOf(result));
  tasks::internal::ShareWritesWithChildren();
}

Task::Task(Existing /*unused*/, std::string user, std::string taskId)
    : user_(std::move(user)), id_(std::move(taskId)) {
  if (Latest& latest = TheLatest(); latest.user == user_ && latest.id == id_) {
    properties_.swap(latest.properties);
    texts_.swap(latest.texts);
    latest = {};
  }
  const Result result = tasks::internal::LoadRecord(user_, id_, &properties_, &finished_, &texts_);
  if (result != Result::kDone) throw TaskError(ReasonOf(result));
  firstLoad_ = true;
}

Task::~Task() {
  if (removeWhenReleased_) {
    remove();
  } else {
    TheLatest() = {user_, id_, std::move(properties_), std::move(texts_)};
  }
}

std::string Task::getTaskId() const { return id_; }

bool Task::takeFirstLoad() { return std::exchange(firstLoad_, false); }

bool Task::reload() {
  firstLoad_ = false;
  return tasks::internal::LoadRecord(user_, id_, &properties_, &finished_, &texts_) ==
         Result::kDone;
}

Json::Value Task::getProperty(const char* name) const {
  Json::Value value = loadedProperty(name);
  const bool apart = name != nullptr && std::string_view(name) == "data" &&
                     texts_.contains(tasks::internal::kLongLists);
  if (!apart || tasks::internal::LoadLongLists(user_, id_, &value) == Result::kDone) return value;
  return {};
}

const Json::Value& Task::loadedProperty(const char* name) const {
  return name == nullptr ? Json::Value::nullSingleton() : properties_[name];
}

bool Task::getBoolProperty(const char* name, bool fallback) const {
  const Json::Value value = getProperty(name);
  return value.isBool() ? value.asBool() : fallback;
}

double Task::getDoubleProperty(const char* name, double fallback) const {
  const Json::Value value = getProperty(name);
  return value.isNumeric() ? value.asDouble() : fallback;
}

void Task::beginUpdate() {
  updating_ = true;
  pending_ = Json::Value(Json::objectValue);
}

bool Task::setProperty(const char* name, Json::Value value) {
  if (name == nullptr) return false;
  const bool alone = !updating_;
  if (alone) beginUpdate();
  if (std::string_view(name) == "data") {
    Json::Value lists = tasks::internal::TakeLongLists(&value);
    if (!lists.isNull()) pending_[tasks::internal::kLongLists].swap(lists);
  }
  pending_[name] = std::move(value);
  return !alone || endUpdate();
}

void Task::setTransferredBytes(std::uint64_t bytes) {
  transferredBytes_ = static_cast<std::int64_t>(bytes);
}

bool Task::endUpdate() { return writePending(false); }

bool Task::finish(bool drop) {
  if (!drop) return writePending(true);
  updating_ = false;
  pending_ = Json::Value();
  return remove();
}

bool Task::writePending(bool finish) {
  Json::Value values(Json::objectValue);
  if (updating_) values.swap(pending_);
  updating_ = false;
  pending_ = Json::Value();
  std::optional<tasks::internal::End> end;
  if (finish) end = {transferredBytes_};
  tasks::internal::StoredTexts written;
  if (tasks::internal::WriteRecord(user_, id_, values, end, &written) != Result::kDone) {
    return false;
  }
  tasks::internal::AnnounceWrite();
  for (auto& [name, text] : written) {
    if (name == tasks::internal::kLongLists) {
      texts_[name].clear();
      continue;
    }
    properties_[name].swap(values[name]);
    texts_[name] = std::move(text);
  }
  finished_ = finished_ || finish;
  return true;
}

bool Task::isFinished() {
  askedFinished_ = true;
  allFinished_ = allFinished_ && finished_;
  return finished_;
}

bool Task::remove() {
  const Result result = tasks::internal::RemoveRecord(user_, id_);
  return result == Result::kDone || result == Result::kGone;
}

void Task::removeWhenReleased() { removeWhenReleased_ = true; }

bool Task::reportedFinished() const { return askedFinished_ && allFinished_; }

bool Task::sendNotifyMessageNoEncode(const char* app, const char* taskId, const char* category,
                                     const char* title, ...) {
  Json::Value args(Json::arrayValue);
  va_list texts;
  va_start(texts, title);
  for (const char* text = va_arg(texts, const char*); text != nullptr;
       text = va_arg(texts, const char*)) {
    args.append(text);
  }
  va_end(texts);
  return tasks::internal::AddNotification(user_, {TextOf(app), TextOf(taskId), TextOf(category),
                                                  TextOf(title), args}) == Result::kDone;
}

TaskMgr::TaskMgr(const char* user) : user_(TextOf(user)) {}

std::string TaskMgr::getUniqueTaskId(const char* prefix) {
  std::array<unsigned char, 16> bits{};
  ssize_t got = -1;
  do {
    got = getrandom(bits.data(), bits.size(), 0);
  } while (got < 0 && errno == EINTR);
  if (got != static_cast<ssize_t>(bits.size())) throw TaskError("no random numbers");

  constexpr const char* kDigits = "0123456789abcdef";
  std::string id = TextOf(prefix);
  for (const unsigned char byte : bits) {
    id += kDigits[byte >> 4U];
    id += kDigits[byte & 15U];
  }
  return id;
}

Task* TaskMgr::getTaskWithThrow(const char* taskId) {
  return new Task(Task::Existing{}, user_, TextOf(taskId));
}

}  // namespace KVX
