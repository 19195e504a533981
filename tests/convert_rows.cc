// Conformance rows of the colour and layout conversions and their vector
// steps. Colours are random bytes or (colours=1) the values where the
// arithmetic is at its edges: black, white, greys, saturated primaries,
// luma outside 16..235 and chroma at its extremes.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "tests/oracle/oracle.h"
#include "tests/support/conformance.h"
#include "vorlith/kernels.h"

namespace vorlith::check {
namespace {

// `count` bytes; with `special` each group of `group` bytes (a pixel, or one
// plane sample) comes from the edge values.
uint8_t* Samples(Case& c, size_t count, bool special, int group) {
  uint8_t* p = c.RandomBytes(count);
  if (!special) return p;
  static const uint8_t kRgba[][4] = {{0, 0, 0, 255},     {255, 255, 255, 0}, {128, 128, 128, 7},
                                     {255, 0, 0, 255},   {0, 255, 0, 1},     {0, 0, 255, 128},
                                     {255, 255, 0, 255}, {0, 255, 255, 0},   {255, 0, 255, 9}};
  static const uint8_t kPlane[] = {0, 1, 15, 16, 17, 127, 128, 129, 235, 236, 240, 254, 255};
  for (size_t i = 0; i + group <= count; i += group) {
    if (group == 4) {
      const uint8_t* k = kRgba[c.rng() % std::size(kRgba)];
      const uint8_t grey = static_cast<uint8_t>(c.rng());
      for (int j = 0; j < 4; ++j) p[i + j] = c.rng() % 4 ? k[j] : (j < 3 ? grey : k[j]);
    } else {
      p[i] = kPlane[c.rng() % std::size(kPlane)];
    }
  }
  return p;
}

// After `first`, a case for each width around the 16-pixel step and every
// tail length, odd ones included.
std::vector<Params> Widths(std::vector<Params> first, Params (*of_width)(int w)) {
  for (int w = 1; w <= 35; ++w) first.push_back(of_width(w));
  for (int w : {46, 47, 48, 49, 63, 64, 65, 96, 130}) first.push_back(of_width(w));
  return first;
}

// ---- RGBA and I420 with alpha ----
// Odd widths skip their last column and each row pair starts one pixel
// earlier than a packed layout would put it.
size_t PairStart(int w, int pair) { return size_t(pair) * (2 * w - (w & 1)); }

Row RgbaToI420a() {
  return {"RGBA2I420A_NEON", {"h", "w", "colours"},
          Widths({{0, 16, 0}, {1, 16, 1}, {5, 18, 1}}, [](int w) { return Params{2 + w % 2, w, w % 3 == 0}; }),
          Draws({{1, 9}, {1, 140}, {0, 1}}), [](const Params& p, Case& c) {
    const int h = p[0], w = p[1], P = w * h;
    uint8_t* rgba = Samples(c, 4 * size_t(P), p[2], 4);
    c.Out<uint8_t>(size_t(P) * 5 / 2, w);
    for (int pair = 0; pair < h / 2; ++pair) {
      for (int r = 0; r < 2; ++r) {
        for (int x = 0; x < w - w % 2; ++x) {
          const size_t at = PairStart(w, pair) + size_t(r) * w + x;
          const uint8_t* s = rgba + 4 * at;
          c.Want(at, oracle::Luma601(s[0], s[1], s[2]));
          c.Want(P * 3 / 2 + at, s[3]);
          if (r == 0 && x % 2 == 0) {
            c.Want(P + pair * (w / 2) + x / 2, oracle::Cb601(s[0], s[1], s[2]));
            c.Want(P * 5 / 4 + pair * (w / 2) + x / 2, oracle::Cr601(s[0], s[1], s[2]));
          }
        }
      }
    }
    _StLanczos1p5x* ctx = c.Context();
    c.run = [=](void* out) { RGBA2I420A_NEON(ctx, rgba, static_cast<uint8_t*>(out), h, w); };
  }};
}

Row I420aToRgba() {
  return {"I420A2RGBA_NEON", {"h", "w", "colours"},
          Widths({{0, 16, 0}, {1, 16, 1}, {5, 18, 1}}, [](int w) { return Params{2 + w % 2, w, w % 3 == 0}; }),
          Draws({{1, 9}, {1, 140}, {0, 1}}), [](const Params& p, Case& c) {
    const int h = p[0], w = p[1];
    const size_t P = size_t(w) * h, C = size_t(w / 2) * (h / 2);
    uint8_t *y = Samples(c, P, p[2], 1), *u = Samples(c, C, p[2], 1),
            *v = Samples(c, C, p[2], 1), *a = c.RandomBytes(P);
    c.Out<uint8_t>(4 * P, 4 * w);
    for (int pair = 0; pair < h / 2; ++pair) {
      for (int r = 0; r < 2; ++r) {
        for (int x = 0; x < w - w % 2; ++x) {
          const size_t at = PairStart(w, pair) + size_t(r) * w + x, k = pair * (w / 2) + x / 2;
          uint8_t rgb[3];
          oracle::Rgb601Q16(y[at], u[k], v[k], rgb);
          for (int ch = 0; ch < 3; ++ch) c.Want(4 * at + ch, rgb[ch]);
          c.Want(4 * at + 3, a[at]);
        }
      }
    }
    _StLanczos1p5x* ctx = c.Context();
    c.run = [=](void* out) { I420A2RGBA_NEON(ctx, y, u, v, a, static_cast<uint8_t*>(out), h, w); };
  }};
}

// ---- Luma-ratio split and merge ----

Row Split() {
  return {"RGBA2RGBA_Y_RGBR_NEON", {"h", "w", "colours"},
          Widths({{0, 8, 0}, {3, 0, 0}}, [](int w) { return Params{1 + w % 3, w, w % 2}; }),
          Draws({{1, 6}, {1, 70}, {0, 1}}), [](const Params& p, Case& c) {
    const int h = p[0], w = p[1];
    const size_t n = size_t(w) * h;
    uint8_t* rgba = Samples(c, 4 * n, p[2], 4);
    // One output block: luma floats, then the three difference planes, then alpha.
    c.Out<int32_t>(14 * n, w);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        const uint8_t* s = rgba + 4 * (size_t(y) * w + x);
        c.Want(size_t(y) * w + x, static_cast<float>(oracle::SplitLuma(s[0], s[1], s[2])));
        for (int k = 0; k < 4; ++k) {
          const size_t at = size_t(2 * y + k / 2) * 2 * w + 2 * x + k % 2;
          for (int ch = 0; ch < 3; ++ch) {
            c.Want(n + ch * 4 * n + at, oracle::SplitDiff(ch, s[0], s[1], s[2]));
          }
          c.Want(13 * 4 * n + at, s[3]);
        }
      }
    }
    _StLanczos1p5x* ctx = c.Context();
    c.run = [=](void* out) {
      int* o = static_cast<int*>(out);
      RGBA2RGBA_Y_RGBR_NEON(ctx, rgba, reinterpret_cast<float*>(o), o + n,
                            reinterpret_cast<uint8_t*>(o + 13 * n), h, w);
    };
  }};
}

