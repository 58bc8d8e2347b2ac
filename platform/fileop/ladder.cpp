#include "ladder.h"

#include <linux/magic.h>
#include <sys/statfs.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "failure.h"
#include "transfer.h"

namespace fileop {
namespace {

// Up to here the detour through a buffer is cheaper than any cleverer way.
constexpr long long kSmallFile = 64 * 1024;

// Device numbers are given again to what is mounted next; these are not.
struct VolumeId {
  decltype(statfs::f_type) type = 0;
  fsid_t id{};

  bool operator==(const VolumeId& other) const {
    return type == other.type && std::memcmp(&id, &other.id, sizeof id) == 0;
  }
};

VolumeId VolumeOf(int fd) {
  struct statfs volume;
  if (::fstatfs(fd, &volume) != 0) return {};
  return {volume.f_type, volume.f_fsid};
}

std::pair<int, int> KernelRelease() {
  utsname kernel{};
  std::pair<int, int> release;
  if (::uname(&kernel) != 0) return release;
  std::sscanf(kernel.release, "%d.%d", &release.first, &release.second);
  return release;
}

// Keeps the volume what is written at once together in its page cache? Then large writes are
// so much cheaper that they outweigh the detour through a buffer: copy_file_range hands pages
// over sixteen at a time.
bool TakesLargeWrites(const VolumeId& volume) {
  static const std::pair<int, int> kernel = KernelRelease();
  if (volume.type == XFS_SUPER_MAGIC) return kernel >= std::pair(6, 6);
  return volume.type == EXT4_SUPER_MAGIC && kernel >= std::pair(6, 16);
}

struct Pair {
  VolumeId src;
  VolumeId dst;
  PairMemory memory;
};

bool HasHoles(const struct stat& st) {
  return static_cast<long long>(st.st_blocks) * 512 < static_cast<long long>(st.st_size);
}

// Fills `transfer`; negative on failure.
int Prepare(const DataJob& job, const struct stat& src, const struct stat* dst,
            Transfer* transfer) {
  transfer->src = job.src;
  transfer->dst = job.dst;
  transfer->expected = job.expected;
  const bool dst_regular = job.dst_is_new || S_ISREG(dst->st_mode);
  transfer->seekable = S_ISREG(src.st_mode) && dst_regular;
  if (!transfer->seekable || job.dst_is_new) {
    transfer->holes = transfer->seekable && HasHoles(src);
    return 0;
  }
  const off_t at = ::lseek(job.src, 0, SEEK_CUR);
  const off_t to = ::lseek(job.dst, 0, SEEK_CUR);
  if (at < 0 || to < 0) return Fail(errno, Side::kUnknown);
  transfer->start = transfer->position = at;
  transfer->shift = to - at;
  transfer->expected += at;
  // Over old content a hole would not read as zeros.
  transfer->holes = HasHoles(src) && dst->st_size <= to;
  return 0;
}

// `empty`: the destination has no data yet.
Rung ClimbFromTheTop(Transfer& transfer, bool empty) {
  PairMemory& memory = MemoryOfPair(transfer.src, transfer.dst);
  transfer.reserves = memory.reserves && empty;
  Rung rung = Rung::kNotHere;
  if (empty && !memory.shares_no_blocks) {
    rung = ShareBlocks(transfer);
    if (rung == Rung::kNeverHere) memory.shares_no_blocks = true;
  }
  if ((rung == Rung::kNotHere || rung == Rung::kNeverHere) && !memory.no_kernel_copy) {
    rung = KernelCopy(transfer);
    if (rung == Rung::kNeverHere) memory.no_kernel_copy = true;
  }
  return rung;
}

Rung Climb(Transfer& transfer, bool small, bool empty) {
  Rung rung = small ? Rung::kNotHere : ClimbFromTheTop(transfer, empty);
  const auto refused = [&rung] { return rung == Rung::kNotHere || rung == Rung::kNeverHere; };
  if (refused()) rung = ExtentCopy(transfer);
  if (refused()) rung = PlainCopy(transfer);
  return rung;
}

// A copy that ends elsewhere than its source does is no copy.
int CheckEnd(const Transfer& transfer) {
  struct stat st;
  if (::fstat(transfer.src, &st) != 0) return Fail(errno, Side::kSource);
  if (!S_ISREG(st.st_mode)) {
    return transfer.position < transfer.expected ? Fail(EIO, Side::kSource) : 0;
  }
  if (st.st_size == transfer.position) return 0;
  // Files of /proc say 0 and have content all the same.
  if (st.st_size == 0 && transfer.expected == 0) return 0;
  return Fail(EIO, Side::kSource);
}

}  // namespace

PairMemory& MemoryOfPair(int src, int dst) {
  thread_local std::vector<Pair> pairs;
  const VolumeId from = VolumeOf(src);
  const VolumeId to = VolumeOf(dst);
  for (Pair& pair : pairs) {
    if (pair.src == from && pair.dst == to) return pair.memory;
  }
  PairMemory fresh;
  // ext4 keeps books for each block of a write into a file that has none yet.
  fresh.reserves = to.type == EXT4_SUPER_MAGIC;
  fresh.no_kernel_copy = TakesLargeWrites(from) && TakesLargeWrites(to);
  pairs.push_back({from, to, fresh});
  return pairs.back().memory;
}

int MoveAllData(DataJob* job, Pacer* pacer) {
  struct stat src;
  struct stat dst {};
  if (job->src_st != nullptr) {
    src = *job->src_st;
  } else if (::fstat(job->src, &src) != 0) {
    return Fail(errno, Side::kSource);
  }
  if (!job->dst_is_new && ::fstat(job->dst, &dst) != 0) {
    return Fail(errno, Side::kDestination);
  }
  Transfer transfer;
  transfer.pacer = pacer;
  if (!job->ahead.empty()) {
    transfer.src = job->src;
    transfer.dst = job->dst;
    if (WriteAhead(transfer, job->ahead) == Rung::kFailed) return -1;
    job->end_proven = true;
    return 0;
  }
  if (Prepare(*job, src, &dst, &transfer) < 0) return -1;
  const bool small = job->expected <= kSmallFile;
  if (Climb(transfer, small, dst.st_size == 0) == Rung::kFailed) return -1;
  if (!transfer.end_seen && CheckEnd(transfer) < 0) return -1;
  job->end_proven = true;
  return 0;
}

int ShareAllData(DataJob* job, Pacer* pacer) {
  PairMemory& memory = MemoryOfPair(job->src, job->dst);
  if (memory.shares_no_blocks) return 0;
  Transfer transfer;
  transfer.src = job->src;
  transfer.dst = job->dst;
  transfer.expected = job->expected;
  transfer.seekable = true;
  transfer.pacer = pacer;
  switch (ShareBlocks(transfer)) {
    case Rung::kDone:
      return CheckEnd(transfer) < 0 ? -1 : 1;
    case Rung::kFailed:
      return -1;
    case Rung::kNeverHere:
      memory.shares_no_blocks = true;
      return 0;
    default:
      return 0;
  }
}

}  // namespace fileop
