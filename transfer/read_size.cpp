#include <cstdint>

#include "support/bandwidth.h"
#include "webapi/module_calls.h"
#include "webapi/module_state.h"

namespace Fennox {

long long MVCPTransferCallback(unsigned long long bytes) {
  if (bytes == 0) {
    bytes = _lastChunkBytes;
    _lastChunkBytes = 0;
  }
  long long granted = 0;
  if (!WfmlibBwRun(_processedBytes, bytes, _totalAmount, granted)) return -1;
  // The copier takes read sizes of 32 bits.
  return granted <= 0 ? 0 : static_cast<std::int32_t>(granted);
}

}  // namespace Fennox
