#version 450
// DCR order: output (c, y, x) takes input channel
// ((y % block) * block + x % block) * channels + c at (y / block, x / block).
#extension GL_GOOGLE_include_directive : require
#include "common.glsl"
layout(std430, binding = 0) readonly buffer In { float x[]; };
layout(std430, binding = 1) writeonly buffer Out { float y[]; };
layout(push_constant) uniform Params { uint count; uint channels, out_h, out_w, block; } p;

void main() {
  const uint i = ElementIndex();
  if (i >= p.count) return;
  const uint ox = i % p.out_w, oy = (i / p.out_w) % p.out_h, c = i / (p.out_w * p.out_h);
  const uint in_w = p.out_w / p.block, in_h = p.out_h / p.block;
  const uint ic = ((oy % p.block) * p.block + ox % p.block) * p.channels + c;
  y[i] = x[(ic * in_h + oy / p.block) * in_w + ox / p.block];
}
