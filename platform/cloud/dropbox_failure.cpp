#include "dropbox_failure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "core/error.h"

namespace TAVOCloud {
namespace {

struct Meaning {
  std::string_view tag;
  int system;  // errno
  int core;
  bool passing;
  const char* words;
};

constexpr Meaning Of(std::string_view tag, int system, int core, const char* words) {
  return {tag, system, core, false, words};
}
constexpr Meaning Passing(std::string_view tag, int system, int core, const char* words) {
  return {tag, system, core, true, words};
}

// The first whose tag the answer has. What is closer to the cause stands before what
// goes around it.
constexpr std::array kMeanings{
    Of("not_found", ENOENT, core::kErrNotFound, "there is no such file or folder in the account"),
    Of("not_file", EISDIR, core::kErrFileExpected, "is a folder in the account"),
    Of("not_folder", ENOTDIR, core::kErrFolderExpected, "is not a folder in the account"),
    Of("file_ancestor", ENOTDIR, core::kErrFolderExpected,
       "a file stands where the folder should be in the account"),
    Of("folder", EISDIR, core::kErrFileExpected, "a folder has the name in the account"),
    Of("conflict", EEXIST, core::kErrExists, "the name is taken in the account"),
    Of("insufficient_space", ENOSPC, core::kErrNoSpace, "the account has no space left"),
    Of("insufficient_quota", ENOSPC, core::kErrNoSpace, "the account has no space left"),
    Of("too_large", EFBIG, core::kErrTooLarge, "the file is too large for the service"),
    Of("payload_too_large", EFBIG, core::kErrTooLarge, "the file is too large for the service"),
    Of("disallowed_name", EILSEQ, core::kErrIllegalName, "the service does not take this name"),
    Of("malformed_path", EILSEQ, core::kErrIllegalName, "the service does not take this name"),
    Of("unsupported_file", EOPNOTSUPP, core::kErrSeeErrno,
       "the document exists in the service's own form only and cannot be downloaded"),
    Of("restricted_content", EACCES, core::kErrNotPermitted,
       "the service may not give the file out for legal reasons"),
    Of("no_write_permission", EACCES, core::kErrNotPermitted,
       "the account may not write in this folder"),
    Of("no_permission", EACCES, core::kErrNotPermitted, "the account may not do this"),
    Of("missing_scope", EACCES, core::kErrNotPermitted,
       "the app in the token file lacks a permission (files.content and files.metadata)"),
    Of("invalid_access_token", EACCES, core::kErrNotPermitted, "the account is no longer linked"),
    Of("expired_access_token", EACCES, core::kErrNotPermitted, "the account is no longer linked"),
    Of("user_suspended", EACCES, core::kErrNotPermitted, "the account is suspended"),
    Of("duplicated_or_nested_paths", EINVAL, core::kErrBadArgument,
       "a folder cannot be put into itself"),
    Of("cant_copy_shared_folder", EACCES, core::kErrNotPermitted,
       "the service does not copy shared folders"),
    Of("too_many_files", EFBIG, core::kErrTooLarge, "the folder holds too much for one request"),
    Passing("content_hash_mismatch", EIO, core::kErrInputOutput,
            "the data was damaged on its way to the service"),
    Passing("too_many_write_operations", EBUSY, core::kErrHostDown,
            "too many changes in the account at a time"),
    Passing("too_many_requests", EBUSY, core::kErrHostDown, "too many requests at a time"),
    Passing("internal_error", EIO, core::kErrInputOutput, "the service has failed"),
};

constexpr Meaning kBusy = Passing("", EBUSY, core::kErrHostDown, "too many requests at a time");
constexpr Meaning kFailed = Passing("", EIO, core::kErrInputOutput, "the service has failed");
constexpr Meaning kForbidden =
    Of("", EACCES, core::kErrNotPermitted, "the service does not permit it");
constexpr Meaning kMalformed =
    Of("", EIO, core::kErrInputOutput, "the service does not understand the request");
constexpr Meaning kRefused = Of("", EIO, core::kErrInputOutput, "the service refuses it");

constexpr long kTooMany = 429;
constexpr long kUnavailable = 503;

const Meaning& Find(const DropboxAnswer& answer) {
  for (const Meaning& one : kMeanings) {
    if (answer.Says(one.tag)) return one;
  }
  if (answer.response == kTooMany || answer.response == kUnavailable) return kBusy;
  if (answer.response >= 500) return kFailed;
  if (answer.response == 401 || answer.response == 403) return kForbidden;
  return answer.response == 400 ? kMalformed : kRefused;
}

}  // namespace

Failure ExplainDropbox(const DropboxAnswer& answer) {
  if (!answer.ok()) return Explain(answer);
  const Meaning& meaning = Find(answer);
  return {meaning.system, meaning.core, static_cast<int>(answer.response), meaning.passing};
}

std::string WordsOf(const DropboxAnswer& answer) {
  if (!answer.ok()) return answer.words;
  std::string words = Find(answer).words;
  words += " (" + answer.call + ", status " + std::to_string(answer.response);
  for (const std::string& tag : answer.tags) words += ", " + tag;
  return words + ")";
}

}  // namespace TAVOCloud
