// RGBA to I420 with alpha and back. Vector steps take the coefficients from
// the kernel context, the scalar tails from colour_coefficients.h; the
// arithmetic (floor shifts, clamps) is the same, so every column of a row
// pair gets the same bytes whichever path converts it. Pixels are handled
// as 32-bit lanes (R in the low byte): RGBA to I420A on AVX2 and AVX-512 in
// their own order, elsewhere split into even and odd pixels, chroma sample
// k with pixels 2k, 2k+1.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/convert/rgba_i420a.cc"
// The dot-product target is opt-in in this Highway; RGBA to I420A uses it.
// Not with Clang: this Highway's target also names AVX-VNNI, which its CPUs
// (Ice Lake, Zen 4) lack, and Clang fuses the narrower pairwise products
// here into that instruction set's vpdpwssd.
#if !defined(HWY_WANT_AVX3_DL) && !defined(__clang__)
#define HWY_WANT_AVX3_DL
#endif
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "src/kernels/byte_lanes-inl.h"
#include "src/kernels/convert/convert_pixels.h"
#include "src/kernels/convert/lane0.h"
#include "vorlith/convert.h"

HWY_BEFORE_NAMESPACE();
namespace vorlith {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Where one row pair lives; the second row is one packed row below.
struct PairRows {
  const uint8_t* rgba;
  uint8_t* y;
  uint8_t* a;
  uint8_t* u;
  uint8_t* v;
  size_t width;
};

// One weighted sum of R, G, B, in the form the 16-bit pairwise multiply-add
// takes: each weight c = 65536 q + r. Pixels are 32-bit lanes; R and B are
// their even bytes, paired as they are, with 16-bit r parts; G is copied into
// both halves of its lane and paired with itself, so its r part may take 17
// bits (two 16-bit halves): Y's G weight, 33030, then needs no q. The two
// pairwise products give the sum of the r parts exactly, and
// floor(sum / 65536) = floor(r part / 65536) + qR R + qG G + qB B.
struct Weights {
  int32_t c[3];      // the weights as the context holds them
  int32_t rb, gg;    // (rR, rB) and the two halves of rG as 16-bit pairs
  int32_t q[3];
};

Weights SplitWeights(int32_t r, int32_t g, int32_t b) {
  Weights w{{r, g, b}, 0, 0, {0, 0, 0}};
  int32_t low[3];
  for (int i = 0; i < 3; ++i) {
    low[i] = static_cast<int16_t>(static_cast<uint16_t>(w.c[i]));
    w.q[i] = static_cast<int32_t>((int64_t{w.c[i]} - low[i]) / 65536);
  }
  // G's r part is the sum of two 16-bit halves: the whole weight where it is
  // in -65536..65534.
  if (w.c[1] >= -65536 && w.c[1] <= 65534) {
    low[1] = w.c[1];
    w.q[1] = 0;
  }
  const int32_t half = low[1] >> 1;  // floor: both halves stay in int16
  w.rb = static_cast<int32_t>((static_cast<uint32_t>(low[2]) << 16) | static_cast<uint16_t>(low[0]));
  w.gg = static_cast<int32_t>((static_cast<uint32_t>(half) << 16) |
                              static_cast<uint16_t>(low[1] - half));
  return w;
}

struct ToYuvCoefs {
  Weights y, u, v;
  int32_t y_off, u_off, v_off;
};

#if HWY_TARGET != HWY_SCALAR  // one lane has no pairs to multiply and add
// floor((cR R + cG G + cB B) / 65536) of pixels held as 32-bit lanes, with
// the weights' pairs already in vectors (the stores below are bytes, which
// may alias anything, so nothing is read from memory in the loop).
template <class D, class V = hn::Vec<D>>
HWY_INLINE V WeighHigh(D d, V px, V rb_w, V gg_w, V g_twice, const int32_t (&q)[3]) {
  const hn::Repartition<int16_t, D> d16;
  const hn::Repartition<uint8_t, D> d8;
  const auto rb = hn::And(px, hn::Set(d, 0x00FF00FF));
  const auto gg =
      hn::BitCast(d, hn::TableLookupBytesOr0(hn::BitCast(d8, px), hn::BitCast(d8, g_twice)));
  auto odd = hn::Zero(d);
  auto even = hn::ReorderWidenMulAccumulate(d, hn::BitCast(d16, rb), hn::BitCast(d16, rb_w),
                                            hn::Zero(d), odd);
  even = hn::ReorderWidenMulAccumulate(d, hn::BitCast(d16, gg), hn::BitCast(d16, gg_w), even, odd);
  auto high = hn::ShiftRight<16>(hn::RearrangeToOddPlusEven(even, odd));
  if (q[1] != 0) {
    const auto g = hn::And(gg, hn::Set(d, 0xFFFF));
    high = hn::Add(high, q[1] == 1 ? g : hn::Mul(g, hn::Set(d, q[1])));
  }
  if ((q[0] | q[2]) != 0) {
    high = hn::Add(high, hn::Add(hn::Mul(hn::And(rb, hn::Set(d, 0xFF)), hn::Set(d, q[0])),
                                 hn::Mul(hn::ShiftRight<16>(rb), hn::Set(d, q[2]))));
  }
  return high;
}

// int32 lanes to bytes, saturating. This Highway's x86 demotion straight to
// bytes takes 32768..33022 to their low 15 bits (other contexts' offsets
// reach them); through 16 bits it is exact and no slower. Arm's is exact.
template <class D8, class V>
HWY_INLINE hn::Vec<D8> SaturatedBytes(D8 d8, V v) {
#if HWY_ARCH_X86
  return hn::DemoteTo(d8, hn::DemoteTo(hn::Rebind<int16_t, D8>(), v));
#else
  return hn::DemoteTo(d8, v);
#endif
}

// Columns [x, end) of a row pair, 2*Lanes(d) at a time; returns where it
// stopped. Pixels 2k and 2k+1 come as lane k of two vectors; their bytes
// travel as the two 16-bit halves of one lane until a saturating demotion
// (the narrowing of the vector step) puts them in pixel order.
template <class D>
HWY_INLINE size_t ToI420APairs(D d, const ToYuvCoefs& k, const PairRows& p, size_t x,
                               size_t end) {
  const hn::Rebind<uint32_t, D> du;
  const hn::Rebind<uint8_t, D> d8;
  const hn::Repartition<int16_t, D> d16x2;
  const hn::Rebind<uint8_t, decltype(d16x2)> d8x2;
  const size_t n = hn::Lanes(d);
  const auto y_off = hn::Set(d, k.y_off), u_off = hn::Set(d, k.u_off), v_off = hn::Set(d, k.v_off);
  const auto y_rb = hn::Set(d, k.y.rb), y_gg = hn::Set(d, k.y.gg);
  const auto u_rb = hn::Set(d, k.u.rb), u_gg = hn::Set(d, k.u.gg);
  const auto v_rb = hn::Set(d, k.v.rb), v_gg = hn::Set(d, k.v.gg);
  // Byte indices that copy each pixel's G (byte 1) into both 16-bit halves
  // of its lane, zero above; 0x80 reads as zero.
  const auto g_twice = hn::Add(hn::Set(d, 0x80018001),
                               hn::ShiftLeft<2>(hn::Mul(hn::And(hn::Iota(d, 0), hn::Set(d, 3)),
                                                        hn::Set(d, 0x00010001))));
  const auto low16 = hn::Set(d, 0xFFFF), alpha_odd = hn::Set(d, 0xFF0000);
  const int32_t yq[3] = {k.y.q[0], k.y.q[1], k.y.q[2]}, uq[3] = {k.u.q[0], k.u.q[1], k.u.q[2]},
                vq[3] = {k.v.q[0], k.v.q[1], k.v.q[2]};
  const size_t w = p.width;
  const uint8_t* const rgba = p.rgba;
  uint8_t *const y = p.y, *const a = p.a, *const u = p.u, *const v = p.v;
  auto pair = [&](hn::Vec<D> even, hn::Vec<D> odd) {
    return hn::DemoteTo(d8x2, hn::BitCast(d16x2, hn::Or(hn::And(even, low16), hn::ShiftLeft<16>(odd))));
  };
  for (; x + 2 * n <= end; x += 2 * n) {
    for (size_t row = 0; row < 2; ++row) {
      hn::Vec<decltype(du)> pe, po;
      LoadInterleaved2Bytes(du, rgba + row * 4 * w + 4 * x, pe, po);
      const auto e = hn::BitCast(d, pe), o = hn::BitCast(d, po);
      const auto ye = hn::Add(WeighHigh(d, e, y_rb, y_gg, g_twice, yq), y_off);
      const auto yo = hn::Add(WeighHigh(d, o, y_rb, y_gg, g_twice, yq), y_off);
      hn::StoreU(pair(ye, yo), d8x2, y + row * w + x);
      const auto alphas = hn::Or(hn::BitCast(d, hn::ShiftRight<24>(pe)),
                                 hn::And(hn::BitCast(d, hn::ShiftRight<8>(po)), alpha_odd));
      hn::StoreU(hn::DemoteTo(d8x2, hn::BitCast(d16x2, alphas)), d8x2, a + row * w + x);
      if (row == 0) {
        // Chroma from the block's top-left pixel only.
        const auto cb = hn::Add(WeighHigh(d, e, u_rb, u_gg, g_twice, uq), u_off);
        const auto cr = hn::Add(WeighHigh(d, e, v_rb, v_gg, g_twice, vq), v_off);
        hn::StoreU(SaturatedBytes(d8, cb), d8, u + x / 2);
        hn::StoreU(SaturatedBytes(d8, cr), d8, v + x / 2);
      }
    }
  }
  return x;
}
#endif  // HWY_TARGET != HWY_SCALAR

#if HWY_TARGET == HWY_AVX3_DL || HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX2
// x86 steps with pixels in their own order, so no even/odd split: each
// weighted sum is two 16-bit pairwise products (one dot-product instruction
// each where the CPU has VNNI) onto the offset times 65536, the result its
// upper half; word and byte permutes and saturating packs gather the bytes.
// Only where every weight has q = 0, and for chroma, where offset * 65536
// plus any sum stays within 32 bits (Y keeps its low 16 bits only, which
// wrapping does not change).
bool PixelOrderFits(const ToYuvCoefs& k) {
  const Weights* all[3] = {&k.y, &k.u, &k.v};
  for (const Weights* w : all) {
    if ((w->q[0] | w->q[1] | w->q[2]) != 0) return false;
  }
  // The least and greatest scaled chroma sum over all pixels.
  for (const auto& [w, off] : {std::pair{&k.u, k.u_off}, std::pair{&k.v, k.v_off}}) {
    int64_t lo = int64_t{off} * 65536, hi = lo;
    for (int32_t c : w->c) (c < 0 ? lo : hi) += int64_t{255} * c;
    if (lo < INT32_MIN || hi > INT32_MAX) return false;
  }
  return true;
}

int32_t ScaledOffset(int32_t off) { return static_cast<int32_t>(static_cast<uint32_t>(off) << 16); }
#endif

#if HWY_TARGET == HWY_AVX3_DL || HWY_TARGET == HWY_AVX3
// Permute indices over two vectors: the upper 16-bit half of each 32-bit
// lane, byte 3 of each (alpha; the upper 32 results unused) and the even
// lanes.
struct PermuteIndices {
  alignas(64) uint16_t odd_words[32];
  alignas(64) uint8_t alpha_bytes[64];
  alignas(64) int32_t even_lanes[16];
};
constexpr PermuteIndices MakePermuteIndices() {
  PermuteIndices t{};
  for (int i = 0; i < 32; ++i) t.odd_words[i] = static_cast<uint16_t>(2 * i + 1);
  for (int i = 0; i < 64; ++i) t.alpha_bytes[i] = static_cast<uint8_t>((4 * i + 3) & 127);
  for (int i = 0; i < 16; ++i) t.even_lanes[i] = 2 * i;
  return t;
}
alignas(64) constexpr PermuteIndices kPermute = MakePermuteIndices();

HWY_INLINE __m512i Weigh(__m512i acc, __m512i rb, __m512i gg, __m512i rb_w, __m512i gg_w) {
#if HWY_TARGET == HWY_AVX3_DL
  // vpdpwssd as an instruction: this Highway's dot-product target does not
  // enable the AVX-512 VNNI intrinsics its CPUs all have.
  asm("vpdpwssd %1, %2, %0" : "+v"(acc) : "v"(rb), "v"(rb_w));
  asm("vpdpwssd %1, %2, %0" : "+v"(acc) : "v"(gg), "v"(gg_w));
  return acc;
#else
  return _mm512_add_epi32(_mm512_add_epi32(acc, _mm512_madd_epi16(rb, rb_w)), _mm512_madd_epi16(gg, gg_w));
#endif
}

// 64 pixels of a row pair at a time.
size_t ToI420APixelOrder(const ToYuvCoefs& k, const PairRows& p, size_t x, size_t end) {
  const __m512i y0 = _mm512_set1_epi32(ScaledOffset(k.y_off)), u0 = _mm512_set1_epi32(ScaledOffset(k.u_off)),
                v0 = _mm512_set1_epi32(ScaledOffset(k.v_off));
  const __m512i y_rb = _mm512_set1_epi32(k.y.rb), y_gg = _mm512_set1_epi32(k.y.gg);
  const __m512i u_rb = _mm512_set1_epi32(k.u.rb), u_gg = _mm512_set1_epi32(k.u.gg);
  const __m512i v_rb = _mm512_set1_epi32(k.v.rb), v_gg = _mm512_set1_epi32(k.v.gg);
  const __m512i rb_mask = _mm512_set1_epi32(0x00FF00FF);
  // Each pixel's G (byte 1 of its lane) into both 16-bit halves, zero above.
  const __m512i g_twice = _mm512_set4_epi32(0x800D800D, 0x80098009, 0x80058005, 0x80018001);
  const __m512i words_odd = _mm512_load_si512(kPermute.odd_words),
                lanes_even = _mm512_load_si512(kPermute.even_lanes);
#if HWY_TARGET == HWY_AVX3_DL
  const __m512i alpha_idx = _mm512_load_si512(kPermute.alpha_bytes);
#endif
  // packus leaves 128-bit lane L as 8 bytes of its first operand (pixels 8L..)
  // then 8 of its second (pixels 32 + 8L..); these put them in order.
  const __m512i y_order = _mm512_set_epi64(7, 5, 3, 1, 6, 4, 2, 0);
  // Chroma after two packs: dword 4L + m of lane L holds four samples of U
  // (m = 0, 1) or V (m = 2, 3), m odd the second half of the 64 pixels.
  const __m512i uv_order = _mm512_set_epi32(15, 11, 7, 3, 14, 10, 6, 2, 13, 9, 5, 1, 12, 8, 4, 0);
  const size_t w = p.width;
  for (; x + 64 <= end; x += 64) {
    for (size_t row = 0; row < 2; ++row) {
      const uint8_t* src = p.rgba + row * 4 * w + 4 * x;
      __m512i px[4], yy[4];
      for (int i = 0; i < 4; ++i) {
        px[i] = _mm512_loadu_si512(src + 64 * i);
        yy[i] = Weigh(y0, _mm512_and_si512(px[i], rb_mask), _mm512_shuffle_epi8(px[i], g_twice), y_rb, y_gg);
      }
      const __m512i lo = _mm512_permutex2var_epi16(yy[0], words_odd, yy[1]);
      const __m512i hi = _mm512_permutex2var_epi16(yy[2], words_odd, yy[3]);
      _mm512_storeu_si512(p.y + row * w + x, _mm512_permutexvar_epi64(y_order, _mm512_packus_epi16(lo, hi)));
      uint8_t* a = p.a + row * w + x;
#if HWY_TARGET == HWY_AVX3_DL
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(a),
                          _mm512_castsi512_si256(_mm512_permutex2var_epi8(px[0], alpha_idx, px[1])));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(a + 32),
                          _mm512_castsi512_si256(_mm512_permutex2var_epi8(px[2], alpha_idx, px[3])));
#else  // no byte permutes
      for (int i = 0; i < 4; ++i) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(a + 16 * i),
                         _mm512_cvtepi32_epi8(_mm512_srli_epi32(px[i], 24)));
      }
