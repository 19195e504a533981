// Conformance rows of the NV12 chroma enlarger with its passes, and of the
// byte/float plane conversions.
#include <cmath>
#include <limits>

#include "src/kernels/resize/linear_2x_nv.h"
#include "tests/oracle/oracle.h"
#include "tests/support/conformance.h"
#include "vorlith/kernels.h"

namespace vorlith::check {
namespace {

Row Linear2xNv() {
  // Widths around the 8-pair horizontal step and the 16- to 64-byte vertical
  // vectors; odd and even heights; padded strides whose gaps stay untouched.
  return {"Linear_2x_nv", {"h", "w", "src_pad", "dst_pad"},
          Combos({{1, 2, 3, 4, 7}, {1, 2, 3, 7, 8, 9, 15, 16, 17, 24, 31, 33, 64, 65, 100}, {0}, {0}}, {},
                 {{0, 4, 0, 0}, {4, 0, 0, 0}, {5, 23, 6, 12}, {9, 320, 64, 128}}),
          Draws({{1, 12}, {1, 130}, {0, 40}, {0, 40}}), [](const Params& p, Case& c) {
    const int h = p[0], w = p[1], ss = 2 * w + p[2], ds = 4 * w + p[3];
    const bool empty = h < 1 || w < 1;
    uint8_t* src = c.RandomBytes(empty ? 0 : size_t(h - 1) * ss + 2 * w);
    c.Out<uint8_t>(empty ? 0 : size_t(2 * h - 1) * ds + 4 * w, ds);
    c.Grid<uint8_t>(2 * h, 4 * w, ds,
                    [&](int y, int x) { return oracle::Linear2xNvSample(src, ss, h, w, y, x / 2, x % 2); });
    _StLanczos1p5x* ctx = c.Context();
    c.run = [=](void* out) { Linear_2x_nv(ctx, src, static_cast<uint8_t*>(out), h, w, ss, ds); };
  }};
}

// The plug-in's bands of the same enlargement: every split of the output
// rows, at odd and even rows, gives Linear_2x_nv's bytes.
Row Linear2xNvBands() {
  return {"Linear2xNvRows", {"h", "w", "bands"},
          Combos({{1, 2, 3, 7, 8}, {1, 9, 17, 33}, {1, 2, 3, 5}}), Draws({{1, 40}, {1, 130}, {1, 9}}),
          [](const Params& p, Case& c) {
    const int h = p[0], w = p[1], bands = p[2], ss = 2 * w + 3, ds = 4 * w + 5;
    uint8_t* src = c.RandomBytes(size_t(h - 1) * ss + 2 * w);
    c.Out<uint8_t>(size_t(2 * h - 1) * ds + 4 * w, ds);
    c.Grid<uint8_t>(2 * h, 4 * w, ds,
                    [&](int y, int x) { return oracle::Linear2xNvSample(src, ss, h, w, y, x / 2, x % 2); });
    int16_t* scratch = c.In<int16_t>(size_t(8) * w);
    c.run = [=](void* out) {
      for (int b = 0; b < bands; ++b) {
        Linear2xNvRows(scratch, src, static_cast<uint8_t*>(out), h, w, ss, ds, 2 * h * b / bands,
                       2 * h * (b + 1) / bands);
      }
    };
  }};
}

Row HLinear2xNv() {
  return {"HResizeLinear_2x_nv_NEON", {"w"}, Combos({Span(1, 41)}), Draws({{1, 200}}),
          [](const Params& p, Case& c) {
    const int w = p[0];
    uint8_t* src = c.RandomBytes(2 * w);
    c.Out<int16_t>(4 * w, 4 * w);
    for (int i = 0; i < 4 * w; ++i) c.Want(i, oracle::HLinear2xNvValue(src, w, i));
    c.run = [=](void* out) {
      HResizeLinear_2x_nv_NEON(src, static_cast<short*>(out), (w - 1) / 8, (w - 1) % 8);
    };
  }};
}

// The general vertical pass, whose 16-bit body and 32-bit tail differ:
// random rows, weights (or the extremes), and scales on both sides of every
// rounding and saturation edge.
Row VLinear() {
  static const float kScales[] = {0.0625f, 0.25f, 1.0f, 0.001f, -0.0625f, 3.0e-5f, 7.5f, 1.0e30f,
                                  -1.0e30f, std::numeric_limits<float>::quiet_NaN(),
                                  std::numeric_limits<float>::infinity()};
  // Every scale with each kind of weights, at every length.
  return {"VResizeLinear_NEON", {"groups", "tail", "scale", "weights"},
          Combos({{0, 1, 2, 3, 5}, {0, 1, 7, 8, 9, 17}, Span(0, 10)}, {3}),
          Draws({{0, 9}, {0, 20}, {0, 10}, {0, 2}}), [](const Params& p, Case& c) {
    const int n = 8 * p[0] + p[1];
    const float scale = kScales[p[2]];
    short* w = c.In<short>(2);
    w[0] = p[3] == 0 ? static_cast<short>(c.rng()) : p[3] == 1 ? -32768 : 1;
    w[1] = p[3] == 0 ? static_cast<short>(c.rng()) : p[3] == 1 ? -32768 : 3;
    short* a = c.In<short>(n, [&] { return c.rng(); });
    short* b = c.In<short>(n, [&] { return c.rng(); });
    if (n > 0) a[n - 1] = b[n - 1] = -32768;  // a 32-bit sum of exactly 2^31 wraps on the tail
    // Slots in shuffled order, so the ring indices must be honoured.
    short** rows = c.In<short*>(3);
    rows[0] = c.In<short>(n);
    rows[1] = b;
    rows[2] = a;
    c.Out<uint8_t>(n, n);
    for (int i = 0; i < n; ++i) {
      c.Want(i, oracle::VLinearValue(a[i], b[i], w[0], w[1], scale, i < 8 * p[0]));
    }
    _StLanczos1p5x* ctx = c.Context();
    c.run = [=](void* out) {
      ctx->rowIndex[0] = 2;
      ctx->rowIndex[1] = 1;
      VResizeLinear_NEON(ctx, rows, static_cast<uint8_t*>(out), w, p[0], p[1], scale);
    };
  }};
}

// Values on both sides of every conversion rule: exact bytes, fractions, the
// 8-, 16-, 32-bit signed and unsigned edges, NaN and the infinities.
float SpecialFloat(std::mt19937& rng) {
  const float inf = std::numeric_limits<float>::infinity(), nan = std::nanf("");
  static const float kSpecial[] = {
      0.0f,     -0.0f,    0.5f,     1.0f,         127.5f,        254.99f,       255.0f,
      255.99f,  256.0f,   300.0f,   -1.0f,        -3.7f,         -0.99f,        -256.0f,
      32767.0f, 32767.99f, 32768.0f, 40000.0f,    65535.0f,      65536.0f,      65791.0f,
      1.0e6f,   2147483520.0f, 2147483648.0f, 3.0e9f, 4294967040.0f, 4294967296.0f, 1.0e10f,
      -2147483648.0f, -3.0e9f, -1.0e10f, 1.0e38f, inf, -inf, nan, -nan, 1.0e-30f, 16777217.0f};
  const size_t pick = rng() % (2 * std::size(kSpecial));
  return pick < std::size(kSpecial) ? kSpecial[pick]
                                    : std::uniform_real_distribution<float>(-7e4f, 7e4f)(rng);
}

// One row per direction; `flip` bit 0 walks the source bottom-up with a
// negative stride, bit 1 the destination.
template <class From, class To>
Row Convert(const char* name, void (*kernel)(From*, To*, int, int, int, int),
            To (*oracle_of)(From, bool body)) {
  return {name, {"h", "w", "pad", "flip"},
          Combos({{3}, {1, 7, 8, 9, 15, 16, 17, 23, 24, 31, 33, 64, 71}, {0, 5}}, {4},
                 {{0, 8, 0, 0}, {4, 0, 0, 0}}),
          Draws({{1, 6}, {1, 90}, {0, 9}, {0, 3}}), [kernel, oracle_of](const Params& p, Case& c) {
    const int h = p[0], w = p[1], ss = w + p[2] + 1, ds = w + p[2];
    const bool empty = h < 1 || w < 1;
    const size_t src_n = empty ? 0 : size_t(h - 1) * ss + w;
    From* src = c.In<From>(src_n, [&] {
      if constexpr (std::is_same_v<From, float>) {
        return SpecialFloat(c.rng);
      } else {
        return c.rng();
      }
    });
    c.Out<To>(empty ? 0 : size_t(h - 1) * ds + w, ds);
    const bool flip_src = p[3] & 1, flip_dst = p[3] & 2;
    c.Grid<To>(h, w, ds, [&](int y, int x) {
      const From* s = src + size_t(flip_src == flip_dst ? y : h - 1 - y) * ss;
      return oracle_of(s[x], x < w / 8 * 8);
    });
    c.run = [=](void* out) {
      To* dst = static_cast<To*>(out);
      kernel(flip_src && !empty ? src + size_t(h - 1) * ss : src,
             flip_dst && !empty ? dst + size_t(h - 1) * ds : dst, h, w, flip_src ? -ss : ss,
             flip_dst ? -ds : ds);
    };
  }};
}

}  // namespace

std::vector<Row> PlaneRows() {
  return {Linear2xNv(), Linear2xNvBands(), HLinear2xNv(), VLinear(),
          Convert<unsigned char, float>("CvtU8ToF32_STRIDE", CvtU8ToF32_STRIDE,
                                        [](unsigned char v, bool) { return oracle::U8ToF32(v); }),
          Convert<float, unsigned char>("CvtF32ToU8_STRIDE", CvtF32ToU8_STRIDE, oracle::F32ToU8)};
}

}  // namespace vorlith::check
