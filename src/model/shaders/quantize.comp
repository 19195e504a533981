#version 450
// Floats to bytes (one int each): clamp(rne(x / scale) + zero point, 0, 255),
// NaN counted as 0. The quotient goes through doubles: their division is
// close enough that rounding it to float gives the correctly rounded float
// quotient, which is what the CPU's division gives.
#extension GL_GOOGLE_include_directive : require
#include "common.glsl"
layout(std430, binding = 0) readonly buffer In { float x[]; };
layout(std430, binding = 1) writeonly buffer Out { int q[]; };
layout(push_constant) uniform Params { uint count; float scale; int zero_point; } p;

void main() {
  const uint i = ElementIndex();
  if (i >= p.count) return;
  precise float t = float(double(x[i]) / double(p.scale));
  if (isnan(t)) t = 0.0;
  t = min(max(t, -512.0), 512.0);
  q[i] = clamp(int(roundEven(t)) + p.zero_point, 0, 255);
}