#endif
      if (row == 0) {
        // Chroma from each block's top-left pixel: the even pixels.
        __m512i cu[2], cv[2];
        for (int i = 0; i < 2; ++i) {
          const __m512i e = _mm512_permutex2var_epi32(px[2 * i], lanes_even, px[2 * i + 1]);
          const __m512i rb = _mm512_and_si512(e, rb_mask), gg = _mm512_shuffle_epi8(e, g_twice);
          cu[i] = _mm512_srai_epi32(Weigh(u0, rb, gg, u_rb, u_gg), 16);
          cv[i] = _mm512_srai_epi32(Weigh(v0, rb, gg, v_rb, v_gg), 16);
        }
        const __m512i uv = _mm512_permutexvar_epi32(
            uv_order,
            _mm512_packus_epi16(_mm512_packs_epi32(cu[0], cu[1]), _mm512_packs_epi32(cv[0], cv[1])));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(p.u + x / 2), _mm512_castsi512_si256(uv));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(p.v + x / 2), _mm512_extracti64x4_epi64(uv, 1));
      }
    }
  }
  return x;
}
#endif  // HWY_TARGET == HWY_AVX3_DL || HWY_TARGET == HWY_AVX3

#if HWY_TARGET == HWY_AVX2
HWY_INLINE __m256i Weigh(__m256i acc, __m256i rb, __m256i gg, __m256i rb_w, __m256i gg_w) {
  return _mm256_add_epi32(_mm256_add_epi32(acc, _mm256_madd_epi16(rb, rb_w)), _mm256_madd_epi16(gg, gg_w));
}

