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

// x86 vector targets (not the portable emulation), for raw intrinsics.
#ifndef VORLITH_X86_VECTORS
#define VORLITH_X86_VECTORS (HWY_ARCH_X86 && HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128)
#endif

#if VORLITH_X86_VECTORS
// Saturating packs of two 16-bit vectors block by block: each 128-bit block
// holds 8 bytes of a, then 8 of b (no fix-up across blocks).
template <class D8, class V16>
HWY_INLINE hn::Vec<D8> PackBlocks(D8, V16 a, V16 b) {
  if constexpr (sizeof(a.raw) == 16) {
    return hn::Vec<D8>{_mm_packus_epi16(a.raw, b.raw)};
#if HWY_TARGET <= HWY_AVX2
  } else if constexpr (sizeof(a.raw) == 32) {
    return hn::Vec<D8>{_mm256_packus_epi16(a.raw, b.raw)};
#endif
#if HWY_TARGET <= HWY_AVX3
  } else {
    return hn::Vec<D8>{_mm512_packus_epi16(a.raw, b.raw)};
#endif
  }
}

#if HWY_TARGET <= HWY_AVX3
// The upper 16-bit halves of the 32-bit lanes of e and o side by side, e's
// first: lane i's halves become 16-bit lanes 2i and 2i+1 (one word permute).
HWY_INLINE __m512i UpperHalvesOfPairs(__m512i e, __m512i o) {
  const __m512i upper = _mm512_set_epi16(63, 31, 61, 29, 59, 27, 57, 25, 55, 23, 53, 21, 51, 19, 49, 17, 47, 15, 45,
                                         13, 43, 11, 41, 9, 39, 7, 37, 5, 35, 3, 33, 1);
  return _mm512_permutex2var_epi16(e, upper, o);
}
#endif

// Stores the 128-bit blocks of a and b alternately: a's block 0, b's block
// 0, a's block 1, ...
template <class D, class V = hn::Vec<D>>
HWY_INLINE void StoreBlocksAlternately(D d, V a, V b, hn::TFromD<D>* out) {
  if constexpr (hn::MaxLanes(d) * sizeof(hn::TFromD<D>) == 16) {
    hn::StoreU(a, d, out);
    hn::StoreU(b, d, out + hn::MaxLanes(d));
#if HWY_TARGET <= HWY_AVX3
  } else if constexpr (hn::MaxLanes(d) * sizeof(hn::TFromD<D>) == 64) {
    // Two 64-bit lane permutes of both, rather than four block extracts.
    const __m512i first = _mm512_set_epi64(11, 10, 3, 2, 9, 8, 1, 0), second = _mm512_set_epi64(15, 14, 7, 6, 13, 12, 5, 4);
    _mm512_storeu_si512(out, _mm512_permutex2var_epi64(a.raw, first, b.raw));
    _mm512_storeu_si512(out + hn::MaxLanes(d), _mm512_permutex2var_epi64(a.raw, second, b.raw));
#endif
  } else {
    const hn::Half<D> dh;
    StoreBlocksAlternately(dh, hn::LowerHalf(dh, a), hn::LowerHalf(dh, b), out);
    StoreBlocksAlternately(dh, hn::UpperHalf(dh, a), hn::UpperHalf(dh, b), out + 2 * hn::MaxLanes(dh));
  }
}
#endif

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#endif  // VORLITH_SRC_KERNELS_BYTE_LANES_INL_H_
