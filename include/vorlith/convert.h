// Colour and layout conversions.
#ifndef VORLITH_CONVERT_H_
#define VORLITH_CONVERT_H_

#include "vorlith/export.h"

// ---- Byte and float planes --------------------------------------------------
//
// Strided conversions between an 8-bit plane and a float plane, values kept at
// their scale (byte 200 <-> 200.0f). Strides are signed and count elements of
// each plane's own type (bytes for the byte plane, floats for the float plane);
// rows must not overlap. Only the W values of each row are written; the gap
// between rows is left untouched. H < 1 or W < 1 does nothing.

// dst[y][x] = (float)src[y][x].
VORLITH_API void CvtU8ToF32_STRIDE(unsigned char* src, float* dst, int H, int W, int srcStride,
                                   int dstStride);

// dst[y][x] = byte of src[y][x], with two regimes per row:
// - columns 0 .. 8*(W/8)-1: truncate toward zero to uint32 (negative and NaN
//   give 0, too large gives 0xFFFFFFFF), keep the low 16 bits, read them as
//   signed and clamp to 0..255: 300.0 -> 255, 40000.0 -> 0, -3.7 -> 0;
// - the last W%8 columns: truncate toward zero to int32 (saturating, NaN gives
//   0) and store the low 8 bits: 300.0 -> 44, 40000.0 -> 64, -3.7 -> 253.
// In range (0.0 to 255.99...) both give trunc(value).
VORLITH_API void CvtF32ToU8_STRIDE(float* src, unsigned char* dst, int H, int W, int srcStride,
                                   int dstStride);

#endif  // VORLITH_CONVERT_H_
