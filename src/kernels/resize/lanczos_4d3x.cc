// Lanczos 4/3x (a = 4, 8 taps) on one plane; the vertical pass is the 1.5x
// one with this ratio's taps.
//
// Output j stands at source position (6j - 1)/8. With k = j / 4: j = 4k takes
// A over source 3k-4 .. 3k+3, 4k+1 B over 3k-3 .. 3k+4, 4k+2 B mirrored over
// 3k-2 .. 3k+5, 4k+3 A mirrored over 3k-1 .. 3k+6, indices clamped.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/resize/lanczos_4d3x.cc"
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

constexpr r::TapPair<8> kA = r::MakePair(r::kLanczos4d3xA);
constexpr r::TapPair<8> kB = r::MakePair(r::kLanczos4d3xB);
constexpr r::Taps16<8> kVertA = r::To16(r::kLanczos4d3xA, false);
constexpr r::Taps16<8> kVertAm = r::To16(r::kLanczos4d3xA, true);
constexpr r::Taps16<8> kVertB = r::To16(r::kLanczos4d3xB, false);
constexpr r::Taps16<8> kVertBm = r::To16(r::kLanczos4d3xB, true);

inline int32_t Output4d3x(const uint8_t* s, ptrdiff_t size, ptrdiff_t j) {
  const ptrdiff_t k = j / 4;
  switch (j % 4) {
    case 0:
      return r::ClampedSum(s, 1, size, 3 * k - 4, kA.taps, 8);
    case 1:
      return r::ClampedSum(s, 1, size, 3 * k - 3, kB.taps, 8);
    case 2:
      return r::ClampedSum(s, 1, size, 3 * k - 2, kB.mirrored, 8);
    default:
      return r::ClampedSum(s, 1, size, 3 * k - 1, kA.mirrored, 8);
  }
}

// Per lane i of a body vector: group i/4 and phase i%4 (B, B mirrored,
// A mirrored, A), reading from source offset 3*(i/4) + {0,1,2,2}. The period
// of 4 divides every vector length, so one table serves every step.
constexpr size_t kMaxLanes32 = HWY_MAX_BYTES / sizeof(int32_t);

struct Lookup4d3 {
  HWY_ALIGN int32_t index[kMaxLanes32];
  HWY_ALIGN int32_t taps[8][kMaxLanes32];
};

inline void BuildLookup4d3(const int32_t* a, const int32_t* b, size_t lanes, Lookup4d3& t) {
  static constexpr int32_t kOffset[4] = {0, 1, 2, 2};
  for (size_t i = 0; i < lanes; ++i) {
    const size_t phase = i % 4;
    t.index[i] = static_cast<int32_t>(3 * (i / 4)) + kOffset[phase];
    for (size_t k = 0; k < 8; ++k) {
      const int32_t tap[4] = {b[k], b[7 - k], a[7 - k], a[k]};
      t.taps[k][i] = tap[phase];
    }
  }
}

// Groups [g, end) of a row of w pixels: outputs 4g+5 .. 4g+8. A step loads
// bytes 3g .. 3g+n+6, which must lie inside the row.
template <class D>
HWY_INLINE size_t Groups4d3Vec(D d, const Lookup4d3& t, const uint8_t* s, int32_t* out,
                               size_t g, size_t end, size_t w) {
  const hn::Rebind<uint8_t, D> d8;
  const size_t n = hn::Lanes(d);
  const size_t step = n / 4;
  const auto index = hn::SetTableIndices(d, t.index);
  for (; g + step <= end && 3 * g + n + 7 <= w; g += step) {
    auto acc = hn::Zero(d);
    for (size_t k = 0; k < 8; ++k) {
      const auto x = hn::TableLookupLanes(hn::PromoteTo(d, hn::LoadU(d8, s + 3 * g + k)), index);
      acc = hn::Add(acc, hn::Mul(x, hn::Load(d, t.taps[k])));
    }
    hn::StoreU(acc, d, out + 4 * g + 5);
  }
  return g;
}

HWY_INLINE void Groups4d3(const int32_t* a, const int32_t* b, const uint8_t* s, int32_t* out,
                          size_t g, size_t end, size_t w) {
#if HWY_TARGET != HWY_SCALAR
  if (g < end) {
    Lookup4d3 t;
    BuildLookup4d3(a, b, hn::Lanes(hn::ScalableTag<int32_t>()), t);
    g = Groups4d3Vec(hn::ScalableTag<int32_t>(), t, s, out, g, end, w);
    g = Groups4d3Vec(hn::CappedTag<int32_t, 4>(), t, s, out, g, end, w);
  }
#else
  (void)w;
#endif
  int32_t am[8], bm[8];
  for (size_t k = 0; k < 8; ++k) {
    am[k] = a[7 - k];
    bm[k] = b[7 - k];
  }
  for (; g < end; ++g) {
    out[4 * g + 5] = r::PlainSum(s + 3 * g, 1, b, 8);
    out[4 * g + 6] = r::PlainSum(s + 3 * g + 1, 1, bm, 8);
    out[4 * g + 7] = r::PlainSum(s + 3 * g + 2, 1, am, 8);
    out[4 * g + 8] = r::PlainSum(s + 3 * g + 2, 1, a, 8);
  }
}

