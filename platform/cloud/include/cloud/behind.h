// Small files that are still on their way when UploadFile or DownloadFile has returned.
#pragma once

#include <cstdint>

#include "cloud/cloud.h"

namespace TAVOCloud {

// They go over a few connections of their own, as many as the remote's `max_connections` leaves
// beside the object's and its mount's. Once the server refuses one of these, or is lost, files
// go in the ordinary way. All this ends with the object behind `cloud`: what has not arrived by
// then has failed. Numbers are never used twice in a process.
class Behind {
 public:
  // Larger files are never left behind.
  static constexpr std::uint64_t kLargest = 1U << 20U;

  // The next DownloadFile on `cloud`, or UploadFile of a file that replaces nothing, may return
  // true as soon as the file was handed on. Its descriptor is duplicated, so nobody may move it
  // meanwhile; `readSize` grants all of it first, `cancel` is asked by other threads, `progress`
  // is told by Await.
  static void LetNext(Cloud* cloud);
  // The number of the file that the call after LetNext has left behind; 0: none.
  static std::uint64_t LastOf(const Cloud* cloud);
  // Waits for that file, once. True when all of it is there; what was uploaded is at its place,
  // its size confirmed, with the time of its source where the protocol carries one. False with
  // the last error set: kErrExists when the name was taken, by what stays there.
  [[nodiscard]] static bool Await(Cloud* cloud, std::uint64_t number);
};

}  // namespace TAVOCloud
