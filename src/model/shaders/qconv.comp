#version 450
// Bytes to floats: float(bias + sum of weight * (input - zero point)) * scale,
// the sum exact in 32 bits, one rounding in the conversion and one in the
// product. Padding holds the zero point, so it adds nothing.
#extension GL_GOOGLE_include_directive : require
#include "common.glsl"
layout(std430, binding = 0) readonly buffer In { int x[]; };
layout(std430, binding = 1) readonly buffer Weights { int w[]; };  // [out][kh][kw][in]
layout(std430, binding = 2) readonly buffer Bias { int bias[]; };
layout(std430, binding = 3) readonly buffer Scales { float scales[]; };
layout(std430, binding = 4) writeonly buffer Out { float y[]; };
layout(push_constant) uniform Params {
  uint count;
  int in_c, in_h, in_w, out_h, out_w, kh, kw, pad_top, pad_left, zero_point;
} p;

void main() {
  const uint i = ElementIndex();
  if (i >= p.count) return;
  const int x0 = int(i % uint(p.out_w));
  const int y0 = int((i / uint(p.out_w)) % uint(p.out_h));
  const int o = int(i / uint(p.out_w * p.out_h));
  int acc = bias[o];
  for (int ky = 0; ky < p.kh; ++ky) {
    const int iy = y0 + ky - p.pad_top;
    if (iy < 0 || iy >= p.in_h) continue;
    for (int kx = 0; kx < p.kw; ++kx) {
      const int ix = x0 + kx - p.pad_left;
      if (ix < 0 || ix >= p.in_w) continue;
      const int wbase = ((o * p.kh + ky) * p.kw + kx) * p.in_c;
      const int plane = p.in_h * p.in_w;
      int at = iy * p.in_w + ix;
      for (int c = 0; c < p.in_c; ++c, at += plane) acc += w[wbase + c] * (x[at] - p.zero_point);
    }
  }
  precise float v = float(acc) * scales[o];
  y[i] = v;
}
