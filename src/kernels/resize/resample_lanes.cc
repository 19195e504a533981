// The single vector steps of the Lanczos and bicubic horizontal passes, as
// exported functions on the 4-lane types of lanes.h. The drivers do not call
// them (their Highway bodies do the same work at the target's width); these
// give a host the same arithmetic one step at a time. Products and sums wrap
// modulo 2^32, as the Arm multiply-accumulate does, whatever the inputs.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "src/kernels/resize/resample_common.h"
#include "vorlith/resize.h"

namespace {

namespace r = ::vorlith::resample;

struct Lanes4 {
  int32_t v[4];
};

Lanes4 Get(const int32x4& x) {
  Lanes4 l;
  std::memcpy(l.v, &x, sizeof(l.v));
  return l;
}

void Put(int32x4& x, const int32_t* lanes) { std::memcpy(static_cast<void*>(&x), lanes, 16); }

// Widens bytes src[first + i * step], i = 0 .. 7, into two 4-lane vectors.
void Widen8(const unsigned char* src, size_t first, size_t step, int32x4& lo, int32x4& hi) {
  int32_t l[8];
  for (size_t i = 0; i < 8; ++i) l[i] = src[first + i * step];
  Put(lo, l);
  Put(hi, l + 4);
}

// Lane-wise sum of taps[k] * in[first + k], k = 0 .. count-1, wrapping.
Lanes4 Dot(const int32x4* in, size_t first, const int32_t* taps, size_t count) {
  uint32_t acc[4] = {};
  for (size_t k = 0; k < count; ++k) {
    const Lanes4 x = Get(in[first + k]);
    for (size_t i = 0; i < 4; ++i) {
      acc[i] += static_cast<uint32_t>(x.v[i]) * static_cast<uint32_t>(taps[k]);
    }
  }
  Lanes4 out;
  for (size_t i = 0; i < 4; ++i) out.v[i] = static_cast<int32_t>(acc[i]);
  return out;
}

template <size_t kTaps>
void Mirror(const int32_t (&taps)[kTaps], int32_t (&out)[kTaps]) {
  for (size_t k = 0; k < kTaps; ++k) out[k] = taps[kTaps - 1 - k];
}

}  // namespace

void NEON_LOAD(unsigned char* src, int32x4* out) {
  for (size_t k = 0; k < 4; ++k) Widen8(src, k, 1, out[2 * k], out[2 * k + 1]);
}

void NEON_CAL(_StLanczos1p5x* ctx, int32x4 const* in, int* dst) {
  int32_t t[8], m[8];
  r::ReadContextTaps(ctx->tapsLanczos2x, 8, t);
  Mirror(t, m);
  const Lanes4 odd = Dot(in, 0, m, 8);
  const Lanes4 even = Dot(in, 0, t, 8);
  for (size_t i = 0; i < 4; ++i) {
    dst[2 * i] = odd.v[i];
    dst[2 * i + 1] = even.v[i];
  }
}

void H_NEON_LOAD_S(unsigned char* src, int32x4* out) {
  for (size_t c = 0; c < 3; ++c) Widen8(src, c, 3, out[2 * c], out[2 * c + 1]);
}

void NEON_CALCULATION1(int32x4 const* in, int32x4& out) {
  Put(out, Dot(in, 0, r::kLanczos2x, 8).v);
}

void NEON_CALCULATION2(int32x4 const* in, int32x4& out) {
  int32_t m[8];
  Mirror(r::kLanczos2x, m);
  Put(out, Dot(in, 0, m, 8).v);
}

void u8_2x_to_s32_NEON_8LEN(unsigned char* src, int32x4& evenLo, int32x4& evenHi,
                            int32x4& oddLo, int32x4& oddHi) {
  Widen8(src, 0, 2, evenLo, evenHi);
  Widen8(src, 1, 2, oddLo, oddHi);
}

void H_1p5x_NEON_CAL(_StLanczos1p5x* ctx, int32x4 const* in, int* dst) {
  int32_t a[8], am[8], b[8];
  r::ReadContextTaps(ctx->tapsLanczos1p5xA, 8, a);
  r::ReadContextTaps(ctx->tapsLanczos1p5xB, 8, b);
  Mirror(a, am);
  const Lanes4 outs[3] = {Dot(in, 0, am, 8), Dot(in, 0, a, 8), Dot(in, 1, b, 8)};
  for (size_t i = 0; i < 4; ++i) {
    for (size_t p = 0; p < 3; ++p) dst[3 * i + p] = outs[p].v[i];
  }
}

void u8_3x_to_s32_NEON_8LEN(unsigned char* src, int32x4* out) {
  for (size_t p = 0; p < 3; ++p) Widen8(src, p, 3, out[2 * p], out[2 * p + 1]);
}

void u8_3x_0_to_s32_NEON_8LEN(unsigned char* src, int32x4& lo, int32x4& hi) {
  Widen8(src, 0, 3, lo, hi);
}

void H_4d3x_NEON_CAL(_StLanczos1p5x* ctx, int32x4 const* in, int* dst) {
  int32_t a[8], am[8], b[8], bm[8];
  r::ReadContextTaps(ctx->tapsLanczos4d3xA, 8, a);
  r::ReadContextTaps(ctx->tapsLanczos4d3xB, 8, b);
  Mirror(a, am);
  Mirror(b, bm);
  const Lanes4 outs[4] = {Dot(in, 0, b, 8), Dot(in, 1, bm, 8), Dot(in, 2, am, 8),
                          Dot(in, 2, a, 8)};
  for (size_t i = 0; i < 4; ++i) {
    for (size_t p = 0; p < 4; ++p) dst[4 * i + p] = outs[p].v[i];
  }
}

void u8_to_s32_NEON_8LEN(unsigned char* src, int32x4& lo, int32x4& hi) {
  Widen8(src, 0, 1, lo, hi);
}

void u8_2x_to_s32_NEON_8LEN_FirstRow(unsigned char* src, int32x4& lo, int32x4& hi) {
  Widen8(src, 0, 2, lo, hi);
}

void HCubic1p5x_NEON_CAL(_StLanczos1p5x* ctx, int32x4 const* in, int* dst) {
  int32_t a[4], am[4], b[4];
  r::ReadContextTaps(ctx->tapsCubic1p5xA, 4, a);
  r::ReadContextTaps(ctx->tapsCubic1p5xB, 4, b);
  Mirror(a, am);
  const Lanes4 outs[3] = {Dot(in, 0, am, 4), Dot(in, 0, a, 4), Dot(in, 1, b, 4)};
  for (size_t i = 0; i < 4; ++i) {
    for (size_t p = 0; p < 3; ++p) dst[3 * i + p] = outs[p].v[i];
  }
}

void HCubic2x_NEON_CAL(_StLanczos1p5x* ctx, int32x4 const* in, int* dst) {
  int32_t k[4], km[4];
  r::ReadContextTaps(ctx->tapsCubic2x, 4, k);
  Mirror(k, km);
  const Lanes4 odd = Dot(in, 0, km, 4);
  const Lanes4 even = Dot(in, 0, k, 4);
  for (size_t i = 0; i < 4; ++i) {
    dst[2 * i] = odd.v[i];
    dst[2 * i + 1] = even.v[i];
  }
}
