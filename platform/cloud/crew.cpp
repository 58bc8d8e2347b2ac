#include "crew.h"

#include <pthread.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "core/error.h"
#include "core/helper_thread.h"
#include "failure.h"
#include "vfs/mounts.h"

namespace TAVOCloud {
namespace {

std::uint64_t NextNumber() {
  static std::atomic<std::uint64_t> latest{0};
  return ++latest;
}

// What ends the transfer that the calling thread is at.
struct Stop {
  CancelFn cancel = nullptr;
  const std::atomic<bool>* given_up = nullptr;
};

Stop& OwnStop() {
  thread_local Stop stop;
  return stop;
}

int ShallStop() {
  const Stop& stop = OwnStop();
  const bool given_up = stop.given_up != nullptr && stop.given_up->load();
  return given_up || (stop.cancel != nullptr && stop.cancel() != 0) ? 1 : 0;
}

}  // namespace

Crew::~Crew() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    given_up_ = true;
  }
  posted_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

std::uint64_t Crew::Post(File file) {
  const std::uint64_t number = NextNumber();
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!IsOpen()) return 0;
  Task& task = tasks_[number];
  task.file = std::move(file);
  queue_.push_back(&task);
  if (NeedsThread()) StartThread();
  if (threads_.empty()) {
    queue_.clear();
    tasks_.erase(number);
    return 0;
  }
  posted_.notify_one();
  return number;
}

bool Crew::Await(std::uint64_t number) {
  std::unique_lock<std::mutex> lock(mutex_);
  const auto found = tasks_.find(number);
  if (found == tasks_.end()) {
    errno = ECONNABORTED;
    VLIBCErrSetEx(core::kErrInputOutput, __FILE__, __LINE__);
    return false;
  }
  ended_.wait(lock, [&] { return found->second.over; });
  const Task task = std::move(found->second);
  tasks_.erase(found);
  lock.unlock();
  if (task.core != 0) {
    errno = task.system;
    VLIBCErrSetEx(task.core, __FILE__, __LINE__);
    return false;
  }
  if (task.file.progress != nullptr) task.file.progress(task.file.size, 0);
  return true;
}

// The object is made here and not by the new thread, which may begin when the owner of `make_`
// is about to end.
void Crew::StartThread() {
  const std::shared_ptr<Cloud> cloud = make_();
  if (cloud == nullptr) {
    most_ = threads_.size();
    return;
  }
  try {
    threads_.push_back(core::StartHelper([this, cloud] { Serve(*cloud); }));
  } catch (const std::system_error&) {
    most_ = threads_.size();
  }
}

// A closed crew gives its connections back: the mount may need them.
void Crew::Serve(Cloud& cloud) {
  pthread_setname_np(pthread_self(), "cloud-crew");
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    ++idle_;
    posted_.wait(lock, [this] { return given_up_ || closed_ || !queue_.empty(); });
    --idle_;
    if (given_up_ || queue_.empty()) return;
    Task& task = *queue_.front();
    queue_.pop_front();
    lock.unlock();
    Send(cloud, task);
    lock.lock();
  }
}

void Crew::Send(Cloud& cloud, Task& task) {
  OwnStop() = {task.file.cancel, &given_up_};
  const File& file = task.file;
  const bool sent =
      file.download
          ? cloud.Download(file.path, file.fd.get(), file.size, nullptr, ShallStop, nullptr)
          : cloud.Upload(file.path, file.fd.get(), file.size, nullptr, ShallStop, nullptr);
  const int system = errno;
  const int core = VLIBCErrGet();
  const std::lock_guard<std::mutex> lock(mutex_);
  task.file.fd.reset();
  if (sent) {
    End(task, 0, core::kErrNone);
    return;
  }
  End(task, system, core);
  const int code = cloud.GetErrorCode();
  if (code == kNoMoreConnections || (code != 0 && vfs::MayMeanServerLost(system))) {
    Close(system, core);
  }
}

// With the lock held, as is Close.
void Crew::End(Task& task, int system, int core) {
  task.over = true;
  task.system = system;
  task.core = core;
  ended_.notify_all();
}

void Crew::Close(int system, int core) {
  closed_ = true;
  for (Task* task : std::exchange(queue_, {})) {
    End(*task, system, core != core::kErrNone ? core : core::kErrSystem);
  }
  posted_.notify_all();
}

}  // namespace TAVOCloud
