// Fixed-ratio resamplers. Kernels check nothing: sizes, strides and scratch
// buffers are the caller's responsibility. Arguments: context first, then
// source, destination, then height before width.
#ifndef VORLITH_RESIZE_H_
#define VORLITH_RESIZE_H_

#include <cstdint>

#include "vorlith/export.h"
#include "vorlith/kernel_context.h"
#include "vorlith/lanes.h"

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

// ---- Bilinear 2x, 3x, 4x, 1.5x and 4/3x ------------------------------------
//
// Enlarge a packed W x H plane to rW x rH (r = 2, 3, 4; output stride rW).
// Output pixel j samples source position (j + 0.5)/r - 0.5, clamped to the
// first and last source pixel, in both directions, with weights in quarters
// (2x), thirds (3x) or eighths (4x). Each source row is filtered once into
// rW 16-bit sums (weights totalling 4, 3 or 8) in a ring of two rows in
// ctx->lineBuf (slot 0 at lineBuf, slot 1 rW elements further on; names in
// rowIndex[0] (older) and rowIndex[1] (newer), reset to 0, 1 on each call),
// so rW <= 20480 with the 81920 bytes InitLanczos1p5x allocates. An output
// row blends the two ring rows: S = wA*older + wB*newer, times f in single
// precision, rounded by one of two rules, both part of the contract:
// - the first 8*(rW/8) values of a row: S in 16-bit lanes read as signed,
//   float(S)*f + 0.5f in single precision, truncated (saturating), its low
//   16 bits read as signed and clamped to 0..255;
// - the last rW%8: S in 32 bits, negative S to 0, float(S)*f in single
//   precision, + 0.5 in double, truncated, capped at 255.
// For the sums a horizontal pass makes (at most 8*255) the two agree: both
// round S*f half up. f is 1/16 (bits 0x3D800000) for 2x, 1/64 (0x3C800000)
// for 4x; 3x blends with 1/9 (0x3DE38E39) and divides the rows that lie on
// a source row (3i+1, and the clamped first and last two) by 3 with 1/3
// (0x3EAAAAAB). A width or height below 1 writes nothing. Each returns ctx.
VORLITH_API _StLanczos1p5x* Linear_2x(_StLanczos1p5x* ctx, unsigned char* src,
                                      unsigned char* dst, int height, int width);
VORLITH_API _StLanczos1p5x* Linear_3x(_StLanczos1p5x* ctx, unsigned char* src,
                                      unsigned char* dst, int height, int width);
VORLITH_API _StLanczos1p5x* Linear_4x(_StLanczos1p5x* ctx, unsigned char* src,
                                      unsigned char* dst, int height, int width);

// Horizontal passes of one row of W = 8*groups + singles + 1 pixels into rW
// sums (drivers: groups = (W-1)/8, singles = (W-1)%8); exactly W bytes read.
// Between a pixel a and its right neighbour b: 2x 3a+b, a+3b; 3x 3a, 2a+b,
// a+2b; 4x 7a+b, 5a+3b, 3a+5b, a+7b. Edges: 2x 4x[0] before, 4x[W-1]
// after; 3x 3x[0] before, 3x[W-1] twice after; 4x 8x[0] twice before,
// 8x[W-1] twice after.
VORLITH_API void HResizeLinear_2x_NEON(unsigned char* src, short* dst, int groups, int singles);
VORLITH_API void HResizeLinear_3x_NEON(unsigned char* src, unsigned short* dst, int groups,
                                       int singles);
VORLITH_API void HResizeLinear_4x_NEON(unsigned char* src, short* dst, int groups, int singles);

// 3x vertical passes: 8*groups + singles bytes by the rules above, from
// older = rows[ctx->rowIndex[0]] and newer = rows[ctx->rowIndex[1]]:
// _1 S = 2*older + newer, _2 S = older + 2*newer, both with f = 1/9.
// Row values of 32768 or more (no horizontal pass makes them) are read as
// negative by the first rule and as they are by the second.
VORLITH_API void VResizeLinear_3x_NEON_1(_StLanczos1p5x* ctx, unsigned short** rows,
                                         unsigned char* dst, int groups, int singles);
