// Colour and layout conversions.
#ifndef VORLITH_CONVERT_H_
#define VORLITH_CONVERT_H_

#include "vorlith/export.h"
#include "vorlith/kernel_context.h"
#include "vorlith/lanes.h"

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

// ---- RGBA and I420 with alpha -------------------------------------------------
//
// BT.601 limited range in Q16 with the context's coefficients (yCoef*,
// uCoef*, vCoef*, yGain, rCoefV, gCoefU, gCoefV, bCoefU and their offsets;
// the scalar tails use the same values as immediates). RGBA is R, G, B, A,
// one byte each, rows packed (4*width bytes). Rows go in pairs: height/2
// pairs, so an odd height's last row is not converted and a height below 2
// writes nothing. Columns: 16*(width/16) by vector, then (width/2)%8 pairs.
//
// The context must hold what InitLanczos1p5x stores: the vector columns read
// its coefficients, the tails their immediate copies (any other values give
// the vector columns other results than the tails).
//
// Odd widths: the last column of every row is left out, and the row
// pointers advance by the columns converted plus one row, so each row pair
// starts one pixel earlier than a packed layout would put it (pair p at
// pixel p*(2*width-1) of the RGBA rows and of the Y and A planes; chroma
// rows stay width/2 apart). Nothing is read or written past the buffers
// below, but every pair after the first is shifted: use even widths.

// RGBA to one I420A block: with P = width*height (32-bit), Y at 0, U at P,
// V at (P*5)/4, A at (P*3)/2; strides width, width/2, width/2, width.
// i420a must hold (P*5)/2 bytes. Per pixel, truncating:
//   Y = ((16843 R + 33030 G + 6423 B) >> 16) + 16.
// One U and V per 2x2 block, from its top-left pixel only (no averaging):
//   U = ((-9699 R - 19071 G + 28770 B) >> 16) + 128,
//   V = ((28770 R - 24117 G - 4653 B) >> 16) + 128.
// A is copied. White gives Y 235, black 16, both with U = V = 128.
// With other weights and offsets in the context, the vector columns give
// Y = ((high 16 bits of the 32-bit sum) + yOffset) in 16 bits, saturated to
// 0..255, and U, V = (sum >> 16) + offset clamped to 0..255, on every target.
VORLITH_API void RGBA2I420A_NEON(_StLanczos1p5x* ctx, unsigned char* rgba, unsigned char* i420a,
                                 int height, int width);

// Four packed planes (Y and A width apart, U and V width/2 apart) to RGBA.
// Each U, V serves its whole 2x2 block (nearest neighbour). With
// K = 76284 (Y - 16), D = U - 128, E = V - 128, floor shifts, clamped 0..255:
//   R = (K + 104595 E) >> 16, G = (K - 25625 D - 53281 E) >> 16,
//   B = (K + 132252 D) >> 16;  A copied.
// Y 235 with neutral chroma gives 254, not 255: the shift truncates.
VORLITH_API void I420A2RGBA_NEON(_StLanczos1p5x* ctx, unsigned char* y, unsigned char* u,
                                 unsigned char* v, unsigned char* a, unsigned char* rgba,
                                 int height, int width);

// Single vector steps of the two drivers, on the 4-lane types of lanes.h.
// rgb[] holds R, G, B as 32-bit lanes: rgb[0], rgb[1] = R of pixels 0..3 and
// 4..7, rgb[2], rgb[3] = G, rgb[4], rgb[5] = B (the 8-pixel loaders), or
// rgb[0], rgb[1], rgb[2] = R, G, B of 4 pixels (the 4-pixel steps).
//
// 8 RGBA pixels (32 bytes): R, G, B widened into rgb[0..5], A to alpha[0..7].
VORLITH_API void u8_4x_to_s32_NEON_8LEN(unsigned char* rgba, int32x4* rgb, unsigned char* alpha);
// Y of 8 pixels (rgb[0..5]) to y[0..7]: the weighted sum's high 16 bits plus
// yOffset in 16 bits, saturated to 0..255.
VORLITH_API void RGBA2I420A_NEON_CAL_Y(_StLanczos1p5x* ctx, int32x4 const* rgb, unsigned char* y);
// U and V of 4 pixels (rgb[0..2]) without their offsets: uv lanes 0..3 the
// high 16 bits of the U sums, lanes 4..7 those of the V sums.
VORLITH_API void RGBA2I420A_NEON_CAL_UV(_StLanczos1p5x* ctx, int32x4 const* rgb, int16x8& uv);
// The high 16 bits of each lane of lo (lanes 0..3 of out), then of hi.
VORLITH_API void To_s16(int32x4 const& lo, int32x4 const& hi, int16x8& out);
// 8 luma bytes: (Y - yBias) in 16 bits, widened, times yGain; lo pixels 0..3.
VORLITH_API void Y_u8_to_s32_NEON_8LEN(_StLanczos1p5x* ctx, unsigned char* y, int32x4& lo,
                                       int32x4& hi);
