#include <algorithm>
#include <cmath>

#include "tests/oracle/oracle.h"

namespace vorlith::oracle {

int64_t TruncSaturate(double value, int64_t lo, int64_t hi) {
  if (std::isnan(value)) return 0;
  if (value <= static_cast<double>(lo)) return lo;
  if (value >= static_cast<double>(hi)) return hi;
  return static_cast<int64_t>(std::trunc(value));
}

namespace {

// The 2x grid samples source position x/2 - 1/4: the two neighbours and the
// weight (in quarters) of each, before the indices are clamped to the plane.
struct Taps {
  int near, far, w_near, w_far;
};

Taps TapsFor(int out, int size) {
  // out = 2i + 1 lies at i + 1/4, out = 2i at i - 1/4.
  const int i = out / 2;
  Taps t;
  t.near = i;
  t.far = out % 2 ? i + 1 : i - 1;
  t.w_near = 3;
  t.w_far = 1;
  t.near = std::clamp(t.near, 0, size - 1);
  t.far = std::clamp(t.far, 0, size - 1);
  return t;
}

}  // namespace

uint8_t Linear2xNvSample(const uint8_t* src, int src_stride, int height, int width, int row,
                         int col, int c) {
  const Taps ty = TapsFor(row, height);
  const Taps tx = TapsFor(col, width);
  auto at = [&](int y, int x) { return int{src[y * src_stride + 2 * x + c]}; };
  const int sum = ty.w_near * tx.w_near * at(ty.near, tx.near) +
                  ty.w_near * tx.w_far * at(ty.near, tx.far) +
                  ty.w_far * tx.w_near * at(ty.far, tx.near) +
                  ty.w_far * tx.w_far * at(ty.far, tx.far);
  return static_cast<uint8_t>((sum + 8) >> 4);
}

int16_t HLinear2xNvValue(const uint8_t* row, int width, int index) {
  const Taps t = TapsFor(index / 2, width);
  const int c = index % 2;
  return static_cast<int16_t>(t.w_near * row[2 * t.near + c] + t.w_far * row[2 * t.far + c]);
}

uint8_t VLinearValue(int16_t a, int16_t b, int16_t w0, int16_t w1, float scale, bool body) {
  const int64_t exact = int64_t{a} * w0 + int64_t{b} * w1;
  if (body) {
    // Sum reduced modulo 2^16 to a signed value, rounded in single precision.
    int64_t s = ((exact % 65536) + 65536) % 65536;
    if (s >= 32768) s -= 65536;
    const float scaled = static_cast<float>(s) * scale;
    const float rounded = scaled + 0.5f;
    const int64_t t = TruncSaturate(rounded, INT32_MIN, INT32_MAX);
    int64_t low = ((t % 65536) + 65536) % 65536;
    if (low >= 32768) low -= 65536;
    return static_cast<uint8_t>(std::clamp<int64_t>(low, 0, 255));
  }
  // 32-bit sum (it wraps only at exactly 2^31), negatives to zero, product in
  // single precision, the half added in double precision.
  int64_t s = exact >= (int64_t{1} << 31) ? exact - (int64_t{1} << 32) : exact;
  if (s < 0) s = 0;
  const float scaled = static_cast<float>(s) * scale;
  int64_t t = TruncSaturate(static_cast<double>(scaled) + 0.5, INT32_MIN, INT32_MAX);
  if (t >= 255) t = 255;
  return static_cast<uint8_t>(((t % 256) + 256) % 256);
}

}  // namespace vorlith::oracle
