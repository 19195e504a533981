// The single vector steps of the RGBA/I420A and luma-ratio drivers, as
// exported functions on the 4-lane types of lanes.h. The drivers do not call
// them (their Highway bodies do the same work at the target's width); they
// give a host the same arithmetic one step at a time, with the context's
// coefficients and the Arm instructions' wrapping and saturation.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "src/kernels/convert/lane0.h"
#include "vorlith/convert.h"

namespace {

template <class T, size_t N>
struct Lanes {
  T v[N];
};
using I32 = Lanes<int32_t, 4>;

template <class T, size_t N, class Vec>
Lanes<T, N> Get(const Vec& x) {
  static_assert(sizeof(Lanes<T, N>) == sizeof(Vec));
  Lanes<T, N> l;
  std::memcpy(l.v, &x, sizeof(l.v));
  return l;
}
template <class Vec, class T, size_t N>
void Put(Vec& x, const Lanes<T, N>& l) {
  static_assert(sizeof(Lanes<T, N>) == sizeof(Vec));
  std::memcpy(static_cast<void*>(&x), l.v, sizeof(l.v));
}

// Channel c of 8 RGBA pixels widened to two vectors; alpha bytes as they are.
void Deinterleave(const unsigned char* rgba, int32x4* rgb, unsigned char* alpha) {
  for (size_t c = 0; c < 3; ++c) {
    for (size_t half = 0; half < 2; ++half) {
      I32 l;
      for (size_t i = 0; i < 4; ++i) l.v[i] = rgba[4 * (4 * half + i) + c];
      Put(rgb[2 * c + half], l);
    }
  }
  for (size_t i = 0; i < 8; ++i) alpha[i] = rgba[4 * i + 3];
}

// Lane-wise c[0]*R + c[1]*G + c[2]*B (+ add), wrapping as the vector unit does.
I32 Weigh(const int32x4& r, const int32x4& g, const int32x4& b, const int32_t (&c)[3],
          int32_t add = 0) {
  const I32 R = Get<int32_t, 4>(r), G = Get<int32_t, 4>(g), B = Get<int32_t, 4>(b);
  I32 out;
  for (size_t i = 0; i < 4; ++i) {
    out.v[i] = static_cast<int32_t>(uint32_t(R.v[i]) * uint32_t(c[0]) + uint32_t(G.v[i]) * uint32_t(c[1]) +
                                    uint32_t(B.v[i]) * uint32_t(c[2]) + uint32_t(add));
  }
  return out;
}

int16_t High16(int32_t v) { return static_cast<int16_t>(static_cast<uint32_t>(v) >> 16); }

void Difference(const int32x4* rgb, const int32x4& cr, const int32x4& cg,
                const int32x4& cb, const int32x4& off, int32x4& diff) {
  const int32_t c[3] = {vorlith::Lane0(cr), vorlith::Lane0(cg), vorlith::Lane0(cb)};
  Put(diff, Weigh(rgb[0], rgb[1], rgb[2], c, vorlith::Lane0(off)));
}

}  // namespace

using vorlith::Lane0;

void u8_4x_to_s32_NEON_8LEN(unsigned char* rgba, int32x4* rgb, unsigned char* alpha) {
  Deinterleave(rgba, rgb, alpha);
}

void RGBA2I420A_NEON_CAL_Y(_StLanczos1p5x* ctx, int32x4 const* rgb, unsigned char* y) {
  const int32_t c[3] = {Lane0(ctx->yCoefR), Lane0(ctx->yCoefG), Lane0(ctx->yCoefB)};
  for (size_t half = 0; half < 2; ++half) {
    const I32 sum = Weigh(rgb[half], rgb[2 + half], rgb[4 + half], c);
    for (size_t i = 0; i < 4; ++i) {
      const int16_t v = static_cast<int16_t>(High16(sum.v[i]) + Lane0(ctx->yOffset));
      y[4 * half + i] = static_cast<unsigned char>(v < 0 ? 0 : v > 255 ? 255 : v);
    }
  }
}

void RGBA2I420A_NEON_CAL_UV(_StLanczos1p5x* ctx, int32x4 const* rgb, int16x8& uv) {
  const int32_t cu[3] = {Lane0(ctx->uCoefR), Lane0(ctx->uCoefG), Lane0(ctx->uCoefB)};
  const int32_t cv[3] = {Lane0(ctx->vCoefR), Lane0(ctx->vCoefG), Lane0(ctx->vCoefB)};
  const I32 u = Weigh(rgb[0], rgb[1], rgb[2], cu), v = Weigh(rgb[0], rgb[1], rgb[2], cv);
  Lanes<int16_t, 8> out;
  for (size_t i = 0; i < 4; ++i) {
    out.v[i] = High16(u.v[i]);
    out.v[4 + i] = High16(v.v[i]);
  }
  Put(uv, out);
}

