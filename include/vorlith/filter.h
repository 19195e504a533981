// Filters: a guided 3x3 box detail enhancer, a Laplacian, a 3x3 bilateral
// filter, and an even box filter with unsharp-mask sharpening. Kernels check
// nothing beyond what each driver says it rejects; sizes and scratch are the
// caller's. Planes have packed rows (stride = width elements).
//
// Every result is defined per element, down to the rounding of each float
// operation, and is the same on every SIMD target. Where a row is split into
// vector steps and scalar columns, the split is fixed by the step counts
// given below, not by the machine's vector width, and the two kinds of
// column round differently on purpose: both regimes are part of the contract.
//
// Rows a driver does not write: the box filters write R = 4 * (height / 4)
// rows and the bilateral filter R = 2 * (height / 2), filtering the top R rows
// as if they were the whole image (the last of them takes the bottom edge
// replication); rows R .. height-1 are neither read nor written.
//
// Float to byte, the two rules used below:
// - "round": v + 0.5f in float, truncated toward zero to int32 (saturating,
//   NaN gives 0), its low 16 bits read as signed, clamped to 0..255;
// - "truncate" (float_to_uchar): NaN and v <= 0 give 0, v >= 255 gives 255,
//   others truncate toward zero.
#ifndef VORLITH_FILTER_H_
#define VORLITH_FILTER_H_

#include "vorlith/export.h"
#include "vorlith/kernel_context.h"
#include "vorlith/lanes.h"

// ---- Guided box filter ---------------------------------------------------------
//
// out = P + a (P - M) (1 - min(|1 - b |N||, 1)^0.6), with M the 3x3 box mean
// of the source (edges replicated on all four sides) and N the 3x3 box mean
// of the signed 16-bit guide. Box sums are 16-bit: S (source, at most 2295)
// and G (guide, wrapping modulo 2^16, so guides whose 3x3 sum leaves the
// int16 range wrap). Per pixel, with P the source byte as float:
// - vector columns (the first 8 * (width / 8) of a row):
//     D = (a / -9.0f) * S + a * P                        (float)
//     w = |1 - b * |G * 0.11111111f||                    (float)
//     e = ExpCal(w)
//     out = round((P + D) + D * e)
//   so b|N| = 1 gives the full boost P + a (P - M), and a zero guide (w = 1,
//   e = -1) returns P exactly;
// - scalar columns (the last width % 8):
//     D = float(double(a * P) - double(a * S) / 9.0)     (a * P, a * S in float)
//     w = |1 - b * float(|G / 9.0|)|                     (the division in double)
//     out = truncate(float(double(P + D) - double(D) * pow(double(w), 0.6)))
//   with no clamp of w, so for b|N| above 2 (w > 1) the boost inverts here
//   while the vector columns pass P through.
// a and b must be finite, with |a| * 2295 and |b| * 3641 finite.

// Filters a plane. Scratch: ctx->workBuf at least 10 * width bytes (source
// sums) and ctx->lineBuf (guide sums). width must be even and 4..8192 and
// height at least 4; other sizes write nothing. Rows as described at the top.
VORLITH_API void Boxfilter_AB_NEON(_StLanczos1p5x* ctx, float a, float b, unsigned char* src,
                                   short* guide, unsigned char* dst, int height, int width);

// Horizontal 3-sums of one row of n = 4 + 16 * nvec + 2 * npairs columns, for
// the source (into srcSums) and the guide (into guideSums, wrapping): H(x) =
// s(x-1) + s(x) + s(x+1) with s(-1) = s(0) and s(n) = s(n-1). The drivers use
// nvec = (width - 4) / 16, npairs = ((width - 4) % 16) / 2.
VORLITH_API void HBoxfilter_AB_NEON(unsigned char* src, short* srcSums, short* guide,
                                    short* guideSums, int nvec, int npairs);

// aOut = a0 + a1 and bOut = b0 + b1, wrapping, for 8 * nvec + ntail elements.
VORLITH_API void VBoxfilter_AB_NEON(short* a0, short* a1, short* aOut, short* b0, short* b1,
                                    short* bOut, int nvec, int ntail);

// One output row of 8 * nvec + ntail pixels: S = srcRow + srcPair, G =
// guideRow + guidePair (16-bit, wrapping); the first 8 * nvec pixels by the
// vector formula, the last ntail by the scalar one.
VORLITH_API void VBoxfilter_final_AB_NEON(float a, float b, short* srcRow, short* srcPair,
                                          short* guideRow, short* guidePair, unsigned char* src,
                                          unsigned char* dst, int nvec, int ntail);