// Sums of luma and difference within a few units of a level boundary, where
// the integer and the float add part (mode 0), or anything at all: huge,
// negative and non-finite luma, any difference (mode 1).
Row Merge() {
  return {"RGBA2RGBA_F_NEON", {"h", "w", "wild"},
          Widths({{0, 8, 0}, {2, 0, 0}}, [](int w) { return Params{1 + w % 3, w, w % 4 == 3}; }),
          Draws({{1, 6}, {1, 70}, {0, 1}}), [](const Params& p, Case& c) {
    const int h = p[0], w = p[1];
    const size_t n = size_t(w) * h;
    float* luma = c.In<float>(n);
    int32_t* diff = c.In<int32_t>(3 * n);
    uint8_t* alpha = c.RandomBytes(n);
    static const float kWild[] = {std::numeric_limits<float>::quiet_NaN(), INFINITY, -INFINITY,
                                  3.0e9f, -3.0e9f, 2147483520.0f, -1.0f, 0.0f, 268435455.0f};
    for (size_t i = 0; i < n; ++i) {
      if (p[2]) {
        luma[i] = c.rng() % 3 ? kWild[c.rng() % std::size(kWild)]
                              : std::uniform_real_distribution<float>(-4e8f, 4e8f)(c.rng);
        for (int ch = 0; ch < 3; ++ch) diff[ch * n + i] = static_cast<int32_t>(c.rng());
        continue;
      }
      luma[i] = static_cast<float>(Uniform(c.rng, 0, 255) * 1220544 + Uniform(c.rng, -99999, 99999));
      for (int ch = 0; ch < 3; ++ch) {
        const int64_t target = int64_t(Uniform(c.rng, -2, 258)) * (1 << 20) + Uniform(c.rng, -40, 40);
        diff[ch * n + i] = static_cast<int32_t>(target - static_cast<int64_t>(luma[i]));
      }
    }
    c.Out<uint8_t>(4 * n, 4 * w);
    c.Grid<uint8_t>(h, 4 * w, 4 * w, [&](int y, int b) {
      const size_t i = size_t(y) * w + b / 4;
      return b % 4 == 3 ? alpha[i] : oracle::MergeChannel(luma[i], diff[b % 4 * n + i], b / 4 < w / 8 * 8);
    });
    c.run = [=](void* out) { RGBA2RGBA_F_NEON(static_cast<uint8_t*>(out), luma, diff, alpha, h, w); };
  }};
}

