// Small files that the cloud library has not sent yet when the data hook returns.
#include "cloud/behind.h"

#include "transfer/cache_mark.h"
#include "transfer/kept_error.h"
#include "webapi/behind_calls.h"
#include "webapi/module_state.h"

namespace Fennox {
namespace {

void LetNext() { TAVOCloud::Behind::LetNext(_destCloud); }

unsigned long long Last() { return TAVOCloud::Behind::LastOf(_destCloud); }

int Await(const char* dst, unsigned long long number) {
  if (!TAVOCloud::Behind::Await(_destCloud, number)) return -1;
  MarkCacheStale(dst);
  return 0;
}

}  // namespace

const TAVOBEHINDHOOKS kBehindHooks{LetNext, Last, Await};

}  // namespace Fennox
