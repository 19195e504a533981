// Scalar pieces shared by the Lanczos and bicubic resamplers: the constant
// taps, the two rounding rules of the vertical pass, and the clamped tap sum
// that every output near a row border (and every output of a row too narrow
// for the vector body) is defined by.
#ifndef VORLITH_SRC_KERNELS_RESIZE_RESAMPLE_COMMON_H_
#define VORLITH_SRC_KERNELS_RESIZE_RESAMPLE_COMMON_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "src/kernels/arm_numerics.h"
#include "vorlith/kernel_context.h"

namespace vorlith::resample {

// Q11 taps in table order. The borders and the scalar tails use these
// constants; the vector bodies of the context-taking horizontal passes read
// the same values from the context.
inline constexpr int32_t kLanczos2x[8] = {-8, 64, -188, 579, 1830, -312, 114, -31};
inline constexpr int32_t kLanczos1p5xA[8] = {-4, 41, -122, 364, 1949, -242, 88, -25};
inline constexpr int32_t kLanczos1p5xB[8] = {-26, 122, -340, 1267, 1267, -340, 122, -26};
inline constexpr int32_t kLanczos4d3xA[8] = {-2, 30, -90, 263, 1992, -194, 70, -21};
inline constexpr int32_t kLanczos4d3xB[8] = {-17, 98, -277, 923, 1580, -357, 130, -32};
inline constexpr int32_t kCubic1p5xA[4] = {-36, 329, 1932, -178};
inline constexpr int32_t kCubic1p5xB[4] = {-192, 1216, 1216, -192};
inline constexpr int32_t kCubic2x[4] = {-72, 536, 1800, -216};

// A tap set and its mirror image, ready to index.
template <size_t kTaps>
struct TapPair {
  int32_t taps[kTaps];
  int32_t mirrored[kTaps];
};

template <size_t kTaps>
constexpr TapPair<kTaps> MakePair(const int32_t (&taps)[kTaps]) {
  TapPair<kTaps> p{};
  for (size_t k = 0; k < kTaps; ++k) {
    p.taps[k] = taps[k];
    p.mirrored[k] = taps[kTaps - 1 - k];
  }
  return p;
}

// The same taps as 16-bit arrays for the vertical passes.
template <size_t kTaps>
struct Taps16 {
  int16_t v[kTaps];
};

template <size_t kTaps>
constexpr Taps16<kTaps> To16(const int32_t (&taps)[kTaps], bool mirror) {
  Taps16<kTaps> t{};
  for (size_t k = 0; k < kTaps; ++k) {
    t.v[k] = static_cast<int16_t>(taps[mirror ? kTaps - 1 - k : k]);
  }
  return t;
}

// Lane 0 of each of `count` consecutive context tap fields.
inline void ReadContextTaps(const int32x4* fields, size_t count, int32_t* out) {
  for (size_t k = 0; k < count; ++k) std::memcpy(&out[k], &fields[k], sizeof(int32_t));
}

// Source index i clamped to 0 .. size-1 (edge replication).
inline ptrdiff_t Clamp(ptrdiff_t i, ptrdiff_t size) {
  return i < 0 ? 0 : (i >= size ? size - 1 : i);
}

// Sum of taps[k] * s[clamp(first + k) * step] over k. Exact: 8-bit samples
// times Q11 taps stay far inside int32.
inline int32_t ClampedSum(const uint8_t* s, ptrdiff_t step, ptrdiff_t size, ptrdiff_t first,
                          const int32_t* taps, size_t count) {
  int32_t acc = 0;
  for (size_t k = 0; k < count; ++k) {
    acc += taps[k] * s[Clamp(first + static_cast<ptrdiff_t>(k), size) * step];
  }
  return acc;
}

// Sum of taps[k] * s[k * step] over k, with nothing clamped.
inline int32_t PlainSum(const uint8_t* s, ptrdiff_t step, const int32_t* taps, size_t count) {
  int32_t acc = 0;
  for (size_t k = 0; k < count; ++k) acc += taps[k] * s[static_cast<ptrdiff_t>(k) * step];
  return acc;
}

// Vertical accumulator in wrapping 32-bit arithmetic, as the vector
// multiply-accumulate computes it for any row contents.
inline int32_t VerticalAcc(const int32_t* const* rows, const int16_t* taps, size_t count,
                           size_t x) {
  uint32_t acc = 0;
  for (size_t k = 0; k < count; ++k) {
    acc += static_cast<uint32_t>(rows[k][x]) * static_cast<uint32_t>(int32_t{taps[k]});
  }
  return static_cast<int32_t>(acc);
}

inline constexpr float kQ22InvF = 1.0f / 4194304.0f;
inline constexpr double kQ22Inv = 1.0 / 4194304.0;

// Blocks of 8: single precision, then saturated to a byte. The product lies
// within +-512, so neither the float-to-int conversion nor the 16-bit
// narrowing can saturate on the way.
inline uint8_t RoundBlock(int32_t acc) {
  const int32_t y = TruncToI32Sat(static_cast<float>(acc) * kQ22InvF + 0.5f);
  return static_cast<uint8_t>(y < 0 ? 0 : (y > 255 ? 255 : y));
}

// Remainder: negatives to zero, double precision, capped at 255. Differs
// from RoundBlock only where float(acc) rounds, above 2^24.
inline uint8_t RoundRemainder(int32_t acc) {
  if (acc < 0) acc = 0;
  const int32_t y = TruncToI32Sat(static_cast<double>(acc) * kQ22Inv + 0.5);
  return static_cast<uint8_t>(y > 255 ? 255 : y);
}

}  // namespace vorlith::resample

#endif  // VORLITH_SRC_KERNELS_RESIZE_RESAMPLE_COMMON_H_