// ---- YUV copy, crop, YUV to RGB, RGB to RGBA ----

Row Yuvcpy() {
  // Heights below 2 write nothing, not even the bottom edge.
  return {"yuvcpy", {"h", "w", "right", "below", "interleaved"},
          Widths({{1, 16, 2, 3, 0}, {0, 8, 1, 1, 1}, {4, 0, 2, 2, 0}, {6, 20, 3, 3, 1}, {5, 17, 5, 5, 0}},
                 [](int w) { return Params{2 + w % 3, w, w % 7 - 1, (w / 7) % 7 - 1, w % 2}; }),
          Draws({{2, 9}, {1, 80}, {-1, 5}, {-1, 5}, {0, 1}}), [](const Params& p, Case& c) {
    const int h = p[0], w = p[1], pairs = h / 2, cols = w + w % 2;
    const bool nv12 = p[4], empty = pairs == 0 || w < 1;
    const int ys = cols + 3, cw = cols / 2, ch = (h + 1) / 2, cs = (nv12 ? 2 * cw : cw) + 2;
    uint8_t* luma = c.RandomBytes(empty ? 0 : size_t(h - 1) * ys + cols);
    const size_t last_chroma = empty ? 0 : size_t(pairs - 1) * cs;
    uint8_t* uv = c.RandomBytes(empty ? 0 : nv12 ? last_chroma + 2 * cw : size_t(ch) * cw + last_chroma + cw);
    const int pad = std::clamp(p[2], 0, 3), below = std::clamp(p[3], 0, 3);
    const int ds = 4 * std::max(w + p[2], cols + pad) + 8;
    const size_t rows = empty ? 0 : 2 * pairs + below;
    c.Out<uint8_t>(empty ? 0 : below ? rows * ds : (rows - 1) * ds + 4 * (cols + pad), ds);
    c.Grid<uint8_t>(empty ? 0 : 2 * pairs, 4 * (cols + pad), ds, [&](int y, int b) {
      const int xs = std::min(b / 4, cols - 1), k = xs / 2;
      const uint8_t* crow = uv + size_t(y / 2) * cs;
      const uint8_t px[4] = {nv12 ? crow[2 * k + 1] : crow[size_t(ch) * cw + k],
                             nv12 ? crow[2 * k] : crow[k], luma[size_t(y) * ys + xs], 255};
      return px[b % 4];
    });
    for (int i = 1; i <= below && !empty; ++i) {
      std::copy_n(&c.want[size_t(2 * pairs - 1) * ds], ds, &c.want[size_t(2 * pairs - 1 + i) * ds]);
    }
    c.run = [=](void* out) {
      yuvcpy(luma, w, h, ys, uv, cw, ch, cs, static_cast<uint8_t*>(out), w + p[2], h + p[3], ds, nv12);
    };
  }};
}

