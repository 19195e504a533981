#version 450
// a + b or a * b (mode 0, 1); an operand of one channel is broadcast to all,
// and b is either an activation or a constant of one value or one a channel.
#extension GL_GOOGLE_include_directive : require
#include "common.glsl"
layout(std430, binding = 0) readonly buffer A { float a[]; };
layout(std430, binding = 1) readonly buffer B { float b[]; };
layout(std430, binding = 2) writeonly buffer Out { float y[]; };
layout(push_constant) uniform Params {
  uint count, plane, mode;
  uint a_broadcast, b_broadcast, b_constant;  // booleans
} p;

void main() {
  const uint i = ElementIndex();
  if (i >= p.count) return;
  const uint c = i / p.plane, at = i % p.plane;
  const float u = a[p.a_broadcast != 0u ? at : i];
  float v;
  if (p.b_constant != 0u) {
    v = b[p.b_broadcast != 0u ? 0u : c];
  } else {
    v = b[p.b_broadcast != 0u ? at : i];
  }
  precise float r = p.mode == 0u ? u + v : u * v;
  y[i] = r;
}
