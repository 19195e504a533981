// Scalar conversions with the results of the Arm instructions the kernels'
// arithmetic is defined by. Plain C++ casts are undefined out of range; these
// are defined for every input and give the same value on every machine.
#ifndef VORLITH_SRC_KERNELS_ARM_NUMERICS_H_
#define VORLITH_SRC_KERNELS_ARM_NUMERICS_H_

#include <bit>
#include <cstdint>
#include <limits>

namespace vorlith {

// FCVTZS: truncate toward zero, saturate to int32, NaN gives 0.
inline int32_t TruncToI32Sat(float x) {
  if (!(x == x)) return 0;
  if (x >= 2147483648.0f) return std::numeric_limits<int32_t>::max();
  if (x < -2147483648.0f) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(x);
}

inline int32_t TruncToI32Sat(double x) {
  if (!(x == x)) return 0;
  if (x >= 2147483648.0) return std::numeric_limits<int32_t>::max();
  if (x <= -2147483649.0) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(x);
}


// FRECPE, single precision, as the Arm architecture defines FPRecipEstimate
// under the FPCR Linux runs with (round to nearest, no flush to zero, NaNs
// propagated): the reciprocal's 8 fraction bits come from the integer
// RecipEstimate of the operand's 1 + 8 top significand bits. Every input
// is defined, subnormals, infinities and NaNs included; qemu and hardware
// give the same bits.
inline uint32_t RecipEstimateInt(uint32_t a) {  // 256 <= a < 512
  a = a * 2 + 1;
  const uint32_t b = (1u << 19) / a;
  return (b + 1) / 2;
}

inline float RecipEstimate(float x) {
  const uint32_t bits = std::bit_cast<uint32_t>(x);
  const uint32_t sign = bits & 0x80000000u, magnitude = bits & 0x7FFFFFFFu;
  constexpr uint64_t kFraction52 = (uint64_t{1} << 52) - 1;
  int exp = static_cast<int>(magnitude >> 23);
  uint64_t fraction = uint64_t{bits & 0x7FFFFFu} << 29;
  if (exp == 0xFF) {
    return std::bit_cast<float>(fraction ? bits | 0x00400000u : sign);  // NaN quietened; 1/inf = 0
  }
  // Zero, and magnitudes below 2^-128, whose reciprocal overflows to infinity.
  if (magnitude < 0x00200000u) return std::bit_cast<float>(sign | 0x7F800000u);
  if (exp == 0) {  // subnormal: normalise the fraction by one or two places
    if (((fraction >> 51) & 1) == 0) {
      exp = -1;
      fraction = (fraction << 2) & kFraction52;
    } else {
      fraction = (fraction << 1) & kFraction52;
    }
  }
  int result_exp = 253 - exp;
  const uint32_t estimate = RecipEstimateInt(256 | static_cast<uint32_t>(fraction >> 44));
  fraction = uint64_t{estimate & 0xFFu} << 44;
  if (result_exp == 0) {
    fraction = (uint64_t{1} << 51) | (fraction >> 1);
  } else if (result_exp == -1) {
    fraction = (uint64_t{1} << 50) | (fraction >> 2);
    result_exp = 0;
  }
  return std::bit_cast<float>(sign | static_cast<uint32_t>(result_exp) << 23 |
                              static_cast<uint32_t>(fraction >> 29));
}

}  // namespace vorlith

#endif  // VORLITH_SRC_KERNELS_ARM_NUMERICS_H_
