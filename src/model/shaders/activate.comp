#version 450
// PReLU with a slope per channel (mode 0), or clamp to [lo, hi] (mode 1).
#extension GL_GOOGLE_include_directive : require
#include "common.glsl"
layout(std430, binding = 0) readonly buffer In { float x[]; };
layout(std430, binding = 1) readonly buffer Slopes { float slope[]; };
layout(std430, binding = 2) writeonly buffer Out { float y[]; };
layout(push_constant) uniform Params { uint count; uint plane; uint mode; float lo, hi; } p;

void main() {
  const uint i = ElementIndex();
  if (i >= p.count) return;
  const float v = x[i];
  if (p.mode == 0u) {
    precise float s = v * slope[i / p.plane];
    y[i] = v < 0.0 ? s : v;
  } else {
    y[i] = min(max(v, p.lo), p.hi);
  }
}
