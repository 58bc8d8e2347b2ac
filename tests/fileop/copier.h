// A copier set up the way the module does it, with switches for the tests.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "fileop/copy.h"

namespace fileop_test {

// One at a time in a process: the interfaces take plain function pointers.
class Copier {
 public:
  enum class Kind { kCopy, kMove };

  explicit Copier(Kind kind, int policy = -1);
  ~Copier();
  Copier(const Copier&) = delete;
  Copier& operator=(const Copier&) = delete;

  int File(const std::string& src, const std::string& dst);
  int Folder(const std::string& src, const std::string& dst);
  void Free();  // what the handle still owes is done then

  TAVOCOPYOPTIONS options{};
  _TAVOCOPYARGSEX* args = nullptr;
  int error = 0;  // errno of the latest failed call
  int code = 0;   // its core code

  unsigned long long progress = 0;
  unsigned long long largest_step = 0;
  // Called before each data transfer with the paths that the hook is given.
  std::function<int(const std::string& src, const std::string& dst, int* src_fd, int* dst_fd)>
      on_data;
  std::function<long long(unsigned long long)> on_read_size;
  std::function<bool()> on_cancel_check;
  std::function<void(const std::string& src, const std::string& dst)> on_companion;
  std::function<unsigned long long(const std::string& src, const std::string& dst)> on_dir_size;
  std::function<int(const char* src, const char* dst, void* pass)> on_file;
  bool reflink = true;  // the per-file hook copies by reflink where it may
  unsigned reflinked = 0;

 private:
  int Finish(int result);
};

}  // namespace fileop_test
