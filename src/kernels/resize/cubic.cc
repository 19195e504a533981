// Bicubic (cubic convolution, a = -0.75, 4 taps) 1.5x and 2x on one plane,
// with a ring of 4 intermediate rows.
//
// 1.5x, k = j / 3: j = 3k takes A over source 2k-2 .. 2k+1, 3k+1 B over
// 2k-1 .. 2k+2, 3k+2 A mirrored over 2k .. 2k+3 (A sums to 2047, kept).
// 2x, m = j / 2: j = 2m takes K over m-2 .. m+1, 2m+1 K mirrored over
// m-1 .. m+2. Indices are clamped to the plane in both directions.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/resize/cubic.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "src/kernels/resize/resample-inl.h"
#include "src/kernels/resize/resample_common.h"
#include "vorlith/resize.h"

HWY_BEFORE_NAMESPACE();
namespace vorlith {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

namespace r = ::vorlith::resample;

constexpr r::TapPair<4> kA = r::MakePair(r::kCubic1p5xA);
constexpr r::TapPair<4> kK = r::MakePair(r::kCubic2x);
constexpr r::Taps16<4> kVertA = r::To16(r::kCubic1p5xA, false);
constexpr r::Taps16<4> kVertAm = r::To16(r::kCubic1p5xA, true);
constexpr r::Taps16<4> kVertB = r::To16(r::kCubic1p5xB, false);
constexpr r::Taps16<4> kVertK = r::To16(r::kCubic2x, false);
constexpr r::Taps16<4> kVertKm = r::To16(r::kCubic2x, true);

// ---- 1.5x -------------------------------------------------------------------

inline int32_t OutputCubic1p5x(const uint8_t* s, ptrdiff_t size, ptrdiff_t j) {
  const ptrdiff_t k = j / 3;
  switch (j % 3) {
    case 0:
      return r::ClampedSum(s, 1, size, 2 * k - 2, kA.taps, 4);
    case 1:
      return r::ClampedSum(s, 1, size, 2 * k - 1, r::kCubic1p5xB, 4);
    default:
      return r::ClampedSum(s, 1, size, 2 * k, kA.mirrored, 4);
  }
}

// Groups [g, end): outputs 3g+2 (A mirrored) and 3g+3 (A) over s[2g .. 2g+3],
// 3g+4 (B) over s[2g+1 .. 2g+4]. The last load ends at s[2*end + 3].
template <class D>
HWY_INLINE size_t GroupsCubic1p5xVec(D d, const int32_t* a, const int32_t* b, const uint8_t* s,
                                     int32_t* out, size_t g, size_t end) {
  const hn::Rebind<uint16_t, D> d16;
  const hn::Repartition<uint8_t, decltype(d16)> d8;
  const size_t n = hn::Lanes(d);
  const auto low = hn::Set(d16, 0xFF);
  for (; g + n <= end; g += n) {
    const auto p0 = hn::BitCast(d16, hn::LoadU(d8, s + 2 * g));
    const auto p1 = hn::BitCast(d16, hn::LoadU(d8, s + 2 * g + 2));
    const auto p2 = hn::BitCast(d16, hn::LoadU(d8, s + 2 * g + 4));
    const auto e0 = hn::PromoteTo(d, hn::And(p0, low));
    const auto o0 = hn::PromoteTo(d, hn::ShiftRight<8>(p0));
    const auto e1 = hn::PromoteTo(d, hn::And(p1, low));
    const auto o1 = hn::PromoteTo(d, hn::ShiftRight<8>(p1));
    const auto e2 = hn::PromoteTo(d, hn::And(p2, low));
    auto am = hn::Mul(e0, hn::Set(d, a[3]));
    am = hn::Add(am, hn::Mul(o0, hn::Set(d, a[2])));
    am = hn::Add(am, hn::Mul(e1, hn::Set(d, a[1])));
    am = hn::Add(am, hn::Mul(o1, hn::Set(d, a[0])));
    auto aa = hn::Mul(e0, hn::Set(d, a[0]));
    aa = hn::Add(aa, hn::Mul(o0, hn::Set(d, a[1])));
    aa = hn::Add(aa, hn::Mul(e1, hn::Set(d, a[2])));
    aa = hn::Add(aa, hn::Mul(o1, hn::Set(d, a[3])));
    auto bb = hn::Mul(o0, hn::Set(d, b[0]));
    bb = hn::Add(bb, hn::Mul(e1, hn::Set(d, b[1])));
    bb = hn::Add(bb, hn::Mul(o1, hn::Set(d, b[2])));
    bb = hn::Add(bb, hn::Mul(e2, hn::Set(d, b[3])));
    hn::StoreInterleaved3(am, aa, bb, d, out + 3 * g + 2);
  }
  return g;
}

HWY_INLINE void GroupsCubic1p5x(const int32_t* a, const int32_t* b, const uint8_t* s,
                                int32_t* out, size_t g, size_t end) {
#if HWY_TARGET != HWY_SCALAR
  g = GroupsCubic1p5xVec(hn::ScalableTag<int32_t>(), a, b, s, out, g, end);
  g = GroupsCubic1p5xVec(hn::CappedTag<int32_t, 4>(), a, b, s, out, g, end);
#endif
  const int32_t am[4] = {a[3], a[2], a[1], a[0]};
  for (; g < end; ++g) {
    out[3 * g + 2] = r::PlainSum(s + 2 * g, 1, am, 4);
    out[3 * g + 3] = r::PlainSum(s + 2 * g, 1, a, 4);
    out[3 * g + 4] = r::PlainSum(s + 2 * g + 1, 1, b, 4);
  }
}

// One row of w pixels (even, or 1) into 3w/2 values; body groups [0, body)
// use the context's taps.
void HRowCubic1p5x(const int32_t* body_a, const int32_t* body_b, const uint8_t* s, int32_t* out,
                   size_t w, size_t body) {
  const ptrdiff_t sw = static_cast<ptrdiff_t>(w);
  const ptrdiff_t outputs = 3 * sw / 2;
  if (w < 4) {
    for (ptrdiff_t j = 0; j < outputs; ++j) out[j] = OutputCubic1p5x(s, sw, j);
    return;
  }
  for (ptrdiff_t j = 0; j < 2; ++j) out[j] = OutputCubic1p5x(s, sw, j);
  for (ptrdiff_t j = outputs - 4; j < outputs; ++j) out[j] = OutputCubic1p5x(s, sw, j);
  const size_t groups = (w - 4) / 2;
  body = std::min(body, groups);
  GroupsCubic1p5x(body_a, body_b, s, out, 0, body);
  GroupsCubic1p5x(r::kCubic1p5xA, r::kCubic1p5xB, s, out, body, groups);
}

struct ContextTapsCubic1p5x {
  int32_t a[4];
  int32_t b[4];
  explicit ContextTapsCubic1p5x(const _StLanczos1p5x* ctx) {
    r::ReadContextTaps(ctx->tapsCubic1p5xA, 4, a);
    r::ReadContextTaps(ctx->tapsCubic1p5xB, 4, b);
  }
};

void HCubic1p5x(_StLanczos1p5x* ctx, unsigned char* src, int* dst, int blocks8, int groups) {
  const long w = 4L + 16L * blocks8 + 2L * groups;
  if (w < 1) return;
  const ContextTapsCubic1p5x taps(ctx);
  const size_t body = blocks8 > 0 ? 8 * static_cast<size_t>(blocks8) : 0;
  HRowCubic1p5x(taps.a, taps.b, src, dst, static_cast<size_t>(w), body);
}

struct PlaneCubic1p5x {
  const uint8_t* src;
  size_t width;        // source stride
  size_t used_width;   // columns read: the width rounded down to even
  size_t h_body;
  size_t filled;
  size_t out_width;
  const ContextTapsCubic1p5x* taps;
  OutputRows out;