// 32 pixels of a row pair at a time. The packs work within 128-bit lanes:
// after two of them, 32-bit group g of lane L holds pixels 8g + 4L..
// (chroma: U, U, V, V groups of four samples), which one dword permute puts
// in order.
size_t ToI420APixelOrder(const ToYuvCoefs& k, const PairRows& p, size_t x, size_t end) {
  const __m256i u0 = _mm256_set1_epi32(ScaledOffset(k.u_off)), v0 = _mm256_set1_epi32(ScaledOffset(k.v_off));
  const __m256i y_off = _mm256_set1_epi16(static_cast<int16_t>(k.y_off)), zero = _mm256_setzero_si256();
  const __m256i y_rb = _mm256_set1_epi32(k.y.rb), y_gg = _mm256_set1_epi32(k.y.gg);
  const __m256i u_rb = _mm256_set1_epi32(k.u.rb), u_gg = _mm256_set1_epi32(k.u.gg);
  const __m256i v_rb = _mm256_set1_epi32(k.v.rb), v_gg = _mm256_set1_epi32(k.v.gg);
  const __m256i rb_mask = _mm256_set1_epi32(0x00FF00FF);
  const __m256i g_twice = _mm256_set_epi32(0x800D800D, 0x80098009, 0x80058005, 0x80018001, 0x800D800D,
                                           0x80098009, 0x80058005, 0x80018001);
  const __m256i in_order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  const size_t w = p.width;
  for (; x + 32 <= end; x += 32) {
    for (size_t row = 0; row < 2; ++row) {
      const uint8_t* src = p.rgba + row * 4 * w + 4 * x;
      __m256i px[4], high[4], alpha[4];
      for (int i = 0; i < 4; ++i) {
        px[i] = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 32 * i));
        // Y's offset joins after the packs, in 16 bits as it must.
        const __m256i rb = _mm256_and_si256(px[i], rb_mask), gg = _mm256_shuffle_epi8(px[i], g_twice);
        high[i] = _mm256_srli_epi32(Weigh(zero, rb, gg, y_rb, y_gg), 16);
        alpha[i] = _mm256_srli_epi32(px[i], 24);
      }
      const __m256i lo = _mm256_add_epi16(_mm256_packus_epi32(high[0], high[1]), y_off);
      const __m256i hi = _mm256_add_epi16(_mm256_packus_epi32(high[2], high[3]), y_off);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(p.y + row * w + x),
                          _mm256_permutevar8x32_epi32(_mm256_packus_epi16(lo, hi), in_order));
      const __m256i a = _mm256_packus_epi16(_mm256_packus_epi32(alpha[0], alpha[1]),
                                            _mm256_packus_epi32(alpha[2], alpha[3]));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(p.a + row * w + x),
                          _mm256_permutevar8x32_epi32(a, in_order));
      if (row == 0) {
        // Chroma from each block's top-left pixel: the even pixels, in order.
        __m256i cu[2], cv[2];
        for (int i = 0; i < 2; ++i) {
          const __m256 even = _mm256_shuffle_ps(_mm256_castsi256_ps(px[2 * i]),
                                                _mm256_castsi256_ps(px[2 * i + 1]), _MM_SHUFFLE(2, 0, 2, 0));
          const __m256i e = _mm256_permute4x64_epi64(_mm256_castps_si256(even), _MM_SHUFFLE(3, 1, 2, 0));
          const __m256i rb = _mm256_and_si256(e, rb_mask), gg = _mm256_shuffle_epi8(e, g_twice);
          cu[i] = _mm256_srai_epi32(Weigh(u0, rb, gg, u_rb, u_gg), 16);
          cv[i] = _mm256_srai_epi32(Weigh(v0, rb, gg, v_rb, v_gg), 16);
        }
        const __m256i uv = _mm256_permutevar8x32_epi32(
            _mm256_packus_epi16(_mm256_packs_epi32(cu[0], cu[1]), _mm256_packs_epi32(cv[0], cv[1])),
            in_order);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(p.u + x / 2), _mm256_castsi256_si128(uv));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(p.v + x / 2), _mm256_extracti128_si256(uv, 1));
      }
    }
  }
  return x;
}
#endif  // HWY_TARGET == HWY_AVX2

