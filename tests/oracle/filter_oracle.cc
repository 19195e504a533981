#include <algorithm>
#include <cmath>

#include "src/kernels/arm_numerics.h"
#include "tests/oracle/oracle.h"

namespace vorlith::oracle {

namespace {

template <class T>
int Sum3x3(const T* plane, int height, int width, int y, int x) {
  int sum = 0;
  for (int dy = -1; dy <= 1; ++dy) {
    for (int dx = -1; dx <= 1; ++dx) {
      sum += plane[std::clamp(y + dy, 0, height - 1) * width + std::clamp(x + dx, 0, width - 1)];
    }
  }
  return sum;
}

}  // namespace

int BoxSum(const uint8_t* plane, int height, int width, int y, int x) {
  return Sum3x3(plane, height, width, y, x);
}

int16_t BoxSum(const int16_t* plane, int height, int width, int y, int x) {
  return static_cast<int16_t>(Sum3x3(plane, height, width, y, x));
}

float PowerEntry(int i) { return static_cast<float>(-std::pow(i / 1000.0, 0.6)); }

float RangeWeight(int d) { return d < 106 ? static_cast<float>(std::exp(-d * d / 800.0)) : 0.0f; }

uint8_t FilterByte(float v, bool vector) {
  if (vector) {
    const int64_t low = TruncSaturate(v + 0.5f, INT32_MIN, INT32_MAX) & 0xFFFF;
    return low >= 32768 ? 0 : static_cast<uint8_t>(std::min<int64_t>(low, 255));
  }
  return std::isnan(v) ? 0 : static_cast<uint8_t>(TruncSaturate(v, 0, 255));
}

uint8_t GuidedPixel(float a, float b, int p, int s, int16_t g, bool vector) {
  const float pf = static_cast<float>(p), sf = static_cast<float>(s), gf = static_cast<float>(g);
  if (vector) {
    const float d = (a / -9.0f) * sf + a * pf;
    const float w = std::min(std::fabs(1.0f - b * std::fabs(gf * 0.11111111f)), 1.0f);
    const float e = PowerEntry(static_cast<int>(std::floor(w * 1000.0 + 0.5)));
    return FilterByte((pf + d) + d * e, true);
  }
  const float d = static_cast<float>(double{a * pf} - double{a * sf} / 9.0);
  const float w = std::fabs(1.0f - b * static_cast<float>(std::fabs(g / 9.0)));
  return FilterByte(static_cast<float>(double{pf + d} - d * std::pow(double{w}, 0.6)), false);
}

int16_t LaplacePixel(const uint8_t* plane, int height, int width, int y, int x) {
  auto at = [&](int yy, int xx) {
    return int{plane[std::clamp(yy, 0, height - 1) * width + std::clamp(xx, 0, width - 1)]};
  };
  return static_cast<int16_t>(at(y, x - 1) + at(y, x + 1) + at(y - 1, x) + at(y + 1, x) - 4 * at(y, x));
}

uint8_t BilateralPixel(const uint8_t* plane, int height, int width, int y, int x, bool vector) {
  const int q = plane[y * width + x];
  // Summing order: centre, up-left, up, up-right, left, right, down-left, down, down-right.
  const int offsets[8][2] = {{-1, -1}, {-1, 0}, {-1, 1}, {0, -1}, {0, 1}, {1, -1}, {1, 0}, {1, 1}};
  double wsum_d = 1.0;
  float wsum_f = 1.0f, num = static_cast<float>(q);
  for (const auto& o : offsets) {
    const int n = plane[std::clamp(y + o[0], 0, height - 1) * width + std::clamp(x + o[1], 0, width - 1)];
    const float w = RangeWeight(std::abs(n - q));
    wsum_d += w;
    wsum_f += w;
    num += w * static_cast<float>(n);
  }
  if (vector) return FilterByte(num * RecipEstimate(wsum_f), true);
  return FilterByte(num / static_cast<float>(wsum_d), false);
}

float DetailPixel(int p, int s) { return static_cast<float>(p) - static_cast<float>(s) * 0.11111111f; }

uint8_t SharpenPixel(float detail, float gain, int p, bool vector) {
  return FilterByte(detail * gain + static_cast<float>(p), vector);
}

}  // namespace vorlith::oracle
