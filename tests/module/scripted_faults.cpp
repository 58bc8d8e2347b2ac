// These definitions take the place of the libraries' own in this program.
#include "scripted_faults.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>

#include "tasks/task_helpers.h"
#include "vfs/vfs.h"

Faults faults;

extern "C" pid_t fork() noexcept {
  static const auto real = reinterpret_cast<pid_t (*)()>(::dlsym(RTLD_NEXT, "fork"));
  if (!faults.forkFails) return real();
  errno = EAGAIN;
  return -1;
}

bool WaitForTaskDataKeyReady(KVX::Task* task, const char* property, const char* member,
                             int seconds) {
  using Wait = bool (*)(KVX::Task*, const char*, const char*, int);
  static const auto real =
      reinterpret_cast<Wait>(::dlsym(RTLD_NEXT, "_Z23WaitForTaskDataKeyReadyPN3KVX4TaskEPKcS3_i"));
  return faults.dataWait ? faults.dataWait(task) : real(task, property, member, seconds);
}

bool TAVOVFS::Cfg::CheckPermissionByUserName(const char*, _VFS_USER_CONFIG_, const char* protocol) {
  return faults.refusedProtocol != protocol;
}