void ToI420ATail(const PairRows& p, size_t x, size_t end) {
  for (; x < end; x += 2) {
    for (size_t row = 0; row < 2; ++row) {
      for (size_t c = x; c < x + 2; ++c) {
        const uint8_t* px = p.rgba + row * 4 * p.width + 4 * c;
        p.y[row * p.width + c] = convert::LumaQ16(px[0], px[1], px[2]);
        p.a[row * p.width + c] = px[3];
      }
    }
    const uint8_t* tl = p.rgba + 4 * x;
    p.u[x / 2] = convert::CbQ16(tl[0], tl[1], tl[2]);
    p.v[x / 2] = convert::CrQ16(tl[0], tl[1], tl[2]);
  }
}

void RgbaToI420A(_StLanczos1p5x* ctx, const uint8_t* rgba, uint8_t* i420a, int height,
                 int width) {
  if (height < 2 || width < 2) return;
  const int32_t P = width * height;
  uint8_t* const y = i420a;
  uint8_t* const u = i420a + P;
  uint8_t* const v = i420a + (P * 5) / 4;
  uint8_t* const a = i420a + (P * 3) / 2;
  const size_t w = static_cast<size_t>(width), odd = w & 1;
  const size_t body = w / 16 * 16, cols = body + 2 * ((w / 2) % 8);
  const ToYuvCoefs k = {SplitWeights(Lane0(ctx->yCoefR), Lane0(ctx->yCoefG), Lane0(ctx->yCoefB)),
                        SplitWeights(Lane0(ctx->uCoefR), Lane0(ctx->uCoefG), Lane0(ctx->uCoefB)),
                        SplitWeights(Lane0(ctx->vCoefR), Lane0(ctx->vCoefG), Lane0(ctx->vCoefB)),
                        Lane0(ctx->yOffset), Lane0(ctx->uOffset), Lane0(ctx->vOffset)};
#if HWY_TARGET == HWY_AVX3_DL || HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX2
  const bool pixel_order = PixelOrderFits(k);
#endif
  for (size_t pair = 0; pair < static_cast<size_t>(height / 2); ++pair) {
    // An odd width leaves its last column out, and each pair then starts
    // one pixel earlier than a packed layout would put it.
    const size_t luma = pair * (2 * w - odd);
    const PairRows p = {rgba + 4 * luma, y + luma, a + luma, u + pair * (w / 2), v + pair * (w / 2),
                        w};
    size_t x = 0;
#if HWY_TARGET == HWY_AVX3_DL || HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX2
    if (pixel_order) x = ToI420APixelOrder(k, p, x, body);
#endif
#if HWY_TARGET != HWY_SCALAR
    x = ToI420APairs(hn::ScalableTag<int32_t>(), k, p, x, body);
    x = ToI420APairs(hn::CappedTag<int32_t, 4>(), k, p, x, body);
#else
    (void)k;
#endif
    ToI420ATail(p, x, cols);
  }
}

