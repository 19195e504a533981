// Per-pixel reference formulas for the kernels, written from their documented
// arithmetic one output element at a time, with none of the kernels' row
// passes, rings or vector steps. Tests compare kernels with these byte for
// byte.
#ifndef VORLITH_TESTS_ORACLE_ORACLE_H_
#define VORLITH_TESTS_ORACLE_ORACLE_H_

#include <cstdint>

namespace vorlith::oracle {

// Arm FCVTZS/FCVTZU: truncation toward zero, saturating to [lo, hi], NaN to 0.
int64_t TruncSaturate(double value, int64_t lo, int64_t hi);

// ---- NV12 chroma 2x ----
// Output sample (row, col, component c) of the 2x enlargement of an
// interleaved Cb/Cr plane of `height` x `width` pairs.
uint8_t Linear2xNvSample(const uint8_t* src, int src_stride, int height, int width, int row,
                         int col, int c);

// Value `index` of the horizontal pass of one row of `width` pairs.
int16_t HLinear2xNvValue(const uint8_t* row, int width, int index);

// Output byte `index` of the general two-row vertical pass.
uint8_t VLinearValue(int16_t a, int16_t b, int16_t w0, int16_t w1, float scale, bool body);

// ---- Bilinear num/den enlargement (2x, 3x, 4x, 1.5x, 4/3x) ----
// Sample k of centre-aligned sampling over `size` samples: two clamped
// source indices and their weights (totalling 2*num, 3 in 3x).
struct LinearTaps {
  int i0, i1, w0, w1;
};
LinearTaps LinearTapsOf(int num, int den, int size, int k);
// Horizontal sum j of a row; columns past the last whole group of `den`
// samples repeat the last defined sum.
int LinearH(int num, int den, const uint8_t* row, int width, int j);
// Sum s times f to a byte: the 16-bit single-precision rule of the first
// 8*(n/8) values of a row (`body`), or the 32-bit double-rounded one.
uint8_t LinearRound(int64_t s, float f, bool body);
// Output byte (y, x) of a packed plane; rows past the last whole group of
// `den` are not read.
uint8_t LinearSample(int num, int den, const uint8_t* src, int height, int width, int y, int x);

// ---- Float bilinear 3x, 4x and the NHWC converters ----
// Horizontal value j of a float row, and output (y, x) of a packed plane:
// samples on a source sample are copies, blends two rounded products summed.
float LinearFloatH(int r, const float* row, int width, int j);
float LinearFloatSample(int r, const float* src, int height, int width, int y, int x);
// A float truncated, its low 16 bits read as signed, clamped to 0..255.
uint8_t NhwcByte(float v);

// ---- Byte and float planes ----
float U8ToF32(uint8_t v);
// `body` selects the saturating rule of the first 8*(W/8) columns, otherwise
// the wrapping rule of the last W%8.
uint8_t F32ToU8(float v, bool body);

// ---- Lanczos and bicubic resamplers ----
enum class Resampler { kLanczos2x, kLanczos1p5x, kLanczos4d3x, kCubic1p5x, kCubic2x };

// Output j of a row applies `taps` (Q11, `count` of them) to source samples
// first .. first+count-1, indices clamped to the row.
struct ResamplePhase {
  int first;
  int count;
  const int32_t* taps;
};
ResamplePhase PhaseOf(Resampler r, int j);

// Horizontal value of output j of a row of `size` samples `step` bytes apart.
int64_t ResampleH(Resampler r, const uint8_t* row, int step, int size, int j);

// Vertical Q22 sum for output row y over the horizontal values of output
// column xh: the source rows are those of a plane of `height` rows, `stride`
// bytes apart, `width` samples a row, `step` bytes apart.
int64_t ResampleAcc(Resampler r, const uint8_t* plane, int stride, int step, int height,
                    int width, int y, int xh);

// The vertical rounding: the single-precision block rule or the
// double-precision remainder rule.
uint8_t ResampleRound(int32_t acc, bool block);

// ---- Filters ----
// 3x3 box sum at (y, x) of a plane, edges replicated; guide sums wrap to int16.
int BoxSum(const uint8_t* plane, int height, int width, int y, int x);
int16_t BoxSum(const int16_t* plane, int height, int width, int y, int x);
// The two tables from their formulas: -(i/1000)^0.6 and exp(-d^2/800) (0 from 106).
float PowerEntry(int i);
float RangeWeight(int d);
// The two float to byte rules: + 0.5, truncation, low 16 bits as signed,
// clamped (`vector` columns); or truncation clamped to 0..255.
uint8_t FilterByte(float v, bool vector);
// Guided box filter output for source byte p with box sums s and g.
uint8_t GuidedPixel(float a, float b, int p, int s, int16_t g, bool vector);
int16_t LaplacePixel(const uint8_t* plane, int height, int width, int y, int x);
// Bilateral output at (y, x); the plane's rows past `height` are not read.
uint8_t BilateralPixel(const uint8_t* plane, int height, int width, int y, int x, bool vector);
float DetailPixel(int p, int s);
uint8_t SharpenPixel(float detail, float gain, int p, bool vector);
// ---- Colour conversions ----
// RGB to limited-range Y, Cb, Cr (Q16, truncating).
uint8_t Luma601(int r, int g, int b);
uint8_t Cb601(int r, int g, int b);
uint8_t Cr601(int r, int g, int b);
// The same sums without their offsets, floor-divided by 2^16 (the vector
// steps' high halves).
int ChromaSum601(bool v, int r, int g, int b);
// Y, Cb, Cr to R, G, B: Q16 without rounding, or Q20 with the rounding half
// and Y below 16 counted as 16; clamped to 0..255.
void Rgb601Q16(int y, int u, int v, uint8_t* rgb);
void Rgb601Q20(int y, int u, int v, uint8_t* rgb);
// Luma-ratio split: luma level, and difference c (0 R, 1 G, 2 B) in Q20.
int SplitLuma(int r, int g, int b);
int32_t SplitDiff(int c, int r, int g, int b);
// Luma-ratio merge of one channel: integer add (`body`) or float add.
uint8_t MergeChannel(float luma, int32_t diff, bool body);

}  // namespace vorlith::oracle

#endif  // VORLITH_TESTS_ORACLE_ORACLE_H_
