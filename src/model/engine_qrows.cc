// Quantised row functions of the network engine. Every result is integer
// arithmetic or a single correctly rounded float operation, so each target
// writes the same bytes; only how the multiply-accumulates are grouped
// differs: byte dot products where the CPU has them (AVX-512 VNNI), 16-bit
// pairwise products on the other x86 targets, 32-bit products elsewhere.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/model/engine_qrows.cc"
// The dot-product target is opt-in in this Highway; only this file needs it.
#ifndef HWY_WANT_AVX3_DL
#define HWY_WANT_AVX3_DL
#endif
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>

#include "src/model/engine_block-inl.h"
#include "src/model/engine_rows.h"

#if HWY_ARCH_ARM_A64 && defined(__linux__) && !defined(VORLITH_QROWS_AUXV)
#define VORLITH_QROWS_AUXV
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

HWY_BEFORE_NAMESPACE();
// This Highway's dot-product target does not enable the VNNI instructions
// its CPUs all have. On NEON the Armv8.2 dot product is enabled for the
// whole target but only run when the CPU reports it; the other NEON code
// here is intrinsics that do not change with it.
#if HWY_TARGET == HWY_AVX3_DL || (HWY_TARGET == HWY_NEON && HWY_ARCH_ARM_A64)
#if HWY_COMPILER_CLANG
#if HWY_TARGET == HWY_AVX3_DL
#pragma clang attribute push(__attribute__((target("avx512vnni"))), apply_to = function)
#else
#pragma clang attribute push(__attribute__((target("dotprod"))), apply_to = function)
#endif
#elif HWY_TARGET == HWY_AVX3_DL
#pragma GCC target("avx512vnni")
#else
#pragma GCC target("arch=armv8.2-a+dotprod+crypto")
#endif
#endif
namespace vorlith::model::rows {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using DI = hn::ScalableTag<int32_t>;
using DU = hn::RebindToUnsigned<DI>;
using DF = hn::RebindToFloat<DI>;
using VI = hn::Vec<DI>;
using VF = hn::Vec<DF>;

// Round half to even of |t| < 2^22: adding 1.5 * 2^23 leaves the rounded
// integer in the low mantissa bits. Highway's portable NearestInt does not
// round every tie to even, so this one is used on every target.
HWY_INLINE VI RoundEven(VF t) {
  const DF df;
  const DI di;
  const VF magic = hn::Set(df, 12582912.0f);
  return hn::Sub(hn::BitCast(di, hn::Add(t, magic)), hn::BitCast(di, magic));
}

// clamp(rne(v / scale) + zero_point, 0, 255) for finite or NaN v; the clamp
// to +-512 first keeps the rounding in range without changing any result.
HWY_INLINE VI Requantize(VF v, VF scale, VI zero_point) {
  const DF df;
  const DI di;
  VF t = hn::Div(v, scale);
  t = hn::IfThenElseZero(hn::Eq(t, t), t);
  t = hn::Min(hn::Max(t, hn::Set(df, -512.0f)), hn::Set(df, 512.0f));
  const VI q = hn::Add(RoundEven(t), zero_point);
  return hn::Min(hn::Max(q, hn::Zero(di)), hn::Set(di, 255));
}

void QuantizeRow(const float* in, int64_t in_stride, int64_t channels, uint32_t* out, int64_t out_stride,
                 int64_t width, float scale, int32_t zero_point) {
  const DF df;
  const DI di;
  const DU du;
  const int64_t n = static_cast<int64_t>(hn::Lanes(df));
  const VF s = hn::Set(df, scale);
  const VI zp = hn::Set(di, zero_point);
  for (int64_t c0 = 0; c0 < channels; c0 += 4) {
    for (int64_t x = 0; x < width; x += n) {
      VI q = hn::Zero(di);
      for (int64_t j = 0; j < 4 && c0 + j < channels; ++j) {
        const VI b = Requantize(hn::LoadU(df, in + (c0 + j) * in_stride + x), s, zp);
        q = hn::Or(q, j == 0 ? b : j == 1 ? hn::ShiftLeft<8>(b) : j == 2 ? hn::ShiftLeft<16>(b) : hn::ShiftLeft<24>(b));
      }
      hn::StoreU(hn::BitCast(du, q), du, out + (c0 / 4) * out_stride + x);
    }
  }
}

// How one target multiplies the four bytes of each 32-bit lane (four
// channels of one pixel) by four int8 weights and adds them to the lane: Lo
// and Hi prepare a loaded vector once for every output channel that reads
// it, Dot adds one weight entry's products. Static functions only: scalable
// vectors (SVE) cannot be members.
#if HWY_TARGET == HWY_AVX3_DL
struct Unsigned {  // vpdpbusd: unsigned bytes times signed bytes
  static constexpr int64_t kSection = 0, kInts = 1;
  static constexpr bool kSigned = false;
  static HWY_INLINE VI Lo(VI a) { return a; }
  static HWY_INLINE VI Hi(VI a) { return a; }
  static HWY_INLINE VI Dot(VI acc, VI a, VI, const int32_t* w) {
    // GCC copies the accumulator around the intrinsic's tied operand on
    // every step; the instruction itself, with the weight broadcast from
    // memory, keeps it in place.
    __m512i r = acc.raw;
    asm("vpdpbusd %2%{1to16%}, %1, %0" : "+v"(r) : "v"(a.raw), "m"(w[0]));
    return VI{r};
  }
};
using Dots = Unsigned;
#elif HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_SSE4
struct Pairs {  // even and odd bytes as 16-bit lanes; vpmaddwd sums each pair exactly
  static constexpr int64_t kSection = 1, kInts = 2;  // (w0, w2), (w1, w3)
  static constexpr bool kSigned = false;
  static HWY_INLINE VI Lo(VI a) {
    const hn::Repartition<uint16_t, DI> d16;
    return hn::BitCast(DI(), hn::And(hn::BitCast(d16, a), hn::Set(d16, 0x00FF)));
  }
  static HWY_INLINE VI Hi(VI a) {
    const hn::Repartition<uint16_t, DI> d16;
    return hn::BitCast(DI(), hn::ShiftRight<8>(hn::BitCast(d16, a)));
  }
  static HWY_INLINE VI Dot(VI acc, VI even, VI odd, const int32_t* w) {
#if HWY_TARGET == HWY_AVX3
    const VI lo{_mm512_madd_epi16(even.raw, _mm512_set1_epi32(w[0]))};
    const VI hi{_mm512_madd_epi16(odd.raw, _mm512_set1_epi32(w[1]))};
#elif HWY_TARGET == HWY_AVX2
    const VI lo{_mm256_madd_epi16(even.raw, _mm256_set1_epi32(w[0]))};
    const VI hi{_mm256_madd_epi16(odd.raw, _mm256_set1_epi32(w[1]))};
#else
    const VI lo{_mm_madd_epi16(even.raw, _mm_set1_epi32(w[0]))};
    const VI hi{_mm_madd_epi16(odd.raw, _mm_set1_epi32(w[1]))};
#endif
    return hn::Add(acc, hn::Add(lo, hi));
  }
};
using Dots = Pairs;
#else
struct Portable {  // each byte as a 32-bit lane, four 32-bit multiply-adds
  static constexpr int64_t kSection = 3, kInts = 4;  // w0, w1, w2, w3
  static constexpr bool kSigned = false;
  static HWY_INLINE VI Lo(VI a) { return a; }
  static HWY_INLINE VI Hi(VI a) { return a; }
  static HWY_INLINE VI Dot(VI acc, VI a, VI, const int32_t* w) {
    const DU du;
    const DI di;
    const auto u = hn::BitCast(du, a);
    const auto mask = hn::Set(du, 0xFF);
    acc = hn::Add(acc, hn::Mul(hn::BitCast(di, hn::And(u, mask)), hn::Set(di, w[0])));
    acc = hn::Add(acc, hn::Mul(hn::BitCast(di, hn::And(hn::ShiftRight<8>(u), mask)), hn::Set(di, w[1])));
    acc = hn::Add(acc, hn::Mul(hn::BitCast(di, hn::And(hn::ShiftRight<16>(u), mask)), hn::Set(di, w[2])));
    return hn::Add(acc, hn::Mul(hn::BitCast(di, hn::ShiftRight<24>(u)), hn::Set(di, w[3])));
  }
};
using Dots = Portable;
#endif

#if (HWY_TARGET == HWY_NEON && HWY_ARCH_ARM_A64) || HWY_TARGET == HWY_SVE || HWY_TARGET == HWY_SVE2 || \
    HWY_TARGET == HWY_SVE_256 || HWY_TARGET == HWY_SVE2_128
#define VORLITH_SIGNED_DOTS 1
// Signed dot products (Armv8.2 SDOT on NEON where the CPU has it, always on
// SVE): the bytes flipped to signed (x - 128), which the caller's bias
// makes up for (+128 x the filter's sum).
struct Signed {
  static constexpr int64_t kSection = 0, kInts = 1;
  static constexpr bool kSigned = true;
  static HWY_INLINE VI Lo(VI a) { return hn::Xor(a, hn::Set(DI(), static_cast<int32_t>(0x80808080u))); }
  static HWY_INLINE VI Hi(VI a) { return a; }
  static HWY_INLINE VI Dot(VI acc, VI a, VI, const int32_t* w) {
#if HWY_TARGET == HWY_NEON
    return VI{vdotq_s32(acc.raw, vreinterpretq_s8_s32(a.raw), vreinterpretq_s8_s32(vdupq_n_s32(w[0])))};
#else
    return svdot_s32(acc, svreinterpret_s8_s32(a), svreinterpret_s8_s32(svdup_n_s32(w[0])));
#endif
  }
};
#endif

// Output channels co .. co+3 at columns x .. x + B vectors.
template <class Slot, int B, int K>
HWY_INLINE void QConvBlock(const QConvRow& a, const int32_t* HWY_RESTRICT w, int64_t co, int64_t x) {
  const DI di;
  const DF df;
  const int64_t n = static_cast<int64_t>(hn::Lanes(di));
  const int64_t kw = K > 0 ? K : a.kernel_w;
  const int32_t* bias = Slot::kSigned ? a.bias_signed : a.bias;
#define VL_DECLARE(g, b) VI acc##g##b = hn::Set(di, bias[co + g]);
  VL_FOR_GB(VL_DECLARE)
#undef VL_DECLARE
  for (int64_t ci = 0; ci < a.in_groups; ++ci) {
    for (int64_t ky = 0; ky < a.kernel_h; ++ky) {
      const int32_t* HWY_RESTRICT r =
          reinterpret_cast<const int32_t*>(a.in[ky]) + ci * a.in_stride + x - a.pad_left;
      for (int64_t kx = 0; kx < kw; ++kx, w += kGroup * Slot::kInts) {
#define VL_LOAD(b)                                                  \
  const VI v##b = b < B ? hn::LoadU(di, r + kx + b * n) : hn::Zero(di); \
  const VI lo##b = Slot::Lo(v##b), hi##b = Slot::Hi(v##b);
        VL_FOR_V(VL_LOAD)
#undef VL_LOAD
#define VL_DOT(g, b) \
  if constexpr (b < B) acc##g##b = Slot::Dot(acc##g##b, lo##b, hi##b, w + g * Slot::kInts);
        VL_FOR_GB(VL_DOT)
#undef VL_DOT
      }
    }
  }
  const VF zero = hn::Zero(df);
  const VF out_scale = hn::Set(df, a.out_scale);
  const VI out_zp = hn::Set(di, a.out_zero_point);
  // Dequantise (one product), PReLU (one product), requantise.
#define VL_VALUE(g, b)                                                                    \
  VF v##g##b = hn::Zero(df);                                                              \
  if constexpr (b < B) {                                                                  \
    v##g##b = hn::Mul(hn::ConvertTo(df, acc##g##b), hn::Set(df, a.scale[co + g]));        \
    if (a.slope != nullptr) {                                                             \
      v##g##b = hn::IfThenElse(hn::Lt(v##g##b, zero), hn::Mul(v##g##b, hn::Set(df, a.slope[co + g])), v##g##b); \
    }                                                                                     \
  }
  VL_FOR_GB(VL_VALUE)
#undef VL_VALUE
  if (a.quantize) {
    const DU du;
    uint32_t* out = static_cast<uint32_t*>(a.out) + (co / kGroup) * a.out_stride + x;
#define VL_PACK(b)                                                                          \
  if constexpr (b < B) {                                                                    \
    const VI q = hn::Or(hn::Or(Requantize(v0##b, out_scale, out_zp),                        \
                               hn::ShiftLeft<8>(Requantize(v1##b, out_scale, out_zp))),     \
                        hn::Or(hn::ShiftLeft<16>(Requantize(v2##b, out_scale, out_zp)),     \
                               hn::ShiftLeft<24>(Requantize(v3##b, out_scale, out_zp))));   \
    hn::StoreU(hn::BitCast(du, q), du, out + b * n);                                        \
  }
    VL_FOR_V(VL_PACK)
#undef VL_PACK
  } else {
    float* out = static_cast<float*>(a.out);
#define VL_STORE(g, b) \
  if (b < B && co + g < a.out_channels) hn::StoreU(v##g##b, df, out + (co + g) * a.out_stride + x + b * n);
    VL_FOR_GB(VL_STORE)
#undef VL_STORE
  }
}

template <class Slot, int B, int K>
HWY_INLINE void QConvColumns(const QConvRow& a, int64_t x) {
  const int64_t group_ints = a.in_groups * a.kernel_h * a.kernel_w * kGroup * Slot::kInts;
  const int32_t* section = a.weights + Slot::kSection * a.weight_entries;
  for (int64_t co = 0; co < a.out_channels; co += kGroup) {
    QConvBlock<Slot, B, K>(a, section + (co / kGroup) * group_ints, co, x);
  }
}

template <class Slot, int K>
HWY_INLINE void QConvolveWith(const QConvRow& a) {
  const int64_t n = static_cast<int64_t>(hn::Lanes(DI()));
  const int64_t end = (a.width + n - 1) / n * n;
  int64_t x = 0;
  for (; x + kBlock * n <= end; x += kBlock * n) QConvColumns<Slot, kBlock, K>(a, x);
  for (; x < end; x += n) QConvColumns<Slot, 1, K>(a, x);
}

template <class Slot>
HWY_INLINE void QConvolveAny(const QConvRow& a) {
  if (a.kernel_w == 3) {
    QConvolveWith<Slot, 3>(a);
  } else {
    QConvolveWith<Slot, 0>(a);
  }
}

#if HWY_TARGET == HWY_NEON && HWY_ARCH_ARM_A64
void QConvolveSigned(const QConvRow& a) { QConvolveAny<Signed>(a); }
#endif

void QConvolve(const QConvRow& a) {
#if HWY_TARGET == HWY_NEON && HWY_ARCH_ARM_A64
  static const bool dot = (getauxval(AT_HWCAP) & HWCAP_ASIMDDP) != 0;
  if (dot) return QConvolveSigned(a);
  QConvolveAny<Dots>(a);
#elif defined(VORLITH_SIGNED_DOTS)
  QConvolveAny<Signed>(a);
#else
  QConvolveAny<Dots>(a);
#endif
}
#undef VORLITH_SIGNED_DOTS

int64_t QConvolveTarget() { return HWY_TARGET; }

}  // namespace HWY_NAMESPACE
}  // namespace vorlith::model::rows
#if (HWY_TARGET == HWY_AVX3_DL || (HWY_TARGET == HWY_NEON && HWY_ARCH_ARM_A64)) && HWY_COMPILER_CLANG
#pragma clang attribute pop
#endif
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith::model::rows {

HWY_EXPORT(QuantizeRow);
HWY_EXPORT(QConvolve);
HWY_EXPORT(QConvolveTarget);
int64_t QConvolveTarget() { return HWY_DYNAMIC_DISPATCH(QConvolveTarget)(); }

int64_t QConvWeightEntries(int64_t out_channels, int64_t in_channels, int64_t kernel_h, int64_t kernel_w) {
  return (out_channels + kGroup - 1) / kGroup * kGroup * ((in_channels + 3) / 4) * kernel_h * kernel_w;
}

std::vector<int32_t> PackQConvWeights(const std::vector<int8_t>& filter, int64_t out_channels,
                                      int64_t in_channels, int64_t kernel_h, int64_t kernel_w) {
  const int64_t entries = QConvWeightEntries(out_channels, in_channels, kernel_h, kernel_w);
  const int64_t in_groups = (in_channels + 3) / 4;
  const int64_t taps = kernel_h * kernel_w;
  std::vector<int32_t> packed(static_cast<size_t>(7 * entries), 0);  // 1 + 2 + 4 ints per entry
  int32_t* bytes = packed.data();
  int32_t* pairs = bytes + entries;
  int32_t* ints = bytes + 3 * entries;
  for (int64_t o = 0; o < out_channels; ++o) {
    for (int64_t gi = 0; gi < in_groups; ++gi) {
      for (int64_t t = 0; t < taps; ++t) {
        int32_t w[4] = {0, 0, 0, 0};
        for (int64_t j = 0; j < 4 && gi * 4 + j < in_channels; ++j) {
          w[j] = filter[static_cast<size_t>((o * taps + t) * in_channels + gi * 4 + j)];
        }
        const int64_t e = (((o / kGroup) * in_groups + gi) * taps + t) * kGroup + o % kGroup;
        const auto u8 = [](int32_t v) { return static_cast<uint32_t>(v) & 0xFFu; };
        const auto u16 = [](int32_t v) { return static_cast<uint32_t>(v) & 0xFFFFu; };
        bytes[e] = static_cast<int32_t>(u8(w[0]) | u8(w[1]) << 8 | u8(w[2]) << 16 | u8(w[3]) << 24);
        pairs[2 * e] = static_cast<int32_t>(u16(w[0]) | u16(w[2]) << 16);
        pairs[2 * e + 1] = static_cast<int32_t>(u16(w[1]) | u16(w[3]) << 16);
        std::copy_n(w, 4, ints + 4 * e);
      }
    }
  }
  return packed;
}

void QuantizeRow(const float* in, int64_t in_stride, int64_t channels, uint32_t* out, int64_t out_stride,
                 int64_t width, float scale, int32_t zero_point) {
  HWY_DYNAMIC_DISPATCH(QuantizeRow)(in, in_stride, channels, out, out_stride, width, scale, zero_point);
}
void QConvolve(const QConvRow& args) { HWY_DYNAMIC_DISPATCH(QConvolve)(args); }

}  // namespace vorlith::model::rows
#endif  // HWY_ONCE