struct ToRgbCoefs {
  int32_t gain, bias, rv, gu, gv, bu, uv_bias;
};

#if HWY_TARGET == HWY_AVX3_DL
// Byte permutes from packus(R, G) and packus(B, A) of 32 pixels (128-bit
// lane L: 8 bytes of each operand for pixels 8L..8L+7) to RGBA pixels 0..15
// and 16..31.
struct RgbaBytes {
  alignas(64) uint8_t lo[64];
  alignas(64) uint8_t hi[64];
};
constexpr RgbaBytes MakeRgbaBytes() {
  RgbaBytes t{};
  for (int half = 0; half < 2; ++half) {
    for (int j = 0; j < 16; ++j) {
      const int px = 16 * half + j, at = 16 * (px / 8) + px % 8;
      uint8_t* out = half ? t.hi : t.lo;
      for (int c = 0; c < 4; ++c) out[4 * j + c] = static_cast<uint8_t>(at + (c & 1) * 8 + (c >> 1) * 64);
    }
  }
  return t;
}
alignas(64) constexpr RgbaBytes kRgbaBytes = MakeRgbaBytes();
#endif

#if HWY_TARGET != HWY_SCALAR  // one lane has no pixel pairs to pack
// Columns [x, end) of a row pair, 2*Lanes(d) at a time; returns where it
// stopped. A chroma sample's lane serves pixels 2k and 2k+1, whose results
// travel as the two 16-bit halves of one lane; R with G and B with A then
// pair up as the two bytes of 16-bit lanes, which interleave into pixels.
template <class D>
HWY_INLINE size_t ToRgbaPairs(D d, const ToRgbCoefs& k, const uint8_t* y, const uint8_t* u,
                              const uint8_t* v, const uint8_t* a, uint8_t* rgba, size_t width,
                              size_t x, size_t end) {
  const hn::Rebind<uint32_t, D> du;
  const hn::Rebind<uint16_t, D> d16;
  const hn::Rebind<uint8_t, D> d8;
  const hn::Repartition<int16_t, D> d16x2;
  const hn::Repartition<uint16_t, D> du16x2;
  const hn::Rebind<uint8_t, decltype(d16x2)> d8x2;
  const size_t n = hn::Lanes(d);
  // Every constant in a register before the loop: the byte stores may alias
  // anything, k included. The luma black level and the chroma centre join
  // one constant per channel: gain (Y - bias) + w (C - uv_bias) =
  // gain Y + w C - (gain bias + w uv_bias), the same sum modulo 2^32.
  auto wrapped = [](int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(v)); };
  const int64_t black = int64_t{k.gain} * k.bias, centre = k.uv_bias;
  const auto byte = hn::Set(d, 0xFF);
  const auto gain = hn::Set(d, k.gain), rv = hn::Set(d, k.rv), gu = hn::Set(d, k.gu),
             gv = hn::Set(d, k.gv), bu = hn::Set(d, k.bu);
  const auto r_base = hn::Set(d, wrapped(black + centre * k.rv)),
             g_base = hn::Set(d, wrapped(black + centre * (int64_t{k.gu} + k.gv))),
             b_base = hn::Set(d, wrapped(black + centre * k.bu));
  const auto zero16 = hn::Zero(d16x2), max16 = hn::Set(d16x2, 255);
  // One channel of 2n pixels in pixel order, floor-shifted and clamped. The
  // odd pixel's sum holds its floor shift in its upper half already, so one
  // blend pairs the two; on AVX-512 one word permute takes both upper halves.
  auto unclamped = [&](hn::Vec<D> se, hn::Vec<D> so, hn::Vec<D> chroma_part) {
#if VORLITH_X86_VECTORS && HWY_TARGET <= HWY_AVX3
    if constexpr (hn::MaxLanes(D()) == 16) {
      return hn::Vec<decltype(d16x2)>{
          UpperHalvesOfPairs(hn::Add(se, chroma_part).raw, hn::Add(so, chroma_part).raw)};
    }
#endif
    const auto e = hn::ShiftRight<16>(hn::Add(se, chroma_part));
    return hn::OddEven(hn::BitCast(d16x2, hn::Add(so, chroma_part)), hn::BitCast(d16x2, e));
  };
  auto channel = [&](hn::Vec<D> se, hn::Vec<D> so, hn::Vec<D> chroma_part) {
    return hn::BitCast(du16x2, hn::Min(hn::Max(unclamped(se, so, chroma_part), zero16), max16));
  };