  void Filter(ptrdiff_t row, int32_t* dst) const {
    HRowCubic1p5x(taps->a, taps->b, src + static_cast<size_t>(row) * width, dst, used_width,
                  h_body);
    // An odd width's last column repeats its neighbour.
    std::fill(dst + filled, dst + out_width, dst[filled - 1]);
  }
  ptrdiff_t Emit(ptrdiff_t v, const int32_t* const* rows) const {
    if (v % 2 == 1) {
      const ptrdiff_t k = (v - 1) / 2;
      return WritePlanned<4>(rows, out, {3 * k - 1, kVertAm.v}, {3 * k, kVertA.v});
    }
    return WritePlanned<4>(rows, out, {3 * ((v - 2) / 2) + 1, kVertB.v}, {0, nullptr});
  }
};

void Cubic1p5x(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst, int height,
               int width) {
  if (height < 1 || width < 1) return;
  const size_t out_width = static_cast<size_t>(1.5 * width);
  const int used_width = width >= 2 ? width & ~1 : width;
  const int used_height = height >= 2 ? height & ~1 : height;
  const ContextTapsCubic1p5x taps(ctx);
  PlaneCubic1p5x k;
  k.src = src;
  k.width = static_cast<size_t>(width);
  k.used_width = static_cast<size_t>(used_width);
  k.h_body = used_width >= 4 ? 8 * static_cast<size_t>((used_width - 4) / 16) : 0;
  k.filled = static_cast<size_t>(3 * used_width / 2);
  k.out_width = out_width;
  k.taps = &taps;
  k.out = {dst, out_width, 3 * static_cast<ptrdiff_t>(used_height) / 2, 8 * (out_width / 8),
           out_width};
  RunRing<4>(ctx->rowIndex, reinterpret_cast<int32_t*>(ctx->workBuf), out_width, used_height,
             k.out.rows, k);
}

// ---- 2x ---------------------------------------------------------------------

inline int32_t OutputCubic2x(const uint8_t* s, ptrdiff_t size, ptrdiff_t j) {
  const ptrdiff_t m = j / 2;
  return j % 2 ? r::ClampedSum(s, 1, size, m - 1, kK.mirrored, 4)
               : r::ClampedSum(s, 1, size, m - 2, kK.taps, 4);
}

// Positions [p, end): outputs 2p+3 (K mirrored) and 2p+4 (K) over
// s[p .. p+3]. Loads stop at s[end + 2].
template <class D>
HWY_INLINE size_t PositionsCubic2xVec(D d, const int32_t* t, const uint8_t* s, int32_t* out,
                                      size_t p, size_t end) {
  const hn::Rebind<uint8_t, D> d8;
  const size_t n = hn::Lanes(d);
  for (; p + n <= end; p += n) {
    auto x = hn::PromoteTo(d, hn::LoadU(d8, s + p));
    auto odd = hn::Mul(x, hn::Set(d, t[3]));
    auto even = hn::Mul(x, hn::Set(d, t[0]));
    for (size_t k = 1; k < 4; ++k) {
      x = hn::PromoteTo(d, hn::LoadU(d8, s + p + k));
      odd = hn::Add(odd, hn::Mul(x, hn::Set(d, t[3 - k])));
      even = hn::Add(even, hn::Mul(x, hn::Set(d, t[k])));
    }
    hn::StoreInterleaved2(odd, even, d, out + 2 * p + 3);
  }
  return p;
}

HWY_INLINE void PositionsCubic2x(const int32_t* t, const uint8_t* s, int32_t* out, size_t p,
                                 size_t end) {
#if HWY_TARGET != HWY_SCALAR
  p = PositionsCubic2xVec(hn::ScalableTag<int32_t>(), t, s, out, p, end);
  p = PositionsCubic2xVec(hn::CappedTag<int32_t, 4>(), t, s, out, p, end);
#endif
  const int32_t m[4] = {t[3], t[2], t[1], t[0]};
  for (; p < end; ++p) {
    out[2 * p + 3] = r::PlainSum(s + p, 1, m, 4);
    out[2 * p + 4] = r::PlainSum(s + p, 1, t, 4);
  }
}

// One row of w >= 1 pixels into 2w values; body positions [0, body) use the
// context's taps.
void HRowCubic2x(const int32_t* body_taps, const uint8_t* s, int32_t* out, size_t w,
                 size_t body) {
  const ptrdiff_t sw = static_cast<ptrdiff_t>(w);
  if (w < 3) {
    for (ptrdiff_t j = 0; j < 2 * sw; ++j) out[j] = OutputCubic2x(s, sw, j);
    return;
  }
  for (ptrdiff_t j = 0; j < 3; ++j) {
    out[j] = OutputCubic2x(s, sw, j);
    out[2 * sw - 3 + j] = OutputCubic2x(s, sw, 2 * sw - 3 + j);
  }
  const size_t positions = w - 3;
  body = std::min(body, positions);
  PositionsCubic2x(body_taps, s, out, 0, body);
  PositionsCubic2x(r::kCubic2x, s, out, body, positions);
}

void HCubic2x(_StLanczos1p5x* ctx, unsigned char* src, int* dst, int blocks8, int rest) {
  const long w = 3L + 8L * blocks8 + rest;
  if (w < 1) return;
  int32_t taps[4];
  r::ReadContextTaps(ctx->tapsCubic2x, 4, taps);
  const size_t body = blocks8 > 0 ? 8 * static_cast<size_t>(blocks8) : 0;
  HRowCubic2x(taps, src, dst, static_cast<size_t>(w), body);
}

struct PlaneCubic2x {
  const uint8_t* src;
  size_t width;
  size_t h_body;
  int32_t taps[4];
  OutputRows out;