void To_s16(int32x4 const& lo, int32x4 const& hi, int16x8& out) {
  const I32 l = Get<int32_t, 4>(lo), h = Get<int32_t, 4>(hi);
  Lanes<int16_t, 8> o;
  for (size_t i = 0; i < 4; ++i) {
    o.v[i] = High16(l.v[i]);
    o.v[4 + i] = High16(h.v[i]);
  }
  Put(out, o);
}

void Y_u8_to_s32_NEON_8LEN(_StLanczos1p5x* ctx, unsigned char* y, int32x4& lo, int32x4& hi) {
  I32 l[2];
  for (size_t i = 0; i < 8; ++i) {
    const int16_t centred = static_cast<int16_t>(y[i] - Lane0(ctx->yBias));
    l[i / 4].v[i % 4] = static_cast<int32_t>(uint32_t(int32_t{centred}) * uint32_t(Lane0(ctx->yGain)));
  }
  Put(lo, l[0]);
  Put(hi, l[1]);
}

void UV_u8_to_s32_NEON_8LEN(_StLanczos1p5x* ctx, unsigned char* uv, int32x4& lo, int32x4& hi) {
  I32 l[2];
  for (size_t i = 0; i < 8; ++i) {
    l[i / 4].v[i % 4] = static_cast<int8_t>(static_cast<uint8_t>(uv[i] - Lane0(ctx->uvBias)));
  }
  Put(lo, l[0]);
  Put(hi, l[1]);
}

void I420A2RGBA_NEON_CAL(_StLanczos1p5x* ctx, int32x4 const& k, int32x4 const& d,
                         int32x4 const& e, short* rgb) {
  const I32 K = Get<int32_t, 4>(k), D = Get<int32_t, 4>(d), E = Get<int32_t, 4>(e);
  const uint32_t rv = Lane0(ctx->rCoefV), gu = Lane0(ctx->gCoefU), gv = Lane0(ctx->gCoefV),
                 bu = Lane0(ctx->bCoefU);
  for (size_t i = 0; i < 4; ++i) {
    const uint32_t kk = uint32_t(K.v[i]), dd = uint32_t(D.v[i]), ee = uint32_t(E.v[i]);
    rgb[i] = High16(static_cast<int32_t>(kk + rv * ee));
    rgb[4 + i] = High16(static_cast<int32_t>(kk + gu * dd + gv * ee));
    rgb[8 + i] = High16(static_cast<int32_t>(kk + bu * dd));
  }
}

void u8_4x_to_RGBs32_Au8_NEON_8LEN(unsigned char* rgba, int32x4* rgb, unsigned char* alpha) {
  Deinterleave(rgba, rgb, alpha);
}

void RGBA2RGBA_CAL_dY_NEON(_StLanczos1p5x* ctx, int32x4 const* rgb, float32x4& luma) {
  const int32_t c[3] = {Lane0(ctx->yCoefR20), Lane0(ctx->yCoefG20), Lane0(ctx->yCoefB20)};
  const I32 sum = Weigh(rgb[0], rgb[1], rgb[2], c, Lane0(ctx->yOffset20));
  Lanes<float, 4> out;
  for (size_t i = 0; i < 4; ++i) out.v[i] = static_cast<float>(sum.v[i] >> 20);
  Put(luma, out);
}

void RGBA2RGBA_CAL_dR_NEON(_StLanczos1p5x* ctx, int32x4 const* rgb, int32x4& diff) {
  Difference(rgb, ctx->dRCoefR, ctx->dRCoefG, ctx->dRCoefB, ctx->dROffset, diff);
}

void RGBA2RGBA_CAL_dG_NEON(_StLanczos1p5x* ctx, int32x4 const* rgb, int32x4& diff) {
  Difference(rgb, ctx->dGCoefR, ctx->dGCoefG, ctx->dGCoefB, ctx->dGOffset, diff);
}

void RGBA2RGBA_CAL_dB_NEON(_StLanczos1p5x* ctx, int32x4 const* rgb, int32x4& diff) {
  Difference(rgb, ctx->dBCoefR, ctx->dBCoefG, ctx->dBCoefB, ctx->dBOffset, diff);
}