Row Crop() {
  return {"BGRACrop", {"h", "w", "src_pad", "dst_pad"},
          Widths({{0, 4, 0, 0}, {3, 0, 0, 0}}, [](int w) { return Params{1 + w % 3, w, w % 5, w % 3}; }),
          Draws({{1, 6}, {1, 90}, {0, 9}, {0, 9}}), [](const Params& p, Case& c) {
    const int h = p[0], w = p[1], ss = 4 * w + p[2], ds = 4 * w + p[3];
    const bool empty = h < 1 || w < 1;
    uint8_t* src = c.RandomBytes(empty ? 0 : size_t(h - 1) * ss + 4 * w);
    c.Out<uint8_t>(empty ? 0 : size_t(h - 1) * ds + 4 * w, ds);
    c.Grid<uint8_t>(h, 4 * w, ds, [&](int y, int i) { return src[size_t(y) * ss + i]; });
    c.run = [=](void* out) { BGRACrop(src, static_cast<uint8_t*>(out), 7, 9, ss, w, h, ds); };
  }, false};
}

// Luma rows read at the packed addressing whatever the stride: row 2p+1
// `w` bytes after row 2p, pair p at p*(w + y_stride). An odd height's last
// pair reads and writes one row past the image.
Row YuvToRgb(bool nv12) {
  return {nv12 ? "CvtColorNV12ToRGBInterleaved" : "CvtColorI420ToRGBInterleaved",
          {"h", "w", "colours", "y_pad", "uv_pad"},
          Widths({{0, 8, 0, 0, 0}, {3, 0, 0, 0, 0}, {6, 20, 0, 7, 0}, {5, 33, 1, 3, 4}},
                 [](int w) { return Params{1 + w % 4, w, w % 3 == 1, 0, w % 3}; }),
          Draws({{1, 9}, {1, 90}, {0, 1}, {0, 9}, {0, 5}}), [nv12](const Params& p, Case& c) {
    const int h = p[0], w = p[1], pairs = (h + 1) / 2, ys = w + p[3];
    const int cw = (w + 1) / 2, cs = (nv12 ? 2 * cw : cw) + p[4], v_at = h * w / 4;
    const bool empty = h < 1 || w < 1;
    uint8_t* luma = Samples(c, empty ? 0 : size_t(pairs - 1) * (w + ys) + 2 * w, p[2], 1);
    const size_t last = empty ? 0 : size_t(pairs - 1) * cs + (nv12 ? 2 * cw : cw);
    uint8_t* uv = Samples(c, empty ? 0 : nv12 ? last : std::max(last, v_at + last), p[2], 1);
    c.Out<uint8_t>(empty ? 0 : size_t(pairs) * 6 * w, 3 * w);
    c.Grid<uint8_t>(empty ? 0 : 2 * pairs, 3 * w, 3 * w, [&](int y, int b) {
      const int x = b / 3;
      const size_t k = size_t(y / 2) * cs + (nv12 ? 2 * (x / 2) : x / 2);
      uint8_t rgb[3];
      oracle::Rgb601Q20(luma[size_t(y / 2) * (w + ys) + size_t(y % 2) * w + x], uv[k],
                        nv12 ? uv[k + 1] : uv[v_at + k], rgb);
      return rgb[b % 3];
    });
    c.run = [=](void* out) {
      (nv12 ? CvtColorNV12ToRGBInterleaved : CvtColorI420ToRGBInterleaved)(
          luma, ys, uv, cs, static_cast<uint8_t*>(out), w, h);
    };
  }};
}

Row RgbToRgba() {
  return {"CvtRGBtoRGBA_lanczos", {"h", "w", "dst_pad"},
          Widths({{0, 16, 0}, {2, 0, 0}}, [](int w) { return Params{1 + w % 3, w, w % 5}; }),
          Draws({{1, 6}, {1, 100}, {0, 4}}), [](const Params& p, Case& c) {
    const int h = p[0], w = p[1], ds = 4 * w + p[2];
    const bool empty = h < 1 || w < 1;
    uint8_t* src = c.RandomBytes(empty ? 0 : size_t(h) * 3 * w);
    c.Out<uint8_t>(empty ? 0 : size_t(h - 1) * ds + 4 * w, ds);
    c.Grid<uint8_t>(h, 4 * w, ds, [&](int y, int b) {
      const uint8_t* s = src + (size_t(y) * w + b / 4) * 3;
      const bool swap = b / 4 < w / 16 * 16;  // only the 16-pixel steps swap
      const uint8_t px[4] = {s[swap ? 2 : 0], s[1], s[swap ? 0 : 2], 255};
      return px[b % 4];
    });
    c.run = [=](void* out) { CvtRGBtoRGBA_lanczos(src, static_cast<uint8_t*>(out), w, h, ds); };
  }};
}

