// RGBA split into float luma plus 2x-replicated Q20 colour differences and
// alpha, and the merge of an enlarged luma with them. The split's vector and
// scalar columns agree; the merge's do not on purpose: its vector columns
// (the first 8*(W/8) of a row) add in 32-bit integers, its tail in single
// precision.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/convert/luma_ratio.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

#include "src/kernels/arm_numerics-inl.h"
#include "src/kernels/convert/convert_pixels.h"
#include "src/kernels/convert/lane0.h"
#include "vorlith/convert.h"

HWY_BEFORE_NAMESPACE();
namespace vorlith {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Row y of the split: its luma row, and the first of the two enlarged rows of
// each difference plane and of the alpha plane.
struct SplitRow {
  const uint8_t* rgba;
  float* luma;
  int32_t* diff[3];
  uint8_t* alpha;
  size_t out_width;  // 2W, the enlarged planes' stride
};

template <class D>
HWY_INLINE size_t SplitColumns(D d, const int32_t (&coef)[4][4], const SplitRow& s, size_t x,
                               size_t end) {
  const hn::Rebind<uint32_t, D> du;
  const hn::Rebind<uint16_t, D> d16;
  const hn::Rebind<float, D> df;
  const size_t n = hn::Lanes(d);
  const auto byte = hn::Set(d, 0xFF);
  for (; x + n <= end; x += n) {
    const auto px = hn::BitCast(d, hn::LoadU(du, reinterpret_cast<const uint32_t*>(s.rgba + 4 * x)));
    const auto r = hn::And(px, byte), g = hn::And(hn::ShiftRight<8>(px), byte),
               b = hn::And(hn::ShiftRight<16>(px), byte);
    auto weigh = [&](const int32_t(&c)[4]) {
      return hn::Add(hn::Add(hn::Mul(r, hn::Set(d, c[0])), hn::Mul(g, hn::Set(d, c[1]))),
                     hn::Add(hn::Mul(b, hn::Set(d, c[2])), hn::Set(d, c[3])));
    };
    hn::StoreU(hn::ConvertTo(df, hn::ShiftRight<20>(weigh(coef[0]))), df, s.luma + x);
    for (size_t c = 0; c < 3; ++c) {
      const auto diff = weigh(coef[c + 1]);
      for (size_t row = 0; row < 2; ++row) {
        hn::StoreInterleaved2(diff, diff, d, s.diff[c] + row * s.out_width + 2 * x);
      }
    }
    const auto a = hn::BitCast(d, hn::ShiftRight<24>(hn::BitCast(du, px)));
    const auto a2 = hn::DemoteTo(d16, hn::Or(a, hn::ShiftLeft<8>(a)));
    for (size_t row = 0; row < 2; ++row) {
      hn::StoreU(a2, d16, reinterpret_cast<uint16_t*>(s.alpha + row * s.out_width + 2 * x));
    }
  }
  return x;
}

void Split(_StLanczos1p5x* ctx, const uint8_t* rgba, float* luma, int32_t* diff, uint8_t* alpha,
           int height, int width) {
  if (height < 1 || width < 1) return;
  const size_t w = static_cast<size_t>(width), h = static_cast<size_t>(height);
  const size_t body = w / 8 * 8, plane = 4 * w * h;
  const int32_t coef[4][4] = {
      {Lane0(ctx->yCoefR20), Lane0(ctx->yCoefG20), Lane0(ctx->yCoefB20), Lane0(ctx->yOffset20)},
      {Lane0(ctx->dRCoefR), Lane0(ctx->dRCoefG), Lane0(ctx->dRCoefB), Lane0(ctx->dROffset)},
      {Lane0(ctx->dGCoefR), Lane0(ctx->dGCoefG), Lane0(ctx->dGCoefB), Lane0(ctx->dGOffset)},
      {Lane0(ctx->dBCoefR), Lane0(ctx->dBCoefG), Lane0(ctx->dBCoefB), Lane0(ctx->dBOffset)}};
  for (size_t y = 0; y < h; ++y) {
    const size_t out = 2 * y * 2 * w;
    const SplitRow s = {rgba + 4 * w * y,
                        luma + w * y,
                        {diff + out, diff + plane + out, diff + 2 * plane + out},
                        alpha + out,
                        2 * w};
    size_t x = SplitColumns(hn::ScalableTag<int32_t>(), coef, s, 0, body);
    x = SplitColumns(hn::CappedTag<int32_t, 8>(), coef, s, x, body);
    for (; x < w; ++x) {
      const uint8_t* px = s.rgba + 4 * x;
      s.luma[x] = static_cast<float>(convert::LumaQ20(px[0], px[1], px[2]));
      const int32_t d[3] = {convert::DiffQ20(colour::kDR, px[0], px[1], px[2]),
                            convert::DiffQ20(colour::kDG, px[0], px[1], px[2]),
                            convert::DiffQ20(colour::kDB, px[0], px[1], px[2])};
      for (size_t row = 0; row < 2; ++row) {
        for (size_t c = 0; c < 3; ++c) {
          s.diff[c][row * 2 * w + 2 * x] = s.diff[c][row * 2 * w + 2 * x + 1] = d[c];
        }
        s.alpha[row * 2 * w + 2 * x] = s.alpha[row * 2 * w + 2 * x + 1] = px[3];
      }
    }
  }
}

template <class D>
HWY_INLINE size_t MergeColumns(D d, const float* luma, const int32_t* const (&diff)[3],
                               const uint8_t* alpha, uint8_t* rgba, size_t x, size_t end) {
  const hn::Rebind<uint32_t, D> du;
  const hn::Rebind<uint8_t, D> d8;
  const hn::Rebind<float, D> df;
  const size_t n = hn::Lanes(d);
  const auto zero = hn::Zero(d), max = hn::Set(d, 255);
  for (; x + n <= end; x += n) {
    const auto l = TruncToI32Sat(d, hn::LoadU(df, luma + x));
    auto channel = [&](size_t k) {
      return hn::Min(hn::Max(hn::ShiftRight<20>(hn::Add(l, hn::LoadU(d, diff[k] + x))), zero), max);
    };
    const auto a = hn::PromoteTo(du, hn::LoadU(d8, alpha + x));
    const auto px = hn::Or(hn::BitCast(du, hn::Or(channel(0), hn::ShiftLeft<8>(channel(1)))),
                           hn::Or(hn::BitCast(du, hn::ShiftLeft<16>(channel(2))), hn::ShiftLeft<24>(a)));
    hn::StoreU(px, du, reinterpret_cast<uint32_t*>(rgba + 4 * x));
  }
  return x;
}

void Merge(uint8_t* rgba, const float* luma, const int32_t* diff, const uint8_t* alpha, int height,
           int width) {
  if (height < 1 || width < 1) return;
  const size_t w = static_cast<size_t>(width), plane = w * static_cast<size_t>(height);
  const size_t body = w / 8 * 8;
  for (size_t y = 0; y < static_cast<size_t>(height); ++y) {
    const float* l = luma + y * w;
    const int32_t* const d[3] = {diff + y * w, diff + plane + y * w, diff + 2 * plane + y * w};
    const uint8_t* a = alpha + y * w;
    uint8_t* out = rgba + 4 * y * w;
    size_t x = MergeColumns(hn::ScalableTag<int32_t>(), l, d, a, out, 0, body);
    x = MergeColumns(hn::CappedTag<int32_t, 8>(), l, d, a, out, x, body);
    for (; x < w; ++x) {
      for (size_t c = 0; c < 3; ++c) out[4 * x + c] = convert::MergeTail(l[x], d[c][x]);
      out[4 * x + 3] = a[x];
    }
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith {
HWY_EXPORT(Split);
HWY_EXPORT(Merge);
}  // namespace vorlith

void RGBA2RGBA_Y_RGBR_NEON(_StLanczos1p5x* ctx, unsigned char* rgba, float* luma, int* diff,
                           unsigned char* alpha, int height, int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::Split)(ctx, rgba, luma, diff, alpha, height, width);
}

void RGBA2RGBA_F_NEON(unsigned char* rgba, float* luma, int* diff, unsigned char* alpha,
                      int height, int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::Merge)(rgba, luma, diff, alpha, height, width);
}
#endif  // HWY_ONCE
