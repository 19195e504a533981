// Every kernel family's drivers inside their documented contracts: sizes,
// strides and parameters from the ranges the headers state (the sizes they
// say write nothing included), every buffer exactly as large as documented
// and flush against a guard page, pixels and floats (NaN and infinities too)
// from the input. A vector target chosen by the input must give the scalar
// target's bytes, the untouched gaps included.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include <hwy/targets.h>

#include "src/kernels/dispatch.h"
#include "tests/support/guarded.h"
#include "vorlith/kernels.h"

namespace {

using vorlith::test::GuardedBytes;

struct Buffer {
  std::unique_ptr<GuardedBytes> mem;
  bool compared, floats, fixed;  // fixed: set once by the case, not refilled
};

// One call of a kernel: its buffers, its context and how to make the call.
struct Call {
  explicit Call(FuzzedDataProvider& in) : in(in) {
    InitLanczos1p5x(&ctx);
    if (in.ConsumeIntegralInRange(0, 7) == 0) {
      // Taps are data: the split between the context's taps and the constant
      // ones is fixed by the step counts, so any values must agree too.
      const size_t begin = offsetof(_StLanczos1p5x, tapsLanczos2x);
      const size_t end = offsetof(_StLanczos1p5x, hblBuf);
      auto* p = reinterpret_cast<unsigned char*>(&ctx);
      for (size_t i = begin; i < end; ++i) p[i] = in.ConsumeIntegral<uint8_t>();
    }
    flush = in.ConsumeBool() ? GuardedBytes::Flush::kEnd : GuardedBytes::Flush::kStart;
  }
  ~Call() {
    // Scratch the call lent the context is the fuzzer's, not the context's.
    ctx.workBuf = nullptr;
    ctx.floatLineBuf = nullptr;
    UInitLanczos1p5x(&ctx);
  }

  template <class T>
  T* Add(size_t count, bool compared, bool fixed = false) {
    buffers.push_back({std::make_unique<GuardedBytes>(count * sizeof(T), flush), compared,
                       std::is_floating_point_v<T>, fixed});
    return reinterpret_cast<T*>(buffers.back().mem->data());
  }
  template <class T> T* In(size_t n) { return Add<T>(n, false); }
  template <class T> T* Out(size_t n) { return Add<T>(n, true); }
  // Row pointers of a ring of `count` rows of `n` elements each, in a
  // shuffled order that the context's ring indices (or `ring`) name.
  template <class T>
  T** Ring(int count, size_t n, int32_t* ring) {
    T** rows = Add<T*>(count, false, true);
    for (int k = 0; k < count; ++k) rows[k] = In<T>(n);
    for (int k = 0; k < count; ++k) ring[k] = k;
    for (int k = count - 1; k > 0; --k) std::swap(ring[k], ring[in.ConsumeIntegralInRange(0, k)]);
    return rows;
  }
  template <class T>
  T* Values(int count) {
    T* v = Add<T>(count, false, true);
    for (int k = 0; k < count; ++k) v[k] = in.ConsumeIntegral<T>();
    return v;
  }

  // A side of at least lo: mostly small, sometimes up to hi, sometimes one
  // of the sizes below lo that the contract says write nothing.
  int Side(int lo, int hi, int small = 40) {
    switch (in.ConsumeIntegralInRange(0, 15)) {
      case 0: return in.ConsumeIntegralInRange(lo - 2, lo - 1);
      case 1: return in.ConsumeIntegralInRange(lo, hi);
      default: return in.ConsumeIntegralInRange(lo, std::min(hi, lo + small));
    }
  }
  static size_t Area(int h, int w) { return h > 0 && w > 0 ? size_t(h) * w : 0; }
  // Bytes of `rows` rows `stride` apart whose last is `last` long.
  static size_t Span(int rows, size_t stride, size_t last) {
    return rows > 0 && last > 0 ? (rows - 1) * stride + last : 0;
  }