// expTableBuffer[i] = -(i / 1000)^0.6, i = 0..1000 (entry 0 is -0.0f).
VORLITH_API extern const float expTableBuffer[1001];

// expTableBuffer[trunc(double(min(x, 1)) * 1000 + 0.5)], for x >= 0 (the
// kernels pass |.| values); a negative x reads entry 0.
VORLITH_API float ExpCal(float x);

// out[i] = round((p + d) + d * ExpCal(w)) for lanes 0..3 of p0, d0, w0, then
// lanes 0..3 of p1, d1, w1: 8 bytes.
VORLITH_API void Result_NEON(float32x4 p0, float32x4 p1, float32x4 d0, float32x4 d1,
                             float32x4 w0, float32x4 w1, unsigned char* out);

// p[0..7] as floats into lo (0..3) and hi (4..7).
VORLITH_API void u8_to_float_NEON_8LEN(unsigned char* p, float32x4& lo, float32x4& hi);

// The "truncate" rule above.
VORLITH_API unsigned char float_to_uchar(float f);

// ---- Laplacian -----------------------------------------------------------------
//
// dst = s(x-1, y) + s(x+1, y) + s(x, y-1) + s(x, y+1) - 4 s(x, y), edges
// replicated, exact in 16 bits (-1020..1020).

// Filters a plane of any height and width of at least 1 (a single row or
// column is its own neighbour on both sides). Scratch: ctx->workBuf at least
// 2 * width bytes.
VORLITH_API void Laplace_NEON(_StLanczos1p5x* ctx, unsigned char* src, short* dst, int height,
                              int width);

// hsum(x) = s(x-1) + s(x+1), edges replicated, for a row of
// n = 2 + 8 * nvec + ntail columns (drivers: nvec = (width - 2) / 8,
// ntail = (width - 2) % 8).
VORLITH_API void HLaplace_NEON(unsigned char* src, short* hsum, int nvec, int ntail);

// dst = hsum + up + down - 4 centre for 16 * nvec + ntail columns.
VORLITH_API void VLaplace_NEON(unsigned char* up, unsigned char* centre, unsigned char* down,
                               short* hsum, short* dst, int nvec, int ntail);

// p[0..15] widened: lo = p[0..7], hi = p[8..15] (values 0..255).
VORLITH_API void GET_s16(unsigned char* p, int16x8& lo, int16x8& hi);

// ---- Bilateral filter ----------------------------------------------------------
//
// Each output pixel is the weighted mean of its 3x3 window (edges replicated)
// with weight BLBuffer[|n - q|] for a neighbour n of the centre q, 1 for the
// centre. Sums run in this order: the centre (weight 1, value q), then up-left,
// up, up-right, left, right, down-left, down, down-right; each product w * n is
// rounded to float before it is added.
// - Vector columns (the 8 * ((width - 2) / 8) columns from column 1): weight
//   sum W and numerator in float; out = round(num * FRECPE(W)), FRECPE being
//   the Arm reciprocal estimate (8 bits, no refinement), computed by the
//   instruction on NEON and SVE and by its exact definition elsewhere.
// - Scalar columns (column 0, the (width - 2) % 8 after the vector columns,
//   and the last): W summed in double and rounded to float, the numerator in
//   float, out = truncate(num / W).
// So a flat plane comes back unchanged in the scalar columns, but in the
// vector columns values of 205 and above come back one lower: FRECPE(9) is
// 0.11083984375, and 9q times it, plus 0.5, truncates to q - 1 from q = 205.
// A step of 106 or more levels has weight 0 across it.
//
// Weight rows: ctx->hblBuf[0..6] must each point to at least width floats
// (allocate them with BilateralAllocRows, or with new unsigned char[4 * width]
// each: UInitLanczos1p5x deletes them). For the row being filtered they hold,
// per column x: 0 up-left, 1 up, 2 up-right, 3 the weight between centre
// pixels x-1 and x (entry 0 is 1.0), 4 down-left, 5 down, 6 down-right.
// HBL_NEON_BASE computes and writes all seven. HBL_NEON_1 takes its weights
// toward the row above from rows 4-6 (the previous row's downward weights: up-
// left from row 6 at x-1, up from row 5 at x, up-right from row 4 at x+1, the
// row edges replicated) and writes its downward weights to rows 0-2;
// HBL_NEON_2 does the same with the triples swapped. The pointers themselves
// are left as they were.