VORLITH_API void VResizeLinear_3x_NEON_2(_StLanczos1p5x* ctx, unsigned short** rows,
                                         unsigned char* dst, int groups, int singles);
// A 3x row on a source row: S = row, f = 1/3, same rules.
VORLITH_API void Linear_3x_give_NEON(unsigned char* dst, unsigned short* row, int groups,
                                     int singles);

// Bilinear 1.5x and 4/3x: the scheme above with sixths (1.5x, f = 1/36,
// bits 0x3CE38E39) or eighths (4/3x, f = 1/64). Source pairs (a, b), c the
// next pair's first pixel, give 3a+3b, 5b+c, b+5c (1.5x); triples
// (a, b, c), d the next one's first, give 3a+5b, 5b+3c, 7c+d, c+7d (4/3x);
// the first column is 6x[0] or 8x[0] and the last 6x[W-1] or 8x[W-1].
// Output OW = trunc(1.5*W) or 4*W/3 columns and OH = 3*((H-2)/2) + 3 or
// 4*((H-3)/3) + 4 rows (3H/2, 4H/3 for multiples). Sizes that are not a
// multiple of 2 (1.5x) or 3 (4/3x) are defined here too: the last 1 or 2
// source columns are not read and the output columns past the last whole
// pair or triple repeat the last horizontal value before them; the last 1
// or 2 source rows are not read. Widths or heights below 2
// (1.5x) or 3 (4/3x) write nothing. Scratch and rounding as above, with
// rW read as OW; each returns ctx.
VORLITH_API _StLanczos1p5x* Linear_1p5x(_StLanczos1p5x* ctx, unsigned char* src,
                                        unsigned char* dst, int height, int width);
VORLITH_API _StLanczos1p5x* Linear_4div3x(_StLanczos1p5x* ctx, unsigned char* src,
                                          unsigned char* dst, int height, int width);

// Horizontal passes of one row: 1.5x of W = 16*groups + 2*pairs + 2 pixels
// into 3W/2 sums (drivers: groups = (W-2)/16, pairs = ((W-2)%16)/2); 4/3x
// of W = 24*groups + 3*triples + 3 into 4W/3 (groups = (W-3)/24,
// triples = ((W-3)%24)/3). Exactly W bytes read.
VORLITH_API void HResizeLinear_1p5x_NEON(unsigned char* src, short* dst, int groups, int pairs);
VORLITH_API void HResizeLinear_4div3x_NEON(unsigned char* src, short* dst, int groups,
                                           int triples);

// 16 bytes: the 8 even-indexed and the 8 odd-indexed, widened.
VORLITH_API void u8_2x_to_s16_NEON_8LEN(unsigned char* src, __simd128_int16_t& even,
                                        __simd128_int16_t& odd);
// Eight 1.5x pairs: out[3k] = 3(e+o), out[3k+1] = 5o+n, out[3k+2] = o+5n
// of lane k of even, odd and next-even, wrapping in 16 bits.
VORLITH_API void HLinear_1p5x_NEON_CAL(short* out, __simd128_int16_t& even,
                                       __simd128_int16_t& odd, __simd128_int16_t& next);

// ---- Float bilinear 3x and 4x, NHWC float to bytes --------------------------
//
// Enlarge a packed W x H float plane to rW x rH (r = 3, 4) on the grid of
// Linear_3x and Linear_4x, in single precision with nothing rounded to
// integers or clamped. Every blend is two separately rounded products then
// one sum (wA*A + wB*B, never fused). Weights: 3x 2/3 and 1/3 (bits
// 0x3F2AAAAB, 0x3EAAAAAB); 4x 0.875, 0.625, 0.375, 0.125 and their
// complements. Horizontally the samples on a source pixel and the clamped
// edges are copies (3x: x[0]; a, blend, blend per pixel; x[W-1] twice.
// 4x: x[0] twice; four blends per pixel; x[W-1] twice). Vertically 3x copies
// the rows on a source row (3i+1, the first, the last two) and blends the
// others; 4x blends every row, the clamped edge rows too, on two copies of
// the edge row (top 0.375/0.625 then 0.125/0.875, bottom 0.875/0.125 then
// 0.625/0.375), so an edge row equals the source row only up to that
// rounding. Ring: two rows of rW floats in ctx->floatLineBuf, which
// InitLanczos1p5x does not allocate: the caller sets it (array new, as
// UInitLanczos1p5x deletes it) to at least 2*rW floats. rowIndex[0..1] are
// rewritten. A width or height below 1 writes nothing.
VORLITH_API void Linear_float_3x(_StLanczos1p5x* ctx, float* src, float* dst, int height,
                                 int width);
