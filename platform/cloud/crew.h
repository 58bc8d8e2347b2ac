// Threads that carry small files over connections of their own.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "cloud/cloud.h"
#include "core/unique_fd.h"

namespace TAVOCloud {

// For one calling thread.
class Crew {
 public:
  struct File {
    bool download;
    std::string path;  // on the server
    core::UniqueFd fd;
    std::uint64_t size;
    ProgressFn progress;
    CancelFn cancel;
  };
  using Maker = std::function<std::unique_ptr<Cloud>()>;

  // At most `most` objects that `make` makes, each for one thread.
  Crew(Maker make, std::size_t most) : make_(std::move(make)), most_(most) {}
  // Gives up what has not arrived.
  ~Crew();
  Crew(const Crew&) = delete;
  Crew& operator=(const Crew&) = delete;

  // Whether files are taken: not once the server has refused a connection, or is lost.
  bool IsOpen() const { return most_ > 0 && !closed_; }
  // Hands a file over; its number, 0 when it is not taken.
  std::uint64_t Post(File file);
  // Waits for a file's end. False with the last error and errno set when it failed or is unknown.
  [[nodiscard]] bool Await(std::uint64_t number);

 private:
  struct Task {
    File file;
    bool over = false;
    int system = 0;  // errno and core error of a failure
    int core = 0;
  };

  bool NeedsThread() const { return idle_ < queue_.size() && threads_.size() < most_; }
  void StartThread();
  void Serve(Cloud& cloud);
  void Send(Cloud& cloud, Task& task);
  void End(Task& task, int system, int core);
  void Close(int system, int core);

  Maker make_;
  std::size_t most_;
  std::atomic<bool> closed_{false};
  std::atomic<bool> given_up_{false};
  std::mutex mutex_;
  std::condition_variable posted_;
  std::condition_variable ended_;
  std::map<std::uint64_t, Task> tasks_;  // posted and not awaited yet
  std::deque<Task*> queue_;
  std::size_t idle_ = 0;
  std::vector<std::thread> threads_;
};

}  // namespace TAVOCloud
