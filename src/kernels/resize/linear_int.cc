// Bilinear 2x, 3x, 4x, 1.5x and 4/3x enlargement of one byte plane, and
// their exported row passes.
//
// The horizontal pass turns a source row into 16-bit sums (weights total 4,
// 3, 8, 6 or 8 for 2x, 3x, 4x, 1.5x and 4/3x); ctx->lineBuf holds two of
// them as a ring named by rowIndex[0] (older) and rowIndex[1] (newer). Each
// output row blends the two ring rows and is defined by two float rounding
// rules (resize.h). The exported vertical passes apply those rules to any
// row contents; the drivers' sums stay below 2^15, where an integer form
// gives the same bytes (VerticalRowExact).

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/resize/linear_int.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "src/kernels/arm_numerics-inl.h"
#include "src/kernels/arm_numerics.h"
#include "vorlith/resize.h"

#ifndef VORLITH_LINEAR_INT_ONCE
#define VORLITH_LINEAR_INT_ONCE
namespace vorlith::linear {
inline constexpr float kInv16 = std::bit_cast<float>(0x3D800000u);
inline constexpr float kInv64 = std::bit_cast<float>(0x3C800000u);
inline constexpr float kInv3 = std::bit_cast<float>(0x3EAAAAABu);
inline constexpr float kInv9 = std::bit_cast<float>(0x3DE38E39u);
inline constexpr float kInv36 = std::bit_cast<float>(0x3CE38E39u);
}  // namespace vorlith::linear
#endif

