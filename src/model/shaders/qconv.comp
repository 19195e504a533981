#version 450
// Bytes to floats: float(bias + sum of weight * (input - zero point)) * scale,
// the sum exact in 32 bits, one rounding in the conversion and one in the
// product. Padding holds the zero point, so it adds nothing. One invocation
// computes four output channels of one pixel, so that each input byte read
// serves four sums.
#extension GL_GOOGLE_include_directive : require
#include "common.glsl"
layout(std430, binding = 0) readonly buffer In { int x[]; };
layout(std430, binding = 1) readonly buffer Weights { ivec4 w[]; };  // [out / 4][kh][kw][in] x 4 outputs
layout(std430, binding = 2) readonly buffer Bias { int bias[]; };
layout(std430, binding = 3) readonly buffer Scales { float scales[]; };
layout(std430, binding = 4) writeonly buffer Out { float y[]; };
layout(push_constant) uniform Params {
  uint count;  // pixels times output channel groups of four
  int in_c, in_h, in_w, out_h, out_w, kh, kw, pad_top, pad_left, zero_point, out_c;
} p;

void main() {
  const uint i = ElementIndex();
  if (i >= p.count) return;
  const int plane_out = p.out_h * p.out_w;
  const int at_out = int(i % uint(plane_out));
  const int x0 = at_out % p.out_w, y0 = at_out / p.out_w;
  const int group = int(i / uint(plane_out));
  const int o = 4 * group;
  ivec4 acc = ivec4(bias[o], bias[min(o + 1, p.out_c - 1)], bias[min(o + 2, p.out_c - 1)],
                    bias[min(o + 3, p.out_c - 1)]);
  const int plane = p.in_h * p.in_w;
  for (int ky = 0; ky < p.kh; ++ky) {
    const int iy = y0 + ky - p.pad_top;
    if (iy < 0 || iy >= p.in_h) continue;
    for (int kx = 0; kx < p.kw; ++kx) {
      const int ix = x0 + kx - p.pad_left;
      if (ix < 0 || ix >= p.in_w) continue;
      int wat = ((group * p.kh + ky) * p.kw + kx) * p.in_c;
      int at = iy * p.in_w + ix;
      for (int c = 0; c < p.in_c; ++c, at += plane, ++wat) acc += w[wat] * (x[at] - p.zero_point);
    }
  }
  for (int j = 0; j < 4 && o + j < p.out_c; ++j) {
    precise float v = float(acc[j]) * scales[o + j];
    y[(o + j) * plane_out + at_out] = v;
  }
}
