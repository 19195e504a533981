#include <cmath>

#include "tests/oracle/oracle.h"

namespace vorlith::oracle {

float U8ToF32(uint8_t v) { return static_cast<float>(v); }

uint8_t F32ToU8(float v, bool body) {
  if (body) {
    const int64_t u = TruncSaturate(v, 0, 4294967295LL);
    const int64_t low = u % 65536;
    if (low >= 32768) return 0;  // negative as a signed 16-bit value
    return static_cast<uint8_t>(low > 255 ? 255 : low);
  }
  const int64_t s = TruncSaturate(v, INT32_MIN, INT32_MAX);
  return static_cast<uint8_t>(((s % 256) + 256) % 256);
}

}  // namespace vorlith::oracle