  FuzzedDataProvider& in;
  _StLanczos1p5x ctx{};
  GuardedBytes::Flush flush;
  std::vector<Buffer> buffers;
  std::function<void()> run;
  int h = 0, w = 0;
};

using Make = void (*)(Call&);

template <_StLanczos1p5x* (*F)(_StLanczos1p5x*, unsigned char*, unsigned char*, int, int), int R>
void LinearN(Call& c) {
  const int h = c.Side(1, 64, 20), w = c.Side(1, 20480 / R);
  auto* src = c.In<uint8_t>(c.Area(h, w));
  auto* dst = c.Out<uint8_t>(c.Area(R * h, R * w));
  c.run = [&c, src, dst, h, w] { F(&c.ctx, src, dst, h, w); };
}

template <_StLanczos1p5x* (*F)(_StLanczos1p5x*, unsigned char*, unsigned char*, int, int), int Num,
          int Den>
void LinearFraction(Call& c) {
  const int h = c.Side(Den, 64, 20), w = c.Side(Den, 20480 * Den / Num - 2);
  const int ow = w >= Den ? Num * w / Den : 0;
  const int oh = h >= Den ? Num * ((h - Den) / Den) + Num : 0;
  auto* src = c.In<uint8_t>(c.Area(h, w));
  auto* dst = c.Out<uint8_t>(c.Area(oh, ow));
  c.run = [&c, src, dst, h, w] { F(&c.ctx, src, dst, h, w); };
}

template <void (*F)(_StLanczos1p5x*, float*, float*, int, int), int R>
void LinearFloat(Call& c) {
  const int h = c.Side(1, 64, 16), w = c.Side(1, 400);
  auto* src = c.In<float>(c.Area(h, w));
  auto* dst = c.Out<float>(c.Area(R * h, R * w));
  auto* ring = c.In<float>(2 * c.Area(1, R * w));
  c.run = [&c, src, dst, ring, h, w] {
    c.ctx.floatLineBuf = reinterpret_cast<unsigned char*>(ring);
    F(&c.ctx, src, dst, h, w);
  };
}

template <void (*F)(float*, unsigned char*, int, int), int Ch>
void Nhwc(Call& c) {
  // Packed planes line up only for widths that are whole blocks.
  const int h = c.Side(1, 32, 8), w = (Ch == 3 ? 8 : 4) * c.Side(1, 40, 10);
  auto* src = c.In<float>(c.Area(h, Ch * Ch * w));
  auto* dst = c.Out<uint8_t>(c.Area(h, Ch * Ch * w));
  c.run = [src, dst, h, w] { F(src, dst, h, w); };
}

// Ring scratch of `values` int32 per output value of a row, lent as workBuf.
template <void (*F)(_StLanczos1p5x*, unsigned char*, unsigned char*, int, int), int Num, int Den,
          int Ring>
void Resampler(Call& c) {
  const int h = c.Side(1, 64, 20), w = c.Side(1, 2000, 150);
  const int oh = h > 0 ? Num * h / Den : 0, ow = w > 0 ? Num * w / Den : 0;
  auto* src = c.In<uint8_t>(c.Area(h, w));
  auto* dst = c.Out<uint8_t>(c.Area(oh, ow));
  auto* ring = c.In<int32_t>(size_t(Ring) * std::max(ow, 0));
  c.run = [&c, src, dst, ring, h, w] {
    c.ctx.workBuf = reinterpret_cast<unsigned char*>(ring);
    F(&c.ctx, src, dst, h, w);
  };
}

void Lanczos2xRgb(Call& c) {
  const int h = c.Side(1, 32, 12), w = c.Side(1, 600, 100);
  auto* src = c.In<uint8_t>(3 * c.Area(h, w));
  auto* dst = c.Out<uint8_t>(12 * c.Area(h, w));
  auto* ring = c.In<int32_t>(48 * c.Area(1, w));
  c.run = [src, dst, ring, h, w] { ResizeLanczos2x_NEON(src, ring, dst, h, w); };
}

void Chroma2x(Call& c) {
  const int h = c.Side(1, 32, 12), w = c.Side(1, 5120, 100);
  const int ss = 2 * std::max(w, 0) + c.in.ConsumeIntegralInRange(0, 9);
  const int ds = std::min(4 * std::max(w, 0) + c.in.ConsumeIntegralInRange(0, 9), 20480);
  auto* src = c.In<uint8_t>(c.Span(h, ss, 2 * std::max(w, 0)));
  auto* dst = c.Out<uint8_t>(c.Span(2 * h, ds, 4 * std::max(w, 0)));
  c.run = [&c, src, dst, h, w, ss, ds] { Linear_2x_nv(&c.ctx, src, dst, h, w, ss, ds); };
}

// Finite gains whose products with the largest box sums stay finite.
float Gain(FuzzedDataProvider& in, float limit) {
  return in.ConsumeBool() ? in.ConsumeFloatingPointInRange<float>(-4.0f, 4.0f)
                          : in.ConsumeFloatingPointInRange<float>(-limit, limit);
}

void GuidedBox(Call& c) {
  const int h = c.Side(4, 40, 12), w = c.Side(4, 8193, 150);
  const float a = Gain(c.in, FLT_MAX / 2296), b = Gain(c.in, FLT_MAX / 3642);
  auto* src = c.In<uint8_t>(c.Area(h, w));
  auto* guide = c.In<int16_t>(c.Area(h, w));
  auto* dst = c.Out<uint8_t>(c.Area(h, w));
  auto* sums = c.In<uint8_t>(10 * c.Area(1, w));
  c.run = [&c, a, b, src, guide, dst, sums, h, w] {
    c.ctx.workBuf = sums;
    Boxfilter_AB_NEON(&c.ctx, a, b, src, guide, dst, h, w);
  };
}

void EvenBox(Call& c) {
  const int h = c.Side(4, 40, 12), w = c.Side(4, 8193, 150);
  auto* src = c.In<uint8_t>(c.Area(h, w));
  auto* detail = c.Out<float>(c.Area(h, w));
  c.run = [&c, src, detail, h, w] { Boxfilter_2even_A_NEON(&c.ctx, src, detail, h, w); };
}

void Laplacian(Call& c) {
  const int h = c.Side(1, 40, 12), w = c.Side(1, 4000, 150);
  auto* src = c.In<uint8_t>(c.Area(h, w));
  auto* dst = c.Out<int16_t>(c.Area(h, w));
  auto* rows = c.In<uint8_t>(2 * c.Area(1, w));
  c.run = [&c, src, dst, rows, h, w] {
    c.ctx.workBuf = rows;
    Laplace_NEON(&c.ctx, src, dst, h, w);
  };
}

void Bilateral(Call& c) {
  const int h = c.Side(4, 40, 12), w = c.Side(2, 2000, 150);
  auto* src = c.In<uint8_t>(c.Area(h, w));
  auto* dst = c.Out<uint8_t>(c.Area(h, w));
  if (w > 0) BilateralAllocRows(&c.ctx, w);
  c.run = [&c, src, dst, h, w] { BL_NEON(&c.ctx, src, dst, h, w); };
}

void Sharpen(Call& c) {
  const int h = c.Side(1, 40, 12), w = c.Side(1, 2000, 150);
  const int gs = std::max(w, 0) + c.in.ConsumeIntegralInRange(0, 9);
  auto* detail = c.In<float>(c.Area(h, w));
  auto* gain = c.In<float>(c.Span(h, gs, std::max(w, 0)));
  auto* src = c.In<uint8_t>(c.Area(h, w));
  auto* dst = c.Out<uint8_t>(c.Area(h, w));
  c.run = [=] { SharpenProduce_Stride_NEON(detail, gain, src, dst, w, h, gs); };
}

// Strided plane conversions with signed strides: a negative stride starts
// at the last row of the buffer and walks up.
template <class S, class D, void (*F)(S*, D*, int, int, int, int)>
void Planes(Call& c) {
  const int h = c.Side(1, 40, 12), w = c.Side(1, 3000, 150);
  const int ss = (std::max(w, 0) + c.in.ConsumeIntegralInRange(0, 9)) * (c.in.ConsumeBool() ? -1 : 1);
  const int ds = (std::max(w, 0) + c.in.ConsumeIntegralInRange(0, 9)) * (c.in.ConsumeBool() ? -1 : 1);
  const size_t sn = c.Span(h, std::abs(ss), std::max(w, 0)), dn = c.Span(h, std::abs(ds), std::max(w, 0));
  S* src = c.In<S>(sn) + (ss < 0 && sn ? size_t(h - 1) * -ss : 0);
  D* dst = c.Out<D>(dn) + (ds < 0 && dn ? size_t(h - 1) * -ds : 0);
  c.run = [=] { F(src, dst, h, w, ss, ds); };
}

void RgbaToI420a(Call& c) {
  const int h = c.Side(2, 40, 12), w = c.Side(1, 2000, 150);
  const size_t P = c.Area(h, w);
  auto* rgba = c.In<uint8_t>(4 * P);
  auto* out = c.Out<uint8_t>(P * 5 / 2);
  c.run = [&c, rgba, out, h, w] { RGBA2I420A_NEON(&c.ctx, rgba, out, h, w); };
}

void I420aToRgba(Call& c) {
  const int h = c.Side(2, 40, 12), w = c.Side(1, 2000, 150);
  const size_t P = c.Area(h, w), C = c.Area(h / 2, w / 2);
  auto *y = c.In<uint8_t>(P), *u = c.In<uint8_t>(C), *v = c.In<uint8_t>(C), *a = c.In<uint8_t>(P);
  auto* rgba = c.Out<uint8_t>(4 * P);
  c.run = [&c, y, u, v, a, rgba, h, w] { I420A2RGBA_NEON(&c.ctx, y, u, v, a, rgba, h, w); };
}

void LumaSplit(Call& c) {
  const int h = c.Side(1, 40, 12), w = c.Side(1, 1000, 100);
  const size_t n = c.Area(h, w);
  auto* rgba = c.In<uint8_t>(4 * n);
  auto* luma = c.Out<float>(n);
  auto* diff = c.Out<int32_t>(12 * n);
  auto* alpha = c.Out<uint8_t>(4 * n);
  c.run = [&c, rgba, luma, diff, alpha, h, w] { RGBA2RGBA_Y_RGBR_NEON(&c.ctx, rgba, luma, diff, alpha, h, w); };
}

void LumaMerge(Call& c) {
  const int h = c.Side(1, 40, 12), w = c.Side(1, 2000, 150);
  const size_t n = c.Area(h, w);
  auto* luma = c.In<float>(n);
  auto* diff = c.In<int32_t>(3 * n);
  auto* alpha = c.In<uint8_t>(n);
  auto* rgba = c.Out<uint8_t>(4 * n);
  c.run = [=] { RGBA2RGBA_F_NEON(rgba, luma, diff, alpha, h, w); };
}

void YuvCopy(Call& c) {
  const int h = c.Side(2, 24, 10), w = c.Side(1, 1000, 100);
  const int right = c.in.ConsumeIntegralInRange(-1, 5), below = c.in.ConsumeIntegralInRange(-1, 5);
  const bool nv12 = c.in.ConsumeBool();
  const int pairs = std::max(h, 0) / 2, cols = std::max(w, 0) + std::max(w, 0) % 2;
  const bool empty = pairs == 0 || w < 1;
  const int ys = cols + c.in.ConsumeIntegralInRange(0, 5), cw = cols / 2, ch = (std::max(h, 0) + 1) / 2;
  const int cs = (nv12 ? 2 * cw : cw) + c.in.ConsumeIntegralInRange(0, 5);
  const size_t last_chroma = empty ? 0 : size_t(pairs - 1) * cs;
  auto* luma = c.In<uint8_t>(empty ? 0 : c.Span(h, ys, cols));
  auto* uv = c.In<uint8_t>(empty ? 0 : nv12 ? last_chroma + 2 * cw : size_t(ch) * cw + last_chroma + cw);
  const int pad = std::clamp(right, 0, 3), extra = std::clamp(below, 0, 3);
  const int ds = 4 * std::max(w + right, cols + pad) + c.in.ConsumeIntegralInRange(0, 9);
  auto* dst = c.Out<uint8_t>(empty ? 0 : extra ? size_t(2 * pairs + extra) * ds
                                               : c.Span(2 * pairs, ds, 4 * (cols + pad)));
  c.run = [=] { yuvcpy(luma, w, h, ys, uv, cw, ch, cs, dst, w + right, h + below, ds, nv12); };
}

void Crop(Call& c) {
  const int h = c.Side(1, 40, 12), w = c.Side(1, 2000, 150);
  const int ss = 4 * std::max(w, 0) + c.in.ConsumeIntegralInRange(0, 9);
  const int ds = 4 * std::max(w, 0) + c.in.ConsumeIntegralInRange(0, 9);
  auto* src = c.In<uint8_t>(c.Span(h, ss, 4 * std::max(w, 0)));
  auto* dst = c.Out<uint8_t>(c.Span(h, ds, 4 * std::max(w, 0)));
  c.run = [=] { BGRACrop(src, dst, 0, 0, ss, w, h, ds); };
}

template <bool Nv12>
void YuvToRgb(Call& c) {
  const int h = c.Side(1, 40, 12), w = c.Side(1, 2000, 150);
  const bool empty = h < 1 || w < 1;
  const int pairs = (std::max(h, 0) + 1) / 2, ys = std::max(w, 0);  // packed luma rows
  const int cw = (std::max(w, 0) + 1) / 2, cs = (Nv12 ? 2 * cw : cw) + c.in.ConsumeIntegralInRange(0, 9);
  const size_t v_at = Nv12 || empty ? 0 : size_t(h) * w / 4;
  const size_t last = empty ? 0 : size_t(pairs - 1) * cs + (Nv12 ? 2 * cw : cw);
  auto* luma = c.In<uint8_t>(empty ? 0 : size_t(pairs) * 2 * w);
  auto* uv = c.In<uint8_t>(Nv12 ? last : std::max(last, v_at + last));
  auto* rgb = c.Out<uint8_t>(empty ? 0 : size_t(pairs) * 6 * w);
  c.run = [=] {
    (Nv12 ? CvtColorNV12ToRGBInterleaved : CvtColorI420ToRGBInterleaved)(luma, ys, uv, cs, rgb, w, h);
  };
}

void RgbToRgba(Call& c) {
  const int h = c.Side(1, 40, 12), w = c.Side(1, 2000, 150);
  const int ds = 4 * std::max(w, 0) + c.in.ConsumeIntegralInRange(0, 9);
  auto* src = c.In<uint8_t>(3 * c.Area(h, w));
  auto* dst = c.Out<uint8_t>(c.Span(h, ds, 4 * std::max(w, 0)));
  c.run = [=] { CvtRGBtoRGBA_lanczos(src, dst, w, h, ds); };
}

// ---- Single passes on rows of any content: sums past 2^24, wrapping ----

template <void (*F)(_StLanczos1p5x*, int**, unsigned char*, short const*, int, int), int K>
void VRing(Call& c) {
  const int blocks = c.in.ConsumeIntegralInRange(0, 40), rest = c.in.ConsumeIntegralInRange(0, 7);
  int** rows = c.Ring<int>(8, 8 * blocks + rest, c.ctx.rowIndex);
  const short* taps = c.Values<short>(K);
  auto* dst = c.Out<uint8_t>(8 * blocks + rest);
  c.run = [&c, rows, taps, dst, blocks, rest] { F(&c.ctx, rows, dst, taps, blocks, rest); };
}

void VRingRgb(Call& c) {
  const int blocks = c.in.ConsumeIntegralInRange(0, 40), rest = c.in.ConsumeIntegralInRange(0, 7);
  int** rows = c.Ring<int>(8, 8 * blocks + rest, lanczos2xRowRing);
  const short* taps = c.Values<short>(8);
  auto* dst = c.Out<uint8_t>(8 * blocks + rest);
  c.run = [=] { VResizeLanczos2x_NEON(rows, dst, taps, blocks, rest); };
}

void VChroma(Call& c) {
  const int groups = c.in.ConsumeIntegralInRange(0, 40), tail = c.in.ConsumeIntegralInRange(0, 7);
  short** rows = c.Ring<short>(2, 8 * groups + tail, c.ctx.rowIndex);
  const short* weights = c.Values<short>(2);
  const float scale = c.in.ConsumeFloatingPoint<float>();
  auto* dst = c.Out<uint8_t>(8 * groups + tail);
  c.run = [=, &c] { VResizeLinear_NEON(&c.ctx, rows, dst, weights, groups, tail, scale); };
}

void VFloat(Call& c) {
  const int groups = c.in.ConsumeIntegralInRange(0, 80), singles = c.in.ConsumeIntegralInRange(0, 3);
  float** rows = c.Ring<float>(2, 4 * groups + singles, c.ctx.rowIndex);
  float* weights = c.Add<float>(2, false, true);
  for (int k = 0; k < 2; ++k) weights[k] = c.in.ConsumeFloatingPoint<float>();
  auto* dst = c.Out<float>(4 * groups + singles);
  c.run = [=, &c] { VResizeLinear_float_NEON(&c.ctx, rows, dst, weights, groups, singles); };
}

template <void (*F)(_StLanczos1p5x*, unsigned short**, unsigned char*, int, int)>
void VThird(Call& c) {
  const int groups = c.in.ConsumeIntegralInRange(0, 40), singles = c.in.ConsumeIntegralInRange(0, 7);
  unsigned short** rows = c.Ring<unsigned short>(2, 8 * groups + singles, c.ctx.rowIndex);
  auto* dst = c.Out<uint8_t>(8 * groups + singles);
  c.run = [=, &c] { F(&c.ctx, rows, dst, groups, singles); };
}

void GiveThird(Call& c) {
  const int groups = c.in.ConsumeIntegralInRange(0, 40), singles = c.in.ConsumeIntegralInRange(0, 7);
  auto* row = c.In<unsigned short>(8 * groups + singles);
  auto* dst = c.Out<uint8_t>(8 * groups + singles);
  c.run = [=] { Linear_3x_give_NEON(dst, row, groups, singles); };
}

void GuidedRow(Call& c) {
  const int nvec = c.in.ConsumeIntegralInRange(0, 40), ntail = c.in.ConsumeIntegralInRange(0, 7);
  const size_t n = 8 * nvec + ntail;
  const float a = Gain(c.in, FLT_MAX / 2296), b = Gain(c.in, FLT_MAX / 3642);
  short *s_row = c.In<short>(n), *s_pair = c.In<short>(n), *g_row = c.In<short>(n), *g_pair = c.In<short>(n);
  auto* src = c.In<uint8_t>(n);
  auto* dst = c.Out<uint8_t>(n);
  c.run = [=] { VBoxfilter_final_AB_NEON(a, b, s_row, s_pair, g_row, g_pair, src, dst, nvec, ntail); };
}

void SharpenRow(Call& c) {
  const int nvec = c.in.ConsumeIntegralInRange(0, 40), ntail = c.in.ConsumeIntegralInRange(0, 7);
  const size_t n = 8 * nvec + ntail;
  float *detail = c.In<float>(n), *gain = c.In<float>(n);
  auto* src = c.In<uint8_t>(n);
  auto* dst = c.Out<uint8_t>(n);
  c.run = [=] { SharpenProduce_NEON(detail, gain, src, dst, nvec, ntail); };
}

struct Kernel {
  const char* name;
  Make make;
};

// New kernels go at the end (see LLVMFuzzerTestOneInput).

const Kernel kKernels[] = {
    {"Linear_2x_nv", Chroma2x},
    {"Linear_2x", LinearN<Linear_2x, 2>},
    {"Linear_3x", LinearN<Linear_3x, 3>},
    {"Linear_4x", LinearN<Linear_4x, 4>},
    {"Linear_1p5x", LinearFraction<Linear_1p5x, 3, 2>},
    {"Linear_4div3x", LinearFraction<Linear_4div3x, 4, 3>},
    {"Linear_float_3x", LinearFloat<Linear_float_3x, 3>},
    {"Linear_float_4x", LinearFloat<Linear_float_4x, 4>},
    {"CvtF32ToU8_NHWC_3x3_NEON", Nhwc<CvtF32ToU8_NHWC_3x3_NEON, 3>},
    {"CvtF32ToU8_NHWC_2x2_NEON", Nhwc<CvtF32ToU8_NHWC_2x2_NEON, 2>},
    {"Lanczos2x_SingleChannel", Resampler<Lanczos2x_SingleChannel, 2, 1, 8>},
    {"ResizeLanczos2x_NEON", Lanczos2xRgb},
    {"Lanczos_1p5x", Resampler<Lanczos_1p5x, 3, 2, 8>},
    {"Lanczos_4d3x", Resampler<Lanczos_4d3x, 4, 3, 8>},
    {"Cubic1p5x_NEON", Resampler<Cubic1p5x_NEON, 3, 2, 4>},
    {"Cubic2x_NEON", Resampler<Cubic2x_NEON, 2, 1, 4>},
    {"Boxfilter_AB_NEON", GuidedBox},
    {"Boxfilter_2even_A_NEON", EvenBox},
    {"Laplace_NEON", Laplacian},
    {"BL_NEON", Bilateral},
    {"SharpenProduce_Stride_NEON", Sharpen},
    {"CvtU8ToF32_STRIDE", Planes<unsigned char, float, CvtU8ToF32_STRIDE>},
    {"CvtF32ToU8_STRIDE", Planes<float, unsigned char, CvtF32ToU8_STRIDE>},
    {"RGBA2I420A_NEON", RgbaToI420a},
    {"I420A2RGBA_NEON", I420aToRgba},
    {"RGBA2RGBA_Y_RGBR_NEON", LumaSplit},
    {"RGBA2RGBA_F_NEON", LumaMerge},
    {"yuvcpy", YuvCopy},
    {"BGRACrop", Crop},
    {"CvtColorI420ToRGBInterleaved", YuvToRgb<false>},
    {"CvtColorNV12ToRGBInterleaved", YuvToRgb<true>},
    {"CvtRGBtoRGBA_lanczos", RgbToRgba},
    {"VResizeLanczos2x_NEON", VRing<VResizeLanczos2x_NEON, 8>},
    {"VResizeLanczos2x_NEON (three channels)", VRingRgb},
    {"VResizeLanczos_1p5x_NEON", VRing<VResizeLanczos_1p5x_NEON, 8>},
    {"VCubic_NEON", VRing<VCubic_NEON, 4>},
    {"VResizeLinear_NEON", VChroma},
    {"VResizeLinear_float_NEON", VFloat},
    {"VResizeLinear_3x_NEON_1", VThird<VResizeLinear_3x_NEON_1>},
    {"VResizeLinear_3x_NEON_2", VThird<VResizeLinear_3x_NEON_2>},
    {"Linear_3x_give_NEON", GiveThird},
    {"VBoxfilter_final_AB_NEON", GuidedRow},
    {"SharpenProduce_NEON", SharpenRow},
};

// Runs the call with dispatch forced to `target` on inputs filled from
// `content` and outputs preset to a sentinel; returns the outputs.
std::vector<std::vector<uint8_t>> RunOn(Call& c, int64_t target, const std::vector<uint8_t>& content) {
  for (Buffer& b : c.buffers) {
    unsigned char* p = b.mem->data();
    for (size_t i = 0; i < b.mem->size(); ++i) {
      if (!b.fixed) p[i] = b.compared || content.empty() ? 0xA7 : content[i % content.size()];
    }
  }
  hwy::SetSupportedTargetsForTest(target);
  if (vorlith::DispatchedTarget() != target) {
    std::fprintf(stderr, "dispatch did not select %s\n", hwy::TargetName(target));
    std::abort();
  }
  c.run();
  hwy::SetSupportedTargetsForTest(0);
  std::vector<std::vector<uint8_t>> outs;
  for (const Buffer& b : c.buffers) {
    if (b.compared) outs.emplace_back(b.mem->data(), b.mem->data() + b.mem->size());
  }
  return outs;
}

bool SameFloat(const uint8_t* a, const uint8_t* b) {
  float x, y;
  std::memcpy(&x, a, 4);
  std::memcpy(&y, b, 4);
  return std::memcmp(a, b, 4) == 0 || (std::isnan(x) && std::isnan(y));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The last runnable target is the scalar fallback (SCALAR or EMU128,
  // whichever the compiler's Highway build carries); the others are vectors.
  static const std::vector<int64_t> targets = vorlith::RunnableTargets();
  static const int64_t scalar = targets.back();
  FuzzedDataProvider in(data, size);
  // Kernels are numbered by their place in the table, which only grows, so
  // that the corpus keeps calling the kernels it was found on.
  static_assert(std::size(kKernels) <= 64);
  const size_t index = in.ConsumeIntegral<uint8_t>() % 64;
  if (index >= std::size(kKernels)) return 0;
  const Kernel& k = kKernels[index];
  const int64_t target = targets[in.ConsumeIntegralInRange<size_t>(0, targets.size() - 2)];
  Call c(in);
  k.make(c);
  const std::vector<uint8_t> content = in.ConsumeRemainingBytes<uint8_t>();
  const auto want = RunOn(c, scalar, content);
  const auto got = RunOn(c, target, content);
  size_t out = 0;
  for (const Buffer& b : c.buffers) {
    if (!b.compared) continue;
    const std::vector<uint8_t>&x = want[out], &y = got[out];
    const size_t step = b.floats ? 4 : 1;
    for (size_t i = 0; i < x.size(); i += step) {
      if (b.floats ? SameFloat(&x[i], &y[i]) : x[i] == y[i]) continue;
      std::fprintf(stderr, "%s: output %zu differs at byte %zu: %s %u, %s %u\n", k.name, out, i,
                   hwy::TargetName(scalar), x[i], hwy::TargetName(target), y[i]);
      std::abort();
    }
    ++out;
  }
  return 0;
}