// ---- Vector steps ----
// Each exported step once, chained as a driver would chain them, on 8
// random pixels: the loaders are checked through the steps they feed.
template <class T>
T Lane(const void* vectors, int i) {
  T x;
  std::memcpy(&x, static_cast<const char*>(vectors) + sizeof(T) * i, sizeof(T));
  return x;
}

Row Steps(bool q20) {
  return {q20 ? "RGBA2RGBA_steps" : "RGBA2I420A_I420A2RGBA_steps", {"colours"}, {{0}, {1}}, Draws({{0, 1}}),
          [q20](const Params& p, Case& c) {
    uint8_t* px = Samples(c, 32, p[0], 4);
    uint8_t* yuv = Samples(c, 24, p[0], 1);  // 8 Y, 8 U, 8 V
    int32x4* in = c.In<int32x4>(2);
    for (int i = 0; i < 8; ++i) std::memcpy(reinterpret_cast<char*>(in) + 4 * i, px + 4 * i, 4);
    auto want_rgb = [&](auto&& want) {
      for (int i = 0; i < 8; ++i) want(i, px[4 * i], px[4 * i + 1], px[4 * i + 2]);
    };
    _StLanczos1p5x* ctx = c.Context();
    if (q20) {  // luma floats, dR, dG, dB, alpha bytes
      c.Out<int32_t>(36, 8);  // a multiple of 16 bytes keeps the vectors aligned
      want_rgb([&](int i, int r, int g, int b) {
        c.Want<float>(i, float(oracle::SplitLuma(r, g, b)));
        for (int ch = 0; ch < 3; ++ch) c.Want<int32_t>(8 * (ch + 1) + i, oracle::SplitDiff(ch, r, g, b));
        c.Want<uint8_t>(128 + i, px[4 * i + 3]);
      });
      c.run = [=](void* out) {
        int32x4 rgb[6];
        auto* o = static_cast<int32x4*>(out);
        u8_4x_to_RGBs32_Au8_NEON_8LEN(px, rgb, static_cast<uint8_t*>(out) + 128);
        for (int h = 0; h < 2; ++h) {
          const int32x4 half[3] = {rgb[h], rgb[2 + h], rgb[4 + h]};
          RGBA2RGBA_CAL_dY_NEON(ctx, half, reinterpret_cast<float32x4*>(o)[h]);
          RGBA2RGBA_CAL_dR_NEON(ctx, half, o[2 + h]);
          RGBA2RGBA_CAL_dG_NEON(ctx, half, o[4 + h]);
          RGBA2RGBA_CAL_dB_NEON(ctx, half, o[6 + h]);
        }
      };
      return;
    }
    // Y and A bytes, U then V sums of pixels 0..7 (no offset, 16 bits),
    // To_s16 of `in`, and the unclamped R, G, B of 4 pixels from Y, U, V.
    c.Out<uint8_t>(96, 16);
    want_rgb([&](int i, int r, int g, int b) {
      c.Want(i, oracle::Luma601(r, g, b));
      c.Want(8 + i, px[4 * i + 3]);
      c.Want<int16_t>(8 + i % 4 + i / 4 * 8, int16_t(oracle::ChromaSum601(false, r, g, b)));
      c.Want<int16_t>(12 + i % 4 + i / 4 * 8, int16_t(oracle::ChromaSum601(true, r, g, b)));
      c.Want<int16_t>(24 + i, int16_t(Lane<uint32_t>(in, i) >> 16));
    });
    for (int i = 0; i < 4; ++i) {
      const int64_t k = 76284LL * (yuv[i] - 16), d = yuv[8 + i] - 128, e = yuv[16 + i] - 128;
      const int64_t sums[3] = {k + 104595 * e, k - 25625 * d - 53281 * e, k + 132252 * d};
      for (int ch = 0; ch < 3; ++ch) {
        c.Want<int16_t>(36 + 4 * ch + i, int16_t(std::floor(double(sums[ch]) / 65536)));
      }
    }
    c.run = [=](void* out) {
      auto* o = static_cast<uint8_t*>(out);
      int32x4 rgb[6], k[2], d[2], e[2];
      u8_4x_to_s32_NEON_8LEN(px, rgb, o + 8);
      RGBA2I420A_NEON_CAL_Y(ctx, rgb, o);
      for (int h = 0; h < 2; ++h) {
        const int32x4 half[3] = {rgb[h], rgb[2 + h], rgb[4 + h]};
        RGBA2I420A_NEON_CAL_UV(ctx, half, reinterpret_cast<int16x8*>(o)[1 + h]);
      }
      To_s16(in[0], in[1], reinterpret_cast<int16x8*>(o)[3]);
      Y_u8_to_s32_NEON_8LEN(ctx, yuv, k[0], k[1]);
      UV_u8_to_s32_NEON_8LEN(ctx, yuv + 8, d[0], d[1]);
      UV_u8_to_s32_NEON_8LEN(ctx, yuv + 16, e[0], e[1]);
      I420A2RGBA_NEON_CAL(ctx, k[0], d[0], e[0], reinterpret_cast<short*>(o + 72));
    };
  }, false};
}

}  // namespace

