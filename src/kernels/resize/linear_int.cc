// Bilinear 2x, 3x and 4x enlargement of one byte plane, and their exported
// row passes.
//
// The horizontal pass turns a source row into rW 16-bit sums (weights total
// 4, 3 or 8); ctx->lineBuf holds two of them as a ring named by rowIndex[0]
// (older) and rowIndex[1] (newer). Each output row blends the two ring rows
// and rounds once in single precision. The sums stay below 2^12, so every
// step of the vector and scalar rules is exact except the final float
// rounding, which both rules perform per element as documented in resize.h.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/resize/linear_int.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
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

// ---- Drivers -----------------------------------------------------------------

template <int R>
_StLanczos1p5x* LinearInt(_StLanczos1p5x* ctx, const uint8_t* src, uint8_t* dst, int height,
                          int width) {
  if (height < 1 || width < 1) return ctx;
  const size_t w = static_cast<size_t>(width);
  const size_t ow = R * w;
  const int body8 = static_cast<int>(ow / 8), tail = static_cast<int>(ow % 8);
  uint16_t* const rows[2] = {reinterpret_cast<uint16_t*>(ctx->lineBuf),
                             reinterpret_cast<uint16_t*>(ctx->lineBuf) + ow};
  int32_t* const index = ctx->rowIndex;
  index[0] = 0;
  index[1] = 1;
  auto emit = [&](int wa, int wb, float f) {
    VerticalRow(rows[index[0]], rows[index[1]], wa, wb, f, dst, body8, tail);
    dst += ow;
  };
  if constexpr (R == 3) {
    // Rows 3i + 1 lie on source row i and are that row divided by 3.
    auto give = [&](const uint16_t* row) {
      VerticalRow(row, row, 1, 0, linear::kInv3, dst, body8, tail);
      dst += ow;
    };
    HorizontalRow<3>(src, rows[1], w - 1);
    give(rows[1]);
    for (int y = 1; y < height; ++y) {
      src += w;
      HorizontalRow<3>(src, rows[index[0]], w - 1);
      std::swap(index[0], index[1]);
      give(rows[index[0]]);
      emit(2, 1, linear::kInv9);
      emit(1, 2, linear::kInv9);
    }
    std::swap(index[0], index[1]);
    give(rows[index[0]]);
    give(rows[index[0]]);
  } else {
    constexpr int kW = R == 2 ? 4 : 8;  // weights of one row total
    constexpr float kF = R == 2 ? linear::kInv16 : linear::kInv64;
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
    const uint16_t* last = rows[index[1]];
    for (int k = 0; k < R / 2; ++k) {
      VerticalRow(last, last, 0, kW, kF, dst, body8, tail);
      dst += ow;
    }
  }
  return ctx;
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
#endif  // HWY_ONCE
