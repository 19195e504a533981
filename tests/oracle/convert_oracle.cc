#include <algorithm>
#include <cstdint>

#include "tests/oracle/oracle.h"

namespace vorlith::oracle {

namespace {

// Floor division of exact 64-bit sums: no shifts, no wrapping.
int64_t FloorDiv(int64_t a, int64_t b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }
uint8_t Clamp(int64_t v) { return static_cast<uint8_t>(std::clamp<int64_t>(v, 0, 255)); }

int64_t Dot(const int64_t (&c)[3], int r, int g, int b) { return c[0] * r + c[1] * g + c[2] * b; }

constexpr int64_t kY[3] = {16843, 33030, 6423}, kU[3] = {-9699, -19071, 28770},
                  kV[3] = {28770, -24117, -4653};
constexpr int64_t kY20[3] = {269484, 528482, 102760};
constexpr int64_t kDiff[3][3] = {
    {734678, -615858, -118820}, {-313565, 433025, -119460}, {-313172, -615764, 928936}};
// -(76284 * 256) plus the published addends.
constexpr int64_t kDiffOffset[3] = {-19528688, -19528672, -19528704};

}  // namespace

uint8_t Luma601(int r, int g, int b) { return Clamp(FloorDiv(Dot(kY, r, g, b), 65536) + 16); }
int ChromaSum601(bool v, int r, int g, int b) {
  return static_cast<int>(FloorDiv(Dot(v ? kV : kU, r, g, b), 65536));
}
uint8_t Cb601(int r, int g, int b) { return Clamp(ChromaSum601(false, r, g, b) + 128); }
uint8_t Cr601(int r, int g, int b) { return Clamp(ChromaSum601(true, r, g, b) + 128); }

void Rgb601Q16(int y, int u, int v, uint8_t* rgb) {
  const int64_t k = 76284LL * (y - 16), d = u - 128, e = v - 128;
  rgb[0] = Clamp(FloorDiv(k + 104595 * e, 65536));
  rgb[1] = Clamp(FloorDiv(k - 25625 * d - 53281 * e, 65536));
  rgb[2] = Clamp(FloorDiv(k + 132252 * d, 65536));
}

void Rgb601Q20(int y, int u, int v, uint8_t* rgb) {
  const int64_t k = 1220542LL * (std::max(y, 16) - 16) + 524288, d = u - 128, e = v - 128;
  rgb[0] = Clamp(FloorDiv(k + 1673527 * e, 1 << 20));
  rgb[1] = Clamp(FloorDiv(k - 409993 * d - 852492 * e, 1 << 20));
  rgb[2] = Clamp(FloorDiv(k + 2116026 * d, 1 << 20));
}

int SplitLuma(int r, int g, int b) {
  return static_cast<int>(FloorDiv(Dot(kY20, r, g, b) + 16 * (1 << 20), 1 << 20));
}
int32_t SplitDiff(int c, int r, int g, int b) {
  return static_cast<int32_t>(Dot(kDiff[c], r, g, b) + kDiffOffset[c]);
}

uint8_t MergeChannel(float luma, int32_t diff, bool body) {
  if (body) {
    // 32-bit integer add, wrapping.
    const int64_t l = TruncSaturate(luma, INT32_MIN, INT32_MAX);
    const int64_t sum = static_cast<int32_t>(static_cast<uint32_t>(l + diff));
    return Clamp(FloorDiv(sum, 1 << 20));
  }
  const float sum = luma + static_cast<float>(diff);  // single precision on purpose
  const int64_t t = TruncSaturate(sum, INT32_MIN, INT32_MAX);
  if (t < 0) return 0;
  return t >= (1 << 28) ? 255 : static_cast<uint8_t>(t / (1 << 20));
}

}  // namespace vorlith::oracle
