// Lanczos 2x (a = 4, 8 taps) on one plane and on three interleaved channels.
//
// Output j of a row stands at source position j/2 - 1/4: even j = 2m takes
// the taps T over source m-4 .. m+3, odd j = 2m+1 the mirror M over
// m-3 .. m+4, indices clamped to the row. Both directions use the same taps;
// a horizontal pass writes unrounded Q11 int32 rows into an 8-row ring, and
// the vertical pass rounds the Q22 sums to bytes.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/resize/lanczos_2x.cc"
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

constexpr r::TapPair<8> kTaps2x = r::MakePair(r::kLanczos2x);
constexpr r::Taps16<8> kVertT = r::To16(r::kLanczos2x, false);
constexpr r::Taps16<8> kVertM = r::To16(r::kLanczos2x, true);

// Clamped value of output j of a row of `size` pixels, `step` bytes apart.
inline int32_t Output2x(const uint8_t* s, ptrdiff_t step, ptrdiff_t size, ptrdiff_t j) {
  const ptrdiff_t m = j / 2;
  return j % 2 ? r::ClampedSum(s, step, size, m - 3, kTaps2x.mirrored, 8)
               : r::ClampedSum(s, step, size, m - 4, kTaps2x.taps, 8);
}

// ---- One plane ------------------------------------------------------------

// Positions [p, end) of the body: outputs 2p+7 (mirrored taps) and 2p+8
// (taps) over s[p .. p+7], stored interleaved. Loads stop at s[end + 6].
template <class D>
HWY_INLINE size_t Positions2xVec(D d, const int32_t* t, const uint8_t* s, int32_t* out,
                                 size_t p, size_t end) {
  const hn::Rebind<uint8_t, D> d8;
  const size_t n = hn::Lanes(d);
  for (; p + n <= end; p += n) {
    auto x = hn::PromoteTo(d, hn::LoadU(d8, s + p));
    auto odd = hn::Mul(x, hn::Set(d, t[7]));
    auto even = hn::Mul(x, hn::Set(d, t[0]));
    for (size_t k = 1; k < 8; ++k) {
      x = hn::PromoteTo(d, hn::LoadU(d8, s + p + k));
      odd = hn::Add(odd, hn::Mul(x, hn::Set(d, t[7 - k])));
      even = hn::Add(even, hn::Mul(x, hn::Set(d, t[k])));
    }
    hn::StoreInterleaved2(odd, even, d, out + 2 * p + 7);
  }
  return p;
}

HWY_INLINE void Positions2x(const int32_t* t, const uint8_t* s, int32_t* out, size_t p,
                            size_t end) {
#if HWY_TARGET != HWY_SCALAR
  p = Positions2xVec(hn::ScalableTag<int32_t>(), t, s, out, p, end);
  p = Positions2xVec(hn::CappedTag<int32_t, 4>(), t, s, out, p, end);
#endif
  int32_t m[8];
  for (size_t k = 0; k < 8; ++k) m[k] = t[7 - k];
  for (; p < end; ++p) {
    out[2 * p + 7] = r::PlainSum(s + p, 1, m, 8);
    out[2 * p + 8] = r::PlainSum(s + p, 1, t, 8);
  }
}

// One row of w >= 1 pixels into 2w values. Body positions [0, body) use
// body_taps (the context's), all other outputs the constants.
void HRow2x(const int32_t* body_taps, const uint8_t* s, int32_t* out, size_t w, size_t body) {
  const ptrdiff_t sw = static_cast<ptrdiff_t>(w);
  if (w < 7) {
    for (ptrdiff_t j = 0; j < 2 * sw; ++j) out[j] = Output2x(s, 1, sw, j);
    return;
  }
  for (ptrdiff_t j = 0; j < 7; ++j) {
    out[j] = Output2x(s, 1, sw, j);
    out[2 * sw - 7 + j] = Output2x(s, 1, sw, 2 * sw - 7 + j);
  }
  const size_t positions = w - 7;
  body = std::min(body, positions);
  Positions2x(body_taps, s, out, 0, body);
  Positions2x(kTaps2x.taps, s, out, body, positions);
}

void HLanczos2x(_StLanczos1p5x* ctx, unsigned char* src, int* dst, int blocks16, int rest) {
  const long w = 7L + 16L * blocks16 + rest;
  if (w < 1) return;
  int32_t taps[8];
  r::ReadContextTaps(ctx->tapsLanczos2x, 8, taps);
  const size_t body = blocks16 > 0 ? 16 * static_cast<size_t>(blocks16) : 0;
  HRow2x(taps, src, dst, static_cast<size_t>(w), body);
}

struct Plane2x {
  const uint8_t* src;
  size_t width;
  size_t h_body;
  int32_t taps[8];
  OutputRows out;