// 8 chroma bytes minus uvBias as signed 8-bit values, widened.
VORLITH_API void UV_u8_to_s32_NEON_8LEN(_StLanczos1p5x* ctx, unsigned char* uv, int32x4& lo,
                                        int32x4& hi);
// R, G, B of 4 pixels from K (scaled luma), D and E (centred chroma): the
// high 16 bits of K + rCoefV E, K + gCoefU D + gCoefV E and K + bCoefU D
// (32-bit, wrapping) to rgb[0..3], rgb[4..7], rgb[8..11].
VORLITH_API void I420A2RGBA_NEON_CAL(_StLanczos1p5x* ctx, int32x4 const& k, int32x4 const& d,
                                     int32x4 const& e, short* rgb);

// ---- RGBA luma-ratio split and merge ----------------------------------------
//
// Lets a luma-only 2x enlarger process RGBA. All planes packed.

// Splits a W x H RGBA image (W = width, H = height): per pixel, with the
// context's Q20 fields (truncating arithmetic shift)
//   luma = float((269484 R + 528482 G + 102760 B + 16777216) >> 20)  (W x H),
//   dR = 734678 R - 615858 G - 118820 B - 19528688,
//   dG = -313565 R + 433025 G - 119460 B - 19528672,
//   dB = -313172 R - 615764 G + 928936 B - 19528704  (Q20, not shifted),
// each difference written to the 2x2 block (2x..2x+1, 2y..2y+1) of its
// 2W x 2H plane (dR, dG, dB back to back in diff: 12*W*H ints), A likewise
// to alpha (4*W*H bytes). Grey pixels give the same three differences
// whatever their level. A size below 1 writes nothing.
VORLITH_API void RGBA2RGBA_Y_RGBR_NEON(_StLanczos1p5x* ctx, unsigned char* rgba, float* luma,
                                       int* diff, unsigned char* alpha, int height, int width);

// Merges at the output size (height x width, the split's 2H x 2W): luma
// holds L = Y * 1220544 per pixel (76284 * 16 per grey level); diff and
// alpha are the split's planes. Channel c of a pixel, with d its difference:
// - the first 8*(width/8) columns of a row: trunc(L) to int32 (saturating,
//   NaN 0), plus d in 32-bit integers (wrapping), >> 20, clamped to 0..255;
// - the last width%8: L + float(d) in single precision, truncated to int32
//   (saturating); negative gives 0, 2^28 or more 255, otherwise >> 20.
// Single precision steps by 16 near the top of the range, so the two can
// differ where a sum lies within a few units of a multiple of 2^20: both are
// the contract. Byte 3 is alpha. A split and merge of grey 128 with L = 125
// levels gives 126 (two truncations). A size below 1 writes nothing.
VORLITH_API void RGBA2RGBA_F_NEON(unsigned char* rgba, float* luma, int* diff,
                                  unsigned char* alpha, int height, int width);

// Vector steps. rgb[] as above; alpha of the loader as there.
VORLITH_API void u8_4x_to_RGBs32_Au8_NEON_8LEN(unsigned char* rgba, int32x4* rgb,
                                               unsigned char* alpha);
// Luma of 4 pixels (rgb[0..2]): weighted sum plus yOffset20, >> 20, to float.
VORLITH_API void RGBA2RGBA_CAL_dY_NEON(_StLanczos1p5x* ctx, int32x4 const* rgb, float32x4& luma);
// One difference of 4 pixels (rgb[0..2]): weighted sum plus offset, unshifted.
VORLITH_API void RGBA2RGBA_CAL_dR_NEON(_StLanczos1p5x* ctx, int32x4 const* rgb, int32x4& diff);
VORLITH_API void RGBA2RGBA_CAL_dG_NEON(_StLanczos1p5x* ctx, int32x4 const* rgb, int32x4& diff);
VORLITH_API void RGBA2RGBA_CAL_dB_NEON(_StLanczos1p5x* ctx, int32x4 const* rgb, int32x4& diff);

