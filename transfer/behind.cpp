// Small files that the cloud library still carries when the data hook returns.
#include "cloud/behind.h"

#include "support/path_info.h"
#include "transfer/cache_mark.h"
#include "transfer/remote_params.h"
#include "transfer/streams.h"
#include "webapi/behind_calls.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

TAVOCloud::Cloud* CloudAt(int fetch) { return fetch != 0 ? _srcCloud : _destCloud; }

int Fetches(const char* src, const char* dst, long size) {
  TransferJob job{src, dst, nullptr, nullptr, size, nullptr, nullptr, nullptr, false, {}, {}};
  job.source.isVfs = WfmLibIsVFSFullPath(src);
  job.dest.isVfs = WfmLibIsVFSFullPath(dst);
  const bool fetches = job.source.isVfs && !job.dest.isVfs && LookAtParams(job) &&
                       job.source.useCurl && !PrefersDescriptors(job);
  return fetches ? 1 : 0;
}

void LetNext(int fetch) { TAVOCloud::Behind::LetNext(CloudAt(fetch)); }

unsigned long long Last(int fetch) { return TAVOCloud::Behind::LastOf(CloudAt(fetch)); }

int Await(int fetch, const char* dst, unsigned long long number) {
  if (!TAVOCloud::Behind::Await(CloudAt(fetch), number)) return -1;
  // One that was not left behind has come first.
  if (!_mountTakesNoMarks) MarkCacheStale(dst);
  return 0;
}

}  // namespace

const TAVOBEHINDHOOKS kBehindHooks{Fetches, LetNext, Last, Await};

}  // namespace Fennox
