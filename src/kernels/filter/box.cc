// 3x3 box filters with edge replication: the guided detail enhancer and the
// even box filter's detail layer, plus the sharpening step that applies it.
//
// Each source row is summed horizontally once into a ring of four 16-bit rows;
// the sum of two consecutive ring rows (the pair row) serves the output row
// above and the one below it, so every output row costs one vertical add and
// one pair add shared by two rows. The drivers filter the top 4 * (h / 4) rows.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/filter/box.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "src/kernels/arm_numerics-inl.h"
#include "src/kernels/filter/filter_common.h"
#include "vorlith/filter.h"

HWY_BEFORE_NAMESPACE();
namespace vorlith {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Horizontal 3-sums of a row of n >= 2 samples (bytes, or int16 wrapping).
template <typename T>
HWY_INLINE void HSums(const T* HWY_RESTRICT s, int16_t* HWY_RESTRICT h, size_t n) {
  auto sum3 = [](int a, int b, int c) { return static_cast<int16_t>(a + b + c); };
  h[0] = sum3(s[0], s[0], s[1]);
  size_t x = 1;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<int16_t> d;
  const hn::Rebind<T, decltype(d)> ds;
  auto load = [&](const T* p) {
    if constexpr (sizeof(T) == 1) {
      return hn::BitCast(d, hn::PromoteTo(hn::RebindToUnsigned<decltype(d)>(), hn::LoadU(ds, p)));
    } else {
      return hn::LoadU(d, p);
    }
  };
  for (const size_t step = hn::Lanes(d); x + step + 1 <= n; x += step) {
    hn::StoreU(hn::Add(hn::Add(load(s + x - 1), load(s + x)), load(s + x + 1)), d, h + x);
  }
#endif
  for (; x + 1 < n; ++x) h[x] = sum3(s[x - 1], s[x], s[x + 1]);
  h[n - 1] = sum3(s[n - 2], s[n - 1], s[n - 1]);
}

void HBox(const uint8_t* src, int16_t* sums, const int16_t* guide, int16_t* guide_sums,
          size_t n) {
  HSums(src, sums, n);
  if (guide) HSums(guide, guide_sums, n);
}

// out = a + b, wrapping.
void VAdd(const int16_t* HWY_RESTRICT a, const int16_t* HWY_RESTRICT b, int16_t* HWY_RESTRICT out,
          size_t n) {
  size_t i = 0;
  const hn::ScalableTag<int16_t> d;
  for (const size_t step = hn::Lanes(d); i + step <= n; i += step) {
    hn::StoreU(hn::Add(hn::LoadU(d, a + i), hn::LoadU(d, b + i)), d, out + i);
  }
  for (; i < n; ++i) out[i] = static_cast<int16_t>(a[i] + b[i]);
}

template <class DF>
HWY_INLINE hn::Vec<DF> WidenSum(DF df, const int16_t* a, const int16_t* b) {
  const hn::Rebind<int32_t, DF> di;
  const hn::Rebind<int16_t, DF> d16;
  return hn::ConvertTo(df, hn::PromoteTo(di, hn::Add(hn::LoadU(d16, a), hn::LoadU(d16, b))));
}

template <class DF>
HWY_INLINE hn::Vec<DF> LoadBytes(DF df, const uint8_t* p) {
  const hn::Rebind<int32_t, DF> di;
  const hn::Rebind<uint8_t, DF> d8;
  return hn::ConvertTo(df, hn::BitCast(di, hn::PromoteTo(hn::RebindToUnsigned<decltype(di)>(),
                                                          hn::LoadU(d8, p))));
}

// The vector columns' float to byte rule (round, then SQXTUN of the low 16 bits).
template <class DF>
HWY_INLINE void StoreRounded(DF df, hn::Vec<DF> v, uint8_t* p) {
  const hn::Rebind<int32_t, DF> di;
  const hn::Rebind<uint8_t, DF> d8;
  const auto half_up = hn::Add(v, hn::Set(df, 0.5f));
  // Below 2^15 in magnitude the low 16 bits are the value itself, and a plain
  // saturating narrowing gives the same bytes with far fewer steps.
  if (HWY_LIKELY(hn::AllTrue(df, hn::Lt(hn::Abs(half_up), hn::Set(df, 32768.0f))))) {
    hn::StoreU(hn::DemoteTo(d8, hn::ConvertTo(di, half_up)), d8, p);
    return;
  }
  const auto bytes = Low16SignedToU8Range(di, TruncToI32Sat(di, half_up));
  hn::StoreU(hn::DemoteTo(d8, bytes), d8, p);
}

// expTableBuffer[trunc(double(min(w, 1)) * 1000 + 0.5)] per lane, w >= 0,
// without doubles: m = min(w, 1) is M * 2^(E - 150), so the index is
// (125 M + 2^(s - 1)) >> s with s = 147 - E, exact in 32 bits, and 0 once s
// passes 31 (m below 2^-11). This equals the double-precision definition for
// every float in [0, 1] (checked exhaustively when it was written).
template <class DF>
HWY_INLINE hn::Vec<DF> PowerTable(DF df, hn::Vec<DF> w) {
  const hn::RebindToSigned<DF> di;
  const auto bits = hn::BitCast(di, hn::Min(w, hn::Set(df, 1.0f)));
  const auto e = hn::ShiftRight<23>(bits);
  const auto m = hn::Or(hn::And(bits, hn::Set(di, 0x7FFFFF)),
                        hn::IfThenZeroElse(hn::Eq(e, hn::Zero(di)), hn::Set(di, 0x800000)));
  const auto s = hn::Sub(hn::Set(di, 147), e);
  const auto sc = hn::Min(s, hn::Set(di, 31));
  const hn::RebindToUnsigned<DF> du;
  const auto sum = hn::Add(hn::Mul(hn::BitCast(du, m), hn::Set(du, 125u)),
                           hn::Shl(hn::Set(du, 1u), hn::BitCast(du, hn::Sub(sc, hn::Set(di, 1)))));
  const auto idx = hn::BitCast(di, hn::Shr(sum, hn::BitCast(du, sc)));
  return hn::GatherIndex(df, expTableBuffer, hn::IfThenZeroElse(hn::Gt(s, sc), idx));
}

// Guided output pixels [x, end) by the vector formula; returns where it stopped.
template <class DF>
HWY_INLINE size_t GuidedBody(DF df, float a, float b, const int16_t* sr, const int16_t* sp,
                             const int16_t* gr, const int16_t* gp, const uint8_t* src,
                             uint8_t* dst, size_t x, size_t end) {
  const auto va = hn::Set(df, a), vc = hn::Set(df, a / -9.0f), vb = hn::Set(df, b);
  const auto ninth = hn::Set(df, filter::kNinth), one = hn::Set(df, 1.0f);
  for (const size_t step = hn::Lanes(df); x + step <= end; x += step) {
    const auto s = WidenSum(df, sr + x, sp + x);
    const auto g = WidenSum(df, gr + x, gp + x);
    const auto p = LoadBytes(df, src + x);
    const auto d = hn::Add(hn::Mul(vc, s), hn::Mul(va, p));
    const auto w = hn::Abs(hn::Sub(one, hn::Mul(vb, hn::Abs(hn::Mul(g, ninth)))));
    StoreRounded(df, hn::Add(hn::Add(p, d), hn::Mul(d, PowerTable(df, w))), dst + x);
  }
  return x;
}

void GuidedFinal(float a, float b, const int16_t* sr, const int16_t* sp, const int16_t* gr,
                 const int16_t* gp, const uint8_t* src, uint8_t* dst, size_t body, size_t n) {
  size_t x = GuidedBody(hn::ScalableTag<float>(), a, b, sr, sp, gr, gp, src, dst, 0, body);
  x = GuidedBody(hn::CappedTag<float, 8>(), a, b, sr, sp, gr, gp, src, dst, x, body);
  for (; x < n; ++x) {
    dst[x] = filter::GuidedTail(a, b, src[x], static_cast<int16_t>(sr[x] + sp[x]),
                                static_cast<int16_t>(gr[x] + gp[x]));
  }
}

// detail = P - S * (1/9); the tail's P + S * -(1/9) is the same value.
template <class DF>
HWY_INLINE size_t DetailBody(DF df, const int16_t* row, const int16_t* pair, const uint8_t* src,
                             float* detail, size_t x, size_t end) {
  const auto ninth = hn::Set(df, filter::kNinth);
  for (const size_t step = hn::Lanes(df); x + step <= end; x += step) {
    const auto s = WidenSum(df, row + x, pair + x);
    hn::StoreU(hn::Sub(LoadBytes(df, src + x), hn::Mul(s, ninth)), df, detail + x);
  }
  return x;
}

void DetailFinal(const int16_t* row, const int16_t* pair, const uint8_t* src, float* detail,
                 size_t n) {
  size_t x = DetailBody(hn::ScalableTag<float>(), row, pair, src, detail, 0, n);
  x = DetailBody(hn::CappedTag<float, 8>(), row, pair, src, detail, x, n);
  for (; x < n; ++x) {
    detail[x] = static_cast<float>(src[x]) +
                static_cast<float>(static_cast<int16_t>(row[x] + pair[x])) * -filter::kNinth;
  }
}

template <class DF>
HWY_INLINE size_t SharpenBody(DF df, const float* detail, const float* gain, const uint8_t* src,
                              uint8_t* dst, size_t x, size_t end) {
  for (const size_t step = hn::Lanes(df); x + step <= end; x += step) {
    const auto v = hn::Add(hn::Mul(hn::LoadU(df, detail + x), hn::LoadU(df, gain + x)),
                           LoadBytes(df, src + x));
    StoreRounded(df, v, dst + x);
  }
  return x;
}

void Sharpen(const float* detail, const float* gain, const uint8_t* src, uint8_t* dst,
             size_t body, size_t n) {
  size_t x = SharpenBody(hn::ScalableTag<float>(), detail, gain, src, dst, 0, body);
  x = SharpenBody(hn::CappedTag<float, 8>(), detail, gain, src, dst, x, body);
  for (; x < n; ++x) dst[x] = filter::Truncate(detail[x] * gain[x] + static_cast<float>(src[x]));
}

// Both box drivers. `guide` null: the detail layer into `detail`; otherwise
// the guided filter into `dst`. Rows of the ring: slot r % 4 holds the
// horizontal sums of source row r, slot 4 the pair row.
void BoxPlane(int16_t* sbuf, int16_t* gbuf, float a, float b, const uint8_t* src,
              const int16_t* guide, uint8_t* dst, float* detail, int height, int width) {
  if (width < 4 || width % 2 != 0 || width > 8192 || height < 4) return;
  const size_t w = static_cast<size_t>(width);
  const int rows = height / 4 * 4;
  auto slot = [&](int16_t* buf, int r) { return buf + static_cast<size_t>(r % 4) * w; };
  auto hsum = [&](int r) {
    HBox(src + r * w, slot(sbuf, r), guide ? guide + r * w : nullptr, guide ? slot(gbuf, r) : nullptr,
         w);
  };
  int16_t* spair = sbuf + 4 * w;
  int16_t* gpair = guide ? gbuf + 4 * w : nullptr;  // no guide ring without a guide
  hsum(0);
  for (int y = 0; y < rows; y += 2) {
    hsum(y + 1);
    if (y + 2 < rows) hsum(y + 2);
    VAdd(slot(sbuf, y), slot(sbuf, y + 1), spair, w);
    if (guide) VAdd(slot(gbuf, y), slot(gbuf, y + 1), gpair, w);
    for (int out = y; out < y + 2; ++out) {
      // The row outside the pair: the one above for the first, below for the second.
      const int other = out == y ? std::max(y - 1, 0) : std::min(y + 2, rows - 1);
      if (guide) {
        GuidedFinal(a, b, slot(sbuf, other), spair, slot(gbuf, other), gpair, src + out * w,
                    dst + out * w, w / 8 * 8, w);
      } else {
        DetailFinal(slot(sbuf, other), spair, src + out * w, detail + out * w, w);
      }
    }
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith {
HWY_EXPORT(HBox);
HWY_EXPORT(VAdd);
HWY_EXPORT(GuidedFinal);
HWY_EXPORT(DetailFinal);
HWY_EXPORT(Sharpen);
HWY_EXPORT(BoxPlane);
}  // namespace vorlith

using vorlith::filter::ExpIndex;

void Boxfilter_AB_NEON(_StLanczos1p5x* ctx, float a, float b, unsigned char* src, short* guide,
                       unsigned char* dst, int height, int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::BoxPlane)(reinterpret_cast<int16_t*>(ctx->workBuf),
                                          reinterpret_cast<int16_t*>(ctx->lineBuf), a, b, src,
                                          guide, dst, nullptr, height, width);
}

void HBoxfilter_AB_NEON(unsigned char* src, short* srcSums, short* guide, short* guideSums,
                        int nvec, int npairs) {
  HWY_DYNAMIC_DISPATCH(vorlith::HBox)(src, srcSums, guide, guideSums,
                                      static_cast<size_t>(4 + 16 * nvec + 2 * npairs));
}

void VBoxfilter_AB_NEON(short* a0, short* a1, short* aOut, short* b0, short* b1, short* bOut,
                        int nvec, int ntail) {
  const size_t n = static_cast<size_t>(8 * nvec + ntail);
  HWY_DYNAMIC_DISPATCH(vorlith::VAdd)(a0, a1, aOut, n);
  HWY_DYNAMIC_DISPATCH(vorlith::VAdd)(b0, b1, bOut, n);
}

void VBoxfilter_final_AB_NEON(float a, float b, short* srcRow, short* srcPair, short* guideRow,
                              short* guidePair, unsigned char* src, unsigned char* dst, int nvec,
                              int ntail) {
  HWY_DYNAMIC_DISPATCH(vorlith::GuidedFinal)(a, b, srcRow, srcPair, guideRow, guidePair, src, dst,
                                             static_cast<size_t>(8 * nvec),
                                             static_cast<size_t>(8 * nvec + ntail));
}

void Boxfilter_2even_A_NEON(_StLanczos1p5x* ctx, unsigned char* src, float* detail, int height,
                            int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::BoxPlane)(reinterpret_cast<int16_t*>(ctx->lineBuf), nullptr, 0.0f,
                                          0.0f, src, nullptr, nullptr, detail, height, width);
}

void HBoxfilter_NEON(unsigned char* src, short* hsum, int nvec, int npairs) {
  HWY_DYNAMIC_DISPATCH(vorlith::HBox)(src, hsum, nullptr, nullptr,
                                      static_cast<size_t>(4 + 16 * nvec + 2 * npairs));
}

void VBoxfilter_NEON(short* a, short* b, short* out, int nvec, int ntail) {
  HWY_DYNAMIC_DISPATCH(vorlith::VAdd)(a, b, out, static_cast<size_t>(8 * nvec + ntail));
}

void VBoxfilter_final_A_NEON(short* row, short* pair, unsigned char* src, float* detail, int nvec,
                             int ntail) {
  HWY_DYNAMIC_DISPATCH(vorlith::DetailFinal)(row, pair, src, detail,
                                             static_cast<size_t>(8 * nvec + ntail));
}

void SharpenProduce_NEON(float* detail, float* gain, unsigned char* src, unsigned char* dst,
                         int nvec, int ntail) {
  HWY_DYNAMIC_DISPATCH(vorlith::Sharpen)(detail, gain, src, dst, static_cast<size_t>(8 * nvec),
                                         static_cast<size_t>(8 * nvec + ntail));
}

void SharpenProduce_Stride_NEON(float* detail, float* gain, unsigned char* src,
                                unsigned char* dst, int width, int height, int gStride) {
  if (width < 1) return;
  const size_t w = static_cast<size_t>(width);
  for (int y = 0; y < height; ++y) {
    HWY_DYNAMIC_DISPATCH(vorlith::Sharpen)(detail + y * w, gain + static_cast<ptrdiff_t>(y) * gStride,
                                           src + y * w, dst + y * w, w / 8 * 8, w);
  }
}

float ExpCal(float x) { return expTableBuffer[ExpIndex(x)]; }

unsigned char float_to_uchar(float f) { return vorlith::filter::Truncate(f); }
#endif  // HWY_ONCE