VORLITH_API void Linear_float_4x(_StLanczos1p5x* ctx, float* src, float* dst, int height,
                                 int width);

// Horizontal passes of one row of W = 4*groups + singles + 1 floats into rW
// (drivers: groups = (W-1)/4, singles = (W-1)%4); exactly W floats read.
VORLITH_API void HResizeLinear_float_3x_NEON(float* src, float* dst, int groups, int singles);
VORLITH_API void HResizeLinear_float_4x_NEON(float* src, float* dst, int groups, int singles);

// dst[i] = rows[ctx->rowIndex[0]][i]*weights[0] + rows[ctx->rowIndex[1]][i]*weights[1]
// (two rounded products, one sum) for 4*groups + singles values.
VORLITH_API void VResizeLinear_float_NEON(_StLanczos1p5x* ctx, float** rows, float* dst,
                                          float const* weights, int groups, int singles);

// Interleaved float tensors to byte rows: input row h yields output rows
// Ch*h + k (Ch = 3 or 2), value k of each position to row Ch*h + k. Each
// value is truncated toward zero (saturating to int32, NaN to 0), its low
// 16 bits read as signed and clamped to 0..255. An input row is read in
// blocks of 8*Ch floats, (9W)/24 of them (3x3) or W/4 (2x2); a block's first
// 4 positions give output columns 8g..8g+3 and, repeated, 8g+4..8g+7; its
// second half is not read. Output rows are Ch*W bytes apart; the columns
// after 8*blocks are not written. Blocks run on: input row h+1 starts right
// after row h's last block and its first output row (Ch-1)*Ch*W bytes after
// the end of row Ch*h's last group, so a packed H x Ch*Ch*W input and
// Ch*H x Ch*W output line up only when W is a multiple of 8 (3x3) or 4 (2x2).
VORLITH_API void CvtF32ToU8_NHWC_3x3_NEON(float* src, unsigned char* dst, int height, int width);
VORLITH_API void CvtF32ToU8_NHWC_2x2_NEON(float* src, unsigned char* dst, int height, int width);

// ---- Lanczos and bicubic resamplers -----------------------------------------
//
// Separable fixed-ratio enlargers of 8-bit planes with Q11 integer taps (the
// context's tapsLanczos* and tapsCubic* fields; see kernel_context.h). A
// horizontal pass turns each source row into one row of unrounded Q11 int32
// values; a ring of 8 (Lanczos) or 4 (bicubic) such rows, named through
// rowIndex, feeds a vertical pass that rounds each Q22 sum
//   acc = sum_k taps[k] * row[rowIndex[k]][x]   (32-bit, wrapping)
// to a byte by one of two rules, both part of the contract:
// - block rule, the first 8*blocks8 values of a row:
//     y = trunc(float(acc) * 2^-22 + 0.5f) in single precision, clamped to
//     0..255;
// - remainder rule, the values after them:
//     negative acc to 0, y = trunc(double(acc) * 2^-22 + 0.5), capped at 255.
// They differ (by one) only where float(acc) rounds, i.e. above 2^24. The
// drivers use blocks8 = (values per output row) / 8.
//
// Output pixel j of a row samples the source at a fixed phase of the ratio;
// source indices outside the plane are clamped to the edge (replication), in
// both directions. The drivers take packed planes (source stride W bytes,
// output stride = output width) and `height` before `width`, check nothing
// and allocate nothing: each names the ring scratch it needs from the
// caller. ctx->workBuf must come from `new unsigned char[]`, because
// UInitLanczos1p5x deletes it; calls sharing a context, or its workBuf, must
// not overlap. Output widths are computed in double precision and truncated.
//
// Every driver accepts any width and height >= 1 (smaller ones write
// nothing) and writes each output pixel by the clamped formula, planes
// smaller than a ring's reach included. The ratios that step over pairs or
// triples of source samples say how they treat the samples left over.

