#include "engine/move_thread.h"
#include "webapi/log.h"
#include "webapi/module_calls.h"

namespace Fennox {

pthread_mutex_t _moveMutex;

namespace {

constexpr int kThreads = 2;

void ShareOut(const EntryMap& entries, MOVE_THREAD_INFO (&records)[kThreads]) {
  const std::size_t half = entries.size() / 2;
  std::size_t position = 0;
  for (const auto& entry : entries) {
    records[position < half ? 0 : 1].entries.insert(entry);
    ++position;
  }
}

// Runs one thread per record. A thread that cannot be started ends the round,
// but those that run are waited for: the records are theirs until then.
void RunThreads(MOVE_THREAD_INFO (&records)[kThreads]) {
  pthread_t threads[kThreads];
  int running = 0;
  for (MOVE_THREAD_INFO& record : records) {
    const int failure = pthread_create(&threads[running], nullptr, MVCPMoveThread, &record);
    if (failure != 0) {
      LogError(1639, "Couldn't run thread, errno %d\n", failure);
      break;
    }
    ++running;
  }
  for (int i = 0; i < running; ++i) pthread_join(threads[i], nullptr);
}

}  // namespace
}  // namespace Fennox

int MoveThreadMain(MOVE_THREAD_INFO (&records)[2],
                   std::map<std::string, Fennox::ENTRY_STAT>& entries,
                   const std::string& destFolder, const std::string& destCodePage,
                   const std::string& destParam, int overwritePolicy, bool isDirMap) {
  pthread_mutex_init(&Fennox::_moveMutex, nullptr);
  Fennox::ShareOut(entries, records);
  int index = 0;
  for (MOVE_THREAD_INFO& record : records) {
    record.destFolder = destFolder;
    record.destCodePage = destCodePage;
    record.destParam = destParam;
    record.index = index++;
    record.overwritePolicy = overwritePolicy;
    record.isDirMap = isDirMap;
  }
  Fennox::RunThreads(records);
  return pthread_mutex_destroy(&Fennox::_moveMutex);
}
