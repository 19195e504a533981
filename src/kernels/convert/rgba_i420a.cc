// RGBA to I420 with alpha and back. Vector steps take the coefficients from
// the kernel context, the scalar tails from colour_coefficients.h; the
// arithmetic (floor shifts, clamps) is the same, so every column of a row
// pair gets the same bytes whichever path converts it. Pixels are handled
// as 32-bit lanes (R in the low byte), chroma sample k with pixels 2k, 2k+1.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/convert/rgba_i420a.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

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

struct ToYuvCoefs {
  int32_t y[3], u[3], v[3], y_off, u_off, v_off;
};

template <class D, class V>
HWY_INLINE V WeightedHigh(D d, V r, V g, V b, const int32_t (&c)[3]) {
  const V sum = hn::Add(hn::Add(hn::Mul(r, hn::Set(d, c[0])), hn::Mul(g, hn::Set(d, c[1]))),
                       hn::Mul(b, hn::Set(d, c[2])));
  return hn::ShiftRight<16>(sum);
}

// Columns [x, end) of a row pair, 2*Lanes(d) at a time; returns where it stopped.
template <class D>
HWY_INLINE size_t ToI420APairs(D d, const ToYuvCoefs& k, const PairRows& p, size_t x,
                               size_t end) {
  const hn::Rebind<uint32_t, D> du;
  const hn::Rebind<uint16_t, D> d16;
  const hn::Rebind<uint8_t, D> d8;
  const size_t n = hn::Lanes(d);
  const auto byte = hn::Set(d, 0xFF), zero = hn::Zero(d), max = hn::Set(d, 255);
  for (; x + 2 * n <= end; x += 2 * n) {
    for (size_t row = 0; row < 2; ++row) {
      const uint8_t* src = p.rgba + row * 4 * p.width + 4 * x;
      hn::Vec<decltype(du)> pe, po;
      hn::LoadInterleaved2(du, reinterpret_cast<const uint32_t*>(src), pe, po);
      const auto e = hn::BitCast(d, pe), o = hn::BitCast(d, po);
      const auto re = hn::And(e, byte), ge = hn::And(hn::ShiftRight<8>(e), byte),
                 be = hn::And(hn::ShiftRight<16>(e), byte);
      const auto ro = hn::And(o, byte), go = hn::And(hn::ShiftRight<8>(o), byte),
                 bo = hn::And(hn::ShiftRight<16>(o), byte);
      const auto off = hn::Set(d, k.y_off);
      const auto ye = hn::Min(hn::Max(hn::Add(WeightedHigh(d, re, ge, be, k.y), off), zero), max);
      const auto yo = hn::Min(hn::Max(hn::Add(WeightedHigh(d, ro, go, bo, k.y), off), zero), max);
      // Two neighbouring bytes as one 16-bit lane, low byte first.
      const auto ypair = hn::Or(ye, hn::ShiftLeft<8>(yo));
      const auto apair = hn::Or(hn::BitCast(d, hn::ShiftRight<24>(pe)),
                                hn::And(hn::BitCast(d, hn::ShiftRight<16>(po)), hn::Set(d, 0xFF00)));
      uint8_t* yrow = p.y + row * p.width + x;
      uint8_t* arow = p.a + row * p.width + x;
      hn::StoreU(hn::DemoteTo(d16, ypair), d16, reinterpret_cast<uint16_t*>(yrow));
      hn::StoreU(hn::DemoteTo(d16, apair), d16, reinterpret_cast<uint16_t*>(arow));
      if (row == 0) {
        // Chroma from the block's top-left pixel only.
        const auto u = hn::Add(WeightedHigh(d, re, ge, be, k.u), hn::Set(d, k.u_off));
        const auto v = hn::Add(WeightedHigh(d, re, ge, be, k.v), hn::Set(d, k.v_off));
        hn::StoreU(hn::DemoteTo(d8, u), d8, p.u + x / 2);
        hn::StoreU(hn::DemoteTo(d8, v), d8, p.v + x / 2);
      }
    }
  }
  return x;
}

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
  const ToYuvCoefs k = {{Lane0(ctx->yCoefR), Lane0(ctx->yCoefG), Lane0(ctx->yCoefB)},
                        {Lane0(ctx->uCoefR), Lane0(ctx->uCoefG), Lane0(ctx->uCoefB)},
                        {Lane0(ctx->vCoefR), Lane0(ctx->vCoefG), Lane0(ctx->vCoefB)},
                        Lane0(ctx->yOffset), Lane0(ctx->uOffset), Lane0(ctx->vOffset)};
  for (size_t pair = 0; pair < static_cast<size_t>(height / 2); ++pair) {
    // An odd width leaves its last column out, and each pair then starts
    // one pixel earlier than a packed layout would put it.
    const size_t luma = pair * (2 * w - odd);
    const PairRows p = {rgba + 4 * luma, y + luma, a + luma, u + pair * (w / 2), v + pair * (w / 2),
                        w};
    size_t x = 0;
    x = ToI420APairs(hn::ScalableTag<int32_t>(), k, p, x, body);
    x = ToI420APairs(hn::CappedTag<int32_t, 4>(), k, p, x, body);
    ToI420ATail(p, x, cols);
  }
}

