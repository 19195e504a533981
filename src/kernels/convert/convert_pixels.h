// One pixel of each colour conversion, as the scalar tails compute it: the
// coefficients are immediates from colour_coefficients.h. The targets
// without vectors (HWY_SCALAR) use them for their whole rows where the
// vector step has the same result.
#ifndef VORLITH_SRC_KERNELS_CONVERT_CONVERT_PIXELS_H_
#define VORLITH_SRC_KERNELS_CONVERT_CONVERT_PIXELS_H_

#include <cstdint>

#include "src/kernels/arm_numerics.h"
#include "src/kernels/convert/colour_coefficients.h"

namespace vorlith::convert {

inline uint8_t ClampByte(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }

// RGB to limited-range Y, Cb, Cr in Q16, truncating; always inside 16..240.
inline uint8_t LumaQ16(int r, int g, int b) {
  using namespace colour;
  return static_cast<uint8_t>((kYR * r + kYG * g + kYB * b + (kYOffset << 16)) >> 16);
}
inline uint8_t CbQ16(int r, int g, int b) {
  using namespace colour;
  return static_cast<uint8_t>((kUR * r + kUG * g + kUB * b + (kUOffset << 16)) >> 16);
}
inline uint8_t CrQ16(int r, int g, int b) {
  using namespace colour;
  return static_cast<uint8_t>((kVR * r + kVG * g + kVB * b + (kVOffset << 16)) >> 16);
}

// Y, Cb, Cr to R, G, B in Q16: floor shifts, then clamped.
inline void RgbQ16(int y, int u, int v, uint8_t* rgb) {
  using namespace colour;
  const int32_t k = kYGain * y - kYGain * kYBias, d = u - kUVBias, e = v - kUVBias;
  rgb[0] = ClampByte((k + kRV * e) >> 16);
  rgb[1] = ClampByte((k + kGU * d + kGV * e) >> 16);
  rgb[2] = ClampByte((k + kBU * d) >> 16);
}

// Luma-ratio split, Q20: luma shifted to whole levels, a difference unshifted.
inline int32_t LumaQ20(int r, int g, int b) {
  using namespace colour;
  return (kYR20 * r + kYG20 * g + kYB20 * b + kYOffset20) >> 20;
}
inline int32_t DiffQ20(const int32_t (&c)[4], int r, int g, int b) {
  return c[0] * r + c[1] * g + c[2] * b + c[3];
}

// Luma-ratio merge. The vector columns add in 32-bit integers (wrapping),
// the tail in single precision; both then take whole levels of 2^20.
inline uint8_t MergeBody(float luma, int32_t diff) {
  const uint32_t sum = static_cast<uint32_t>(TruncToI32Sat(luma)) + static_cast<uint32_t>(diff);
  return ClampByte(static_cast<int32_t>(sum) >> 20);
}
inline uint8_t MergeTail(float luma, int32_t diff) {
  const int32_t t = TruncToI32Sat(luma + static_cast<float>(diff));
  return t < 0 ? 0 : t >= (1 << 28) ? 255 : static_cast<uint8_t>(t >> 20);
}

// Y, Cb, Cr to R, G, B in Q20 with rounding; Y below 16 counts as 16.
inline void RgbQ20(int y, int u, int v, uint8_t* rgb) {
  using namespace colour;
  const int32_t k = kYGain20 * ((y < 16 ? 16 : y) - 16) + kHalf20, d = u - 128, e = v - 128;
  rgb[0] = ClampByte((k + kRV20 * e) >> 20);
  rgb[1] = ClampByte((k + kGU20 * d + kGV20 * e) >> 20);
  rgb[2] = ClampByte((k + kBU20 * d) >> 20);
}

}  // namespace vorlith::convert

#endif  // VORLITH_SRC_KERNELS_CONVERT_CONVERT_PIXELS_H_
