// Lanczos 1.5x (a = 4, 8 taps) on one plane.
//
// Output j stands at source position (4j - 1)/6. With k = j / 3: j = 3k takes
// A over source 2k-4 .. 2k+3, j = 3k+1 takes B over 2k-3 .. 2k+4, j = 3k+2
// takes A mirrored over 2k-2 .. 2k+5, indices clamped. The sums of A (2049)
// and B (2046) are kept as they are.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/resize/lanczos_1p5x.cc"
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

constexpr r::TapPair<8> kA = r::MakePair(r::kLanczos1p5xA);
constexpr r::Taps16<8> kVertA = r::To16(r::kLanczos1p5xA, false);
constexpr r::Taps16<8> kVertAm = r::To16(r::kLanczos1p5xA, true);
constexpr r::Taps16<8> kVertB = r::To16(r::kLanczos1p5xB, false);

inline int32_t Output1p5x(const uint8_t* s, ptrdiff_t size, ptrdiff_t j) {
  const ptrdiff_t k = j / 3;
  switch (j % 3) {
    case 0:
      return r::ClampedSum(s, 1, size, 2 * k - 4, kA.taps, 8);
    case 1:
      return r::ClampedSum(s, 1, size, 2 * k - 3, r::kLanczos1p5xB, 8);
    default:
      return r::ClampedSum(s, 1, size, 2 * k - 2, kA.mirrored, 8);
  }
}

// Groups [g, end) of the body: outputs 3g+5 (A mirrored) and 3g+6 (A) over
// s[2g .. 2g+7], 3g+7 (B) over s[2g+1 .. 2g+8]. Even and odd pixels are
// split from 16-bit loads; the last load ends at s[2*end + 7].
template <class D>
HWY_INLINE size_t Groups1p5xVec(D d, const int32_t* a, const int32_t* b, const uint8_t* s,
                                int32_t* out, size_t g, size_t end) {
  const hn::Rebind<uint16_t, D> d16;
  const hn::Repartition<uint8_t, decltype(d16)> d8;
  const size_t n = hn::Lanes(d);
  const auto low = hn::Set(d16, 0xFF);
  for (; g + n <= end; g += n) {
    auto am = hn::Zero(d);
    auto aa = hn::Zero(d);
    auto bb = hn::Zero(d);
    for (size_t j = 0; j < 5; ++j) {
      const auto pairs = hn::BitCast(d16, hn::LoadU(d8, s + 2 * (g + j)));
      const auto even = hn::PromoteTo(d, hn::And(pairs, low));  // s[2(g+j)]
      if (j > 0) bb = hn::Add(bb, hn::Mul(even, hn::Set(d, b[2 * j - 1])));
      if (j == 4) break;
      const auto odd = hn::PromoteTo(d, hn::ShiftRight<8>(pairs));  // s[2(g+j)+1]
      am = hn::Add(am, hn::Add(hn::Mul(even, hn::Set(d, a[7 - 2 * j])),
                               hn::Mul(odd, hn::Set(d, a[6 - 2 * j]))));
      aa = hn::Add(aa, hn::Add(hn::Mul(even, hn::Set(d, a[2 * j])),
                               hn::Mul(odd, hn::Set(d, a[2 * j + 1]))));
      bb = hn::Add(bb, hn::Mul(odd, hn::Set(d, b[2 * j])));
    }
    hn::StoreInterleaved3(am, aa, bb, d, out + 3 * g + 5);
  }
  return g;
}

HWY_INLINE void Groups1p5x(const int32_t* a, const int32_t* b, const uint8_t* s, int32_t* out,
                           size_t g, size_t end) {
#if HWY_TARGET != HWY_SCALAR
  g = Groups1p5xVec(hn::ScalableTag<int32_t>(), a, b, s, out, g, end);
  g = Groups1p5xVec(hn::CappedTag<int32_t, 4>(), a, b, s, out, g, end);
#endif
  int32_t am[8];
  for (size_t k = 0; k < 8; ++k) am[k] = a[7 - k];
  for (; g < end; ++g) {
    out[3 * g + 5] = r::PlainSum(s + 2 * g, 1, am, 8);
    out[3 * g + 6] = r::PlainSum(s + 2 * g, 1, a, 8);
    out[3 * g + 7] = r::PlainSum(s + 2 * g + 1, 1, b, 8);
  }
}

// One row of w pixels (even, or 1) into 3w/2 values. Body groups [0, body)
// use the context's taps, all other outputs the constants.
void HRow1p5x(const int32_t* body_a, const int32_t* body_b, const uint8_t* s, int32_t* out,
              size_t w, size_t body) {
  const ptrdiff_t sw = static_cast<ptrdiff_t>(w);
  const ptrdiff_t outputs = 3 * sw / 2;
  if (w < 8) {
    for (ptrdiff_t j = 0; j < outputs; ++j) out[j] = Output1p5x(s, sw, j);
    return;
  }
  for (ptrdiff_t j = 0; j < 5; ++j) out[j] = Output1p5x(s, sw, j);
  for (ptrdiff_t j = outputs - 7; j < outputs; ++j) out[j] = Output1p5x(s, sw, j);
  const size_t groups = (w - 8) / 2;
  body = std::min(body, groups);
  Groups1p5x(body_a, body_b, s, out, 0, body);
  Groups1p5x(r::kLanczos1p5xA, r::kLanczos1p5xB, s, out, body, groups);
}