// ---- YUV copy, crop, YUV to RGB and RGB to RGBA -----------------------------
//
// Context-free, width before height, byte strides. 4:2:0 chroma: one U and
// one V per 2x2 luma block, repeated over the block (nearest neighbour).
//
// The worked values quoted in this header (white, black, grey, red, the
// 254 of Y 235 back to RGB, the 126 of the grey merge, the padding of
// yuvcpy, the partial swap of CvtRGBtoRGBA_lanczos) all follow from the
// formulas, which hold wherever a value and a formula could disagree; they
// are tested as literal bytes. Sizes the formulas leave open are decided
// here: odd widths of the Q16 conversions shift later row pairs (above),
// yuvcpy with a height below 2 writes nothing (rather than copying the row
// before dst into the bottom edge), and the YUV to RGB converters convert
// every column of an odd width.

// 4:2:0 to packed pixels V, U, Y, 255 (bytes 0..3) in a destination of
// dstWidth x dstHeight pixels, dstStride bytes a row. Luma rows go in pairs
// (height/2 pairs) sharing one chroma row: planar U at uv, V at
// uv + uvHeight*uvWidth whatever the stride (interleaved false), or
// interleaved U, V byte pairs (true). Rows advance by their strides per pair.
// Edges: each row then repeats its last written pixel min(dstWidth - width,
// 3) times; below, the last written row is copied whole (dstStride bytes)
// into min(dstHeight - height, 3) rows. Pixels further out stay unwritten.
// Odd sizes: an odd width writes pixel `width` too, from luma byte `width`
// of each row (read) and chroma sample width/2, and the right edge follows
// it: luma rows need width+1 readable bytes and destination rows room for
// width+1+min(dstWidth-width, 3) pixels. An odd height's last row is not
// converted, and the bottom edge starts on it. A height below 2 or a width
// below 1 writes nothing (not even the bottom edge). Strides are positive.
VORLITH_API void yuvcpy(unsigned char* y, int width, int height, int yStride, unsigned char* uv,
                        int uvWidth, int uvHeight, int uvStride, unsigned char* dst,
                        int dstWidth, int dstHeight, int dstStride, bool interleaved);

// Copies width*4 bytes of each of height rows, unchanged (no channel is
// reordered). src points at the rectangle's top-left pixel; the third and
// fourth arguments are ignored. A width or height below 1 copies nothing.
VORLITH_API void BGRACrop(unsigned char* src, unsigned char* dst, int, int, int srcStride,
                          int width, int height, int dstStride);

// 4:2:0 to packed R, G, B (3*width bytes a row). Per pixel, Y' = max(Y, 16),
// D = U - 128, E = V - 128, floor shifts, clamped to 0..255:
//   R = (1220542 (Y'-16) + 1673527 E + 524288) >> 20
//   G = (1220542 (Y'-16) - 409993 D - 852492 E + 524288) >> 20
//   B = (1220542 (Y'-16) + 2116026 D + 524288) >> 20.
// Y 16 with neutral chroma gives black, Y 235 white. Luma addressing assumes
// packed rows: row 2p+1 is read `width` bytes after row 2p, and row pair p
// starts p*(width + yStride) bytes in, so pass yStride = width. Chroma row p
// is uvStride*p bytes in. Odd heights: the last pair converts one row more,
// luma row `height` (read at the addressing above) to RGB row `height`
// (written), so both buffers need height+1 rows. An odd width's last column
// uses chroma sample width/2. A width or height below 1 writes nothing.
// I420: uv is the U plane, V starts (height*width)/4 bytes after it.
VORLITH_API void CvtColorI420ToRGBInterleaved(unsigned char* y, int yStride, unsigned char* uv,
                                              int uvStride, unsigned char* rgb, int width,
                                              int height);
// NV12: uv holds U, V byte pairs.
VORLITH_API void CvtColorNV12ToRGBInterleaved(unsigned char* y, int yStride, unsigned char* uv,
                                              int uvStride, unsigned char* rgb, int width,
                                              int height);

// Packed 3-byte pixels (3*width bytes a row) to 4-byte pixels, byte 3 = 255,
// dstStride bytes a row. The first 16*(width/16) pixels of a row (vector
// steps) swap bytes 0 and 2; the rest keep their order. So a row of width 20
// has pixels 0..15 swapped and 16..19 not, and widths below 16 never swap.
// Gaps between destination rows stay untouched. A width or height below 1
// writes nothing.
VORLITH_API void CvtRGBtoRGBA_lanczos(unsigned char* src, unsigned char* dst, int width,
                                      int height, int dstStride);

#endif  // VORLITH_CONVERT_H_
