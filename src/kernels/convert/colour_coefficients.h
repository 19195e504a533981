// The colour coefficients of the conversion kernels, BT.601 limited range, in
// one place: InitLanczos1p5x splats them into the kernel context, and the
// scalar tails use them as immediates, so the two can never drift apart.
#ifndef VORLITH_SRC_KERNELS_CONVERT_COLOUR_COEFFICIENTS_H_
#define VORLITH_SRC_KERNELS_CONVERT_COLOUR_COEFFICIENTS_H_

#include <cstdint>

namespace vorlith::colour {

// RGB to YCbCr, Q16.
inline constexpr int32_t kYR = 16843, kYG = 33030, kYB = 6423, kYOffset = 16;
inline constexpr int32_t kUR = -9699, kUG = -19071, kUB = 28770, kUOffset = 128;
inline constexpr int32_t kVR = 28770, kVG = -24117, kVB = -4653, kVOffset = 128;

// YCbCr to RGB, Q16.
inline constexpr int32_t kYGain = 76284, kRV = 104595, kGU = -25625, kGV = -53281;
inline constexpr int32_t kBU = 132252, kYBias = 16, kUVBias = 128;

// Luma and colour differences from RGB, Q20. The differences' constant terms
// remove 1.164 * 16 levels of limited-range luma; the small addends 16 and 32
// are part of the published values.
inline constexpr int32_t kYR20 = 269484, kYG20 = 528482, kYB20 = 102760;
inline constexpr int32_t kYOffset20 = 16 << 20;
inline constexpr int32_t kDiffBase20 = -(kYGain * 256);
inline constexpr int32_t kDR[4] = {734678, -615858, -118820, kDiffBase20 + 16};
inline constexpr int32_t kDG[4] = {-313565, 433025, -119460, kDiffBase20 + 32};
inline constexpr int32_t kDB[4] = {-313172, -615764, 928936, kDiffBase20};

// YCbCr to RGB, Q20 with a rounding half, for the context-free converters.
inline constexpr int32_t kYGain20 = 1220542, kRV20 = 1673527, kGU20 = -409993;
inline constexpr int32_t kGV20 = -852492, kBU20 = 2116026, kHalf20 = 1 << 19;

}  // namespace vorlith::colour

#endif  // VORLITH_SRC_KERNELS_CONVERT_COLOUR_COEFFICIENTS_H_
