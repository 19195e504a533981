#include <algorithm>
#include <cmath>
#include <cstdint>

#include "tests/oracle/oracle.h"

namespace vorlith::oracle {

namespace {

// The documented tap tables, Q11, in the order they are applied.
constexpr int32_t kL2x[8] = {-8, 64, -188, 579, 1830, -312, 114, -31};
constexpr int32_t kL2xM[8] = {-31, 114, -312, 1830, 579, -188, 64, -8};
constexpr int32_t kL1p5A[8] = {-4, 41, -122, 364, 1949, -242, 88, -25};
constexpr int32_t kL1p5Am[8] = {-25, 88, -242, 1949, 364, -122, 41, -4};
constexpr int32_t kL1p5B[8] = {-26, 122, -340, 1267, 1267, -340, 122, -26};
constexpr int32_t kL4d3A[8] = {-2, 30, -90, 263, 1992, -194, 70, -21};
constexpr int32_t kL4d3B[8] = {-17, 98, -277, 923, 1580, -357, 130, -32};
constexpr int32_t kL4d3Bm[8] = {-32, 130, -357, 1580, 923, -277, 98, -17};
constexpr int32_t kL4d3Am[8] = {-21, 70, -194, 1992, 263, -90, 30, -2};
constexpr int32_t kC1p5A[4] = {-36, 329, 1932, -178};
constexpr int32_t kC1p5Am[4] = {-178, 1932, 329, -36};
constexpr int32_t kC1p5B[4] = {-192, 1216, 1216, -192};
constexpr int32_t kC2x[4] = {-72, 536, 1800, -216};
constexpr int32_t kC2xM[4] = {-216, 1800, 536, -72};

}  // namespace

ResamplePhase PhaseOf(Resampler r, int j) {
  switch (r) {
    case Resampler::kLanczos2x: {
      const int m = j / 2;
      return j % 2 ? ResamplePhase{m - 3, 8, kL2xM} : ResamplePhase{m - 4, 8, kL2x};
    }
    case Resampler::kLanczos1p5x: {
      const int k = j / 3;
      if (j % 3 == 0) return {2 * k - 4, 8, kL1p5A};
      if (j % 3 == 1) return {2 * k - 3, 8, kL1p5B};
      return {2 * k - 2, 8, kL1p5Am};
    }
    case Resampler::kLanczos4d3x: {
      const int k = j / 4;
      if (j % 4 == 0) return {3 * k - 4, 8, kL4d3A};
      if (j % 4 == 1) return {3 * k - 3, 8, kL4d3B};
      if (j % 4 == 2) return {3 * k - 2, 8, kL4d3Bm};
      return {3 * k - 1, 8, kL4d3Am};
    }
    case Resampler::kCubic1p5x: {
      const int k = j / 3;
      if (j % 3 == 0) return {2 * k - 2, 4, kC1p5A};
      if (j % 3 == 1) return {2 * k - 1, 4, kC1p5B};
      return {2 * k, 4, kC1p5Am};
    }
    case Resampler::kCubic2x: {
      const int m = j / 2;
      return j % 2 ? ResamplePhase{m - 1, 4, kC2xM} : ResamplePhase{m - 2, 4, kC2x};
    }
  }
  return {0, 0, nullptr};
}

int64_t ResampleH(Resampler r, const uint8_t* row, int step, int size, int j) {
  const ResamplePhase p = PhaseOf(r, j);
  int64_t sum = 0;
  for (int k = 0; k < p.count; ++k) {
    sum += int64_t{p.taps[k]} * row[std::clamp(p.first + k, 0, size - 1) * step];
  }
  return sum;
}

int64_t ResampleAcc(Resampler r, const uint8_t* plane, int stride, int step, int height,
                    int width, int y, int xh) {
  const ResamplePhase p = PhaseOf(r, y);
  int64_t acc = 0;
  for (int k = 0; k < p.count; ++k) {
    const int row = std::clamp(p.first + k, 0, height - 1);
    acc += p.taps[k] * ResampleH(r, plane + int64_t{row} * stride, step, width, xh);
  }
  return acc;
}

uint8_t ResampleRound(int32_t acc, bool block) {
  if (block) {
    const float scaled = static_cast<float>(acc) * (1.0f / 4194304.0f);
    const int64_t y = TruncSaturate(scaled + 0.5f, INT32_MIN, INT32_MAX);
    return static_cast<uint8_t>(std::clamp<int64_t>(y, 0, 255));
  }
  const double a = acc < 0 ? 0.0 : static_cast<double>(acc);
  return static_cast<uint8_t>(std::min<int64_t>(TruncSaturate(a / 4194304.0 + 0.5, 0, 255), 255));
}

}  // namespace vorlith::oracle