std::vector<Row> ConvertRows() {
  return {RgbaToI420a(), I420aToRgba(), Split(),   Merge(),       Yuvcpy(),     Crop(),
          YuvToRgb(false), YuvToRgb(true), RgbToRgba(), Steps(false), Steps(true)};
}

}  // namespace vorlith::check

namespace {

// The documented worked examples hold for the oracles, to which the rows
// hold every kernel on every target.
TEST(ConvertOracle, AgreesWithTheDocumentedExamples) {
  using namespace vorlith::oracle;
  // RGBA to limited-range Y, Cb, Cr: white, black, red.
  for (auto [r, g, b, y, u, v] : {std::array{255, 255, 255, 235, 128, 128}, {0, 0, 0, 16, 128, 128},
                                  {255, 0, 0, 81, 90, 239}}) {
    EXPECT_EQ((std::array{int{Luma601(r, g, b)}, int{Cb601(r, g, b)}, int{Cr601(r, g, b)}}),
              (std::array{y, u, v})) << r << "," << g << "," << b;
  }
  // Back by Q16 (no rounding: white is 254) and by Q20 (Y below 16 is black).
  auto rgb = [](void (*f)(int, int, int, uint8_t*), int y, int u, int v) {
    uint8_t out[3];
    f(y, u, v, out);
    return std::array<int, 3>{out[0], out[1], out[2]};
  };
  EXPECT_EQ(rgb(Rgb601Q16, 16, 128, 128), (std::array{0, 0, 0}));
  EXPECT_EQ(rgb(Rgb601Q16, 235, 128, 128), (std::array{254, 254, 254}));
  EXPECT_EQ(rgb(Rgb601Q16, 235, 128, 240), (std::array{255, 163, 254}));
  for (int y : {10, 16}) EXPECT_EQ(rgb(Rgb601Q20, y, 128, 128), (std::array{0, 0, 0}));
  EXPECT_EQ(rgb(Rgb601Q20, 235, 128, 128), (std::array{255, 255, 255}));
  // The luma-ratio split of grey 128 and of red; merged back at 125 levels,
  // grey comes out 126 by the integer and by the float add.
  EXPECT_EQ(SplitLuma(128, 128, 128), 125);
  EXPECT_EQ(SplitLuma(255, 0, 0), 81);
  const int32_t diffs[3][2] = {{-19528688, 167814202},
                               {-19528672, -313565 * 255 - 19528672},
                               {-19528704, -313172 * 255 - 19528704}};
  for (int ch = 0; ch < 3; ++ch) {
    EXPECT_EQ(SplitDiff(ch, 128, 128, 128), diffs[ch][0]) << ch;
    EXPECT_EQ(SplitDiff(ch, 255, 0, 0), diffs[ch][1]) << ch;
    for (bool body : {true, false}) EXPECT_EQ(MergeChannel(125.0f * 1220544, diffs[ch][0], body), 126);
  }
}

}  // namespace
