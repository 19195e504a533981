// Scalar conversions with the results of the Arm instructions the kernels'
// arithmetic is defined by. Plain C++ casts are undefined out of range; these
// are defined for every input and give the same value on every machine.
#ifndef VORLITH_SRC_KERNELS_ARM_NUMERICS_H_
#define VORLITH_SRC_KERNELS_ARM_NUMERICS_H_

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

}  // namespace vorlith

#endif  // VORLITH_SRC_KERNELS_ARM_NUMERICS_H_
