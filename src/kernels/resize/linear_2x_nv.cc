// NV12 chroma 2x bilinear enlargement, and its two exported passes.
//
// The horizontal pass turns a row of Cb/Cr pairs into int16 values scaled by
// 4 (3a+b, a+3b between neighbours, edges replicated). Two such rows live in
// ctx->lineBuf as a ring of two; each source row is filtered once and feeds
// two output rows, which are formed together in one pass over the ring.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/resize/linear_2x_nv.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "src/kernels/arm_numerics-inl.h"
#include "src/kernels/arm_numerics.h"
#include "src/kernels/byte_lanes-inl.h"
#include "src/kernels/resize/linear_2x_nv.h"
#include "vorlith/resize.h"

HWY_BEFORE_NAMESPACE();
namespace vorlith {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Horizontal pass of one row of `width` >= 1 pairs into 4*width values.
HWY_INLINE void HorizontalRow(const uint8_t* HWY_RESTRICT src, int16_t* HWY_RESTRICT dst,
                              size_t width) {
  dst[0] = static_cast<int16_t>(4 * src[0]);
  dst[1] = static_cast<int16_t>(4 * src[1]);
  // Component k of the row and component k + 2 (the same channel of the next
  // pair) give the two values written for pair k / 2.
  const size_t components = 2 * (width - 1);
  size_t k = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<uint16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const hn::RepartitionToWide<decltype(d16)> d32;
  const size_t n = hn::Lanes(d16);
  // Loads stop at byte components + 1, the last byte of the row.
  for (; k + n <= components; k += n) {
    const auto a = hn::PromoteTo(d16, hn::LoadU(d8, src + k));
    const auto b = hn::PromoteTo(d16, hn::LoadU(d8, src + k + 2));
    const auto sum = hn::Add(a, b);
    const auto near_a = hn::Add(sum, hn::Add(a, a));
    const auto near_b = hn::Add(sum, hn::Add(b, b));
    // Each Cb/Cr pair of results moves as one 32-bit lane: 3a+b pair first,
    // then the a+3b pair.
    StoreInterleaved2Bytes(hn::BitCast(d32, near_a), hn::BitCast(d32, near_b), d32, dst + 2 + 2 * k);
  }
#endif
  for (; k < components; ++k) {
    const int a = src[k];
    const int b = src[k + 2];
    const size_t out = 2 + 2 * k - (k & 1);
    dst[out] = static_cast<int16_t>(3 * a + b);
    dst[out + 2] = static_cast<int16_t>(a + 3 * b);
  }
  dst[4 * width - 2] = static_cast<int16_t>(4 * src[2 * width - 2]);
  dst[4 * width - 1] = static_cast<int16_t>(4 * src[2 * width - 1]);
}

// Output bytes (upper * wu + lower * wl + 8) >> 4 with wu + wl == 4. For the
// values a horizontal row holds (0..1020) this equals the float rounding the
// vertical pass is defined by, on the vector body and on the tail alike.
HWY_INLINE void VerticalRow(const int16_t* HWY_RESTRICT upper, const int16_t* HWY_RESTRICT lower,
                            int wu, int wl, uint8_t* HWY_RESTRICT dst, size_t count) {
  size_t i = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t n = hn::Lanes(d16);
  const auto vu = hn::Set(d16, static_cast<int16_t>(wu));
  const auto vl = hn::Set(d16, static_cast<int16_t>(wl));
  const auto bias = hn::Set(d16, 8);
  for (; i + n <= count; i += n) {
    const auto s = hn::Add(hn::Add(hn::Mul(hn::LoadU(d16, upper + i), vu),
                                   hn::Mul(hn::LoadU(d16, lower + i), vl)),
                           bias);
    hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<4>(s)), d8, dst + i);
  }
#endif
  for (; i < count; ++i) {
    dst[i] = static_cast<uint8_t>((upper[i] * wu + lower[i] * wl + 8) >> 4);
  }
}

// The two output rows between source rows p (upper) and q (lower):
// (3p + q + 8) >> 4 and (p + 3q + 8) >> 4, from one pass over both rows.
HWY_INLINE void VerticalRowPair(const int16_t* HWY_RESTRICT p, const int16_t* HWY_RESTRICT q,
                                uint8_t* HWY_RESTRICT near_p, uint8_t* HWY_RESTRICT near_q,
                                size_t count) {
  size_t i = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t n = hn::Lanes(d16);
  const auto bias = hn::Set(d16, 8);
  for (; i + n <= count; i += n) {
    const auto vp = hn::LoadU(d16, p + i);
    const auto vq = hn::LoadU(d16, q + i);
    const auto base = hn::Add(hn::Add(vp, vq), bias);
    const auto sp = hn::Add(base, hn::Add(vp, vp));
    const auto sq = hn::Add(base, hn::Add(vq, vq));
    hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<4>(sp)), d8, near_p + i);
    hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<4>(sq)), d8, near_q + i);
  }
