// Scalar pieces shared by the filters' row kernels (their scalar columns) and
// their exported one-step helpers, so both use one definition.
#ifndef VORLITH_SRC_KERNELS_FILTER_FILTER_COMMON_H_
#define VORLITH_SRC_KERNELS_FILTER_FILTER_COMMON_H_

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "src/kernels/arm_numerics.h"
#include "vorlith/filter.h"

namespace vorlith::filter {

// The single-precision 1/9 the box means are formed with.
inline constexpr float kNinth = 0.11111111f;

// The scalar columns' float to byte rule: no rounding, NaN and negatives to 0.
inline uint8_t Truncate(float v) {
  if (!(v > 0.0f)) return 0;
  return v >= 255.0f ? 255 : static_cast<uint8_t>(v);
}

// The vector columns' rule: +0.5, FCVTZS, low 16 bits as signed, SQXTUN.
inline uint8_t Round(float v) {
  const int16_t low = static_cast<int16_t>(TruncToI32Sat(v + 0.5f));
  return static_cast<uint8_t>(std::clamp<int>(low, 0, 255));
}

// Index of the power table; the product and the half in double are exact.
inline int ExpIndex(float x) {
  const double t = static_cast<double>(std::min(x, 1.0f)) * 1000.0 + 0.5;
  return t > 0.0 ? static_cast<int>(t) : 0;
}

// Guided box filter, one scalar column: box sums s (source) and g (guide).
inline uint8_t GuidedTail(float a, float b, int p, int s, int g) {
  const float pf = static_cast<float>(p);
  const float d =
      static_cast<float>(static_cast<double>(a * pf) - static_cast<double>(a * static_cast<float>(s)) / 9.0);
  const float w = std::fabs(1.0f - b * static_cast<float>(std::fabs(g / 9.0)));
  return Truncate(static_cast<float>(static_cast<double>(pf + d) -
                                     static_cast<double>(d) * std::pow(static_cast<double>(w), 0.6)));
}

}  // namespace vorlith::filter

namespace vorlith {
// The reciprocal estimate the bilateral filter's vector columns use, on the
// dispatched target, for n floats (tests prove it against the definition).
void RecipEstimates(const float* in, float* out, size_t n);
}  // namespace vorlith

#endif  // VORLITH_SRC_KERNELS_FILTER_FILTER_COMMON_H_
