#include "curl_flow.h"

#include <cstdint>
#include <cstdio>

#include "flow.h"

namespace TAVOCloud {

std::size_t DropData(char* /*data*/, std::size_t one, std::size_t length, void* /*user*/) {
  return one * length;
}

std::size_t GiveData(char* buffer, std::size_t one, std::size_t count, void* flow) {
  const ssize_t got = static_cast<Flow*>(flow)->Get(buffer, one * count);
  return got < 0 ? CURL_READFUNC_ABORT : static_cast<std::size_t>(got);
}

int SeekData(void* flow, curl_off_t offset, int origin) {
  if (origin != SEEK_SET || offset < 0) return CURL_SEEKFUNC_FAIL;
  return static_cast<Flow*>(flow)->SeekTo(static_cast<std::uint64_t>(offset)) ? CURL_SEEKFUNC_OK
                                                                              : CURL_SEEKFUNC_FAIL;
}

int AskForStop(void* flow, curl_off_t /*dl*/, curl_off_t /*dl*/, curl_off_t /*ul*/,
               curl_off_t /*ul*/) {
  return static_cast<Flow*>(flow)->IsCancelled() ? 1 : 0;
}

}  // namespace TAVOCloud