// One row of w pixels (a multiple of 3, or below 3) into 4w/3 values. Body
// groups [0, body) use the context's taps, all other outputs the constants.
void HRow4d3x(const int32_t* body_a, const int32_t* body_b, const uint8_t* s, int32_t* out,
              size_t w, size_t body) {
  const ptrdiff_t sw = static_cast<ptrdiff_t>(w);
  const ptrdiff_t outputs = 4 * sw / 3;
  if (w < 9) {
    for (ptrdiff_t j = 0; j < outputs; ++j) out[j] = Output4d3x(s, sw, j);
    return;
  }
  for (ptrdiff_t j = 0; j < 5; ++j) out[j] = Output4d3x(s, sw, j);
  for (ptrdiff_t j = outputs - 7; j < outputs; ++j) out[j] = Output4d3x(s, sw, j);
  const size_t groups = (w - 9) / 3;
  body = std::min(body, groups);
  Groups4d3(body_a, body_b, s, out, 0, body, w);
  Groups4d3(r::kLanczos4d3xA, r::kLanczos4d3xB, s, out, body, groups, w);
}

struct ContextTaps4d3x {
  int32_t a[8];
  int32_t b[8];
  explicit ContextTaps4d3x(const _StLanczos1p5x* ctx) {
    r::ReadContextTaps(ctx->tapsLanczos4d3xA, 8, a);
    r::ReadContextTaps(ctx->tapsLanczos4d3xB, 8, b);
  }
};

void HLanczos4d3x(_StLanczos1p5x* ctx, unsigned char* src, int* dst, int blocks8, int groups) {
  const long w = 9L + 24L * blocks8 + 3L * groups;
  if (w < 1) return;
  const ContextTaps4d3x taps(ctx);
  const size_t body = blocks8 > 0 ? 8 * static_cast<size_t>(blocks8) : 0;
  HRow4d3x(taps.a, taps.b, src, dst, static_cast<size_t>(w), body);
}

struct Plane4d3x {
  const uint8_t* src;
  size_t width;        // source stride
  size_t used_width;   // columns read: the width rounded down to a multiple of 3
  size_t h_body;
  size_t filled;       // intermediate values the row filter defines
  size_t out_width;
  const ContextTaps4d3x* taps;
  OutputRows out;

  void Filter(ptrdiff_t row, int32_t* dst) const {
    HRow4d3x(taps->a, taps->b, src + static_cast<size_t>(row) * width, dst, used_width, h_body);
    // Columns past the last whole group repeat the last defined one.
    std::fill(dst + filled, dst + out_width, dst[filled - 1]);
  }
  ptrdiff_t Emit(ptrdiff_t v, const int32_t* const* rows) const {
    switch (v % 3) {
      case 0: {
        const ptrdiff_t k = v / 3 - 1;
        return WritePlanned<8>(rows, out, {4 * k - 1, kVertAm.v}, {4 * k, kVertA.v});
      }
      case 1:
        return WritePlanned<8>(rows, out, {4 * ((v - 4) / 3) + 1, kVertB.v}, {0, nullptr});
      default:
        return WritePlanned<8>(rows, out, {4 * ((v - 5) / 3) + 2, kVertBm.v}, {0, nullptr});
    }
  }
};

void Lanczos4d3x(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst, int height,
                 int width) {
  if (height < 1 || width < 1) return;
  const size_t out_width = static_cast<size_t>(width * 4.0 / 3.0);
  const int used_width = width >= 3 ? width - width % 3 : width;
  const int used_height = height >= 3 ? height - height % 3 : height;
  const ContextTaps4d3x taps(ctx);
  Plane4d3x k;
  k.src = src;
  k.width = static_cast<size_t>(width);
  k.used_width = static_cast<size_t>(used_width);
  k.h_body = used_width >= 9 ? 8 * static_cast<size_t>((used_width - 9) / 24) : 0;
  k.filled = static_cast<size_t>(4 * used_width / 3);
  k.out_width = out_width;
  k.taps = &taps;
  k.out = {dst, out_width, 4 * static_cast<ptrdiff_t>(used_height) / 3, 8 * (out_width / 8),
           out_width};
  RunRing<8>(ctx->rowIndex, reinterpret_cast<int32_t*>(ctx->workBuf), out_width, used_height,
             k.out.rows, k);
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith {
HWY_EXPORT(Lanczos4d3x);
HWY_EXPORT(HLanczos4d3x);
}  // namespace vorlith

void Lanczos_4d3x(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst, int height,
                  int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::Lanczos4d3x)(ctx, src, dst, height, width);
}

void HResizeLanczos_4d3x_NEON(_StLanczos1p5x* ctx, unsigned char* src, int* dst, int blocks8,
                              int groups) {
  HWY_DYNAMIC_DISPATCH(vorlith::HLanczos4d3x)(ctx, src, dst, blocks8, groups);
}
#endif  // HWY_ONCE