// Filters a plane; width of at least 2, height of at least 4, otherwise
// nothing is written. Rows as described at the top: an odd height leaves its
// last row unwritten.
VORLITH_API void BL_NEON(_StLanczos1p5x* ctx, unsigned char* src, unsigned char* dst, int height,
                         int width);

// One output row of width >= 2 pixels from rows up, centre, down.
VORLITH_API void HBL_NEON_BASE(_StLanczos1p5x* ctx, unsigned char* up, unsigned char* centre,
                               unsigned char* down, unsigned char* dst, int width);
VORLITH_API void HBL_NEON_1(_StLanczos1p5x* ctx, unsigned char* up, unsigned char* centre,
                            unsigned char* down, unsigned char* dst, int width);
VORLITH_API void HBL_NEON_2(_StLanczos1p5x* ctx, unsigned char* up, unsigned char* centre,
                            unsigned char* down, unsigned char* dst, int width);

// One vector step: dst[0..7] for the interior pixels at centre[0..7], reading
// columns -1..8 of the three rows. The weight rows are addressed from
// ctx->hblBuf[k] as pointing at the step's first column. Mode 0 computes every
// weight and writes rows 0-6 at 0..7; mode 1 reads row 6 at -1..6, row 5 at
// 0..7, row 4 at 1..8 and writes rows 0-2; mode 2 the same with rows 0-2 and
// 4-6 swapped. Modes 0-2 all write row 3 at 0..8.
VORLITH_API void HBL_RESULT_NEON(_StLanczos1p5x* ctx, unsigned char* up, unsigned char* centre,
                                 unsigned char* down, unsigned char* dst, int mode);

// p[0..7] widened to 16 bits.
VORLITH_API int16x8 HBL_GET_s16(unsigned char* p);

// v widened, signed, to floats: lo = v[0..3], hi = v[4..7].
VORLITH_API void short8_to_float4(int16x8 v, float32x4& lo, float32x4& hi);

// BLBuffer[d] = exp(-d^2 / 800) for d = 0..105, 0 for d = 106..255.
VORLITH_API extern const float BLBuffer[256];

// Sets ctx->hblBuf[0..6] to new arrays of width floats (new unsigned char[],
// as UInitLanczos1p5x expects). Rows already set are not freed.
VORLITH_API void BilateralAllocRows(_StLanczos1p5x* ctx, int width);

// ---- Even box filter and sharpening ----------------------------------------
//
// Detail layer: detail = P - S * 0.11111111f in float, S the 3x3 box sum with
// edges replicated (the same value in every column). Sharpening: v = detail *
// gain + P (float multiply, then add); the first 8 * (n / 8) pixels of a row
// take round(v), the last n % 8 take truncate(v): 99.6 gives 100 in a vector
// column and 99 in a scalar one.

// Scratch: ctx->lineBuf. width must be even and 4..8192 and height at least
// 4; other sizes write nothing. Rows as described at the top.
VORLITH_API void Boxfilter_2even_A_NEON(_StLanczos1p5x* ctx, unsigned char* src, float* detail,
                                        int height, int width);

// Horizontal 3-sums of one row of n = 4 + 16 * nvec + 2 * npairs columns.
VORLITH_API void HBoxfilter_NEON(unsigned char* src, short* hsum, int nvec, int npairs);

// out = a + b, wrapping, for 8 * nvec + ntail elements.
VORLITH_API void VBoxfilter_NEON(short* a, short* b, short* out, int nvec, int ntail);

// detail = P - (row + pair) * 0.11111111f for 8 * nvec + ntail pixels.
VORLITH_API void VBoxfilter_final_A_NEON(short* row, short* pair, unsigned char* src,
                                         float* detail, int nvec, int ntail);

// One row: 8 * nvec pixels rounded, then ntail truncated.
VORLITH_API void SharpenProduce_NEON(float* detail, float* gain, unsigned char* src,
                                     unsigned char* dst, int nvec, int ntail);

// A plane: per row width / 8 steps rounded, width % 8 pixels truncated.
// detail, src and dst rows are width elements apart, gain rows gStride floats.
VORLITH_API void SharpenProduce_Stride_NEON(float* detail, float* gain, unsigned char* src,
                                            unsigned char* dst, int width, int height,
                                            int gStride);

#endif  // VORLITH_FILTER_H_