// Process-wide ring indices of ResizeLanczos2x_NEON, read by the context-free
// VResizeLanczos2x_NEON. A host calling that pass directly sets them first.
VORLITH_API extern int32_t lanczos2xRowRing[8];

// Lanczos 2x, one plane: dst is 2W x 2H. Even output j = 2m takes
// tapsLanczos2x over source m-4 .. m+3, odd j = 2m+1 its mirror over
// m-3 .. m+4, in both directions. Ring: ctx->workBuf of at least 16*W int32
// (8 rows of 2W), indices ctx->rowIndex[0..7].
VORLITH_API void Lanczos2x_SingleChannel(_StLanczos1p5x* ctx, unsigned char* src,
                                         unsigned char* dst, int height, int width);

// Horizontal pass of one row of W = 7 + 16*blocks16 + rest pixels into 2W
// values (drivers pass blocks16 = (W-7)/16, rest = (W-7)%16). Output pairs
// 2p+7, 2p+8 for p < 16*blocks16 use the taps in ctx->tapsLanczos2x (lane 0
// of each); the other outputs use the constant taps. Reads exactly W bytes.
VORLITH_API void HResizeLanczos2x_NEON(_StLanczos1p5x* ctx, unsigned char* src, int* dst,
                                       int blocks16, int rest);

// Vertical pass: 8*blocks8 + rest output bytes from rows[ctx->rowIndex[k]],
// k = 0..7, with the 8 given taps (drivers: blocks8 = W/4, rest = 2W%8).
VORLITH_API void VResizeLanczos2x_NEON(_StLanczos1p5x* ctx, int** rows, unsigned char* dst,
                                       short const* taps, int blocks8, int rest);

// Lanczos 2x of three interleaved channels (e.g. RGB; 3 bytes a pixel), each
// channel on its own: dst is 2W x 2H pixels. Ring: `scratch` of at least
// 48*W int32 (8 rows of 6W). Its ring indices live in the one process-wide
// lanczos2xRowRing, so it must not run on two threads at once, nor beside a
// direct call of the three-channel vertical pass.
VORLITH_API void ResizeLanczos2x_NEON(unsigned char* src, int* scratch, unsigned char* dst,
                                      int height, int width);

// Horizontal pass of one three-channel row of
// W = 7 + 16*blocks16 + 8*blocks8 + rest pixels into 6W values, interleaved
// as the pixels are. Constant taps throughout.
VORLITH_API void HResizeLanczos2x_NEON(unsigned char* src, int* dst, int rest, int blocks16,
                                       int blocks8);

// Vertical pass of the three-channel driver: 8*blocks8 + rest bytes from
// rows[lanczos2xRowRing[k]] (drivers: blocks8 = 6W/8, rest = 6W%8).
VORLITH_API void VResizeLanczos2x_NEON(int** rows, unsigned char* dst, short const* taps,
                                       int blocks8, int rest);

// Lanczos 1.5x, one plane: outW = 1.5*W, 3H/2 rows. With k = j/3, output
// j = 3k takes A (tapsLanczos1p5xA, sum 2049) over source 2k-4 .. 2k+3,
// 3k+1 takes B (tapsLanczos1p5xB, sum 2046) over 2k-3 .. 2k+4, 3k+2 the
// mirror of A over 2k-2 .. 2k+5. Ring: ctx->workBuf of at least 8*outW int32,
// indices ctx->rowIndex[0..7].
// Odd sizes: an odd width's last source column is not read; the output is
// floor(1.5*W) wide and its last column repeats the intermediate value of
// the column before it (it may still round differently, being a remainder
// value). An odd height's last source row is not read and the last of the
// floor(1.5*H) output rows is not written. A width or height of 1 is
// resized as it is.
VORLITH_API void Lanczos_1p5x(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst,
                              int height, int width);

