// Lane 0 of a context vector, whichever form lanes.h gives the lane types
// (Arm registers or plain structs): every lane holds the same value.
#ifndef VORLITH_SRC_KERNELS_CONVERT_LANE0_H_
#define VORLITH_SRC_KERNELS_CONVERT_LANE0_H_

#include <cstdint>
#include <cstring>

#include "vorlith/lanes.h"

namespace vorlith {

template <class Lane, class Vec>
inline int32_t Lane0As(const Vec& v) {
  Lane lane;
  std::memcpy(&lane, &v, sizeof(lane));
  return lane;
}
inline int32_t Lane0(const int32x4& v) { return Lane0As<int32_t>(v); }
inline int32_t Lane0(const int16x8& v) { return Lane0As<int16_t>(v); }
inline int32_t Lane0(const uint8x16& v) { return Lane0As<uint8_t>(v); }

}  // namespace vorlith

#endif  // VORLITH_SRC_KERNELS_CONVERT_LANE0_H_