  void Filter(ptrdiff_t row, int32_t* dst) const {
    HRow2x(taps, src + static_cast<size_t>(row) * width, dst, width, h_body);
  }
  ptrdiff_t Emit(ptrdiff_t v, const int32_t* const* rows) const {
    return WritePlanned<8>(rows, out, {2 * v - 7, kVertM.v}, {2 * v - 6, kVertT.v});
  }
};

void Lanczos2xSingle(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst, int height,
                     int width) {
  if (height < 1 || width < 1) return;
  const size_t w = static_cast<size_t>(width);
  Plane2x k;
  k.src = src;
  k.width = w;
  k.h_body = width >= 7 ? 16 * static_cast<size_t>((width - 7) / 16) : 0;
  r::ReadContextTaps(ctx->tapsLanczos2x, 8, k.taps);
  k.out = {dst, 2 * w, 2 * static_cast<ptrdiff_t>(height), 8 * static_cast<size_t>(width / 4),
           2 * w};
  RunRing<8>(ctx->rowIndex, reinterpret_cast<int32_t*>(ctx->workBuf), 2 * w, height, k.out.rows,
             k);
}

// ---- Three interleaved channels --------------------------------------------

// The body interleaves channels and phases in a period of 6 values (odd
// output R G B, then even output R G B, per source position), which no
// vector length divides. Three vectors hold N/2 whole positions; each lane
// gathers its 8 samples from widened bytes with a fixed permutation and
// applies its own phase's taps.
constexpr size_t kMaxLanes32 = HWY_MAX_BYTES / sizeof(int32_t);

struct Lookup3 {
  size_t lanes = 0;
  int32_t first[3] = {};  // first source byte each vector loads, from 3p
  size_t load_end = 0;    // source bytes from 3p that one step may load
  HWY_ALIGN int32_t index[3][kMaxLanes32] = {};
  HWY_ALIGN int32_t taps[3][8][kMaxLanes32] = {};
};

inline void BuildLookup3(size_t n, Lookup3& t) {
  t.lanes = n;
  for (size_t v = 0; v < 3; ++v) {
    int32_t lowest = 1 << 30;
    for (size_t i = 0; i < n; ++i) {
      const size_t g = v * n + i;
      lowest = std::min(lowest, static_cast<int32_t>(3 * (g / 6) + g % 3));
    }
    t.first[v] = lowest;
    t.load_end = std::max(t.load_end, static_cast<size_t>(lowest) + 21 + n);
    for (size_t i = 0; i < n; ++i) {
      const size_t g = v * n + i;
      t.index[v][i] = static_cast<int32_t>(3 * (g / 6) + g % 3) - lowest;
      const bool even_output = (g / 3) % 2 == 1;
      for (size_t k = 0; k < 8; ++k) {
        t.taps[v][k][i] = even_output ? kTaps2x.taps[k] : kTaps2x.mirrored[k];
      }
    }
  }
}

template <class D>
HWY_INLINE const Lookup3& LookupFor(D d) {
  static const Lookup3 table = [n = hn::Lanes(d)] {
    Lookup3 t;
    BuildLookup3(n, t);
    return t;
  }();
  return table;
}

// Positions [p, end) of a row of w pixels: values 6p+21 .. 6p+26 per position.
template <class D>
HWY_INLINE size_t Positions2x3Vec(D d, const uint8_t* s, int32_t* out, size_t p, size_t end,
                                  size_t w) {
  const hn::Rebind<uint8_t, D> d8;
  const Lookup3& t = LookupFor(d);
  const size_t n = t.lanes;
  const size_t step = n / 2;
  for (; p + step <= end && 3 * p + t.load_end <= 3 * w; p += step) {
    for (size_t v = 0; v < 3; ++v) {
      const uint8_t* base = s + 3 * p + t.first[v];
      const auto index = hn::SetTableIndices(d, t.index[v]);
      auto acc = hn::Zero(d);
      for (size_t k = 0; k < 8; ++k) {
        const auto x = hn::TableLookupLanes(hn::PromoteTo(d, hn::LoadU(d8, base + 3 * k)), index);
        acc = hn::Add(acc, hn::Mul(x, hn::Load(d, t.taps[v][k])));
      }
      hn::StoreU(acc, d, out + 6 * p + 21 + v * n);
    }
  }
  return p;
}

