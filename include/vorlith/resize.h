// Fixed-ratio resamplers. Kernels check nothing: sizes, strides and scratch
// buffers are the caller's responsibility. Arguments: context first, then
// source, destination, then height before width.
#ifndef VORLITH_RESIZE_H_
#define VORLITH_RESIZE_H_

#include "vorlith/export.h"
#include "vorlith/kernel_context.h"

// ---- NV12 chroma 2x bilinear ------------------------------------------------
//
// Enlarges an interleaved Cb/Cr plane 2x in each direction. `width` counts
// Cb/Cr pairs, `height` rows. Each output sample is
//   (9*x1 + 3*x2 + 3*x3 + x4 + 8) >> 4
// of its four nearest source samples of the same component (x1 nearest, x4
// diagonal), on a half-sample-shifted grid with the edge samples replicated.
//
// Source: `height` rows of 2*width bytes, `srcStride` bytes apart.
// Destination: 2*height rows of 4*width bytes, `dstStride` bytes apart.
// Scratch: two rows of `dstStride` int16 values in ctx->lineBuf, so
// 4*width <= dstStride <= 20480. `ctx` must have been set up by
// InitLanczos1p5x; `rowIndex[0..1]` are rewritten. A width or height below 1
// writes nothing.
VORLITH_API void Linear_2x_nv(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst,
                              int height, int width, int srcStride, int dstStride);

// Horizontal pass of one chroma row of width = 8*groups + tail + 1 pairs into
// 4*width int16 values (each sample times 4): the outer pairs replicated,
// 3a+b and a+3b between neighbours a, b. Callers pass
// groups = (width-1)/8 and tail = (width-1)%8. Reads exactly 2*width bytes.
VORLITH_API void HResizeLinear_2x_nv_NEON(unsigned char* src, short* dst, int groups, int tail);

// One output row from the int16 rows a = rowsBuf[ctx->rowIndex[0]] and
// b = rowsBuf[ctx->rowIndex[1]] with weights w0 = weights[0], w1 = weights[1]:
// - the first 8*groups values: s = a*w0 + b*w1 wrapped to 16 bits,
//   float(s)*scale + 0.5f in float, truncated to int32 (saturating, NaN to 0),
//   its low 16 bits read as signed and clamped to 0..255;
// - the next `tail` values: s = a*w0 + b*w1 in 32 bits, negative s to 0,
//   float(s)*scale in float, + 0.5 in double, truncated (saturating, NaN to 0),
//   values of 255 or more stored as 255, others as their low 8 bits.
// The two regimes differ for large products and out-of-range results; both are
// part of the contract.
VORLITH_API void VResizeLinear_NEON(_StLanczos1p5x* ctx, short** rowsBuf, unsigned char* dst,
                                    short const* weights, int groups, int tail, float scale);

#endif  // VORLITH_RESIZE_H_
