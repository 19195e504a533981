// Checked entry points to the exported image kernels, for callers that are
// not hosts. Each function takes whole planes as views (vorlith/views.hpp),
// checks every size, stride, channel count and parameter the raw kernel
// relies on, owns the kernel context and scratch the kernel needs, and then
// calls the raw kernel, so its output is the raw kernel's, byte for byte.
//
// Rules common to every function here:
// - a view's data is not null, its width and height are at least 1, its
//   stride is at least width * channels and at most INT_MAX (the kernels take
//   int strides), and its channels are what the function names;
// - the views a function reads do not overlap the views it writes;
// - nothing outside the views is read or written. Where a raw kernel wants
//   packed rows, or reads or writes past a row or a plane, the function works
//   through internal packed copies; rows the raw kernel leaves unwritten are
//   left as they were in the destination view.
// A broken rule throws std::invalid_argument whose message names the
// function, the argument and the rule, e.g.
//   "Lanczos2x: dst.width must be 2 * src.width (1280), got 1279".
//
// Threads: each call builds its own context, so calls may run on separate
// threads at once. Lanczos2x on three channels uses the raw kernel's one
// process-wide ring; calls through this layer take turns on it, but a direct
// call of the raw three-channel kernel on another thread must not overlap one.
#ifndef VORLITH_CHECKED_KERNELS_HPP_
#define VORLITH_CHECKED_KERNELS_HPP_

#include <cstdint>

#include "vorlith/export.h"
#include "vorlith/views.hpp"

