#include <algorithm>
#include <bit>

#include "tests/oracle/oracle.h"

namespace vorlith::oracle {

LinearTaps LinearTapsOf(int num, int den, int size, int k) {
  // Position (k + 1/2) den/num - 1/2 in units of 1/(2 num), split into a
  // source index and the weight of the next sample.
  const int unit = 2 * num, pos = (2 * k + 1) * den - num;
  const int i0 = pos >= 0 ? pos / unit : -((unit - 1 - pos) / unit);
  const int total = num == 3 && den == 1 ? 3 : unit, w1 = (pos - i0 * unit) * total / unit;
  return {std::clamp(i0, 0, size - 1), std::clamp(i0 + 1, 0, size - 1), total - w1, w1};
}

int LinearH(int num, int den, const uint8_t* row, int width, int j) {
  const int used = width - width % den;
  const LinearTaps t = LinearTapsOf(num, den, used, std::min(j, num * used / den - 1));
  return t.w0 * row[t.i0] + t.w1 * row[t.i1];
}

uint8_t LinearRound(int64_t s, float f, bool body) {
  if (body) {
    const auto s16 = static_cast<int16_t>(static_cast<uint16_t>(s));
    const int64_t t = TruncSaturate(static_cast<float>(s16) * f + 0.5f, INT32_MIN, INT32_MAX);
    return static_cast<uint8_t>(std::clamp<int>(static_cast<int16_t>(t & 0xFFFF), 0, 255));
  }
  const float scaled = static_cast<float>(std::max<int64_t>(s, 0)) * f;
  return static_cast<uint8_t>(
      std::min<int64_t>(TruncSaturate(double{scaled} + 0.5, INT32_MIN, INT32_MAX), 255));
}

uint8_t LinearSample(int num, int den, const uint8_t* src, int height, int width, int y, int x) {
  const LinearTaps t = LinearTapsOf(num, den, height - height % den, y);
  const int a = LinearH(num, den, src + t.i0 * width, width, x);
  const int b = LinearH(num, den, src + t.i1 * width, width, x);
  const bool body = x < num * width / den / 8 * 8;
  const float f = 1.0f / static_cast<float>((t.w0 + t.w1) * (t.w0 + t.w1));
  // 3x rows on one source row (or clamped onto one) are that row over 3.
  if (num == 3 && den == 1 && (t.w1 == 0 || t.i0 == t.i1)) {
    return LinearRound(a, std::bit_cast<float>(0x3EAAAAABu), body);
  }
  return LinearRound(int64_t{t.w0} * a + int64_t{t.w1} * b, f, body);
}

namespace {
// Weight w of a total of 3 or 8 as the float the kernels use.
float FloatWeight(int r, int w) {
  if (r == 4) return static_cast<float>(w) / 8.0f;
  return w == 1 ? std::bit_cast<float>(0x3EAAAAABu) : std::bit_cast<float>(0x3F2AAAABu);
}
float Blend(int r, const LinearTaps& t, float a, float b) {
  const float p = FloatWeight(r, t.w0) * a, q = FloatWeight(r, t.w1) * b;
  return p + q;
}
}  // namespace

float LinearFloatH(int r, const float* row, int width, int j) {
  const LinearTaps t = LinearTapsOf(r, 1, width, j);
  return t.w1 == 0 || t.i0 == t.i1 ? row[t.i0] : Blend(r, t, row[t.i0], row[t.i1]);
}

float LinearFloatSample(int r, const float* src, int height, int width, int y, int x) {
  const LinearTaps t = LinearTapsOf(r, 1, height, y);
  const float a = LinearFloatH(r, src + t.i0 * width, width, x);
  // 3x rows on a source row are copies; 4x blends even the clamped edges.
  if (r == 3 && (t.w1 == 0 || t.i0 == t.i1)) return a;
  return Blend(r, t, a, LinearFloatH(r, src + t.i1 * width, width, x));
}

uint8_t NhwcByte(float v) {
  const auto low = static_cast<int16_t>(TruncSaturate(v, INT32_MIN, INT32_MAX) & 0xFFFF);
  return static_cast<uint8_t>(std::clamp<int>(low, 0, 255));
}

}  // namespace vorlith::oracle