#endif
  for (; i < count; ++i) {
    near_p[i] = static_cast<uint8_t>((3 * p[i] + q[i] + 8) >> 4);
    near_q[i] = static_cast<uint8_t>((p[i] + 3 * q[i] + 8) >> 4);
  }
}

void Linear2xNv(_StLanczos1p5x* ctx, const uint8_t* src, uint8_t* dst, int height, int width,
                int src_stride, int dst_stride) {
  if (height < 1 || width < 1) return;
  const size_t w = static_cast<size_t>(width);
  const size_t count = 4 * w;
  int16_t* const rows[2] = {reinterpret_cast<int16_t*>(ctx->lineBuf),
                            reinterpret_cast<int16_t*>(ctx->lineBuf) + dst_stride};
  int32_t* const index = ctx->rowIndex;
  index[0] = 0;
  index[1] = 1;
  HorizontalRow(src, rows[0], w);
  HorizontalRow(src, rows[1], w);
  // Top edge: the first row is replicated above itself.
  VerticalRow(rows[index[0]], rows[index[1]], 1, 3, dst, count);
  for (int s = 1; s < height; ++s) {
    src += src_stride;
    HorizontalRow(src, rows[index[0]], w);
    std::swap(index[0], index[1]);
    VerticalRowPair(rows[index[0]], rows[index[1]],
                    dst + static_cast<ptrdiff_t>(2 * s - 1) * dst_stride,
                    dst + static_cast<ptrdiff_t>(2 * s) * dst_stride, count);
  }
  // Bottom edge: the last row is replicated below itself.
  index[0] = index[1];
  VerticalRow(rows[index[1]], rows[index[1]], 0, 4,
              dst + static_cast<ptrdiff_t>(2 * height - 1) * dst_stride, count);
}

// Output rows [first, end) of Linear2xNv with `scratch` (two rows of
// 4 * width values) in place of the context's rows: the same row functions,
// so the same bytes, and bands of one frame may run on different threads.
void Linear2xNvRows(int16_t* scratch, const uint8_t* src, uint8_t* dst, int height, int width,
                    int src_stride, int dst_stride, int first, int end) {
  if (height < 1 || width < 1) return;
  const size_t w = static_cast<size_t>(width);
  const size_t count = 4 * w;
  int16_t* const rows[2] = {scratch, scratch + count};
  int held[2] = {-1, -1};
  // The horizontal result of source row s, filtered once while it is held;
  // `keep` is the row the other buffer must go on holding.
  const auto row = [&](int s, int keep) {
    for (int i = 0; i < 2; ++i) {
      if (held[i] == s) return rows[i];
    }
    const int i = held[0] == keep ? 1 : 0;
    HorizontalRow(src + static_cast<ptrdiff_t>(s) * src_stride, rows[i], w);
    held[i] = s;
    return rows[i];
  };
  const auto out = [&](int r) { return dst + static_cast<ptrdiff_t>(r) * dst_stride; };
  end = std::min(end, 2 * height);
  for (int r = std::max(first, 0); r < end;) {
    if (r == 0 || r == 2 * height - 1) {
      // Edge rows: the first or last source row replicated.
      const int16_t* edge = row(r == 0 ? 0 : height - 1, -1);
      VerticalRow(edge, edge, r == 0 ? 1 : 0, r == 0 ? 3 : 4, out(r), count);
      ++r;
      continue;
    }
    // Rows 2s - 1 and 2s lie between source rows s - 1 and s.
    const int s = (r + 1) / 2;
    const int16_t* p = row(s - 1, s);
    const int16_t* q = row(s, s - 1);
    if ((r & 1) != 0 && r + 1 < end) {
      VerticalRowPair(p, q, out(r), out(r + 1), count);
      r += 2;
    } else {
      VerticalRow(p, q, (r & 1) != 0 ? 3 : 1, (r & 1) != 0 ? 1 : 3, out(r), count);
      ++r;
    }
  }
}

