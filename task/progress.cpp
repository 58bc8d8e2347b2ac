// The worker's progress, as the record shows it.
#include <cstdlib>
#include <ctime>

#include "tasks/task_helpers.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

// A write reloads and stores the whole record, so one is due only after more
// than this many seconds. A clock set back by as much makes one due, too.
constexpr std::int64_t kQuietSeconds = 4;

bool IsWriteDue(std::int64_t now) {
  return _lastWriteTime == 0 || std::abs(_lastWriteTime - now) > kQuietSeconds;
}

// Writes "total" and "progress"; returns the ratio, -1 while nothing is counted.
float WriteRatio(Json::Value& data) {
  const auto total = static_cast<double>(_totalAmount);
  float ratio = -1.0F;
  if (_totalAmount != 0) {
    const auto done = static_cast<double>(_accurateProgress ? _processedBytes : _processedNum);
    ratio = static_cast<float>(done / total);
    if (ratio > 1.0F) ratio = 1.0F;
  }
  data["total"] = total;
  data["progress"] = static_cast<double>(ratio);
  return ratio;
}

// Bytes per second since the previous write; the integer 0 when the clock
// cannot tell.
Json::Value TransferRate(std::uint64_t previousBytes) {
  const timespec previous = _lastRateClock;
  if (clock_gettime(CLOCK_REALTIME, &_lastRateClock) != 0 || _lastRateClock.tv_sec == 0 ||
      _lastRateClock.tv_sec < previous.tv_sec) {
    return 0;
  }
  const double elapsed = static_cast<double>(_lastRateClock.tv_sec - previous.tv_sec) +
                         static_cast<double>(_lastRateClock.tv_nsec - previous.tv_nsec) * 1e-9;
  if (!(elapsed > 0)) return 0;
  return static_cast<double>(_processedBytes - previousBytes) / elapsed;
}

void WriteCounters(Json::Value& data, std::uint64_t previousBytes) {
  data["transfer_rate"] = "N/A";
  if (!_accurateProgress) {
    data["processed_num"] = static_cast<double>(_processedNum);
    return;
  }
  data["processed_size"] = static_cast<double>(_processedBytes);
  data["found_file_num"] = Json::Value::UInt64{_foundFileNum};
  data["found_dir_num"] = Json::Value::UInt64{_foundDirNum};
  data["found_file_size"] = Json::Value::UInt64{_foundFileSize};
  data["transfer_rate"] = TransferRate(previousBytes);
}

void WritePath(Json::Value& data) {
  if (_processingPath.empty()) return;
  data["path"] = _processingPath;
  data["processing_path"] = _processingPath;
}

const char* StatusWord() {
  if (_task->isFinished()) return "SUCCESS";
  return _notStarted ? "NOT_STARTED" : "PROCESSING";
}

}  // namespace

int MVCPUpdateProgress(unsigned long long bytes, unsigned long long /*unused*/) {
  _processedBytes += bytes;
  _lastChunkBytes = bytes;

  const std::int64_t now = std::time(nullptr);
  if (!IsWriteDue(now)) return 0;
  // Stamped before the record is read: a lost record must not be asked for on
  // every call.
  const std::uint64_t previousBytes = _bytesAtLastWrite;
  _lastWriteTime = now;
  _bytesAtLastWrite = _processedBytes;

  Json::Value data;
  if (!LoadTaskData(390, data)) return -1;
  const float ratio = WriteRatio(data);
  data.removeMember("waiting_in_queue");
  WriteCounters(data, previousBytes);
  WritePath(data);
  data["status"] = StatusWord();
  (void)SaveTaskData(_task, data, ratio);
  return 0;
}

}  // namespace Fennox
