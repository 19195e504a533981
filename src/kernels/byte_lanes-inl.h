// Interleaved loads and stores of wide lanes at byte addresses. Highway's
// portable targets move interleaved lanes one element at a time through a T*,
// which must then be aligned for T; pixels of a caller's byte buffer need
// not be, so those targets go through an aligned copy. The vector targets
// take any address.
#if defined(VORLITH_SRC_KERNELS_BYTE_LANES_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef VORLITH_SRC_KERNELS_BYTE_LANES_INL_H_
#undef VORLITH_SRC_KERNELS_BYTE_LANES_INL_H_
#else
#define VORLITH_SRC_KERNELS_BYTE_LANES_INL_H_
#endif

#include <hwy/highway.h>

#include <cstring>

HWY_BEFORE_NAMESPACE();
namespace vorlith {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_EMU128 || HWY_TARGET == HWY_SCALAR
inline constexpr bool kElementwiseInterleave = true;
#else
inline constexpr bool kElementwiseInterleave = false;
#endif

template <class D, class V = hn::Vec<D>>
HWY_INLINE void StoreInterleaved2Bytes(V v0, V v1, D d, void* HWY_RESTRICT dst) {
  using T = hn::TFromD<D>;
  if constexpr (kElementwiseInterleave) {
    alignas(16) T buf[2 * hn::MaxLanes(d)];
    hn::StoreInterleaved2(v0, v1, d, buf);
    std::memcpy(dst, buf, 2 * hn::Lanes(d) * sizeof(T));
  } else {
    hn::StoreInterleaved2(v0, v1, d, static_cast<T*>(dst));
  }
}

template <class D, class V = hn::Vec<D>>
HWY_INLINE void LoadInterleaved2Bytes(D d, const void* HWY_RESTRICT src, V& v0, V& v1) {
  using T = hn::TFromD<D>;
  if constexpr (kElementwiseInterleave) {
    alignas(16) T buf[2 * hn::MaxLanes(d)];
    std::memcpy(buf, src, 2 * hn::Lanes(d) * sizeof(T));
    hn::LoadInterleaved2(d, buf, v0, v1);
  } else {
    hn::LoadInterleaved2(d, static_cast<const T*>(src), v0, v1);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#endif  // VORLITH_SRC_KERNELS_BYTE_LANES_INL_H_