namespace vorlith::checked {

using Int16Plane = PlaneView<int16_t>;
using ConstInt16Plane = PlaneView<const int16_t>;
using Int32Plane = PlaneView<int32_t>;
using ConstInt32Plane = PlaneView<const int32_t>;

// Largest output row (in values) whose two rows of 16-bit sums fit the
// context's line buffer.
inline constexpr int kMaxLineValues = 20480;

// ---- Resamplers ----------------------------------------------------------------

// NV12 chroma 2x (Linear_2x_nv). src: W x H, 2 channels (Cb/Cr pairs).
// dst: 2W x 2H, 2 channels, dst.stride <= 20480 (two rows of dst.stride
// 16-bit values live in the context's line buffer). Writes every dst value.
VORLITH_API void Linear2xNv(ConstPlane src, Plane dst);

// Lanczos 2x (Lanczos2x_SingleChannel for 1 channel, ResizeLanczos2x_NEON
// for 3). src: W x H, 1 or 3 channels; dst: 2W x 2H, same channels.
// Writes every dst value.
VORLITH_API void Lanczos2x(ConstPlane src, Plane dst);

// Lanczos 1.5x (Lanczos_1p5x) and bicubic 1.5x (Cubic1p5x_NEON), 1 channel.
// src: W x H; dst: floor(1.5 W) x floor(1.5 H). An odd H (3 or more)
// leaves the last dst row unwritten; an odd W repeats the last intermediate
// value in the last dst column (as the raw kernels document).
VORLITH_API void Lanczos1p5x(ConstPlane src, Plane dst);
VORLITH_API void Cubic1p5x(ConstPlane src, Plane dst);

// Lanczos 4/3x (Lanczos_4d3x), 1 channel. src: W x H; dst:
// floor(4 W / 3) x floor(4 H / 3). With H >= 3 and H % 3 == r, only the
// first 4 (H - r) / 3 dst rows are written; the rest are left as they were.
VORLITH_API void Lanczos4d3x(ConstPlane src, Plane dst);

// Bicubic 2x (Cubic2x_NEON), 1 channel. src: W x H; dst: 2W x 2H, all
// written.
VORLITH_API void Cubic2x(ConstPlane src, Plane dst);

// Bilinear 2x, 3x, 4x on bytes (Linear_2x, Linear_3x, Linear_4x), 1 channel.
// src: W x H; dst: rW x rH with rW <= 20480 (the line buffer's ring). All
// written.
VORLITH_API void Linear2x(ConstPlane src, Plane dst);
VORLITH_API void Linear3x(ConstPlane src, Plane dst);
VORLITH_API void Linear4x(ConstPlane src, Plane dst);

// Bilinear 1.5x (Linear_1p5x), 1 channel. src: W x H with W, H >= 2;
// dst: floor(1.5 W) x (3 ((H - 2) / 2) + 3), dst.width <= 20480. All written.
VORLITH_API void Linear1p5x(ConstPlane src, Plane dst);

// Bilinear 4/3x (Linear_4div3x), 1 channel. src: W x H with W, H >= 3;
// dst: (4 W / 3) x (4 ((H - 3) / 3) + 4), dst.width <= 20480. All written.
VORLITH_API void Linear4d3x(ConstPlane src, Plane dst);

// Bilinear 3x and 4x on floats (Linear_float_3x, Linear_float_4x), 1
// channel. src: W x H; dst: rW x rH. All written.
VORLITH_API void LinearFloat3x(ConstFloatPlane src, FloatPlane dst);
VORLITH_API void LinearFloat4x(ConstFloatPlane src, FloatPlane dst);

// NHWC floats to byte rows, a pixel shuffle (CvtF32ToU8_NHWC_3x3_NEON with
// r = 3, CvtF32ToU8_NHWC_2x2_NEON with r = 2). src: r W x H positions of r
// floats (r channels), with W a multiple of 8 (r = 3) or 4 (r = 2), the only
// widths whose rows line up; dst: r W x r H, 1 channel. Input row h gives
// dst rows r h .. r h + r - 1 as the raw kernel documents. All written.
VORLITH_API void F32ToU8Nhwc3x3(ConstFloatPlane src, Plane dst);
VORLITH_API void F32ToU8Nhwc2x2(ConstFloatPlane src, Plane dst);

// ---- Byte and float planes ----------------------------------------------------

// CvtU8ToF32_STRIDE and CvtF32ToU8_STRIDE: src and dst of the same width,
// height and channels (any channel count: values are converted one by one).
// Writes width * channels values a row.
VORLITH_API void U8ToF32(ConstPlane src, FloatPlane dst);
VORLITH_API void F32ToU8(ConstFloatPlane src, Plane dst);

// ---- Filters --------------------------------------------------------------------

// Guided box filter (Boxfilter_AB_NEON). src, dst: W x H bytes, guide: W x H
// int16, all 1 channel, W even and 4..8192, H >= 4; a and b finite with
// |a| * 2295 and |b| * 3641 finite. Writes dst rows 0 .. 4 (H / 4) - 1; the
// others are left as they were.
VORLITH_API void GuidedBoxFilter(ConstPlane src, ConstInt16Plane guide, Plane dst, float a,
                                 float b);

// Laplacian (Laplace_NEON). src: W x H bytes; dst: W x H int16, 1 channel.
// All written.
VORLITH_API void Laplacian(ConstPlane src, Int16Plane dst);

// Bilateral filter (BL_NEON). src, dst: W x H, 1 channel, W >= 2, H >= 4.
// Writes dst rows 0 .. 2 (H / 2) - 1: an odd H leaves the last row as it was.
VORLITH_API void BilateralFilter(ConstPlane src, Plane dst);

// Detail layer of the even box filter (Boxfilter_2even_A_NEON). src: W x H
// bytes, detail: W x H floats, 1 channel, W even and 4..8192, H >= 4.
// Writes detail rows 0 .. 4 (H / 4) - 1; the others are left as they were.
VORLITH_API void BoxDetail(ConstPlane src, FloatPlane detail);

// Sharpening (SharpenProduce_Stride_NEON): dst = detail * gain + src, the
// raw kernel's two rounding rules. detail, gain: W x H floats; src, dst:
// W x H bytes; all 1 channel. All written.
VORLITH_API void Sharpen(ConstFloatPlane detail, ConstFloatPlane gain, ConstPlane src, Plane dst);

// ---- Colour and layout ----------------------------------------------------------

// RGBA to I420 with alpha (RGBA2I420A_NEON). rgba: W x H, 4 channels, W and
// H even (an odd width shifts every later row pair in the raw kernel), and
// W * H <= INT_MAX / 5 (the kernel's plane offsets are 32-bit); y, a: W x H;
// u, v: W/2 x H/2; all 1 channel. All written.
VORLITH_API void RgbaToI420A(ConstPlane rgba, Plane y, Plane u, Plane v, Plane a);

// I420 with alpha to RGBA (I420A2RGBA_NEON). Sizes as RgbaToI420A. All
// written.
VORLITH_API void I420AToRgba(ConstPlane y, ConstPlane u, ConstPlane v, ConstPlane a, Plane rgba);

// Luma-ratio split (RGBA2RGBA_Y_RGBR_NEON). rgba: W x H, 4 channels; luma:
// W x H floats; dr, dg, db: 2W x 2H int32; alpha: 2W x 2H bytes; all others
// 1 channel. All written.
VORLITH_API void LumaRatioSplit(ConstPlane rgba, FloatPlane luma, Int32Plane dr, Int32Plane dg,
                                Int32Plane db, Plane alpha);

// Luma-ratio merge (RGBA2RGBA_F_NEON). luma: W x H floats; dr, dg, db: W x H
// int32; alpha: W x H bytes; all 1 channel; rgba: W x H, 4 channels. All
// written.
VORLITH_API void LumaRatioMerge(ConstFloatPlane luma, ConstInt32Plane dr, ConstInt32Plane dg,
                                ConstInt32Plane db, ConstPlane alpha, Plane rgba);

// 4:2:0 to V, U, Y, 255 pixels with replicated edges (yuvcpy). y: W x H,
// 1 channel, W even (an odd width reads past the luma row), H >= 2; chroma
// (W/2) x ((H + 1)/2): uv with 2 channels (NV12), or u and v with 1 (I420);
// dst: at least W x H, 4 channels. Writes rows 0 .. 2 (H/2) - 1, each of
// W + min(dst.width - W, 3) pixels (the right edge repeating the last one),
// then copies row 2 (H/2) - 1 into the next min(dst.height - H, 3) rows.
// Other dst pixels are left as they were; the bottom edge copies the view's
// row only, never the gap before the next row.
VORLITH_API void Nv12ToVuya(ConstPlane y, ConstPlane uv, Plane dst);
VORLITH_API void I420ToVuya(ConstPlane y, ConstPlane u, ConstPlane v, Plane dst);

// Copies the dst.width x dst.height rectangle of src whose top-left pixel is
// (x, y) into dst (BGRACrop), 4 channels each; the rectangle lies inside src.
VORLITH_API void BgraCrop(ConstPlane src, int x, int y, Plane dst);

// 4:2:0 to packed R, G, B (CvtColorI420ToRGBInterleaved,
// CvtColorNV12ToRGBInterleaved). y: W x H, 1 channel; rgb: W x H, 3 channels.
// I420: u, v: W/2 x H/2, W and H even (the raw kernel puts V (H W)/4 bytes
// after U, the I420 layout only for even sizes). NV12: uv: ((W + 1)/2) x
// ((H + 1)/2), 2 channels, any W and H (an odd height's extra row the raw
// kernel converts goes to an internal row). All of rgb written.
VORLITH_API void I420ToRgb(ConstPlane y, ConstPlane u, ConstPlane v, Plane rgb);
VORLITH_API void Nv12ToRgb(ConstPlane y, ConstPlane uv, Plane rgb);

// Packed 3-byte to 4-byte pixels, byte 3 = 255 (CvtRGBtoRGBA_lanczos): the
// first 16 (W / 16) pixels of a row swap bytes 0 and 2, the rest do not.
// src: W x H, 3 channels; dst: W x H, 4 channels. All written.
VORLITH_API void RgbToRgba(ConstPlane src, Plane dst);

}  // namespace vorlith::checked

#endif  // VORLITH_CHECKED_KERNELS_HPP_