struct ContextTaps1p5x {
  int32_t a[8];
  int32_t b[8];
  explicit ContextTaps1p5x(const _StLanczos1p5x* ctx) {
    r::ReadContextTaps(ctx->tapsLanczos1p5xA, 8, a);
    r::ReadContextTaps(ctx->tapsLanczos1p5xB, 8, b);
  }
};

void HLanczos1p5x(_StLanczos1p5x* ctx, unsigned char* src, int* dst, int blocks16, int pairs) {
  const long w = 8L + 32L * blocks16 + 2L * pairs;
  if (w < 1) return;
  const ContextTaps1p5x taps(ctx);
  const size_t body = blocks16 > 0 ? 16 * static_cast<size_t>(blocks16) : 0;
  HRow1p5x(taps.a, taps.b, src, dst, static_cast<size_t>(w), body);
}

struct Plane1p5x {
  const uint8_t* src;
  size_t width;        // source stride
  size_t used_width;   // columns read: the width rounded down to even
  size_t h_body;
  size_t filled;       // intermediate values the row filter defines
  size_t out_width;
  const ContextTaps1p5x* taps;
  OutputRows out;

  void Filter(ptrdiff_t row, int32_t* dst) const {
    HRow1p5x(taps->a, taps->b, src + static_cast<size_t>(row) * width, dst, used_width, h_body);
    // An odd width leaves the last column without a source pair: it repeats
    // its neighbour rather than whatever the buffer held.
    std::fill(dst + filled, dst + out_width, dst[filled - 1]);
  }
  ptrdiff_t Emit(ptrdiff_t v, const int32_t* const* rows) const {
    if (v % 2 == 0) {
      return WritePlanned<8>(rows, out, {3 * (v - 4) / 2 + 1, kVertB.v}, {0, nullptr});
    }
    const ptrdiff_t k = (v - 5) / 2;  // v >= 3, so k >= -1 and the division is exact
    return WritePlanned<8>(rows, out, {3 * k + 2, kVertAm.v}, {3 * k + 3, kVertA.v});
  }
};

void Lanczos1p5x(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst, int height,
                 int width) {
  if (height < 1 || width < 1) return;
  const size_t out_width = static_cast<size_t>(1.5 * width);
  const int used_width = width >= 2 ? width & ~1 : width;
  const int used_height = height >= 2 ? height & ~1 : height;
  const ContextTaps1p5x taps(ctx);
  Plane1p5x k;
  k.src = src;
  k.width = static_cast<size_t>(width);
  k.used_width = static_cast<size_t>(used_width);
  k.h_body = used_width >= 8 ? 16 * static_cast<size_t>((used_width - 8) / 32) : 0;
  k.filled = static_cast<size_t>(3 * used_width / 2);
  k.out_width = out_width;
  k.taps = &taps;
  k.out = {dst, out_width, 3 * static_cast<ptrdiff_t>(used_height) / 2, 8 * (out_width / 8),
           out_width};
  RunRing<8>(ctx->rowIndex, reinterpret_cast<int32_t*>(ctx->workBuf), out_width, used_height,
             k.out.rows, k);
}

void VLanczos1p5x(_StLanczos1p5x* ctx, int** rows, unsigned char* dst, short const* taps,
                  int blocks8, int rest) {
  VerticalPass<8>(rows, ctx->rowIndex, taps, dst, blocks8, rest);
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith {
HWY_EXPORT(Lanczos1p5x);
HWY_EXPORT(HLanczos1p5x);
HWY_EXPORT(VLanczos1p5x);
}  // namespace vorlith

void Lanczos_1p5x(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst, int height,
                  int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::Lanczos1p5x)(ctx, src, dst, height, width);
}

void HResizeLanczos_1p5x_NEON(_StLanczos1p5x* ctx, unsigned char* src, int* dst, int blocks16,
                              int pairs) {
  HWY_DYNAMIC_DISPATCH(vorlith::HLanczos1p5x)(ctx, src, dst, blocks16, pairs);
}

void VResizeLanczos_1p5x_NEON(_StLanczos1p5x* ctx, int** rows, unsigned char* dst,
                              short const* taps, int blocks8, int rest) {
  HWY_DYNAMIC_DISPATCH(vorlith::VLanczos1p5x)(ctx, rows, dst, taps, blocks8, rest);
}
#endif  // HWY_ONCE