// Horizontal pass of one row of W = 8 + 32*blocks16 + 2*pairs pixels into
// 3W/2 values (drivers: blocks16 = (W-8)/32, pairs = ((W-8)%32)/2). Groups
// g < 16*blocks16 (outputs 3g+5 .. 3g+7) use the context's taps, the rest
// the constants. Reads exactly W bytes.
VORLITH_API void HResizeLanczos_1p5x_NEON(_StLanczos1p5x* ctx, unsigned char* src, int* dst,
                                          int blocks16, int pairs);

// Vertical pass shared by 1.5x and 4/3x: as VResizeLanczos2x_NEON (drivers:
// blocks8 = outW/8, rest = outW%8).
VORLITH_API void VResizeLanczos_1p5x_NEON(_StLanczos1p5x* ctx, int** rows, unsigned char* dst,
                                          short const* taps, int blocks8, int rest);

// Lanczos 4/3x, one plane: outW = 4*W/3, 4H/3 rows. With k = j/4, output
// j = 4k takes A (tapsLanczos4d3xA) over source 3k-4 .. 3k+3, 4k+1 B
// (tapsLanczos4d3xB) over 3k-3 .. 3k+4, 4k+2 B mirrored over 3k-2 .. 3k+5,
// 4k+3 A mirrored over 3k-1 .. 3k+6. Ring: ctx->workBuf of at least 8*outW
// int32, indices ctx->rowIndex[0..7]; the vertical pass is the 1.5x one.
// Sizes not a multiple of 3: with W % 3 == r, the last r source columns are
// not read and the last r output columns repeat the last defined
// intermediate value; with H % 3 == r, the last r source rows are not read
// and only 4*(H-r)/3 of the floor(4*H/3) output rows are written. Widths or
// heights below 3 are resized as they are.
VORLITH_API void Lanczos_4d3x(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst,
                              int height, int width);

// Horizontal pass of one row of W = 9 + 24*blocks8 + 3*groups pixels into
// 4W/3 values (drivers: blocks8 = (W-9)/24, groups = ((W-9)/3)%8). Groups
// g < 8*blocks8 (outputs 4g+5 .. 4g+8) use the context's taps. Reads exactly
// W bytes.
VORLITH_API void HResizeLanczos_4d3x_NEON(_StLanczos1p5x* ctx, unsigned char* src, int* dst,
                                          int blocks8, int groups);

// Bicubic 1.5x, one plane: outW = 1.5*W, 3H/2 rows. With k = j/3, output
// j = 3k takes A (tapsCubic1p5xA, sum 2047) over source 2k-2 .. 2k+1, 3k+1
// takes B over 2k-1 .. 2k+2, 3k+2 the mirror of A over 2k .. 2k+3. Ring:
// ctx->workBuf of at least 4*outW int32, indices ctx->rowIndex[0..3]. Odd
// sizes as Lanczos_1p5x.
VORLITH_API void Cubic1p5x_NEON(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst,
                                int height, int width);

// Bicubic 2x, one plane: 2W x 2H. Even output j = 2m takes K (tapsCubic2x)
// over source m-2 .. m+1, odd j = 2m+1 its mirror over m-1 .. m+2. Ring:
// ctx->workBuf of at least 8*W int32, indices ctx->rowIndex[0..3].
VORLITH_API void Cubic2x_NEON(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst,
                              int height, int width);

// Horizontal pass of one row of W = 4 + 16*blocks8 + 2*groups pixels into
// 3W/2 values (drivers: blocks8 = (W-4)/16, groups = ((W-4)%16)/2). Groups
// g < 8*blocks8 (outputs 3g+2 .. 3g+4) use the context's taps.
VORLITH_API void HCubic1p5x_NEON(_StLanczos1p5x* ctx, unsigned char* src, int* dst, int blocks8,
                                 int groups);

// Horizontal pass of one row of W = 3 + 8*blocks8 + rest pixels into 2W
// values (drivers: blocks8 = (W-3)/8, rest = (W-3)%8). Output pairs 2p+3,
// 2p+4 for p < 8*blocks8 use the context's taps.
VORLITH_API void HCubic2x_NEON(_StLanczos1p5x* ctx, unsigned char* src, int* dst, int blocks8,
                               int rest);