void HResizeLinear2xNv(const uint8_t* src, int16_t* dst, int groups, int tail) {
  const long width = 8L * groups + tail + 1;
  if (width < 1) return;
  HorizontalRow(src, dst, static_cast<size_t>(width));
}

// General two-row vertical pass: values [0, body) on the 16-bit path, the
// rest on the 32-bit path (see resize.h for the exact rounding of each).
template <class D32>
HWY_INLINE size_t VResizeBody(D32 d32, const int16_t* a, const int16_t* b, uint8_t* dst,
                              int16_t w0, int16_t w1, float scale, size_t i, size_t body) {
  const hn::Rebind<int16_t, D32> d16;
  const hn::Rebind<float, D32> df;
  const hn::Rebind<uint8_t, D32> d8;
  const size_t n = hn::Lanes(d32);
  const auto vw0 = hn::Set(d16, w0);
  const auto vw1 = hn::Set(d16, w1);
  const auto vscale = hn::Set(df, scale);
  const auto half = hn::Set(df, 0.5f);
  for (; i + n <= body; i += n) {
    // 16-bit products and sum wrap modulo 65536.
    const auto s16 = hn::Add(hn::Mul(hn::LoadU(d16, a + i), vw0),
                             hn::Mul(hn::LoadU(d16, b + i), vw1));
    const auto f = hn::Add(hn::Mul(hn::ConvertTo(df, hn::PromoteTo(d32, s16)), vscale), half);
    const auto v = Low16SignedToU8Range(d32, TruncToI32Sat(d32, f));
    hn::StoreU(hn::DemoteTo(d8, v), d8, dst + i);
  }
  return i;
}

void VResizeLinear(_StLanczos1p5x* ctx, int16_t** rows, uint8_t* dst, const int16_t* weights,
                   int groups, int tail, float scale) {
  const int16_t* a = rows[ctx->rowIndex[0]];
  const int16_t* b = rows[ctx->rowIndex[1]];
  const int16_t w0 = weights[0];
  const int16_t w1 = weights[1];
  const size_t body = groups > 0 ? 8 * static_cast<size_t>(groups) : 0;
  const size_t end = body + (tail > 0 ? static_cast<size_t>(tail) : 0);
  // Full vectors first, then at most 8-lane ones: the body is a multiple of 8.
  size_t i = VResizeBody(hn::ScalableTag<int32_t>(), a, b, dst, w0, w1, scale, 0, body);
  i = VResizeBody(hn::CappedTag<int32_t, 8>(), a, b, dst, w0, w1, scale, i, body);
  for (; i < end; ++i) {
    // Wraps on the one input pair whose products sum to 2^31.
    int32_t s = static_cast<int32_t>(static_cast<uint32_t>(a[i] * w0) +
                                     static_cast<uint32_t>(b[i] * w1));
    if (s < 0) s = 0;
    const float f = static_cast<float>(s) * scale;
    int32_t v = ::vorlith::TruncToI32Sat(static_cast<double>(f) + 0.5);
    if (v >= 255) v = 255;
    dst[i] = static_cast<uint8_t>(v);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith {
HWY_EXPORT(Linear2xNv);
HWY_EXPORT(Linear2xNvRows);
HWY_EXPORT(HResizeLinear2xNv);
HWY_EXPORT(VResizeLinear);
}  // namespace vorlith

void Linear_2x_nv(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst, int height,
                  int width, int srcStride, int dstStride) {
  HWY_DYNAMIC_DISPATCH(vorlith::Linear2xNv)(ctx, src, dst, height, width, srcStride, dstStride);
}

namespace vorlith {
void Linear2xNvRows(int16_t* scratch, const uint8_t* src, uint8_t* dst, int height, int width,
                    int src_stride, int dst_stride, int first, int end) {
  HWY_DYNAMIC_DISPATCH(Linear2xNvRows)(scratch, src, dst, height, width, src_stride, dst_stride, first, end);
}
}  // namespace vorlith

void HResizeLinear_2x_nv_NEON(unsigned char* src, short* dst, int groups, int tail) {
  HWY_DYNAMIC_DISPATCH(vorlith::HResizeLinear2xNv)(src, dst, groups, tail);
}

void VResizeLinear_NEON(_StLanczos1p5x* ctx, short** rowsBuf, unsigned char* dst,
                        short const* weights, int groups, int tail, float scale) {
  HWY_DYNAMIC_DISPATCH(vorlith::VResizeLinear)(ctx, rowsBuf, dst, weights, groups, tail, scale);
}
#endif  // HWY_ONCE
