// Context-free layout conversions of 4:2:0 video and packed pixels: the
// V, U, Y, A expansion with its edge padding, the 4-byte crop, I420 and NV12
// to packed RGB, and RGB to RGBA. Chroma sample k belongs to pixels 2k and
// 2k+1, which the vector steps keep as the even and odd lanes of a pair.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/convert/yuv_layouts.cc"
// The opt-in AVX-512 target with byte permutes (VBMI) writes packed RGB.
#ifndef HWY_WANT_AVX3_DL
#define HWY_WANT_AVX3_DL
#endif
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "src/kernels/byte_lanes-inl.h"
#include "src/kernels/convert/convert_pixels.h"
#include "vorlith/convert.h"

HWY_BEFORE_NAMESPACE();
namespace vorlith {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// ---- yuvcpy ----

// Chroma of one row pair: planar (u, v) or interleaved pairs at u.
struct Chroma {
  const uint8_t* u;
  const uint8_t* v;
  bool interleaved;
};

template <class D>  // uint32 lanes, one per chroma sample
HWY_INLINE size_t VuyaPairs(D d, const uint8_t* const (&luma)[2], const Chroma& c,
                            uint8_t* const (&dst)[2], size_t x, size_t end) {
  const hn::Rebind<uint16_t, D> d16;
  const hn::Rebind<uint8_t, D> d8;
  const size_t n = hn::Lanes(d);
  const auto byte = hn::Set(d, 0xFF);
  for (; x + 2 * n <= end; x += 2 * n) {
    hn::Vec<D> u, v;
    if (c.interleaved) {
      const auto uv = hn::PromoteTo(d, hn::LoadU(d16, reinterpret_cast<const uint16_t*>(c.u + x)));
      u = hn::And(uv, byte);
      v = hn::ShiftRight<8>(uv);
    } else {
      u = hn::PromoteTo(d, hn::LoadU(d8, c.u + x / 2));
      v = hn::PromoteTo(d, hn::LoadU(d8, c.v + x / 2));
    }
    const auto vua = hn::Or(hn::Or(v, hn::ShiftLeft<8>(u)), hn::Set(d, 0xFF000000u));
    for (size_t row = 0; row < 2; ++row) {
      const auto yy =
          hn::PromoteTo(d, hn::LoadU(d16, reinterpret_cast<const uint16_t*>(luma[row] + x)));
      StoreInterleaved2Bytes(hn::Or(vua, hn::ShiftLeft<16>(hn::And(yy, byte))),
                             hn::Or(vua, hn::ShiftLeft<16>(hn::ShiftRight<8>(yy))), d, dst[row] + 4 * x);
    }
  }
  return x;
}

void YuvToVuya(const uint8_t* y, int width, int height, int y_stride, const uint8_t* c,
               int c_width, int c_height, int c_stride, uint8_t* dst, int dst_width,
               int dst_height, int dst_stride, bool interleaved) {
  if (height < 2 || width < 1) return;
  // Pixel pairs: an odd width writes one pixel more.
  const size_t cols = static_cast<size_t>(width + (width & 1));
  const size_t pad = static_cast<size_t>(std::clamp(dst_width - width, 0, 3));
  const ptrdiff_t v_plane = static_cast<ptrdiff_t>(c_height) * c_width;
  const int pairs = height / 2;
  for (int pair = 0; pair < pairs; ++pair) {
    const uint8_t* const luma[2] = {y + ptrdiff_t(2 * pair) * y_stride,
                                    y + ptrdiff_t(2 * pair + 1) * y_stride};
    const uint8_t* chroma = c + ptrdiff_t(pair) * c_stride;
    const Chroma ch = {chroma, chroma + v_plane, interleaved};
    uint8_t* const out[2] = {dst + ptrdiff_t(2 * pair) * dst_stride,
                             dst + ptrdiff_t(2 * pair + 1) * dst_stride};
    size_t x = VuyaPairs(hn::ScalableTag<uint32_t>(), luma, ch, out, 0, cols);
    x = VuyaPairs(hn::CappedTag<uint32_t, 1>(), luma, ch, out, x, cols);
    for (size_t row = 0; row < 2; ++row) {
      // The right edge repeats the last pixel written, at most three times.
      for (size_t i = 0; i < pad; ++i) std::memcpy(out[row] + 4 * (cols + i), out[row] + 4 * (cols - 1), 4);
    }
  }
  if (dst_height > height) {
    // The bottom edge repeats the last row written, whole, at most three times.
    const uint8_t* last = dst + ptrdiff_t(2 * pairs - 1) * dst_stride;
    for (int i = 1; i <= std::min(dst_height - height, 3); ++i) {
      std::memcpy(dst + ptrdiff_t(2 * pairs - 1 + i) * dst_stride, last, static_cast<size_t>(dst_stride));
    }
  }
}

// ---- I420 and NV12 to packed RGB ----

#if HWY_TARGET == HWY_AVX3_DL
// Byte permutes that write 64 pixels of packed RGB (three vectors) from
// rg0 = packus(R, G of pixels 0..31), rg1 = the same for 32..63 and
// b = packus(B of 0..31, B of 32..63); 128-bit lane L of a packus holds
// pixels 8L..8L+7 of its first operand, then of its second. The first and
// last vectors take their bytes from two sources; the middle one from rg0
// and rg1, then its B bytes by a masked permute of b.
struct RgbBytes {
  alignas(64) uint8_t first[64];
  alignas(64) uint8_t middle[64];
  alignas(64) uint8_t middle_b[64];
  alignas(64) uint8_t last[64];
  uint64_t middle_b_mask;
};
constexpr RgbBytes MakeRgbBytes() {
  RgbBytes t{};
  // Byte of pixel px's channel c (R 0, G 1) in rg0 (px < 32) or rg1, and of
  // its B in b.
  auto rg_at = [](int px, int c) { return 16 * ((px % 32) / 8) + 8 * c + px % 8; };
  auto b_at = [](int px) { return 16 * ((px % 32) / 8) + 8 * (px / 32) + px % 8; };
  for (int q = 0; q < 192; ++q) {
    const int px = q / 3, c = q % 3, j = q % 64;
    if (q < 64) {
      t.first[j] = static_cast<uint8_t>(c == 2 ? 64 + b_at(px) : rg_at(px, c));
    } else if (q < 128) {
      t.middle[j] = static_cast<uint8_t>(c == 2 ? 0 : rg_at(px, c) + (px < 32 ? 0 : 64));
      t.middle_b[j] = static_cast<uint8_t>(c == 2 ? b_at(px) : 0);
      if (c == 2) t.middle_b_mask |= uint64_t{1} << j;
    } else {
      t.last[j] = static_cast<uint8_t>(c == 2 ? 64 + b_at(px) : rg_at(px, c));
    }
  }
  return t;
}
alignas(64) constexpr RgbBytes kRgbBytes = MakeRgbBytes();
#endif

#if VORLITH_X86_VECTORS
// Packed RGB of 16 pixels per 128-bit block (r, g, b: bytes in pixel order)
// written as three 16-byte pieces. Within a block every piece takes each
// channel at positions p with the same p % 3, and over the three pieces a
// channel's pixels fall on disjoint positions, so one byte shuffle per
// channel places all its bytes and two blends per piece pick among them.
// Highway's general three-way interleave shuffles more per piece.
struct RgbPieces {
  alignas(16) uint8_t order[3][16];  // channel c's byte for position p
  alignas(16) uint8_t position[3][16];  // 0xFF where p % 3 == m
};
constexpr RgbPieces MakeRgbPieces() {
  RgbPieces t{};
  for (int p = 0; p < 16; ++p) {
    for (int piece = 0; piece < 3; ++piece) {
      const int q = 16 * piece + p;
      t.order[q % 3][p] = static_cast<uint8_t>(q / 3);
    }
    for (int m = 0; m < 3; ++m) t.position[m][p] = p % 3 == m ? 0xFF : 0;
  }
  return t;
}
alignas(16) constexpr RgbPieces kRgbPieces = MakeRgbPieces();

// Byte indices (0x80: zero) that widen chroma samples to 32-bit lanes for
// steps of `blocks` 128-bit blocks: planar samples 8L.. (first) and 8L+4..
// (second) in block L of the spread bytes (for two blocks both hold samples
// 0..15, so block L starts at 8L; otherwise at its own chunk), and U and V
// of pairs 8L.. and 8L+4.. for NV12.
template <size_t blocks>
struct ChromaBytes {
  alignas(64) uint8_t planar[2][16 * blocks];
  alignas(16) uint8_t pair[4][16];
};
template <size_t blocks>
constexpr ChromaBytes<blocks> MakeChromaBytes() {
  ChromaBytes<blocks> t{};
  for (size_t i = 0; i < 16; ++i) {
    const bool first = i % 4 == 0;
    for (size_t h = 0; h < 2; ++h) {
      for (size_t L = 0; L < blocks; ++L) {
        const size_t at = (blocks == 2 ? 8 * L : 0) + 4 * h + i / 4;
        t.planar[h][16 * L + i] = first ? static_cast<uint8_t>(at) : 0x80;
      }
      for (size_t v = 0; v < 2; ++v) t.pair[2 * h + v][i] = first ? static_cast<uint8_t>(8 * h + 2 * (i / 4) + v) : 0x80;
    }
  }
  return t;
}
template <size_t blocks>
alignas(64) constexpr ChromaBytes<blocks> kChromaBytes = MakeChromaBytes<blocks>();

template <class D, class V = hn::Vec<D>>
HWY_INLINE void StoreRgbPieces(D d, V piece0, V piece1, V piece2, uint8_t* out) {
  if constexpr (hn::MaxLanes(d) == 16) {
    hn::StoreU(piece0, d, out);
    hn::StoreU(piece1, d, out + 16);
    hn::StoreU(piece2, d, out + 32);
  } else {
    const hn::Half<D> dh;
    StoreRgbPieces(dh, hn::LowerHalf(dh, piece0), hn::LowerHalf(dh, piece1), hn::LowerHalf(dh, piece2), out);
    StoreRgbPieces(dh, hn::UpperHalf(dh, piece0), hn::UpperHalf(dh, piece1), hn::UpperHalf(dh, piece2),
                   out + 3 * hn::Lanes(dh));
  }
}
#endif

template <class D>  // int32 lanes, one per chroma sample
HWY_INLINE size_t RgbPairs(D d, const uint8_t* const (&luma)[2], const Chroma& c,
                           uint8_t* const (&rgb)[2], size_t x, size_t end) {
#if HWY_TARGET == HWY_SCALAR
  (void)d, (void)luma, (void)c, (void)rgb, (void)end;  // no lanes to pair pixels in
  return x;
#else
  namespace k = colour;
  const hn::Rebind<uint32_t, D> du;
  const hn::Rebind<uint16_t, D> d16;
  const hn::Rebind<uint8_t, D> d8;
  const hn::Repartition<int16_t, D> d16x2;
  // A step covers 4 lanes' worth of pixels, so each channel fills a whole
  // byte vector and the interleave runs at full width.
  const hn::Repartition<uint8_t, D> d8x4;
  const hn::Half<decltype(d8x4)> d8x2;
  const size_t n = hn::Lanes(d);
  // Constants and pointers in registers: the byte stores may alias anything.
  // The luma black level and the chroma centre join the rounding half, one
  // constant per channel: gain (Y' - 16) + w (C - 128) + half =
  // gain Y' + w C + (half - 16 gain - 128 w).
  const auto byte = hn::Set(d, 0xFF);
  const auto floor16 = hn::BitCast(d8x4, hn::Set(du, 0x1010u));
  const auto gain = hn::Set(d, k::kYGain20);
  constexpr int32_t kBase = k::kHalf20 - 16 * k::kYGain20;
  const auto r_base = hn::Set(d, kBase - 128 * k::kRV20), g_base = hn::Set(d, kBase - 128 * (k::kGU20 + k::kGV20)),
             b_base = hn::Set(d, kBase - 128 * k::kBU20);
  const auto rv = hn::Set(d, k::kRV20), gu = hn::Set(d, k::kGU20), gv = hn::Set(d, k::kGV20),
             bu = hn::Set(d, k::kBU20);
  const uint8_t *const cu = c.u, *const cv = c.v, *const y0 = luma[0], *const y1 = luma[1];
  uint8_t *const out0 = rgb[0], *const out1 = rgb[1];
  const bool interleaved = c.interleaved;
  // U and V of the n samples from pixel `at` on.
  auto cb_at = [&](size_t at) {
    return interleaved
        ? hn::And(hn::BitCast(d, hn::PromoteTo(du, hn::LoadU(d16, reinterpret_cast<const uint16_t*>(cu + at)))), byte)
        : hn::BitCast(d, hn::PromoteTo(du, hn::LoadU(d8, cu + at / 2)));
  };
  auto cr_at = [&](size_t at) {
    return interleaved
        ? hn::ShiftRight<8>(hn::BitCast(d, hn::PromoteTo(du, hn::LoadU(d16, reinterpret_cast<const uint16_t*>(cu + at)))))
        : hn::BitCast(d, hn::PromoteTo(du, hn::LoadU(d8, cv + at / 2)));
  };
  // One channel of 2n pixels: the pair's two results as 16-bit lanes in
  // pixel order; the demotion saturates, which is the clamp to 0..255. The
  // odd pixel's sum shifted by 4 holds its result in the upper half already
  // (floor(floor(s / 16) / 65536) = floor(s / 2^20)), so one blend pairs them.
  auto unclamped = [&](hn::Vec<D> se, hn::Vec<D> so, hn::Vec<D> chroma_part) {
#if VORLITH_X86_VECTORS && HWY_TARGET <= HWY_AVX3
    // On AVX-512 one word permute takes both upper halves, then the rest of
    // the shift in 16-bit lanes.
    if constexpr (hn::MaxLanes(D()) == 16) {
      return hn::ShiftRight<4>(hn::Vec<decltype(d16x2)>{
          UpperHalvesOfPairs(hn::Add(se, chroma_part).raw, hn::Add(so, chroma_part).raw)});
    }
#endif
    const auto e = hn::ShiftRight<20>(hn::Add(se, chroma_part));
    const auto o = hn::ShiftRight<4>(hn::Add(so, chroma_part));
    return hn::OddEven(hn::BitCast(d16x2, o), hn::BitCast(d16x2, e));
  };
  auto channel = [&](hn::Vec<D> se, hn::Vec<D> so, hn::Vec<D> chroma_part) {
    return hn::DemoteTo(d8x2, unclamped(se, so, chroma_part));
  };
#if HWY_TARGET == HWY_AVX3_DL
  // 512 bits: the same saturation by packus, the interleave by byte permutes.
  constexpr bool kPermuteBytes = hn::MaxLanes(D()) == 16;
  const __m512i first = _mm512_load_si512(kRgbBytes.first), middle = _mm512_load_si512(kRgbBytes.middle),
                middle_b = _mm512_load_si512(kRgbBytes.middle_b), last = _mm512_load_si512(kRgbBytes.last);
  const __mmask64 middle_b_mask = kRgbBytes.middle_b_mask;
#endif
#if VORLITH_X86_VECTORS
#if HWY_TARGET != HWY_AVX3_DL
  constexpr bool kPermuteBytes = false;
#endif
  // Below VBMI, steps of whole 128-bit blocks keep each block's pixels
  // together: block L of the luma pair lanes holds pixels 16L..16L+7, of the
  // second 16L+8..16L+15, with their chroma samples 8L.. and 8L+4.., so a
  // pack per block gives 16 pixels in order, ready for the pieces.
  // (The 8-pixel steps go the general way.)
  constexpr bool kPieces = hn::MaxLanes(d8x4) >= 16;
  constexpr bool kBlocks = kPieces && !kPermuteBytes;
  constexpr size_t kBlockCount = kPieces ? hn::MaxLanes(d8x4) / 16 : 1;
  const hn::CappedTag<uint8_t, kPieces ? hn::MaxLanes(d8x4) : 16> dp;
  const hn::Repartition<uint16_t, decltype(dp)> dp16;
  const hn::Repartition<uint32_t, decltype(dp)> dp32;
  constexpr const ChromaBytes<kBlockCount>& kIdx = kChromaBytes<kBlockCount>;
  const auto planar0 = hn::LoadU(dp, kIdx.planar[0]), planar1 = hn::LoadU(dp, kIdx.planar[1]);
  const auto u0 = hn::LoadDup128(dp, kIdx.pair[0]), v0 = hn::LoadDup128(dp, kIdx.pair[1]),
             u1 = hn::LoadDup128(dp, kIdx.pair[2]), v1 = hn::LoadDup128(dp, kIdx.pair[3]);
  // Planar chroma of 2n samples with block L holding samples 8L..8L+7.
  auto spread = [&](const uint8_t* p) {
    if constexpr (kBlockCount == 1) {
      return hn::ZeroExtendVector(dp, hn::LoadU(hn::Half<decltype(dp)>(), p));
    } else if constexpr (kBlockCount == 2) {
      return hn::LoadDup128(dp, p);
    } else {
      const hn::Repartition<uint64_t, decltype(dp)> d64;
      const auto chunks = hn::ZeroExtendVector(d64, hn::LoadU(hn::Half<decltype(d64)>(), reinterpret_cast<const uint64_t*>(p)));
      alignas(64) static constexpr uint64_t kTwice[8] = {0, 0, 1, 1, 2, 2, 3, 3};
      return hn::BitCast(dp, hn::TableLookupLanes(chunks, hn::SetTableIndices(d64, kTwice)));
    }
  };
  const auto r_order = hn::LoadDup128(dp, kRgbPieces.order[0]), g_order = hn::LoadDup128(dp, kRgbPieces.order[1]),
             b_order = hn::LoadDup128(dp, kRgbPieces.order[2]);
  const auto at0 = hn::MaskFromVec(hn::LoadDup128(dp, kRgbPieces.position[0])),
             at1 = hn::MaskFromVec(hn::LoadDup128(dp, kRgbPieces.position[1])),
             at2 = hn::MaskFromVec(hn::LoadDup128(dp, kRgbPieces.position[2]));
#endif
  for (; x + 4 * n <= end; x += 4 * n) {
    hn::Vec<D> cb0, cr0, cb1, cr1;
#if VORLITH_X86_VECTORS
    if constexpr (kBlocks) {
      if (interleaved) {
        const auto uv = hn::LoadU(dp, cu + x);
        cb0 = hn::BitCast(d, hn::TableLookupBytesOr0(uv, u0)), cr0 = hn::BitCast(d, hn::TableLookupBytesOr0(uv, v0));
        cb1 = hn::BitCast(d, hn::TableLookupBytesOr0(uv, u1)), cr1 = hn::BitCast(d, hn::TableLookupBytesOr0(uv, v1));
      } else {
        const auto us = spread(cu + x / 2), vs = spread(cv + x / 2);
        cb0 = hn::BitCast(d, hn::TableLookupBytesOr0(us, planar0)), cr0 = hn::BitCast(d, hn::TableLookupBytesOr0(vs, planar0));
        cb1 = hn::BitCast(d, hn::TableLookupBytesOr0(us, planar1)), cr1 = hn::BitCast(d, hn::TableLookupBytesOr0(vs, planar1));
      }
    } else
#endif
    {
      cb0 = cb_at(x), cr0 = cr_at(x), cb1 = cb_at(x + 2 * n), cr1 = cr_at(x + 2 * n);
    }
    const auto rc0 = hn::Add(hn::Mul(cr0, rv), r_base), rc1 = hn::Add(hn::Mul(cr1, rv), r_base);
    const auto gc0 = hn::Add(hn::Add(hn::Mul(cb0, gu), hn::Mul(cr0, gv)), g_base);
    const auto gc1 = hn::Add(hn::Add(hn::Mul(cb1, gu), hn::Mul(cr1, gv)), g_base);
    const auto bc0 = hn::Add(hn::Mul(cb0, bu), b_base), bc1 = hn::Add(hn::Mul(cb1, bu), b_base);
    for (size_t row = 0; row < 2; ++row) {
      // A lane holds a pixel pair's two luma bytes; one byte max floors both.
      const auto* yrow = reinterpret_cast<const uint16_t*>((row ? y1 : y0) + x);
      auto floored = [&](hn::Vec<D> yy) { return hn::BitCast(d, hn::Max(hn::BitCast(d8x4, yy), floor16)); };
      hn::Vec<D> yy0, yy1;
#if VORLITH_X86_VECTORS
      if constexpr (kBlocks) {
        const auto pairs = hn::BitCast(dp16, hn::LoadU(dp, (row ? y1 : y0) + x)), none = hn::Zero(dp16);
        yy0 = floored(hn::BitCast(d, hn::ZipLower(dp32, pairs, none)));
        yy1 = floored(hn::BitCast(d, hn::ZipUpper(dp32, pairs, none)));
      } else
#endif
      {
        yy0 = floored(hn::BitCast(d, hn::PromoteTo(du, hn::LoadU(d16, yrow))));
        yy1 = floored(hn::BitCast(d, hn::PromoteTo(du, hn::LoadU(d16, yrow + n))));
      }
      const auto se0 = hn::Mul(hn::And(yy0, byte), gain), so0 = hn::Mul(hn::ShiftRight<8>(yy0), gain);
      const auto se1 = hn::Mul(hn::And(yy1, byte), gain), so1 = hn::Mul(hn::ShiftRight<8>(yy1), gain);
#if HWY_TARGET == HWY_AVX3_DL
      if constexpr (kPermuteBytes) {
        const __m512i rg0 = _mm512_packus_epi16(unclamped(se0, so0, rc0).raw, unclamped(se0, so0, gc0).raw);
        const __m512i rg1 = _mm512_packus_epi16(unclamped(se1, so1, rc1).raw, unclamped(se1, so1, gc1).raw);
        const __m512i b = _mm512_packus_epi16(unclamped(se0, so0, bc0).raw, unclamped(se1, so1, bc1).raw);
        uint8_t* out = (row ? out1 : out0) + 3 * x;
        _mm512_storeu_si512(out, _mm512_permutex2var_epi8(rg0, first, b));
        _mm512_storeu_si512(out + 64, _mm512_mask_permutexvar_epi8(_mm512_permutex2var_epi8(rg0, middle, rg1),
                                                                   middle_b_mask, middle_b, b));
        _mm512_storeu_si512(out + 128, _mm512_permutex2var_epi8(rg1, last, b));
        continue;
      }
#endif
#if VORLITH_X86_VECTORS
      if constexpr (kBlocks) {
        auto pack = [&](hn::Vec<D> c0, hn::Vec<D> c1) {
          return PackBlocks(dp, unclamped(se0, so0, c0), unclamped(se1, so1, c1));
        };
        const auto rp = hn::TableLookupBytes(pack(rc0, rc1), r_order), gp = hn::TableLookupBytes(pack(gc0, gc1), g_order),
                   bp = hn::TableLookupBytes(pack(bc0, bc1), b_order);
        StoreRgbPieces(d8x4, hn::IfThenElse(at0, rp, hn::IfThenElse(at1, gp, bp)),
                       hn::IfThenElse(at2, rp, hn::IfThenElse(at0, gp, bp)),
                       hn::IfThenElse(at1, rp, hn::IfThenElse(at2, gp, bp)), (row ? out1 : out0) + 3 * x);
        continue;
      }
#endif
      hn::StoreInterleaved3(hn::Combine(d8x4, channel(se1, so1, rc1), channel(se0, so0, rc0)),
                            hn::Combine(d8x4, channel(se1, so1, gc1), channel(se0, so0, gc0)),
                            hn::Combine(d8x4, channel(se1, so1, bc1), channel(se0, so0, bc0)), d8x4,
                            (row ? out1 : out0) + 3 * x);
    }
  }
  return x;
#endif
}

void YuvToRgb(const uint8_t* y, int y_stride, const uint8_t* uv, int uv_stride, uint8_t* rgb,
              int width, int height, bool interleaved) {
  if (height < 1 || width < 1) return;
  const size_t w = static_cast<size_t>(width), body = w / 8 * 8;
  const ptrdiff_t v_plane = ptrdiff_t(height) * width / 4;
  // Rows go in pairs, an odd height's last pair included. The second row of
  // a pair is read `width` bytes after the first, and the next pair starts
  // width + y_stride after it: right for packed luma rows only.
  for (int pair = 0; 2 * pair < height; ++pair) {
    const uint8_t* y0 = y + ptrdiff_t(pair) * (width + y_stride);
    const uint8_t* const luma[2] = {y0, y0 + width};
    const uint8_t* chroma = uv + ptrdiff_t(pair) * uv_stride;
    const Chroma c = {chroma, chroma + v_plane, interleaved};
    uint8_t* const out[2] = {rgb + ptrdiff_t(pair) * 6 * width, rgb + ptrdiff_t(pair) * 6 * width + 3 * w};
    size_t x = RgbPairs(hn::ScalableTag<int32_t>(), luma, c, out, 0, body);
    x = RgbPairs(hn::CappedTag<int32_t, 4>(), luma, c, out, x, body);
    x = RgbPairs(hn::CappedTag<int32_t, 2>(), luma, c, out, x, body);
    for (; x < w; ++x) {
      const size_t k = x / 2;
      const int u = interleaved ? chroma[2 * k] : c.u[k], v = interleaved ? chroma[2 * k + 1] : c.v[k];
      for (size_t row = 0; row < 2; ++row) convert::RgbQ20(luma[row][x], u, v, out[row] + 3 * x);
    }
  }
}

// ---- RGB to RGBA ----

template <class D>
HWY_INLINE size_t SwappedRgba(D d, const uint8_t* src, uint8_t* dst, size_t x, size_t end) {
  const size_t n = hn::Lanes(d);
  const auto opaque = hn::Set(d, 0xFF);
  for (; x + n <= end; x += n) {
    hn::Vec<D> c0, c1, c2;
    hn::LoadInterleaved3(d, src + 3 * x, c0, c1, c2);
    hn::StoreInterleaved4(c2, c1, c0, opaque, d, dst + 4 * x);
  }
  return x;
}

#if HWY_ARCH_X86 && HWY_TARGET != HWY_SCALAR
// x86 has no three-way deinterleaving load, so the same swap goes a vector
// at a time another way (Arm's LD3/ST4 above are the best there): each
// 16-byte block of output pixels takes its four pixels' 12 bytes (moved
// into the block by one word permutation) through one byte shuffle. A load
// takes a third more bytes than the step uses, so the steps stop where
// that would pass the row's end.
template <class D>
HWY_INLINE size_t SwappedRgbaBlocks(D d, const uint8_t* src, uint8_t* dst, size_t x, size_t end, size_t width) {
  const hn::Repartition<uint32_t, D> d32;
  alignas(16) static constexpr uint8_t kOrder[16] = {2, 1, 0, 0x80, 5, 4, 3, 0x80, 8, 7, 6, 0x80, 11, 10, 9, 0x80};
  const size_t n = hn::Lanes(d) / 4;  // pixels a step
  const auto lane = hn::Iota(d32, 0);
  const auto words = hn::IndicesFromVec(
      d32, hn::Add(hn::Mul(hn::ShiftRight<2>(lane), hn::Set(d32, 3u)), hn::And(lane, hn::Set(d32, 3u))));
  const auto order = hn::LoadDup128(d, kOrder);
  const auto opaque = hn::BitCast(d, hn::Set(d32, 0xFF000000u));
  for (; x + n <= end && 3 * x + 4 * n <= 3 * width; x += n) {
    const auto in = hn::BitCast(d, hn::TableLookupLanes(hn::BitCast(d32, hn::LoadU(d, src + 3 * x)), words));
    hn::StoreU(hn::Or(hn::TableLookupBytesOr0(in, order), opaque), d, dst + 4 * x);
  }
  return x;
}
#endif

void RgbToRgba(const uint8_t* src, uint8_t* dst, int width, int height, int dst_stride) {
  if (height < 1 || width < 1) return;
  const size_t w = static_cast<size_t>(width), body = w / 16 * 16;
  for (int row = 0; row < height; ++row) {
    const uint8_t* s = src + ptrdiff_t(row) * 3 * width;
    uint8_t* o = dst + ptrdiff_t(row) * dst_stride;
    // The 16-pixel steps swap the first and third channels; the tail keeps
    // them in order.
#if HWY_ARCH_X86 && HWY_TARGET != HWY_SCALAR
    size_t x = SwappedRgbaBlocks(hn::ScalableTag<uint8_t>(), s, o, 0, body, w);
    x = SwappedRgbaBlocks(hn::Full128<uint8_t>(), s, o, x, body, w);
    for (; x < body; ++x) {
      o[4 * x] = s[3 * x + 2];
      o[4 * x + 1] = s[3 * x + 1];
      o[4 * x + 2] = s[3 * x];
      o[4 * x + 3] = 255;
    }
#else
    size_t x = SwappedRgba(hn::ScalableTag<uint8_t>(), s, o, 0, body);
    x = SwappedRgba(hn::CappedTag<uint8_t, 16>(), s, o, x, body);
#endif
    for (; x < w; ++x) {
      std::memcpy(o + 4 * x, s + 3 * x, 3);
      o[4 * x + 3] = 255;
    }
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith {
HWY_EXPORT(YuvToVuya);
HWY_EXPORT(YuvToRgb);
HWY_EXPORT(RgbToRgba);
}  // namespace vorlith

void yuvcpy(unsigned char* y, int width, int height, int yStride, unsigned char* uv,
            int uvWidth, int uvHeight, int uvStride, unsigned char* dst, int dstWidth,
            int dstHeight, int dstStride, bool interleaved) {
  HWY_DYNAMIC_DISPATCH(vorlith::YuvToVuya)(y, width, height, yStride, uv, uvWidth, uvHeight,
                                           uvStride, dst, dstWidth, dstHeight, dstStride,
                                           interleaved);
}

void BGRACrop(unsigned char* src, unsigned char* dst, int, int, int srcStride, int width,
              int height, int dstStride) {
  // The bytes are copied unchanged, so one copy per row is the whole kernel.
  if (width < 1) return;
  for (int row = 0; row < height; ++row) {
    std::memcpy(dst + ptrdiff_t(row) * dstStride, src + ptrdiff_t(row) * srcStride,
                4 * static_cast<size_t>(width));
  }
}

void CvtColorI420ToRGBInterleaved(unsigned char* y, int yStride, unsigned char* uv, int uvStride,
                                  unsigned char* rgb, int width, int height) {
  HWY_DYNAMIC_DISPATCH(vorlith::YuvToRgb)(y, yStride, uv, uvStride, rgb, width, height, false);
}

void CvtColorNV12ToRGBInterleaved(unsigned char* y, int yStride, unsigned char* uv, int uvStride,
                                  unsigned char* rgb, int width, int height) {
  HWY_DYNAMIC_DISPATCH(vorlith::YuvToRgb)(y, yStride, uv, uvStride, rgb, width, height, true);
}

void CvtRGBtoRGBA_lanczos(unsigned char* src, unsigned char* dst, int width, int height,
                          int dstStride) {
  HWY_DYNAMIC_DISPATCH(vorlith::RgbToRgba)(src, dst, width, height, dstStride);
}
#endif  // HWY_ONCE
