#include "support/errors.h"

#include <algorithm>
#include <array>

namespace {

struct ErrorRow {
  int code;
  const char* name;
  const char* text;
};

constexpr std::array kErrors = {
    ErrorRow{WEBFM_OK, "error_none", "No error."},
    ErrorRow{WEBFM_UNKNOWN_METHOD, "error_unknown_method", "The method does not exist."},
    ErrorRow{WEBFM_BAD_PARAMETER, "error_bad_parameter", "A parameter is missing or wrong."},
    ErrorRow{WEBFM_FAILED, "error_failed", "The operation failed."},
    ErrorRow{WEBFM_NO_PERMISSION, "error_no_permission", "You do not have permission to do this."},
    ErrorRow{WEBFM_MOUNT_LOST, "error_mount_lost", "The network folder does not answer."},
    ErrorRow{WEBFM_QUOTA_EXCEEDED, "error_quota_exceeded", "The storage quota is used up."},
    ErrorRow{WEBFM_ILLEGAL_NAME, "error_illegal_name", "The name or path is not allowed."},
    ErrorRow{WEBFM_NOT_SUPPORTED, "error_not_supported",
             "The file system or the server does not support this operation."},
    ErrorRow{WEBFM_MOUNT_GONE, "error_mount_gone", "The network folder is no longer connected."},
    ErrorRow{WEBFM_NOT_FOUND, "error_not_found", "The file or folder does not exist."},
    ErrorRow{WEBFM_READ_ONLY, "error_read_only", "The file system is read-only."},
    ErrorRow{WEBFM_NAME_TOO_LONG, "error_name_too_long", "The name or path is too long."},
    ErrorRow{WEBFM_NO_SPACE, "error_no_space", "There is not enough space."},
    ErrorRow{WEBFM_IO_ERROR, "error_io", "The storage device reported an error."},
    ErrorRow{WEBFM_NOT_A_FOLDER, "error_not_a_folder", "A folder was expected."},
    ErrorRow{WEBFM_NOT_A_FILE, "error_not_a_file", "A file was expected."},
    ErrorRow{WEBFM_BUSY, "error_busy", "The file or folder is in use."},
    ErrorRow{WEBFM_TOO_MANY_LINKS, "error_too_many_links",
             "There are too many links or open files."},
    ErrorRow{WEBFM_UNKNOWN_USER, "error_unknown_user", "The user does not exist."},
    ErrorRow{WEBFM_NO_SHARE, "error_no_share", "The shared folder does not exist."},
    ErrorRow{WEBFM_OUT_OF_MEMORY, "error_out_of_memory", "The server is out of memory."},
    ErrorRow{WEBFM_CANCELLED, "error_cancelled", "The operation was cancelled."},
    ErrorRow{WEBFM_WORKER_DIED, "error_worker_died", "The task ended before it was finished."},
    ErrorRow{WEBFM_NO_SUCH_TASK, "error_no_such_task", "The task does not exist."},
    ErrorRow{WEBFM_COPY_FAILED, "error_copy_failed", "The copy failed."},
    ErrorRow{WEBFM_MOVE_FAILED, "error_move_failed", "The move failed."},
    ErrorRow{WEBFM_DEST_FAILED, "error_destination_failed",
             "The destination folder cannot be used."},
    ErrorRow{WEBFM_CONFLICT, "error_select_conflict",
             "The destination already has an entry of this name."},
    ErrorRow{WEBFM_TYPE_CONFLICT, "error_overwrite_fail",
             "A file cannot replace a folder, nor a folder a file."},
    ErrorRow{WEBFM_BAD_FILE_NAME, "mvcp_filename_illegal",
             "The destination does not allow this file name."},
    ErrorRow{WEBFM_FILE_TOO_BIG, "mvcp_file_too_big",
             "The file is too big for the destination's file system."},
    ErrorRow{WEBFM_REMOTE_UNREACHABLE, "error_remote_unreachable",
             "The remote server cannot be reached."},
    ErrorRow{WEBFM_REMOTE_IO, "error_remote_io", "The remote server reported an error."},
    ErrorRow{WEBFM_REMOTE_REFUSED, "error_remote_refused",
             "The remote server refused the connection."},
    ErrorRow{WEBFM_REMOTE_TOO_LARGE, "error_remote_too_large",
             "The file is too big for the remote server."},
    ErrorRow{WEBFM_REMOTE_BAD_NAME, "error_remote_bad_name",
             "The remote server does not allow this name."},
};

const ErrorRow* FindRow(int code) {
  const auto* row =
      std::find_if(kErrors.begin(), kErrors.end(), [&](const auto& r) { return r.code == code; });
  return row == kErrors.end() ? nullptr : row;
}

thread_local int lastError = WEBFM_OK;

}  // namespace

int WfmLibGetErr() { return lastError; }

std::string WfmParseErrorToKVXString(int code, int /*flags*/) {
  return std::string("error:") + support::ErrorName(code);
}

namespace support {

void SetErr(int code) { lastError = code; }

const char* ErrorName(int code) {
  const ErrorRow* row = FindRow(code);
  return row ? row->name : "error_unknown";
}

const char* ErrorText(int code) {
  const ErrorRow* row = FindRow(code);
  return row ? row->text : "An unknown error occurred.";
}

std::vector<int> ErrorCodes() {
  std::vector<int> codes;
  codes.reserve(kErrors.size());
  for (const ErrorRow& row : kErrors) codes.push_back(row.code);
  return codes;
}

}  // namespace support
