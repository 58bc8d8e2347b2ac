// The system calls that a copy of a tree, or a move of a folder's entries, cannot do
// without, and nothing else: no hooks, no progress, no names that come last, no check of
// what was read. What an engine takes beyond this is its own. Data goes through a buffer,
// that of files of more than 64 KiB from extent to extent.
//
//   copy_floor SOURCE NEW_FOLDER [THREADS [WAY [count]]]
//   copy_floor rename SOURCE FOLDER
//
// WAY is how a file gets its name: "final" (made under it), "rename" (made under
// another), "link" (made without one). With "count" every file's size is asked for before
// the first is copied, as progress in bytes needs it. The second form moves the entries of
// SOURCE. Prints the milliseconds taken.
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

enum class Way { kFinal, kRename, kLink };

// One folder's files, by name.
struct Batch {
  std::string from;
  std::string to;
  std::vector<std::string> files;
};

[[noreturn]] void Stop(const std::string& what) {
  std::perror(what.c_str());
  std::exit(1);
}

int MakeFile(int folder, const std::string& name, mode_t mode, Way way) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
  switch (way) {
    case Way::kFinal:
      return openat(folder, name.c_str(), kFlags, mode);
    case Way::kRename:
      return openat(folder, (".tmp-" + name).c_str(), kFlags, mode);
    case Way::kLink:
      return openat(folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, mode);
  }
  return -1;
}

bool NameFile(int folder, int file, const std::string& name, Way way) {
  switch (way) {
    case Way::kFinal:
      return true;
    case Way::kRename:
      return renameat(folder, (".tmp-" + name).c_str(), folder, name.c_str()) == 0;
    case Way::kLink:
      return linkat(file, "", folder, name.c_str(), AT_EMPTY_PATH) == 0;
  }
  return false;
}

// At the beginning of a page: the kernel copies three times as fast to there as to where plain
// memory may begin.
struct alignas(4096) Buffer {
  char data[512 << 10];
};

Buffer& OwnBuffer() {
  thread_local const auto buffer = std::make_unique_for_overwrite<Buffer>();
  return *buffer;
}

void ThroughBuffer(int src, int dst, off_t size, const std::string& name) {
  Buffer& buffer = OwnBuffer();
  off_t copied = 0;
  while (copied < size) {
    const auto left = static_cast<std::size_t>(size - copied);
    const ssize_t got = read(src, buffer.data, std::min(sizeof buffer.data, left));
    if (got <= 0 || write(dst, buffer.data, static_cast<std::size_t>(got)) != got) Stop(name);
    copied += got;
  }
}

void ByExtents(int src, int dst, off_t size, const std::string& name) {
  if (ftruncate(dst, size) != 0) Stop(name);
  off_t end = 0;
  for (;;) {
    off_t at = lseek(src, end, SEEK_DATA);
    if (at < 0 && errno == ENXIO) return;
    end = lseek(src, at, SEEK_HOLE);
    if (at < 0 || end < 0) Stop(name);
    if (lseek(src, at, SEEK_SET) < 0 || lseek(dst, at, SEEK_SET) < 0) Stop(name);
    ThroughBuffer(src, dst, end - at, name);
  }
}

void CopyFile(int from, int to, const std::string& name, Way way) {
  constexpr off_t kSmall = 64 * 1024;
  const int src = openat(from, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NOATIME | O_CLOEXEC);
  struct stat st {};
  if (src < 0 || fstat(src, &st) != 0) Stop(name);
  const int dst = MakeFile(to, name, st.st_mode & 0777, way);
  if (dst < 0) Stop(name);
  if (st.st_size <= kSmall) {
    ThroughBuffer(src, dst, st.st_size, name);
  } else {
    ByExtents(src, dst, st.st_size, name);
  }
  char names[1024];
  const timespec times[2] = {st.st_atim, st.st_mtim};
  const bool kept = flistxattr(src, names, sizeof names) >= 0 && futimens(dst, times) == 0;
  if (!kept || !NameFile(to, dst, name, way)) Stop(name);
  close(dst);
  close(src);
}