// Vertical pass of the bicubic drivers: 8*blocks8 + rest bytes from
// rows[ctx->rowIndex[k]], k = 0..3, with the 4 given taps.
VORLITH_API void VCubic_NEON(_StLanczos1p5x* ctx, int** rows, unsigned char* dst,
                             short const* taps, int blocks8, int rest);

// Single vector steps of the horizontal passes, on 4-lane values. "in[k]"
// is an array of vectors; lane i of in[k] holds the pixel at offset k from
// the i-th position (or group) of the step. Products and sums wrap.
//
// out[2k], out[2k+1] = src[k .. k+3], src[k+4 .. k+7] widened, k = 0..3
// (reads 11 bytes).
VORLITH_API void NEON_LOAD(unsigned char* src, int32x4* out);
// in[0..7] at offsets 0..7 of four positions: dst[2i] = mirrored taps,
// dst[2i+1] = ctx->tapsLanczos2x, both over in[0..7] lane i (8 values).
VORLITH_API void NEON_CAL(_StLanczos1p5x* ctx, int32x4 const* in, int* dst);
// 8 three-byte pixels: out[2c], out[2c+1] = channel c of pixels 0..3, 4..7.
VORLITH_API void H_NEON_LOAD_S(unsigned char* src, int32x4* out);
// out = sum_k T[k] * in[k] (the constant 2x taps), and with the mirror M.
VORLITH_API void NEON_CALCULATION1(int32x4 const* in, int32x4& out);
VORLITH_API void NEON_CALCULATION2(int32x4 const* in, int32x4& out);
// 16 bytes: even-indexed and odd-indexed pixels, each widened to two vectors.
VORLITH_API void u8_2x_to_s32_NEON_8LEN(unsigned char* src, int32x4& evenLo, int32x4& evenHi,
                                        int32x4& oddLo, int32x4& oddHi);
// in[0..8] at pixel offsets 0..8 of four 2-pixel groups: for group i,
// dst[3i] = A mirrored over in[0..7], dst[3i+1] = A over in[0..7],
// dst[3i+2] = B over in[1..8] (context's 1.5x taps; 12 values).
VORLITH_API void H_1p5x_NEON_CAL(_StLanczos1p5x* ctx, int32x4 const* in, int* dst);
// 24 bytes: out[2p], out[2p+1] = pixels 3i+p for i = 0..3, 4..7, p = 0..2.
VORLITH_API void u8_3x_to_s32_NEON_8LEN(unsigned char* src, int32x4* out);
// Pixels 3i, i = 0..7, widened (reads 22 bytes).
VORLITH_API void u8_3x_0_to_s32_NEON_8LEN(unsigned char* src, int32x4& lo, int32x4& hi);
// in[0..9] at pixel offsets 0..9 of four 3-pixel groups: for group i,
// dst[4i] = B over in[0..7], dst[4i+1] = B mirrored over in[1..8],
// dst[4i+2] = A mirrored over in[2..9], dst[4i+3] = A over in[2..9]
// (context's 4/3x taps; 16 values).
VORLITH_API void H_4d3x_NEON_CAL(_StLanczos1p5x* ctx, int32x4 const* in, int* dst);
// 8 consecutive bytes widened.
VORLITH_API void u8_to_s32_NEON_8LEN(unsigned char* src, int32x4& lo, int32x4& hi);
// The 8 even-indexed of 16 bytes widened (reads 15 bytes).
VORLITH_API void u8_2x_to_s32_NEON_8LEN_FirstRow(unsigned char* src, int32x4& lo, int32x4& hi);
// in[0..4] at pixel offsets 0..4 of four 2-pixel groups: dst[3i] = A
// mirrored over in[0..3], dst[3i+1] = A over in[0..3], dst[3i+2] = B over
// in[1..4] (context's cubic 1.5x taps; 12 values).
VORLITH_API void HCubic1p5x_NEON_CAL(_StLanczos1p5x* ctx, int32x4 const* in, int* dst);
// in[0..3] at offsets 0..3 of four positions: dst[2i] = K mirrored,
// dst[2i+1] = K (ctx->tapsCubic2x), over in[0..3] lane i (8 values).
VORLITH_API void HCubic2x_NEON_CAL(_StLanczos1p5x* ctx, int32x4 const* in, int* dst);

#endif  // VORLITH_RESIZE_H_
