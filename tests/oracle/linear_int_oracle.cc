#include <algorithm>
#include <bit>

#include "tests/oracle/oracle.h"

namespace vorlith::oracle {

LinearTaps LinearIntTaps(int r, int size, int k) {
  // Position (k + 1/2)/r - 1/2 in units of 1/(2r), split into a source index
  // and a remainder that sets the weight of the next sample.
  const int num = 2 * k + 1 - r, unit = 2 * r;
  const int i0 = num >= 0 ? num / unit : -((-num + unit - 1) / unit);
  const int rem = num - i0 * unit;
  const int total = r == 3 ? 3 : (r == 2 ? 4 : 8);
  const int w1 = rem * total / unit;
  return {std::clamp(i0, 0, size - 1), std::clamp(i0 + 1, 0, size - 1), total - w1, w1};
}

int LinearIntH(int r, const uint8_t* row, int width, int j) {
  const LinearTaps t = LinearIntTaps(r, width, j);
  return t.w0 * row[t.i0] + t.w1 * row[t.i1];
}

uint8_t LinearIntRound(int64_t s, float f, bool body) {
  if (body) {
    const auto s16 = static_cast<int16_t>(static_cast<uint16_t>(s));
    const int64_t t = TruncSaturate(static_cast<float>(s16) * f + 0.5f, INT32_MIN, INT32_MAX);
    return static_cast<uint8_t>(std::clamp<int>(static_cast<int16_t>(t & 0xFFFF), 0, 255));
  }
  const float scaled = static_cast<float>(std::max<int64_t>(s, 0)) * f;
  return static_cast<uint8_t>(
      std::min<int64_t>(TruncSaturate(double{scaled} + 0.5, INT32_MIN, INT32_MAX), 255));
}

uint8_t LinearIntSample(int r, const uint8_t* src, int height, int width, int y, int x) {
  const LinearTaps t = LinearIntTaps(r, height, y);
  const int a = LinearIntH(r, src + t.i0 * width, width, x);
  const int b = LinearIntH(r, src + t.i1 * width, width, x);
  const int ow = r * width;
  const bool body = x < ow / 8 * 8;
  if (r != 3) return LinearIntRound(int64_t{t.w0} * a + t.w1 * b, r == 2 ? 1 / 16.f : 1 / 64.f, body);
  // 3x rows on one source row (or clamped onto one) divide it by 3; the
  // others blend two rows in ninths.
  if (t.w1 == 0 || t.i0 == t.i1) return LinearIntRound(a, std::bit_cast<float>(0x3EAAAAABu), body);
  return LinearIntRound(int64_t{t.w0} * a + t.w1 * b, std::bit_cast<float>(0x3DE38E39u), body);
}

}  // namespace vorlith::oracle
