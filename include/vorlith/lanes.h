// Vector lane types used by the kernel context and by the exported helper
// signatures. On aarch64 they are the Arm NEON register types; elsewhere they
// are 16-byte structs of the same names and layout, so every build exports
// the same set of functions and the context has the same layout everywhere.
#ifndef VORLITH_LANES_H_
#define VORLITH_LANES_H_

#include <cstdint>

#if defined(__aarch64__)
#include <arm_neon.h>

typedef int32x4_t int32x4;
typedef int16x8_t int16x8;
typedef uint8x16_t uint8x16;
typedef float32x4_t float32x4;
typedef int16x8_t __simd128_int16_t;

#else

struct alignas(16) int32x4 {
  int32_t val[4];
};
struct alignas(16) int16x8 {
  int16_t val[8];
};
struct alignas(16) uint8x16 {
  uint8_t val[16];
};
struct alignas(16) float32x4 {
  float val[4];
};
typedef int16x8 __simd128_int16_t;

#endif

static_assert(sizeof(int32x4) == 16 && alignof(int32x4) == 16, "lane type layout");
static_assert(sizeof(int16x8) == 16 && alignof(int16x8) == 16, "lane type layout");
static_assert(sizeof(uint8x16) == 16 && alignof(uint8x16) == 16, "lane type layout");
static_assert(sizeof(float32x4) == 16 && alignof(float32x4) == 16, "lane type layout");

#endif  // VORLITH_LANES_H_