HWY_BEFORE_NAMESPACE();
namespace vorlith {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// ---- Horizontal pass ---------------------------------------------------------
//
// `steps` pixel steps over src[0 .. steps]: each pixel a with right
// neighbour b gives R values; the left edge comes before them, the right
// edge (pixel src[steps]) after. The sums are the same on every path, so
// the vector width only decides speed; loads stop at src[steps].

template <int R>
HWY_INLINE void HorizontalStep(int a, int b, uint16_t* out) {
  if constexpr (R == 2) {
    out[0] = static_cast<uint16_t>(3 * a + b);
    out[1] = static_cast<uint16_t>(a + 3 * b);
  } else if constexpr (R == 3) {
    out[0] = static_cast<uint16_t>(3 * a);
    out[1] = static_cast<uint16_t>(2 * a + b);
    out[2] = static_cast<uint16_t>(a + 2 * b);
  } else {
    out[0] = static_cast<uint16_t>(7 * a + b);
    out[1] = static_cast<uint16_t>(5 * a + 3 * b);
    out[2] = static_cast<uint16_t>(3 * a + 5 * b);
    out[3] = static_cast<uint16_t>(a + 7 * b);
  }
}

template <int R>
void HorizontalRow(const uint8_t* HWY_RESTRICT src, uint16_t* HWY_RESTRICT out, size_t steps) {
  constexpr int kTotal = R == 3 ? 3 : (R == 2 ? 4 : 8);
  constexpr size_t kLead = R == 4 ? 2 : 1;  // left-edge values
  for (size_t k = 0; k < kLead; ++k) out[k] = static_cast<uint16_t>(kTotal * src[0]);
  uint16_t* o = out + kLead;
  size_t i = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<uint16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t n = hn::Lanes(d16);
  for (; i + n <= steps; i += n) {
    const auto a = hn::PromoteTo(d16, hn::LoadU(d8, src + i));
    const auto b = hn::PromoteTo(d16, hn::LoadU(d8, src + i + 1));
    uint16_t* dst = o + R * i;
    if constexpr (R == 2) {
      const auto sum = hn::Add(a, b);
      hn::StoreInterleaved2(hn::Add(sum, hn::Add(a, a)), hn::Add(sum, hn::Add(b, b)), d16, dst);
    } else if constexpr (R == 3) {
      const auto sum = hn::Add(a, b);
      hn::StoreInterleaved3(hn::Mul(a, hn::Set(d16, 3)), hn::Add(sum, a), hn::Add(sum, b), d16,
                            dst);
    } else {
      const auto c7 = hn::Set(d16, 7), c5 = hn::Set(d16, 5), c3 = hn::Set(d16, 3);
      hn::StoreInterleaved4(hn::Add(hn::Mul(a, c7), b), hn::Add(hn::Mul(a, c5), hn::Mul(b, c3)),
                            hn::Add(hn::Mul(a, c3), hn::Mul(b, c5)), hn::Add(a, hn::Mul(b, c7)),
                            d16, dst);
    }
  }
#endif
  for (; i < steps; ++i) HorizontalStep<R>(src[i], src[i + 1], o + R * i);
  const size_t trail = R == 2 ? 1 : 2;  // right-edge values
  for (size_t k = 0; k < trail; ++k) {
    o[R * steps + k] = static_cast<uint16_t>(kTotal * src[steps]);
  }
}

// ---- Vertical pass -----------------------------------------------------------

// Values [0, body): s = a*wa + b*wb in 16-bit lanes, read as signed,
// float(s)*f + 0.5f in single precision, truncated (saturating), low 16 bits
// read as signed and clamped to 0..255.
template <class D32>
HWY_INLINE size_t VerticalBody(D32 d32, const uint16_t* a, const uint16_t* b, int wa, int wb,
                               float f, uint8_t* dst, size_t i, size_t body) {
  const hn::Rebind<int16_t, D32> d16;
  const hn::Rebind<float, D32> df;
  const hn::Rebind<uint8_t, D32> d8;
  const size_t n = hn::Lanes(d32);
  const auto va = hn::Set(d16, static_cast<int16_t>(wa));
  const auto vb = hn::Set(d16, static_cast<int16_t>(wb));
  const auto scale = hn::Set(df, f);
  const auto half = hn::Set(df, 0.5f);
  for (; i + n <= body; i += n) {
    const auto ra = hn::LoadU(d16, reinterpret_cast<const int16_t*>(a) + i);
    const auto rb = hn::LoadU(d16, reinterpret_cast<const int16_t*>(b) + i);
    const auto s = hn::Add(hn::Mul(ra, va), hn::Mul(rb, vb));
    const auto x = hn::Add(hn::Mul(hn::ConvertTo(df, hn::PromoteTo(d32, s)), scale), half);
    hn::StoreU(hn::DemoteTo(d8, Low16SignedToU8Range(d32, TruncToI32Sat(d32, x))), d8, dst + i);
  }
  return i;
}

// One output row: `body` values by the vector rule, then `tail` by the
// scalar one: s = a*wa + b*wb in 32 bits (row values taken as T), negative s
// to 0, float(s)*f in single precision, + 0.5 in double, truncated, capped
// at 255.
template <class T>
void VerticalRow(const T* a, const T* b, int wa, int wb, float f, uint8_t* dst, int body8,
                 int tail) {
  const size_t body = body8 > 0 ? 8 * static_cast<size_t>(body8) : 0;
  const size_t end = body + (tail > 0 ? static_cast<size_t>(tail) : 0);
  const auto* ua = reinterpret_cast<const uint16_t*>(a);
  const auto* ub = reinterpret_cast<const uint16_t*>(b);
  size_t i = 0;
#if HWY_TARGET != HWY_SCALAR
  i = VerticalBody(hn::ScalableTag<int32_t>(), ua, ub, wa, wb, f, dst, i, body);
  i = VerticalBody(hn::CappedTag<int32_t, 8>(), ua, ub, wa, wb, f, dst, i, body);
#endif
  for (; i < body; ++i) {
    const int16_t s = static_cast<int16_t>(static_cast<uint16_t>(ua[i] * wa + ub[i] * wb));
    int32_t v = ::vorlith::TruncToI32Sat(static_cast<float>(s) * f + 0.5f);
    v = static_cast<int16_t>(static_cast<uint16_t>(v));
    dst[i] = static_cast<uint8_t>(std::clamp(v, 0, 255));
  }
  for (; i < end; ++i) {
    int32_t s = int32_t{a[i]} * wa + int32_t{b[i]} * wb;
    if (s < 0) s = 0;
    const float x = static_cast<float>(s) * f;
    const int32_t v = ::vorlith::TruncToI32Sat(static_cast<double>(x) + 0.5);
    dst[i] = static_cast<uint8_t>(std::min(v, 255));
  }
}

// The drivers' rows in integers. Their sums are at most T*T*255 for weights
// totalling T (below 2^15), and over that range both rounding rules equal
// (((S + bias) >> pre) * mul) >> 16 for the constants below; the
// static_asserts check every such sum at build time.
struct Exact {
  int bias, pre, mul;
};
inline constexpr Exact kExact16{8, 0, 4096}, kExact64{32, 0, 1024}, kExact3{1, 0, 21846},
    kExact9{4, 0, 7282}, kExact36{18, 2, 7282};

constexpr bool ExactOver(float f, Exact e, int max_sum) {
  for (int s = 0; s <= max_sum; ++s) {
    const float p = static_cast<float>(s) * f;
    const int body = static_cast<int>(p + 0.5f);
    const int tail = static_cast<int>(static_cast<double>(p) + 0.5);
    const int exact = (((s + e.bias) >> e.pre) * e.mul) >> 16;
    if (std::min(body, 255) != exact || std::min(tail, 255) != exact) return false;
  }
  return true;
}
static_assert(ExactOver(linear::kInv16, kExact16, 16 * 255));
static_assert(ExactOver(linear::kInv64, kExact64, 64 * 255));
static_assert(ExactOver(linear::kInv3, kExact3, 3 * 255));
static_assert(ExactOver(linear::kInv9, kExact9, 9 * 255));
static_assert(ExactOver(linear::kInv36, kExact36, 36 * 255));

template <int kPre>
void VerticalRowExact(const uint16_t* HWY_RESTRICT a, const uint16_t* HWY_RESTRICT b, int wa,
                      int wb, Exact e, uint8_t* HWY_RESTRICT dst, size_t count) {
  size_t i = 0;
#if HWY_TARGET != HWY_SCALAR
  // Signed lanes: sums and biased sums stay below 2^15, multipliers too.
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t n = hn::Lanes(d16);
  const auto* sa = reinterpret_cast<const int16_t*>(a);
  const auto* sb = reinterpret_cast<const int16_t*>(b);
  const auto va = hn::Set(d16, static_cast<int16_t>(wa));
  const auto vb = hn::Set(d16, static_cast<int16_t>(wb));
  const auto bias = hn::Set(d16, static_cast<int16_t>(e.bias));
  const auto mul = hn::Set(d16, static_cast<int16_t>(e.mul));
  for (; i + n <= count; i += n) {
    const auto s = hn::Add(hn::Mul(hn::LoadU(d16, sa + i), va), hn::Mul(hn::LoadU(d16, sb + i), vb));
    const auto q = hn::MulHigh(hn::ShiftRight<kPre>(hn::Add(s, bias)), mul);
    hn::StoreU(hn::DemoteTo(d8, q), d8, dst + i);
  }
#endif
  for (; i < count; ++i) {
    dst[i] = static_cast<uint8_t>((((a[i] * wa + b[i] * wb + e.bias) >> kPre) * e.mul) >> 16);
  }
}

// ---- Drivers -----------------------------------------------------------------

template <int R>
_StLanczos1p5x* LinearInt(_StLanczos1p5x* ctx, const uint8_t* src, uint8_t* dst, int height,
                          int width) {
  if (height < 1 || width < 1) return ctx;
  const size_t w = static_cast<size_t>(width);
  const size_t ow = R * w;
  uint16_t* const rows[2] = {reinterpret_cast<uint16_t*>(ctx->lineBuf),
                             reinterpret_cast<uint16_t*>(ctx->lineBuf) + ow};
  int32_t* const index = ctx->rowIndex;
  index[0] = 0;
  index[1] = 1;
  auto emit = [&](int wa, int wb, Exact e) {
    VerticalRowExact<0>(rows[index[0]], rows[index[1]], wa, wb, e, dst, ow);
    dst += ow;
  };
  if constexpr (R == 3) {
    // Rows 3i + 1 lie on source row i and are that row divided by 3.
    auto give = [&](const uint16_t* row) {
      VerticalRowExact<0>(row, row, 1, 0, kExact3, dst, ow);
      dst += ow;
    };
    HorizontalRow<3>(src, rows[1], w - 1);
    give(rows[1]);
    for (int y = 1; y < height; ++y) {
      src += w;
      HorizontalRow<3>(src, rows[index[0]], w - 1);
      std::swap(index[0], index[1]);
      give(rows[index[0]]);
      emit(2, 1, kExact9);
      emit(1, 2, kExact9);
    }
    std::swap(index[0], index[1]);
    give(rows[index[0]]);
    give(rows[index[0]]);
  } else {
    constexpr int kW = R == 2 ? 4 : 8;  // weights of one row total
    constexpr Exact kF = R == 2 ? kExact16 : kExact64;
    HorizontalRow<R>(src, rows[0], w - 1);
    HorizontalRow<R>(src, rows[1], w - 1);
    if constexpr (R == 2) {
      emit(1, 3, kF);
    } else {
      emit(3, 5, kF);
      emit(7, 1, kF);
    }
    for (int y = 1; y < height; ++y) {
      src += w;
      HorizontalRow<R>(src, rows[index[0]], w - 1);
      std::swap(index[0], index[1]);
      for (int k = R - 1; k >= 0; --k) {
        // Older row weight 3, 1 (2x) or 7, 5, 3, 1 (4x).
        const int wa = (2 * k + 1) * kW / (2 * R);
        emit(wa, kW - wa, kF);
      }
    }
    index[0] = index[1];
    for (int k = 0; k < R / 2; ++k) emit(0, kW, kF);
  }
  return ctx;
}

// ---- 1.5x and 4/3x -----------------------------------------------------------
//
// 1.5x takes source pairs (a, b), c the next pair's first pixel: 3a+3b,
// 5b+c, b+5c. 4/3x takes triples (a, b, c), d the next triple's first:
// 3a+5b, 5b+3c, 7c+d, c+7d. Both start with the clamped left edge; `groups`
// groups of 8 pairs or triples come first, then the scalar walk from p,
// which ends with the clamped right edge.

// Reads src[0 .. 16 groups + 2 pairs + 1].
void HorizontalRow1p5x(const uint8_t* HWY_RESTRICT src, uint16_t* HWY_RESTRICT out,
                       size_t groups, size_t pairs) {
  out[0] = static_cast<uint16_t>(6 * src[0]);
  const size_t n = 8 * groups;
  size_t k = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<uint16_t> d16;
  const hn::Repartition<uint8_t, decltype(d16)> d8;
  const size_t lanes = hn::Lanes(d16);
  const auto low = hn::Set(d16, 0xFF);
  for (; k + lanes <= n; k += lanes) {
    // Little-endian 16-bit lanes hold a pair: the even pixel in the low byte.
    const auto p0 = hn::BitCast(d16, hn::LoadU(d8, src + 2 * k));
    const auto c = hn::And(hn::BitCast(d16, hn::LoadU(d8, src + 2 * k + 2)), low);
    const auto a = hn::And(p0, low), b = hn::ShiftRight<8>(p0);
    const auto five = hn::Set(d16, 5);
    hn::StoreInterleaved3(hn::Mul(hn::Add(a, b), hn::Set(d16, 3)), hn::Add(hn::Mul(b, five), c),
                          hn::Add(b, hn::Mul(c, five)), d16, out + 1 + 3 * k);
  }
#endif
  for (; k < n; ++k) {
    const int a = src[2 * k], b = src[2 * k + 1], c = src[2 * k + 2];
    out[1 + 3 * k] = static_cast<uint16_t>(3 * (a + b));
    out[2 + 3 * k] = static_cast<uint16_t>(5 * b + c);
    out[3 + 3 * k] = static_cast<uint16_t>(b + 5 * c);
  }
  const uint8_t* p = src + 2 * n;
  uint16_t* o = out + 1 + 3 * n;
  o[0] = static_cast<uint16_t>(3 * (p[0] + p[1]));
  for (size_t j = 0; j < pairs; ++j, p += 2, o += 3) {
    o[1] = static_cast<uint16_t>(5 * p[1] + p[2]);
    o[2] = static_cast<uint16_t>(p[1] + 5 * p[2]);
    o[3] = static_cast<uint16_t>(3 * (p[2] + p[3]));
  }
  o[1] = static_cast<uint16_t>(6 * p[1]);
}

// Reads src[0 .. 24 groups + 3 triples + 2].
void HorizontalRow4d3x(const uint8_t* HWY_RESTRICT src, uint16_t* HWY_RESTRICT out,
                       size_t groups, size_t triples) {
  out[0] = static_cast<uint16_t>(8 * src[0]);
  const size_t n = 8 * groups;
  size_t k = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<uint16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t lanes = hn::Lanes(d16);
  const auto c3 = hn::Set(d16, 3), c5 = hn::Set(d16, 5), c7 = hn::Set(d16, 7);
  for (; k + lanes <= n; k += lanes) {
    hn::Vec<decltype(d8)> a8, b8, c8, d8v, e8, f8;
    hn::LoadInterleaved3(d8, src + 3 * k, a8, b8, c8);
    hn::LoadInterleaved3(d8, src + 3 * k + 3, d8v, e8, f8);  // d: the next triple's first
    const auto a = hn::PromoteTo(d16, a8), b = hn::PromoteTo(d16, b8);
    const auto c = hn::PromoteTo(d16, c8), d = hn::PromoteTo(d16, d8v);
    hn::StoreInterleaved4(hn::Add(hn::Mul(a, c3), hn::Mul(b, c5)),
                          hn::Add(hn::Mul(b, c5), hn::Mul(c, c3)), hn::Add(hn::Mul(c, c7), d),
                          hn::Add(c, hn::Mul(d, c7)), d16, out + 1 + 4 * k);
  }
#endif
  for (; k < n; ++k) {
    const int a = src[3 * k], b = src[3 * k + 1], c = src[3 * k + 2], d = src[3 * k + 3];
    out[1 + 4 * k] = static_cast<uint16_t>(3 * a + 5 * b);
    out[2 + 4 * k] = static_cast<uint16_t>(5 * b + 3 * c);
    out[3 + 4 * k] = static_cast<uint16_t>(7 * c + d);
    out[4 + 4 * k] = static_cast<uint16_t>(c + 7 * d);
  }
  const uint8_t* p = src + 3 * n;
  uint16_t* o = out + 1 + 4 * n;
  o[0] = static_cast<uint16_t>(3 * p[0] + 5 * p[1]);
  o[1] = static_cast<uint16_t>(5 * p[1] + 3 * p[2]);
  for (size_t j = 0; j < triples; ++j, p += 3, o += 4) {
    o[2] = static_cast<uint16_t>(7 * p[2] + p[3]);
    o[3] = static_cast<uint16_t>(p[2] + 7 * p[3]);
    o[4] = static_cast<uint16_t>(3 * p[3] + 5 * p[4]);
    o[5] = static_cast<uint16_t>(5 * p[4] + 3 * p[5]);
  }
  o[2] = static_cast<uint16_t>(8 * p[2]);
}

// Den = 2: 1.5x, sixths; Den = 3: 4/3x, eighths. Widths and heights not a
// multiple of Den leave their last samples unread; the columns the
// horizontal pass then leaves repeat its last value.
template <int Den>
_StLanczos1p5x* LinearFrac(_StLanczos1p5x* ctx, const uint8_t* src, uint8_t* dst, int height,
                           int width) {
  if (height < Den || width < Den) return ctx;
  constexpr int kW = Den == 2 ? 6 : 8;
  constexpr Exact kF = Den == 2 ? kExact36 : kExact64;
  const size_t w = static_cast<size_t>(width);
  const size_t ow = Den == 2 ? static_cast<size_t>(1.5 * width) : 4 * w / 3;
  const size_t written = (Den + 1) * (w - w % Den) / Den;
  const size_t groups = (w - Den) / (8 * Den), singles = (w - Den) % (8 * Den) / Den;
  uint16_t* const rows[2] = {reinterpret_cast<uint16_t*>(ctx->lineBuf),
                             reinterpret_cast<uint16_t*>(ctx->lineBuf) + ow};
  int32_t* const index = ctx->rowIndex;
  index[0] = 0;
  index[1] = 1;
  auto filter = [&](uint16_t* out) {
    if constexpr (Den == 2) {
      HorizontalRow1p5x(src, out, groups, singles);
    } else {
      HorizontalRow4d3x(src, out, groups, singles);
    }
    for (size_t j = written; j < ow; ++j) out[j] = out[written - 1];
  };
  auto next = [&]() {
    src += w;
    filter(rows[index[0]]);
    std::swap(index[0], index[1]);
  };
  auto emit = [&](int wa, int wb) {
    VerticalRowExact<Den == 2 ? 2 : 0>(rows[index[0]], rows[index[1]], wa, wb, kF, dst, ow);
    dst += ow;
  };
  filter(rows[0]);
  filter(rows[1]);
  emit(kW - 1, 1);  // kW times row 0
  const int cycles = (height - Den) / Den;
  for (int i = 0;; ++i) {
    next();
    emit(3, Den == 2 ? 3 : 5);
    if constexpr (Den == 3) {
      next();
      emit(5, 3);
    }
    if (i >= cycles) break;
    next();
    emit(kW - 1, 1);
    emit(1, kW - 1);
  }
  index[0] = index[1];
  emit(0, kW);
  return ctx;
}

_StLanczos1p5x* Linear1p5x(_StLanczos1p5x* ctx, uint8_t* src, uint8_t* dst, int h, int w) {
  return LinearFrac<2>(ctx, src, dst, h, w);
}
_StLanczos1p5x* Linear4d3x(_StLanczos1p5x* ctx, uint8_t* src, uint8_t* dst, int h, int w) {
  return LinearFrac<3>(ctx, src, dst, h, w);
}
void HLinear1p5x(uint8_t* src, short* dst, int g, int p) {
  HorizontalRow1p5x(src, reinterpret_cast<uint16_t*>(dst), static_cast<size_t>(std::max(g, 0)),
                    static_cast<size_t>(std::max(p, 0)));
}
void HLinear4d3x(uint8_t* src, short* dst, int g, int t) {
  HorizontalRow4d3x(src, reinterpret_cast<uint16_t*>(dst), static_cast<size_t>(std::max(g, 0)),
                    static_cast<size_t>(std::max(t, 0)));
}

_StLanczos1p5x* Linear2x(_StLanczos1p5x* ctx, uint8_t* src, uint8_t* dst, int h, int w) {
  return LinearInt<2>(ctx, src, dst, h, w);
}
_StLanczos1p5x* Linear3x(_StLanczos1p5x* ctx, uint8_t* src, uint8_t* dst, int h, int w) {
  return LinearInt<3>(ctx, src, dst, h, w);
}
_StLanczos1p5x* Linear4x(_StLanczos1p5x* ctx, uint8_t* src, uint8_t* dst, int h, int w) {
  return LinearInt<4>(ctx, src, dst, h, w);
}

template <int R>
void HLinearInt(const uint8_t* src, uint16_t* dst, int groups, int singles) {
  const size_t steps = 8 * static_cast<size_t>(std::max(groups, 0)) +
                       static_cast<size_t>(std::max(singles, 0));
  HorizontalRow<R>(src, dst, steps);
}
void HLinear2x(uint8_t* src, short* dst, int g, int p) {
  HLinearInt<2>(src, reinterpret_cast<uint16_t*>(dst), g, p);
}
void HLinear3x(uint8_t* src, unsigned short* dst, int g, int p) { HLinearInt<3>(src, dst, g, p); }
void HLinear4x(uint8_t* src, short* dst, int g, int p) {
  HLinearInt<4>(src, reinterpret_cast<uint16_t*>(dst), g, p);
}

void VLinear3x1(_StLanczos1p5x* ctx, unsigned short** rows, uint8_t* dst, int n8, int n1) {
  VerticalRow(rows[ctx->rowIndex[0]], rows[ctx->rowIndex[1]], 2, 1, linear::kInv9, dst, n8, n1);
}
void VLinear3x2(_StLanczos1p5x* ctx, unsigned short** rows, uint8_t* dst, int n8, int n1) {
  VerticalRow(rows[ctx->rowIndex[0]], rows[ctx->rowIndex[1]], 1, 2, linear::kInv9, dst, n8, n1);
}
void Linear3xGive(uint8_t* dst, unsigned short* row, int n8, int n1) {
  VerticalRow(row, row, 1, 0, linear::kInv3, dst, n8, n1);
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith {
HWY_EXPORT(Linear2x);
HWY_EXPORT(Linear3x);
HWY_EXPORT(Linear4x);
HWY_EXPORT(HLinear2x);
HWY_EXPORT(HLinear3x);
HWY_EXPORT(HLinear4x);
HWY_EXPORT(VLinear3x1);
HWY_EXPORT(VLinear3x2);
HWY_EXPORT(Linear3xGive);
HWY_EXPORT(Linear1p5x);
HWY_EXPORT(Linear4d3x);
HWY_EXPORT(HLinear1p5x);
HWY_EXPORT(HLinear4d3x);
}  // namespace vorlith

_StLanczos1p5x* Linear_2x(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst, int height,
                          int width) {
  return HWY_DYNAMIC_DISPATCH(vorlith::Linear2x)(ctx, src, dst, height, width);
}
_StLanczos1p5x* Linear_3x(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst, int height,
                          int width) {
  return HWY_DYNAMIC_DISPATCH(vorlith::Linear3x)(ctx, src, dst, height, width);
}
_StLanczos1p5x* Linear_4x(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst, int height,
                          int width) {
  return HWY_DYNAMIC_DISPATCH(vorlith::Linear4x)(ctx, src, dst, height, width);
}
void HResizeLinear_2x_NEON(unsigned char* src, short* dst, int groups, int singles) {
  HWY_DYNAMIC_DISPATCH(vorlith::HLinear2x)(src, dst, groups, singles);
}
void HResizeLinear_3x_NEON(unsigned char* src, unsigned short* dst, int groups, int singles) {
  HWY_DYNAMIC_DISPATCH(vorlith::HLinear3x)(src, dst, groups, singles);
}
void HResizeLinear_4x_NEON(unsigned char* src, short* dst, int groups, int singles) {
  HWY_DYNAMIC_DISPATCH(vorlith::HLinear4x)(src, dst, groups, singles);
}
void VResizeLinear_3x_NEON_1(_StLanczos1p5x* ctx, unsigned short** rows, unsigned char* dst,
                             int groups, int singles) {
  HWY_DYNAMIC_DISPATCH(vorlith::VLinear3x1)(ctx, rows, dst, groups, singles);
}
void VResizeLinear_3x_NEON_2(_StLanczos1p5x* ctx, unsigned short** rows, unsigned char* dst,
                             int groups, int singles) {
  HWY_DYNAMIC_DISPATCH(vorlith::VLinear3x2)(ctx, rows, dst, groups, singles);
}
void Linear_3x_give_NEON(unsigned char* dst, unsigned short* row, int groups, int singles) {
  HWY_DYNAMIC_DISPATCH(vorlith::Linear3xGive)(dst, row, groups, singles);
}
_StLanczos1p5x* Linear_1p5x(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst,
                            int height, int width) {
  return HWY_DYNAMIC_DISPATCH(vorlith::Linear1p5x)(ctx, src, dst, height, width);
}
_StLanczos1p5x* Linear_4div3x(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst,
                              int height, int width) {
  return HWY_DYNAMIC_DISPATCH(vorlith::Linear4d3x)(ctx, src, dst, height, width);
}
void HResizeLinear_1p5x_NEON(unsigned char* src, short* dst, int groups, int pairs) {
  HWY_DYNAMIC_DISPATCH(vorlith::HLinear1p5x)(src, dst, groups, pairs);
}
void HResizeLinear_4div3x_NEON(unsigned char* src, short* dst, int groups, int triples) {
  HWY_DYNAMIC_DISPATCH(vorlith::HLinear4d3x)(src, dst, groups, triples);
}

// The single 1.5x vector steps, on the 8-lane type of lanes.h.
void u8_2x_to_s16_NEON_8LEN(unsigned char* src, __simd128_int16_t& even, __simd128_int16_t& odd) {
  int16_t e[8], o[8];
  for (int i = 0; i < 8; ++i) {
    e[i] = src[2 * i];
    o[i] = src[2 * i + 1];
  }
  std::memcpy(static_cast<void*>(&even), e, 16);
  std::memcpy(static_cast<void*>(&odd), o, 16);
}

void HLinear_1p5x_NEON_CAL(short* out, __simd128_int16_t& even, __simd128_int16_t& odd,
                           __simd128_int16_t& next) {
  int16_t e[8], o[8], n[8];
  std::memcpy(e, &even, 16);
  std::memcpy(o, &odd, 16);
  std::memcpy(n, &next, 16);
  // 16-bit lanes wrap, as the Arm multiply-accumulate does.
  auto wrap = [](int v) { return static_cast<short>(static_cast<uint16_t>(v)); };
  for (int k = 0; k < 8; ++k) {
    out[3 * k] = wrap(3 * (e[k] + o[k]));
    out[3 * k + 1] = wrap(5 * o[k] + n[k]);
    out[3 * k + 2] = wrap(o[k] + 5 * n[k]);
  }
}
#endif  // HWY_ONCE