  void Filter(ptrdiff_t row, int32_t* dst) const {
    HRowCubic2x(taps, src + static_cast<size_t>(row) * width, dst, width, h_body);
  }
  ptrdiff_t Emit(ptrdiff_t v, const int32_t* const* rows) const {
    return WritePlanned<4>(rows, out, {2 * v - 3, kVertKm.v}, {2 * v - 2, kVertK.v});
  }
};

void Cubic2x(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst, int height,
             int width) {
  if (height < 1 || width < 1) return;
  const size_t w = static_cast<size_t>(width);
  PlaneCubic2x k;
  k.src = src;
  k.width = w;
  k.h_body = width >= 3 ? 8 * static_cast<size_t>((width - 3) / 8) : 0;
  r::ReadContextTaps(ctx->tapsCubic2x, 4, k.taps);
  k.out = {dst, 2 * w, 2 * static_cast<ptrdiff_t>(height), 8 * (2 * w / 8), 2 * w};
  RunRing<4>(ctx->rowIndex, reinterpret_cast<int32_t*>(ctx->workBuf), 2 * w, height, k.out.rows,
             k);
}

void VCubic(_StLanczos1p5x* ctx, int** rows, unsigned char* dst, short const* taps, int blocks8,
            int rest) {
  VerticalPass<4>(rows, ctx->rowIndex, taps, dst, blocks8, rest);
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith {
HWY_EXPORT(Cubic1p5x);
HWY_EXPORT(Cubic2x);
HWY_EXPORT(HCubic1p5x);
HWY_EXPORT(HCubic2x);
HWY_EXPORT(VCubic);
}  // namespace vorlith

void Cubic1p5x_NEON(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst, int height,
                    int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::Cubic1p5x)(ctx, src, dst, height, width);
}

void Cubic2x_NEON(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst, int height,
                  int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::Cubic2x)(ctx, src, dst, height, width);
}

void HCubic1p5x_NEON(_StLanczos1p5x* ctx, unsigned char* src, int* dst, int blocks8,
                     int groups) {
  HWY_DYNAMIC_DISPATCH(vorlith::HCubic1p5x)(ctx, src, dst, blocks8, groups);
}

void HCubic2x_NEON(_StLanczos1p5x* ctx, unsigned char* src, int* dst, int blocks8, int rest) {
  HWY_DYNAMIC_DISPATCH(vorlith::HCubic2x)(ctx, src, dst, blocks8, rest);
}

void VCubic_NEON(_StLanczos1p5x* ctx, int** rows, unsigned char* dst, short const* taps,
                 int blocks8, int rest) {
  HWY_DYNAMIC_DISPATCH(vorlith::VCubic)(ctx, rows, dst, taps, blocks8, rest);
}
#endif  // HWY_ONCE
