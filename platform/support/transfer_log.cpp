#include "support/transfer_log.h"

#include <fcntl.h>
#include <json/reader.h>
#include <json/writer.h>
#include <linux/limits.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <string_view>

#include "core/config.h"
#include "core/unique_fd.h"
#include "core/utf8.h"
#include "user_record.h"

namespace {

using core::UniqueFd;

constexpr off_t kRotateAt = 8L * 1024 * 1024;

bool ParseObject(std::string_view text, Json::Value* out) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  try {
    return reader->parse(text.data(), text.data() + text.size(), out, nullptr) && out->isObject();
  } catch (const Json::Exception&) {  // nested too deeply
    return false;
  }
}

std::string LogFile(const std::string& user) {
  const std::string folder = core::UserStateFolder(user);
  return folder.empty() ? std::string() : folder + "/transfer.log";
}

bool EnsureFolder(const std::string& user) {
  const support::UserRecord record = support::FindUser(user.c_str());
  return record && core::EnsureUserStateFolder(user, record->uid, record->gid);
}

bool Lock(int fd, int operation) {
  int result = 0;
  do {
    result = flock(fd, operation);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

bool IsFileAt(int fd, const std::string& path) {
  struct stat open {};
  struct stat named {};
  return fstat(fd, &open) == 0 && lstat(path.c_str(), &named) == 0 && open.st_dev == named.st_dev &&
         open.st_ino == named.st_ino;
}

// Opens and locks the log. Whoever waits for the lock while another process
// rotates holds the older file then, and begins again.
UniqueFd OpenLocked(const std::string& path, int flags, int operation) {
  while (true) {
    UniqueFd fd(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!fd || !Lock(fd.get(), operation)) return {};
    if (IsFileAt(fd.get(), path)) return fd;
  }
}

UniqueFd OpenForAppend(const std::string& path) {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT;
  while (true) {
    UniqueFd fd = OpenLocked(path, kFlags, LOCK_EX);
    struct stat st {};
    if (!fd || fstat(fd.get(), &st) != 0) return {};
    if (st.st_size < kRotateAt) return fd;
    if (rename(path.c_str(), (path + ".1").c_str()) != 0) return {};
  }
}

// A line is in the log as a whole or not at all.
bool AppendLine(int fd, const std::string& line) {
  struct stat st {};
  if (fstat(fd, &st) != 0) return false;
  ssize_t written = 0;
  do {
    written = write(fd, line.data(), line.size());
  } while (written < 0 && errno == EINTR);
  if (written == static_cast<ssize_t>(line.size())) return true;
  if (written > 0) {
    // What is left of a cut line would swallow the next one.
    if (ftruncate(fd, st.st_size) != 0) return false;
    errno = ENOSPC;
  }
  return false;
}

std::string FormatLine(const char* user, const char* text, std::uint64_t size, int action,
                       bool isDir) {
  Json::Value line(Json::objectValue);
  line["time"] = static_cast<Json::Int64>(std::time(nullptr));
  line["user"] = core::ReplaceInvalidUtf8(user);
  line["action"] = action == kXferMove ? "move" : "copy";
  line["size"] = static_cast<Json::UInt64>(size);
  line["folder"] = isDir;
  line["text"] = core::ReplaceInvalidUtf8(text);
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, line) + "\n";
}

std::string ReadAll(const UniqueFd& fd) {
  std::string content;
  struct stat st {};
  if (!fd || fstat(fd.get(), &st) != 0) return content;
  content.resize(static_cast<std::size_t>(st.st_size));
  std::size_t have = 0;
  while (have < content.size()) {
    const ssize_t got =
        pread(fd.get(), content.data() + have, content.size() - have, static_cast<off_t>(have));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    have += static_cast<std::size_t>(got);
  }
  content.resize(have);
  return content;
}

void AppendNewestFirst(std::string_view content, int limit, Json::Value* lines) {
  while (!content.empty() && static_cast<int>(lines->size()) < limit) {
    if (content.ends_with('\n')) content.remove_suffix(1);
    const std::size_t before = content.rfind('\n');
    const std::size_t start = before == std::string_view::npos ? 0 : before + 1;
    Json::Value line;
    if (ParseObject(content.substr(start), &line)) lines->append(std::move(line));
    content = content.substr(0, start);
  }
}

}  // namespace

bool WfmLibDoLog(const char* user, const char* text, std::uint64_t size, int action, bool isDir) {
  if (!user || !text || (action != kXferCopy && action != kXferMove)) return false;
  const std::string path = LogFile(user);
  if (path.empty()) return false;
  UniqueFd fd = OpenForAppend(path);
  if (!fd && errno == ENOENT && EnsureFolder(user)) fd = OpenForAppend(path);
  return fd && AppendLine(fd.get(), FormatLine(user, text, size, action, isDir));
}

bool WfmLibGetFileXAtrr(const char* path, Json::Value& value) {
  constexpr const char* kName = "user.tavo.sharing";
  if (!path) return false;
  std::string text(XATTR_SIZE_MAX, '\0');
  const ssize_t size = getxattr(path, kName, text.data(), text.size());
  if (size < 0) return false;
  Json::Value parsed;
  if (!ParseObject(std::string_view(text).substr(0, static_cast<std::size_t>(size)), &parsed)) {
    return false;
  }
  value = std::move(parsed);
  return true;
}

namespace support {

Json::Value ReadTransferLog(const std::string& user, int limit) {
  Json::Value lines(Json::arrayValue);
  const std::string path = LogFile(user);
  if (path.empty() || limit <= 0) return lines;
  // The lock keeps the two files from changing places between the reads.
  const UniqueFd current = OpenLocked(path, O_RDONLY, LOCK_SH);
  AppendNewestFirst(ReadAll(current), limit, &lines);
  if (static_cast<int>(lines.size()) < limit) {
    const UniqueFd older(open((path + ".1").c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    AppendNewestFirst(ReadAll(older), limit, &lines);
  }
  return lines;
}

}  // namespace support