struct ToRgbCoefs {
  int32_t gain, bias, rv, gu, gv, bu, uv_bias;
};

template <class D>
HWY_INLINE size_t ToRgbaPairs(D d, const ToRgbCoefs& k, const uint8_t* y, const uint8_t* u,
                              const uint8_t* v, const uint8_t* a, uint8_t* rgba, size_t width,
                              size_t x, size_t end) {
  const hn::Rebind<uint32_t, D> du;
  const hn::Rebind<uint16_t, D> d16;
  const hn::Rebind<uint8_t, D> d8;
  const size_t n = hn::Lanes(d);
  const auto zero = hn::Zero(d), max = hn::Set(d, 255), byte = hn::Set(d, 0xFF);
  for (; x + 2 * n <= end; x += 2 * n) {
    const auto cb = hn::Sub(hn::BitCast(d, hn::PromoteTo(du, hn::LoadU(d8, u + x / 2))),
                            hn::Set(d, k.uv_bias));
    const auto cr = hn::Sub(hn::BitCast(d, hn::PromoteTo(du, hn::LoadU(d8, v + x / 2))),
                            hn::Set(d, k.uv_bias));
    const auto rc = hn::Mul(cr, hn::Set(d, k.rv));
    const auto gc = hn::Add(hn::Mul(cb, hn::Set(d, k.gu)), hn::Mul(cr, hn::Set(d, k.gv)));
    const auto bc = hn::Mul(cb, hn::Set(d, k.bu));
    auto pixel = [&](hn::Vec<D> luma, hn::Vec<D> alpha) {
      const auto s = hn::Mul(hn::Sub(luma, hn::Set(d, k.bias)), hn::Set(d, k.gain));
      const auto r = hn::Min(hn::Max(hn::ShiftRight<16>(hn::Add(s, rc)), zero), max);
      const auto g = hn::Min(hn::Max(hn::ShiftRight<16>(hn::Add(s, gc)), zero), max);
      const auto b = hn::Min(hn::Max(hn::ShiftRight<16>(hn::Add(s, bc)), zero), max);
      return hn::BitCast(du, hn::Or(hn::Or(r, hn::ShiftLeft<8>(g)),
                                    hn::Or(hn::ShiftLeft<16>(b), hn::ShiftLeft<24>(alpha))));
    };
    for (size_t row = 0; row < 2; ++row) {
      const auto yy = hn::BitCast(
          d, hn::PromoteTo(du, hn::LoadU(d16, reinterpret_cast<const uint16_t*>(y + row * width + x))));
      const auto aa = hn::BitCast(
          d, hn::PromoteTo(du, hn::LoadU(d16, reinterpret_cast<const uint16_t*>(a + row * width + x))));
      const auto pe = pixel(hn::And(yy, byte), hn::And(aa, byte));
      const auto po = pixel(hn::ShiftRight<8>(yy), hn::ShiftRight<8>(aa));
      hn::StoreInterleaved2(pe, po, du, reinterpret_cast<uint32_t*>(rgba + 4 * (row * width + x)));
    }
  }
  return x;
}

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
    x = ToRgbaPairs(hn::ScalableTag<int32_t>(), k, yp, up, vp, ap, out, w, x, body);
    x = ToRgbaPairs(hn::CappedTag<int32_t, 4>(), k, yp, up, vp, ap, out, w, x, body);
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
