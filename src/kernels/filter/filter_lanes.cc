// The filters' exported one-step helpers on the 4-lane types of lanes.h. The
// drivers do not call them (their Highway bodies do the same work at the
// target's width); they give a host the same arithmetic one step at a time.

#include <cstdint>
#include <cstring>

#include "src/kernels/filter/filter_common.h"
#include "vorlith/filter.h"

namespace {

template <class Lanes, class T>
void Put(Lanes& v, const T* values) {
  static_assert(sizeof(Lanes) == 16);
  std::memcpy(static_cast<void*>(&v), values, 16);
}

template <class T, class Lanes>
void Get(const Lanes& v, T* values) {
  std::memcpy(values, &v, 16);
}

}  // namespace

void Result_NEON(float32x4 p0, float32x4 p1, float32x4 d0, float32x4 d1, float32x4 w0,
                 float32x4 w1, unsigned char* out) {
  float p[8], d[8], w[8];
  Get(p0, p), Get(p1, p + 4), Get(d0, d), Get(d1, d + 4), Get(w0, w), Get(w1, w + 4);
  for (int i = 0; i < 8; ++i) out[i] = vorlith::filter::Round((p[i] + d[i]) + d[i] * ExpCal(w[i]));
}

void u8_to_float_NEON_8LEN(unsigned char* p, float32x4& lo, float32x4& hi) {
  float f[8];
  for (int i = 0; i < 8; ++i) f[i] = p[i];
  Put(lo, f);
  Put(hi, f + 4);
}

void GET_s16(unsigned char* p, int16x8& lo, int16x8& hi) {
  int16_t v[16];
  for (int i = 0; i < 16; ++i) v[i] = p[i];
  Put(lo, v);
  Put(hi, v + 8);
}

int16x8 HBL_GET_s16(unsigned char* p) {
  int16_t v[8];
  for (int i = 0; i < 8; ++i) v[i] = p[i];
  int16x8 out;
  Put(out, v);
  return out;
}

void short8_to_float4(int16x8 v, float32x4& lo, float32x4& hi) {
  int16_t s[8];
  Get(v, s);
  float f[8];
  for (int i = 0; i < 8; ++i) f[i] = s[i];
  Put(lo, f);
  Put(hi, f + 4);
}

void BilateralAllocRows(_StLanczos1p5x* ctx, int width) {
  for (unsigned char*& row : ctx->hblBuf) row = new unsigned char[4 * static_cast<size_t>(width)];
}
