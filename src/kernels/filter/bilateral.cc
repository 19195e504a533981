// 3x3 bilateral filter with a flat spatial kernel and a Gaussian range kernel
// looked up in BLBuffer. A weight depends only on |a - b| of two pixels, so
// the weights toward the row below, kept in the context's weight rows, are the
// next row's weights toward the row above: from the second row on, each pixel
// looks up five weights instead of eight.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/filter/bilateral.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "src/kernels/arm_numerics-inl.h"
#include "src/kernels/filter/filter_common.h"
#include "vorlith/filter.h"

HWY_BEFORE_NAMESPACE();
namespace vorlith {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Weight rows: mode 0 computes the upward weights and stores them in rows
// 0-2; modes 1 and 2 read them from the triple the previous row stored its
// downward weights in (4-6 and 0-2); each mode stores its downward weights in
// the other triple.
HWY_INLINE float* const* UpSource(float* const* rows, int mode) { return mode == 2 ? rows : rows + 4; }
HWY_INLINE float* const* DownTarget(float* const* rows, int mode) { return mode == 1 ? rows : rows + 4; }

// BLBuffer[d] per lane, d in 0..255.
template <class DF, class = void>
struct RangeTable {
  explicit RangeTable(DF) {}
  template <class VI>
  HWY_INLINE hn::Vec<DF> operator()(DF df, VI d) const {
    return hn::GatherIndex(df, BLBuffer, d);
  }
};

#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
// On 512-bit vectors the first 128 entries fit in eight registers and four
// two-table permutes replace a gather, several times dearer; entries 106 and
// on are all 0, so differences above 127 read entry 127.
template <>
struct RangeTable<hn::Simd<float, 16, 0>> {
  __m512 t[8];
  explicit RangeTable(hn::Simd<float, 16, 0>) {
    for (int i = 0; i < 8; ++i) t[i] = _mm512_loadu_ps(BLBuffer + 16 * i);
  }
  HWY_INLINE hn::Vec512<float> operator()(hn::Simd<float, 16, 0>, hn::Vec512<int32_t> d) const {
    const __m512i i = _mm512_min_epi32(d.raw, _mm512_set1_epi32(127));
    const __mmask16 b5 = _mm512_test_epi32_mask(i, _mm512_set1_epi32(32));
    const __mmask16 b6 = _mm512_test_epi32_mask(i, _mm512_set1_epi32(64));
    const __m512 lo = _mm512_mask_blend_ps(b5, _mm512_permutex2var_ps(t[0], i, t[1]),
                                           _mm512_permutex2var_ps(t[2], i, t[3]));
    const __m512 hi = _mm512_mask_blend_ps(b5, _mm512_permutex2var_ps(t[4], i, t[5]),
                                           _mm512_permutex2var_ps(t[6], i, t[7]));
    return hn::Vec512<float>{_mm512_mask_blend_ps(b6, lo, hi)};
  }
};
#endif

// Row 3 at [x, end): the weight between centre pixels x-1 and x. Filled for
// the whole row before the vector columns, which read each entry twice (as
// one pixel's right weight and the next one's left).
template <class DF>
HWY_INLINE size_t Horizontal(DF df, const uint8_t* c, float* row3, size_t x, size_t end) {
  const hn::Rebind<int32_t, DF> di;
  const hn::Rebind<uint8_t, DF> d8;
  auto load = [&](const uint8_t* p) {
    return hn::BitCast(di, hn::PromoteTo(hn::RebindToUnsigned<decltype(di)>(), hn::LoadU(d8, p)));
  };
  const RangeTable<DF> table(df);
  for (const size_t step = hn::Lanes(df); x + step <= end; x += step) {
    hn::StoreU(table(df, hn::Abs(hn::Sub(load(c + x - 1), load(c + x)))), df, row3 + x);
  }
  return x;
}

void HorizontalWeights(const uint8_t* c, float* row3, size_t x, size_t end) {
  x = Horizontal(hn::ScalableTag<float>(), c, row3, x, end);
  x = Horizontal(hn::CappedTag<float, 1>(), c, row3, x, end);
}

// Vector columns [x, end) of a row; every column there has both neighbours,
// and row 3 is filled from x to end.
template <class DF>
HWY_INLINE size_t Body(DF df, const uint8_t* u, const uint8_t* c, const uint8_t* dn, uint8_t* dst,
                       float* const* rows, int mode, size_t x, size_t end) {
  const hn::Rebind<int32_t, DF> di;
  const hn::Rebind<uint8_t, DF> d8;
  auto load = [&](const uint8_t* p) {
    return hn::BitCast(di, hn::PromoteTo(hn::RebindToUnsigned<decltype(di)>(), hn::LoadU(d8, p)));
  };
  float* const* up_src = UpSource(rows, mode);
  float* const* down = DownTarget(rows, mode);
  const RangeTable<DF> table(df);
  for (const size_t step = hn::Lanes(df); x + step <= end; x += step) {
    // Neighbours and weights in summing order: up-left, up, up-right, left,
    // right, down-left, down, down-right (no arrays: SVE vectors are sizeless).
    const auto q = load(c + x);
    const auto n0 = load(u + x - 1), n1 = load(u + x), n2 = load(u + x + 1);
    const auto n3 = load(c + x - 1), n4 = load(c + x + 1);
    const auto n5 = load(dn + x - 1), n6 = load(dn + x), n7 = load(dn + x + 1);
    auto weight = [&](hn::Vec<decltype(di)> v) {
      return table(df, hn::Abs(hn::Sub(v, q)));
    };
    hn::Vec<DF> w0, w1, w2;
    if (mode == 0) {
      w0 = weight(n0), w1 = weight(n1), w2 = weight(n2);
      hn::StoreU(w0, df, rows[0] + x);
      hn::StoreU(w1, df, rows[1] + x);
      hn::StoreU(w2, df, rows[2] + x);
    } else {
      w0 = hn::LoadU(df, up_src[2] + x - 1);
      w1 = hn::LoadU(df, up_src[1] + x);
      w2 = hn::LoadU(df, up_src[0] + x + 1);
    }
    const auto w3 = hn::LoadU(df, rows[3] + x), w4 = hn::LoadU(df, rows[3] + x + 1);
    const auto w5 = weight(n5), w6 = weight(n6), w7 = weight(n7);
    hn::StoreU(w5, df, down[0] + x);
    hn::StoreU(w6, df, down[1] + x);
    hn::StoreU(w7, df, down[2] + x);
    auto sum = hn::Set(df, 1.0f);
    auto num = hn::ConvertTo(df, q);
    auto add = [&](hn::Vec<DF> w, hn::Vec<decltype(di)> v) {
      sum = hn::Add(sum, w);
      num = hn::Add(num, hn::Mul(w, hn::ConvertTo(df, v)));
    };
    add(w0, n0), add(w1, n1), add(w2, n2), add(w3, n3);
    add(w4, n4), add(w5, n5), add(w6, n6), add(w7, n7);
    const auto v = hn::Add(hn::Mul(num, RecipEstimate(df, sum)), hn::Set(df, 0.5f));
    const auto bytes = Low16SignedToU8Range(di, TruncToI32Sat(di, v));
    hn::StoreU(hn::DemoteTo(d8, bytes), d8, dst + x);
  }
  return x;
}

// One scalar column x of a row of n pixels, edges replicated.
void Column(const uint8_t* u, const uint8_t* c, const uint8_t* dn, uint8_t* dst,
            float* const* rows, int mode, size_t x, size_t n) {
  const size_t xl = x ? x - 1 : 0, xr = x + 1 < n ? x + 1 : x;
  const int q = c[x];
  auto weight = [q](int v) { return BLBuffer[std::abs(v - q)]; };
  const int v[8] = {u[xl], u[x], u[xr], c[xl], c[xr], dn[xl], dn[x], dn[xr]};
  float w[8];
  if (mode == 0) {
    for (int k = 0; k < 3; ++k) rows[k][x] = w[k] = weight(v[k]);
  } else {
    float* const* s = UpSource(rows, mode);
    w[1] = s[1][x];
    w[0] = x ? s[2][x - 1] : w[1];
    w[2] = x + 1 < n ? s[0][x + 1] : w[1];
  }
  w[3] = x ? rows[3][x] : 1.0f;
  w[4] = x + 1 < n ? rows[3][x + 1] : 1.0f;
  float* const* down = DownTarget(rows, mode);
  for (int k = 0; k < 3; ++k) down[k][x] = w[5 + k] = weight(v[5 + k]);
  double sum = 1.0;
  float num = static_cast<float>(q);
  for (int k = 0; k < 8; ++k) {
    sum += w[k];
    num += w[k] * static_cast<float>(v[k]);
  }
  dst[x] = filter::Truncate(num / static_cast<float>(sum));
}

void Row(float* const* rows, const uint8_t* u, const uint8_t* c, const uint8_t* dn, uint8_t* dst,
         int width, int mode) {
  if (width < 2) return;
  const size_t n = static_cast<size_t>(width), end = 1 + (n - 2) / 8 * 8;
  rows[3][0] = 1.0f;
  HorizontalWeights(c, rows[3], 1, n);
  Column(u, c, dn, dst, rows, mode, 0, n);
  size_t x = Body(hn::ScalableTag<float>(), u, c, dn, dst, rows, mode, 1, end);
  x = Body(hn::CappedTag<float, 8>(), u, c, dn, dst, rows, mode, x, end);
  for (; x < n; ++x) Column(u, c, dn, dst, rows, mode, x, n);
}

void Step(float* const* rows, const uint8_t* u, const uint8_t* c, const uint8_t* dn, uint8_t* dst,
          int mode) {
  HorizontalWeights(c, rows[3], 0, 9);
  const size_t x = Body(hn::ScalableTag<float>(), u, c, dn, dst, rows, mode, 0, 8);
  Body(hn::CappedTag<float, 8>(), u, c, dn, dst, rows, mode, x, 8);
}

// Rows 0 .. 2 * (height / 2) - 1, the last with itself as the row below.
void Plane(float* const* rows, const uint8_t* src, uint8_t* dst, int height, int width) {
  if (width < 2 || height < 4) return;
  const size_t w = static_cast<size_t>(width);
  const int last = height / 2 * 2 - 1;
  auto row = [&](int y) { return src + y * w; };
  Row(rows, row(0), row(0), row(1), dst, width, 0);
  for (int r = 1; r < last; r += 2) {
    Row(rows, row(r - 1), row(r), row(r + 1), dst + r * w, width, 1);
    Row(rows, row(r), row(r + 1), row(r + 2), dst + (r + 1) * w, width, 2);
  }
  Row(rows, row(last - 1), row(last), row(last), dst + last * w, width, 1);
}

void Estimates(const float* in, float* out, size_t n) {
  const hn::ScalableTag<float> df;
  const hn::CappedTag<float, 1> d1;
  size_t i = 0;
  for (const size_t step = hn::Lanes(df); i + step <= n; i += step) {
    hn::StoreU(RecipEstimate(df, hn::LoadU(df, in + i)), df, out + i);
  }
  for (; i < n; ++i) hn::StoreU(RecipEstimate(d1, hn::LoadU(d1, in + i)), d1, out + i);
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith {
HWY_EXPORT(Row);
HWY_EXPORT(Step);
HWY_EXPORT(Plane);
HWY_EXPORT(Estimates);

void RecipEstimates(const float* in, float* out, size_t n) {
  HWY_DYNAMIC_DISPATCH(Estimates)(in, out, n);
}

namespace {
float* const* WeightRows(_StLanczos1p5x* ctx) { return reinterpret_cast<float* const*>(ctx->hblBuf); }
}  // namespace
}  // namespace vorlith

void BL_NEON(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst, int height, int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::Plane)(vorlith::WeightRows(ctx), src, dst, height, width);
}

void HBL_NEON_BASE(_StLanczos1p5x* ctx, unsigned char* up, unsigned char* centre,
                   unsigned char* down, unsigned char* dst, int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::Row)(vorlith::WeightRows(ctx), up, centre, down, dst, width, 0);
}

void HBL_NEON_1(_StLanczos1p5x* ctx, unsigned char* up, unsigned char* centre, unsigned char* down,
                unsigned char* dst, int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::Row)(vorlith::WeightRows(ctx), up, centre, down, dst, width, 1);
}

void HBL_NEON_2(_StLanczos1p5x* ctx, unsigned char* up, unsigned char* centre, unsigned char* down,
                unsigned char* dst, int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::Row)(vorlith::WeightRows(ctx), up, centre, down, dst, width, 2);
}

void HBL_RESULT_NEON(_StLanczos1p5x* ctx, unsigned char* up, unsigned char* centre,
                     unsigned char* down, unsigned char* dst, int mode) {
  HWY_DYNAMIC_DISPATCH(vorlith::Step)(vorlith::WeightRows(ctx), up, centre, down, dst, mode);
}
#endif  // HWY_ONCE
