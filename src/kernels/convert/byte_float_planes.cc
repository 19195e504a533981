// Strided conversions between byte planes and float planes.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/convert/byte_float_planes.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

#include "src/kernels/arm_numerics-inl.h"
#include "src/kernels/arm_numerics.h"
#include "vorlith/convert.h"

HWY_BEFORE_NAMESPACE();
namespace vorlith {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void U8ToF32Plane(const uint8_t* src, float* dst, int height, int width, int src_stride,
                  int dst_stride) {
  if (height < 1 || width < 1) return;
  const hn::ScalableTag<int32_t> d32;
  const hn::Rebind<uint8_t, decltype(d32)> d8;
  const hn::Rebind<float, decltype(d32)> df;
  const size_t n = hn::Lanes(d32);
  const size_t w = static_cast<size_t>(width);
  for (int y = 0; y < height; ++y) {
    size_t x = 0;
    for (; x + n <= w; x += n) {
      hn::StoreU(hn::ConvertTo(df, hn::PromoteTo(d32, hn::LoadU(d8, src + x))), df, dst + x);
    }
    for (; x < w; ++x) dst[x] = static_cast<float>(src[x]);
    src += src_stride;
    dst += dst_stride;
  }
}

// The body's rule: truncate to uint32 (saturating, NaN and negatives to 0),
// low 16 bits read as signed, clamped to 0..255.
template <class D32>
HWY_INLINE size_t F32ToU8Body(D32 d32, const float* src, uint8_t* dst, size_t x, size_t body) {
  const hn::Rebind<float, D32> df;
  const hn::Rebind<uint8_t, D32> d8;
  const size_t n = hn::Lanes(d32);
  const auto two31 = hn::Set(df, 2147483648.0f);
  const auto two32 = hn::Set(df, 4294967296.0f);
  for (; x + n <= body; x += n) {
    const auto v = hn::LoadU(df, src + x);
    // Inputs outside [0, 2^32) (NaN included) all end up as 0: their uint32
    // is 0 or 0xFFFFFFFF, whose low 16 bits read as -1.
    const auto in_range = hn::And(hn::Ge(v, hn::Zero(df)), hn::Lt(v, two32));
    // Above 2^31 floats are multiples of 256, so subtracting 2^31 is exact and
    // leaves the low 16 bits of the integer unchanged.
    auto low = hn::IfThenElse(hn::Ge(v, two31), hn::Sub(v, two31), v);
    low = hn::IfThenElseZero(in_range, low);
    const auto bits = hn::ConvertTo(d32, low);
    hn::StoreU(hn::DemoteTo(d8, Low16SignedToU8Range(d32, bits)), d8, dst + x);
  }
  return x;
}

void F32ToU8Plane(const float* src, uint8_t* dst, int height, int width, int src_stride,
                  int dst_stride) {
  if (height < 1 || width < 1) return;
  const size_t w = static_cast<size_t>(width);
  const size_t body = w / 8 * 8;
  for (int y = 0; y < height; ++y) {
    size_t x = F32ToU8Body(hn::ScalableTag<int32_t>(), src, dst, 0, body);
    x = F32ToU8Body(hn::CappedTag<int32_t, 8>(), src, dst, x, body);
    // The tail wraps instead of saturating: int32, then its low byte.
    for (; x < w; ++x) dst[x] = static_cast<uint8_t>(::vorlith::TruncToI32Sat(src[x]));
    src += src_stride;
    dst += dst_stride;
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith {
HWY_EXPORT(U8ToF32Plane);
HWY_EXPORT(F32ToU8Plane);
}  // namespace vorlith

void CvtU8ToF32_STRIDE(unsigned char* src, float* dst, int H, int W, int srcStride,
                       int dstStride) {
  HWY_DYNAMIC_DISPATCH(vorlith::U8ToF32Plane)(src, dst, H, W, srcStride, dstStride);
}

void CvtF32ToU8_STRIDE(float* src, unsigned char* dst, int H, int W, int srcStride,
                       int dstStride) {
  HWY_DYNAMIC_DISPATCH(vorlith::F32ToU8Plane)(src, dst, H, W, srcStride, dstStride);
}
#endif  // HWY_ONCE