void CopyBatch(const Batch& batch, Way way) {
  const int from = open(batch.from.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const int to = open(batch.to.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (from < 0 || to < 0) Stop(batch.to);
  for (const std::string& name : batch.files) CopyFile(from, to, name, way);
  close(from);
  close(to);
}

// What is to be copied, in bytes.
off_t CountBatch(const Batch& batch) {
  const int from = open(batch.from.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  off_t sum = 0;
  for (const std::string& name : batch.files) {
    struct stat st {};
    if (fstatat(from, name.c_str(), &st, 0) != 0) Stop(name);
    sum += st.st_size;
  }
  close(from);
  return sum;
}

// Does the same with each batch, on so many threads.
template <typename Work>
void WithAll(const std::vector<Batch>& batches, int threads, const Work& work) {
  std::atomic<std::size_t> next{0};
  const auto share = [&] {
    for (std::size_t i = next++; i < batches.size(); i = next++) work(batches[i]);
  };
  std::vector<std::thread> others;
  for (int i = 1; i < threads; ++i) others.emplace_back(share);
  share();
  for (std::thread& other : others) other.join();
}

// Makes the folders and lists the files.
void List(const std::string& from, const std::string& to, std::vector<Batch>* batches) {
  if (mkdir(to.c_str(), 0755) != 0) Stop(to);
  Batch batch{from, to, {}};
  std::vector<std::string> folders;
  for (const auto& entry : std::filesystem::directory_iterator(from)) {
    const std::string name = entry.path().filename();
    if (entry.is_symlink()) continue;  // the listing tells types, without a look at each
    if (entry.is_directory()) folders.push_back(name);
    if (entry.is_regular_file()) batch.files.push_back(name);
  }
  batches->push_back(std::move(batch));
  for (const std::string& name : folders) List(from + "/" + name, to + "/" + name, batches);
}

std::vector<std::string> NamesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// What the request asks of each entry before any of them is touched: on which mount it
// lies, and whether its name is taken.
void CheckEntries(const std::vector<std::string>& names, const std::string& from,
                  const std::string& to) {
  for (const std::string& name : names) {
    struct statx stx {};
    constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
    const std::string source = from + "/" + name;
    if (statx(AT_FDCWD, source.c_str(), kFlags, STATX_TYPE | STATX_MNT_ID, &stx) != 0) Stop(source);
    if (access((to + "/" + name).c_str(), F_OK) == 0) Stop(name);
  }
}

// What the worker has to do: tell files from folders, then for each look whether the name
// is taken meanwhile, look at what is to be moved, and rename.
void MoveEntries(const std::vector<std::string>& names, const std::string& from,
                 const std::string& to) {
  struct stat st {};
  for (const std::string& name : names) {
    if (lstat((from + "/" + name).c_str(), &st) != 0) Stop(name);
  }
  const int source = open(from.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const int target = open(to.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (const std::string& name : names) {
    if (access((to + "/" + name).c_str(), F_OK) == 0) Stop(name);
    if (fstatat(source, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 ||
        renameat2(source, name.c_str(), target, name.c_str(), RENAME_NOREPLACE) != 0) {
      Stop(name);
    }
  }
  close(source);
  close(target);
}

double MoveFloor(const std::string& from, const std::string& to) {
  const std::vector<std::string> names = NamesIn(from);
  const auto begin = std::chrono::steady_clock::now();
  CheckEntries(names, from, to);
  MoveEntries(names, from, to);
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
      .count();
}

Way WayOf(const std::string& name) {
  if (name == "rename") return Way::kRename;
  return name == "link" ? Way::kLink : Way::kFinal;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 3) {
    std::fprintf(stderr,
                 "usage: copy_floor SOURCE NEW_FOLDER [THREADS [final|rename|link [count]]]\n"
                 "       copy_floor rename SOURCE FOLDER\n");
    return 2;
  }
  if (count == 4 && std::string_view(arguments[1]) == "rename") {
    std::printf("%.1f\n", MoveFloor(arguments[2], arguments[3]));
    return 0;
  }
  const int threads = count > 3 ? std::atoi(arguments[3]) : 1;
  const Way way = WayOf(count > 4 ? arguments[4] : "final");
  const auto begin = std::chrono::steady_clock::now();
  std::vector<Batch> batches;
  List(arguments[1], arguments[2], &batches);
  std::atomic<off_t> total{0};
  if (count > 5) {
    WithAll(batches, threads, [&](const Batch& batch) { total += CountBatch(batch); });
  }
  WithAll(batches, threads, [&](const Batch& batch) { CopyBatch(batch, way); });
  const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - begin;
  std::printf("%.1f\n", taken.count());
  return 0;
}