void HRow2x3(const uint8_t* s, int32_t* out, size_t w) {
  const ptrdiff_t sw = static_cast<ptrdiff_t>(w);
  if (w < 7) {
    for (ptrdiff_t j = 0; j < 2 * sw; ++j) {
      for (ptrdiff_t c = 0; c < 3; ++c) out[3 * j + c] = Output2x(s + c, 3, sw, j);
    }
    return;
  }
  for (ptrdiff_t c = 0; c < 3; ++c) {
    for (ptrdiff_t j = 0; j < 7; ++j) {
      out[3 * j + c] = Output2x(s + c, 3, sw, j);
      const ptrdiff_t jr = 2 * sw - 7 + j;
      out[3 * jr + c] = Output2x(s + c, 3, sw, jr);
    }
  }
  const size_t positions = w - 7;
  size_t p = 0;
#if HWY_TARGET != HWY_SCALAR
  p = Positions2x3Vec(hn::ScalableTag<int32_t>(), s, out, p, positions, w);
  p = Positions2x3Vec(hn::CappedTag<int32_t, 4>(), s, out, p, positions, w);
#endif
  for (; p < positions; ++p) {
    for (size_t c = 0; c < 3; ++c) {
      out[6 * p + 21 + c] = r::PlainSum(s + 3 * p + c, 3, kTaps2x.mirrored, 8);
      out[6 * p + 24 + c] = r::PlainSum(s + 3 * p + c, 3, kTaps2x.taps, 8);
    }
  }
}

void HLanczos2x3(unsigned char* src, int* dst, int rest, int blocks16, int blocks8) {
  const long w = 7L + 16L * blocks16 + 8L * blocks8 + rest;
  if (w < 1) return;
  HRow2x3(src, dst, static_cast<size_t>(w));
}

struct Rgb2x {
  const uint8_t* src;
  size_t width;
  OutputRows out;

  void Filter(ptrdiff_t row, int32_t* dst) const {
    HRow2x3(src + static_cast<size_t>(row) * 3 * width, dst, width);
  }
  ptrdiff_t Emit(ptrdiff_t v, const int32_t* const* rows) const {
    return WritePlanned<8>(rows, out, {2 * v - 7, kVertM.v}, {2 * v - 6, kVertT.v});
  }
};

void Lanczos2x3(unsigned char* src, int* scratch, unsigned char* dst, int height, int width) {
  if (height < 1 || width < 1) return;
  const size_t w = static_cast<size_t>(width);
  Rgb2x k;
  k.src = src;
  k.width = w;
  k.out = {dst, 6 * w, 2 * static_cast<ptrdiff_t>(height), 8 * (6 * w / 8), 6 * w};
  RunRing<8>(lanczos2xRowRing, scratch, 6 * w, height, k.out.rows, k);
}

// ---- Vertical passes ---------------------------------------------------------

void VLanczos2x(_StLanczos1p5x* ctx, int** rows, unsigned char* dst, short const* taps,
                int blocks8, int rest) {
  VerticalPass<8>(rows, ctx->rowIndex, taps, dst, blocks8, rest);
}

void VLanczos2x3(int** rows, unsigned char* dst, short const* taps, int blocks8, int rest) {
  VerticalPass<8>(rows, lanczos2xRowRing, taps, dst, blocks8, rest);
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
int32_t lanczos2xRowRing[8];

namespace vorlith {
HWY_EXPORT(Lanczos2xSingle);
HWY_EXPORT(HLanczos2x);
HWY_EXPORT(VLanczos2x);
HWY_EXPORT(Lanczos2x3);
HWY_EXPORT(HLanczos2x3);
HWY_EXPORT(VLanczos2x3);
}  // namespace vorlith

void Lanczos2x_SingleChannel(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst,
                             int height, int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::Lanczos2xSingle)(ctx, src, dst, height, width);
}

void HResizeLanczos2x_NEON(_StLanczos1p5x* ctx, unsigned char* src, int* dst, int blocks16,
                           int rest) {
  HWY_DYNAMIC_DISPATCH(vorlith::HLanczos2x)(ctx, src, dst, blocks16, rest);
}

void VResizeLanczos2x_NEON(_StLanczos1p5x* ctx, int** rows, unsigned char* dst,
                           short const* taps, int blocks8, int rest) {
  HWY_DYNAMIC_DISPATCH(vorlith::VLanczos2x)(ctx, rows, dst, taps, blocks8, rest);
}

void ResizeLanczos2x_NEON(unsigned char* src, int* scratch, unsigned char* dst, int height,
                          int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::Lanczos2x3)(src, scratch, dst, height, width);
}

void HResizeLanczos2x_NEON(unsigned char* src, int* dst, int rest, int blocks16, int blocks8) {
  HWY_DYNAMIC_DISPATCH(vorlith::HLanczos2x3)(src, dst, rest, blocks16, blocks8);
}

void VResizeLanczos2x_NEON(int** rows, unsigned char* dst, short const* taps, int blocks8,
                           int rest) {
  HWY_DYNAMIC_DISPATCH(vorlith::VLanczos2x3)(rows, dst, taps, blocks8, rest);
}
#endif  // HWY_ONCE