#if HWY_TARGET == HWY_AVX3_DL
  // 512 bits: saturating packs clamp, and one byte permute of two packed
  // vectors writes 16 pixels.
  constexpr bool kPermuteBytes = hn::MaxLanes(D()) == 16;
  const __m512i rgba_lo = _mm512_load_si512(kRgbaBytes.lo), rgba_hi = _mm512_load_si512(kRgbaBytes.hi);
#endif
#if VORLITH_X86_VECTORS
  const hn::Repartition<uint8_t, D> d8x4;
#if HWY_TARGET == HWY_AVX3_DL
  constexpr bool kBlocks = !kPermuteBytes;
#else
  constexpr bool kBlocks = true;
#endif
  alignas(16) static constexpr uint8_t kPairs[16] = {0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15};
  const auto pairs = hn::LoadDup128(d8x4, kPairs);
#endif
  for (; x + 2 * n <= end; x += 2 * n) {
    const auto cb = hn::BitCast(d, hn::PromoteTo(du, hn::LoadU(d8, u + x / 2)));
    const auto cr = hn::BitCast(d, hn::PromoteTo(du, hn::LoadU(d8, v + x / 2)));
    const auto rc = hn::Sub(hn::Mul(cr, rv), r_base);
    const auto gc = hn::Sub(hn::Add(hn::Mul(cb, gu), hn::Mul(cr, gv)), g_base);
    const auto bc = hn::Sub(hn::Mul(cb, bu), b_base);
    for (size_t row = 0; row < 2; ++row) {
      const auto yy = hn::BitCast(
          d, hn::PromoteTo(du, hn::LoadU(d16, reinterpret_cast<const uint16_t*>(y + row * width + x))));
      const auto se = hn::Mul(hn::And(yy, byte), gain), so = hn::Mul(hn::ShiftRight<8>(yy), gain);
      const auto alpha = hn::PromoteTo(du16x2, hn::LoadU(d8x2, a + row * width + x));
#if HWY_TARGET == HWY_AVX3_DL
      if constexpr (kPermuteBytes) {
        const __m512i rg = _mm512_packus_epi16(unclamped(se, so, rc).raw, unclamped(se, so, gc).raw);
        const __m512i ba = _mm512_packus_epi16(unclamped(se, so, bc).raw, alpha.raw);
        uint8_t* out = rgba + 4 * (row * width + x);
        _mm512_storeu_si512(out, _mm512_permutex2var_epi8(rg, rgba_lo, ba));
        _mm512_storeu_si512(out + 64, _mm512_permutex2var_epi8(rg, rgba_hi, ba));
        continue;
      }
#endif
#if VORLITH_X86_VECTORS
      if constexpr (kBlocks) {
        // Saturating packs clamp; per 128-bit block the packs hold 8 pixels'
        // R then G (B then A), one byte shuffle pairs them per pixel, and
        // 16-bit unpacks make the pixels.
        const auto rg = hn::TableLookupBytes(PackBlocks(d8x4, unclamped(se, so, rc), unclamped(se, so, gc)), pairs);
        const auto ba = hn::TableLookupBytes(PackBlocks(d8x4, unclamped(se, so, bc), hn::BitCast(d16x2, alpha)), pairs);
        StoreBlocksAlternately(d8x4, hn::BitCast(d8x4, hn::InterleaveLower(du16x2, hn::BitCast(du16x2, rg), hn::BitCast(du16x2, ba))),
                               hn::BitCast(d8x4, hn::InterleaveUpper(du16x2, hn::BitCast(du16x2, rg), hn::BitCast(du16x2, ba))),
                               rgba + 4 * (row * width + x));
        continue;
      }
#endif
      const auto rg = hn::Or(channel(se, so, rc), hn::ShiftLeft<8>(channel(se, so, gc)));
      const auto ba = hn::Or(channel(se, so, bc), hn::ShiftLeft<8>(alpha));
      StoreInterleaved2Bytes(rg, ba, du16x2, rgba + 4 * (row * width + x));
    }
  }
  return x;
}
#endif  // HWY_TARGET != HWY_SCALAR

void I420AToRgba(_StLanczos1p5x* ctx, const uint8_t* y, const uint8_t* u, const uint8_t* v,
                 const uint8_t* a, uint8_t* rgba, int height, int width) {
  if (height < 2 || width < 2) return;
  const size_t w = static_cast<size_t>(width), odd = w & 1;
  const size_t body = w / 16 * 16, cols = body + 2 * ((w / 2) % 8);
  const ToRgbCoefs k = {Lane0(ctx->yGain),  Lane0(ctx->yBias),  Lane0(ctx->rCoefV),
                        Lane0(ctx->gCoefU), Lane0(ctx->gCoefV), Lane0(ctx->bCoefU),
                        Lane0(ctx->uvBias)};
  for (size_t pair = 0; pair < static_cast<size_t>(height / 2); ++pair) {
    const size_t luma = pair * (2 * w - odd), chroma = pair * (w / 2);
    const uint8_t *yp = y + luma, *ap = a + luma, *up = u + chroma, *vp = v + chroma;
    uint8_t* out = rgba + 4 * luma;
    size_t x = 0;
#if HWY_TARGET != HWY_SCALAR
    x = ToRgbaPairs(hn::ScalableTag<int32_t>(), k, yp, up, vp, ap, out, w, x, body);
    x = ToRgbaPairs(hn::CappedTag<int32_t, 4>(), k, yp, up, vp, ap, out, w, x, body);
#else
    (void)k;
#endif
    for (; x < cols; ++x) {
      for (size_t row = 0; row < 2; ++row) {
        uint8_t* px = out + 4 * (row * w + x);
        convert::RgbQ16(yp[row * w + x], up[x / 2], vp[x / 2], px);
        px[3] = ap[row * w + x];
      }
    }
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith {
HWY_EXPORT(RgbaToI420A);
HWY_EXPORT(I420AToRgba);
}  // namespace vorlith

void RGBA2I420A_NEON(_StLanczos1p5x* ctx, unsigned char* rgba, unsigned char* i420a, int height,
                     int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::RgbaToI420A)(ctx, rgba, i420a, height, width);
}

void I420A2RGBA_NEON(_StLanczos1p5x* ctx, unsigned char* y, unsigned char* u, unsigned char* v,
                     unsigned char* a, unsigned char* rgba, int height, int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::I420AToRgba)(ctx, y, u, v, a, rgba, height, width);
}
#endif  // HWY_ONCE
