// Conformance rows of the filters (guided box, Laplacian, bilateral, even box
// and sharpening), their row passes and one-step helpers; and the proof that
// the reciprocal estimate the bilateral filter depends on is the Arm one.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <vector>

#if defined(__aarch64__)
#include <arm_neon.h>
#endif

#include "src/kernels/arm_numerics.h"
#include "src/kernels/filter/filter_common.h"
#include "tests/oracle/oracle.h"
#include "tests/support/conformance.h"
#include "tests/support/targets.h"
#include "vorlith/kernels.h"

namespace vorlith::check {
namespace {

float UniformF(std::mt19937& rng, float lo, float hi) {
  return std::uniform_real_distribution<float>(lo, hi)(rng);
}

// Byte planes: 0 random, 1 flat, 2 blocks of two levels 106..255 apart, 3 a
// level with noise of +-25 (weights well inside the table), 4 one pixel 20
// above a flat field.
uint8_t* Image(Case& c, int h, int w, int kind) {
  const size_t n = size_t(std::max(h, 1)) * std::max(w, 1);
  uint8_t* p = c.RandomBytes(n);
  const int level = Uniform(c.rng, kind == 3 ? 25 : 0, kind == 3 ? 230 : 235);
  const int low = Uniform(c.rng, 0, 149), high = Uniform(c.rng, low + 106, 255);
  const size_t bright = c.rng() % n;
  for (size_t i = 0; i < n && kind > 0; ++i) {
    const size_t x = i % std::max(w, 1), y = i / std::max(w, 1);
    p[i] = kind == 1   ? level
           : kind == 2 ? ((x / 3 + y / 2) % 2 ? high : low)
           : kind == 3 ? level + Uniform(c.rng, -25, 25)
                       : (i == bright ? level + 20 : level);
  }
  return p;
}

// Guides and gains: 0 small random (a Laplacian's range), 1 zero, 2 full
// range (3x3 sums wrap), 3 constant with b |N| = 1, 4 constant with b |N|
// about 2.5, with noise so some columns sit on either side of 1 and 2.
short* Guide(Case& c, size_t n, int kind, float& a, float& b) {
  const int k = Uniform(c.rng, 1, 3640) * (c.rng() % 2 ? 1 : -1);
  a = UniformF(c.rng, -4.0f, 4.0f);
  b = kind == 3 ? 1.0f / std::abs(k) : kind == 4 ? 2.5f / std::abs(k) : UniformF(c.rng, 0.0f, 0.05f);
  return c.In<short>(std::max<size_t>(n, 1), [&] {
    return kind == 0   ? Uniform(c.rng, -300, 300)
           : kind == 1 ? 0
           : kind == 2 ? short(c.rng())
                       : k + (kind == 4 ? Uniform(c.rng, -std::abs(k) / 2, std::abs(k) / 2) : 0);
  });
}

// Box-filter drivers write the top 4 * (h / 4) rows of even widths 4..8192.
bool BoxSizeOk(int h, int w) { return h >= 4 && w >= 4 && w % 2 == 0 && w <= 8192; }

Row GuidedDriver() {
  return {"Boxfilter_AB_NEON", {"h", "w", "image", "guide"},
          Combos({{4, 5, 6, 7, 8, 11}, {4, 6, 8, 10, 16, 18, 20, 22, 24, 36, 38, 52}}, {5, 5},
                 {{3, 8, 0, 0}, {8, 7, 0, 0}, {8, 2, 0, 0}, {0, 8, 0, 0}, {4, 8194, 0, 0}}),
          Draws({{4, 14}, {4, 120, 2}, {0, 4}, {0, 4}}), [](const Params& p, Case& c) {
    const int h = p[0], w = p[1], rows = h / 4 * 4;
    float a, b;
    uint8_t* src = Image(c, h, w, p[2]);
    short* guide = Guide(c, size_t(std::max(h * w, 1)), p[3], a, b);
    c.Out<uint8_t>(size_t(std::max(h * w, 0)), w);
    c.Grid<uint8_t>(BoxSizeOk(h, w) ? rows : 0, w, w, [&](int y, int x) {
      return oracle::GuidedPixel(a, b, src[y * w + x], oracle::BoxSum(src, rows, w, y, x),
                                 oracle::BoxSum(guide, rows, w, y, x), x < w / 8 * 8);
    });
    short* work = c.In<short>(std::max(5 * w, 1));
    _StLanczos1p5x* ctx = c.Context();
    c.run = [=](void* out) {
      ctx->workBuf = reinterpret_cast<unsigned char*>(work);
      Boxfilter_AB_NEON(ctx, a, b, src, guide, static_cast<uint8_t*>(out), h, w);
      ctx->workBuf = nullptr;
    };
  }};
}

// Both horizontal-sum passes on one row: source, guide and single-plane sums.
Row HBoxRows() {
  return {"HBoxfilter_AB_NEON_and_HBoxfilter_NEON", {"nvec", "npairs"}, Combos({{0, 1, 2}, Span(0, 7)}),
          Draws({{0, 6}, {0, 7}}), [](const Params& p, Case& c) {
    const int n = 4 + 16 * p[0] + 2 * p[1];
    uint8_t* src = c.RandomBytes(n);
    short* guide = c.In<short>(n, [&] { return c.rng(); });
    c.Out<short>(3 * n, n);
    for (int x = 0; x < n; ++x) {
      c.Want<short>(x, oracle::BoxSum(src, 1, n, 0, x) / 3);
      c.Want<short>(n + x, static_cast<short>(oracle::BoxSum(guide, 1, n, 0, x) * 43691));  // / 3 mod 2^16
      c.Want<short>(2 * n + x, oracle::BoxSum(src, 1, n, 0, x) / 3);
    }
    c.run = [=](void* out) {
      short* o = static_cast<short*>(out);
      HBoxfilter_AB_NEON(src, o, guide, o + n, p[0], p[1]);
      HBoxfilter_NEON(src, o + 2 * n, p[0], p[1]);
    };
  }};
}

// Both pair-row passes: wrapping 16-bit sums.
Row VBoxRows() {
  return {"VBoxfilter_AB_NEON_and_VBoxfilter_NEON", {"nvec", "ntail"}, Combos({{0, 1, 3}, {0, 1, 7, 8, 15}}),
          Draws({{0, 20}, {0, 20}}), [](const Params& p, Case& c) {
    const int n = 8 * p[0] + p[1];
    short* in[4];
    for (short*& r : in) r = c.In<short>(n, [&] { return c.rng(); });
    c.Out<short>(3 * size_t(n), std::max(n, 1));
    for (int i = 0; i < n; ++i) {
      c.Want<short>(i, static_cast<short>(in[0][i] + in[1][i]));
      c.Want<short>(n + i, static_cast<short>(in[2][i] + in[3][i]));
      c.Want<short>(2 * n + i, static_cast<short>(in[0][i] + in[3][i]));
    }
    c.run = [=](void* out) {
      short* o = static_cast<short*>(out);
      VBoxfilter_AB_NEON(in[0], in[1], o, in[2], in[3], o + n, p[0], p[1]);
      VBoxfilter_NEON(in[0], in[3], o + 2 * n, p[0], p[1]);
    };
  }};
}

// Final passes on arbitrary rows: the source sum is any realistic box sum,
// the guide's anything (it wraps).
Row GuidedFinal() {
  return {"VBoxfilter_final_AB_NEON", {"nvec", "ntail", "guide"}, Combos({{0, 1, 2}, Span(0, 7)}, {5}),
          Draws({{0, 12}, {0, 7}, {0, 4}}), [](const Params& p, Case& c) {
    const int n = 8 * p[0] + p[1];
    float a, b;
    short* g = Guide(c, 2 * size_t(std::max(n, 1)), p[2], a, b);
    short* s = c.In<short>(2 * size_t(std::max(n, 1)));
    for (int i = 0; i < n; ++i) s[i] = Uniform(c.rng, 0, 765), s[n + i] = Uniform(c.rng, 0, 1530);
    uint8_t* src = c.RandomBytes(n);
    c.Out<uint8_t>(n, n);
    for (int i = 0; i < n; ++i) {
      c.Want(i, oracle::GuidedPixel(a, b, src[i], s[i] + s[n + i], static_cast<int16_t>(g[i] + g[n + i]),
                                    i < 8 * p[0]));
    }
    c.run = [=](void* out) {
      VBoxfilter_final_AB_NEON(a, b, s, s + n, g, g + n, src, static_cast<uint8_t*>(out), p[0], p[1]);
    };
  }};
}

Row LaplaceDriver() {
  return {"Laplace_NEON", {"h", "w", "image"},
          Combos({{1, 2, 3, 5}, {1, 2, 3, 9, 10, 17, 18, 33}}, {5}, {{0, 4, 0}, {4, 0, 0}}),
          Draws({{1, 10}, {1, 100}, {0, 4}}), [](const Params& p, Case& c) {
    const int h = p[0], w = p[1];
    uint8_t* src = Image(c, h, w, p[2]);
    c.Out<short>(size_t(std::max(h * w, 0)), w);
    c.Grid<short>(h, w, w, [&](int y, int x) { return oracle::LaplacePixel(src, h, w, y, x); });
    short* work = c.In<short>(std::max(w, 1));
    _StLanczos1p5x* ctx = c.Context();
    c.run = [=](void* out) {
      ctx->workBuf = reinterpret_cast<unsigned char*>(work);
      Laplace_NEON(ctx, src, static_cast<short*>(out), h, w);
      ctx->workBuf = nullptr;
    };
  }};
}

// Both Laplacian passes: a row's pair sums, and the vertical combination.
Row LaplacePasses() {
  return {"HLaplace_NEON_and_VLaplace_NEON", {"nvec", "ntail"}, Combos({{0, 1, 2}, {0, 1, 7, 8, 15}}),
          Draws({{0, 8}, {0, 15}}), [](const Params& p, Case& c) {
    const int nh = 2 + 8 * p[0] + p[1], nv = 16 * p[0] + p[1];
    uint8_t* src = c.RandomBytes(nh);
    uint8_t* rows = c.RandomBytes(3 * size_t(std::max(nv, 1)));
    short* hsum = c.In<short>(nv, [&] { return Uniform(c.rng, 0, 510); });
    c.Out<short>(size_t(nh + nv), nh);
    for (int x = 0; x < nh; ++x) {
      c.Want<short>(x, oracle::LaplacePixel(src, 1, nh, 0, x) + 2 * src[x]);
    }
    for (int x = 0; x < nv; ++x) {
      c.Want<short>(nh + x, hsum[x] + rows[x] + rows[2 * nv + x] - 4 * rows[nv + x]);
    }
    c.run = [=](void* out) {
      short* o = static_cast<short*>(out);
      HLaplace_NEON(src, o, p[0], p[1]);
      VLaplace_NEON(rows, rows + nv, rows + 2 * nv, hsum, o + nh, p[0], p[1]);
    };
  }};
}

Row BilateralDriver() {
  return {"BL_NEON", {"h", "w", "image"},
          Combos({{4, 5, 6, 7, 9}, {2, 3, 9, 10, 11, 17, 18, 26, 40}}, {5}, {{3, 10, 0}, {8, 1, 0}, {0, 10, 0}}),
          Draws({{4, 12}, {2, 120}, {0, 4}}), [](const Params& p, Case& c) {
    const int h = p[0], w = p[1], rows = h / 2 * 2;
    uint8_t* src = Image(c, h, w, p[2]);
    c.Out<uint8_t>(size_t(std::max(h * w, 0)), w);
    c.Grid<uint8_t>(h >= 4 && w >= 2 ? rows : 0, w, w, [&](int y, int x) {
      return oracle::BilateralPixel(src, rows, w, y, x, x >= 1 && x < 1 + (w - 2) / 8 * 8);
    });
    std::vector<unsigned char*> weights(7);
    for (auto& r : weights) r = reinterpret_cast<unsigned char*>(c.In<float>(std::max(w, 1)));
    _StLanczos1p5x* ctx = c.Context();
    c.run = [=](void* out) {
      std::copy(weights.begin(), weights.end(), ctx->hblBuf);
      BL_NEON(ctx, src, static_cast<uint8_t*>(out), h, w);
      std::fill(ctx->hblBuf, ctx->hblBuf + 7, nullptr);
    };
  }};
}

// One vector step, every mode; modes 1 and 2 find the row above's weights
// where the previous row's step left them (its downward triple).
Row BilateralStep() {
  return {"HBL_RESULT_NEON", {"mode", "image"}, Combos({Span(0, 2), Span(0, 4)}), nullptr,
          [](const Params& p, Case& c) {
    uint8_t* plane = Image(c, 3, 10, p[1]);  // up, centre, down; columns -1..8
    float* rows = c.In<float>(70);
    for (int k = 0, up = p[0] == 2 ? 0 : 4; k < 3; ++k) {
      // Down-left (k = 0) to down-right of the row above, seen from the centre row.
      for (int x = 1 - k; x <= 8 - k; ++x) {
        rows[(up + k) * 10 + x + 1] = oracle::RangeWeight(std::abs(plane[x + 1] - plane[10 + x + k]));
      }
    }
    c.Out<uint8_t>(8, 8);
    for (int x = 0; x < 8; ++x) c.Want(x, oracle::BilateralPixel(plane, 3, 10, 1, x + 1, true));
    _StLanczos1p5x* ctx = c.Context();
    c.run = [=](void* out) {
      for (int k = 0; k < 7; ++k) ctx->hblBuf[k] = reinterpret_cast<unsigned char*>(rows + k * 10 + 1);
      HBL_RESULT_NEON(ctx, plane + 1, plane + 11, plane + 21, static_cast<uint8_t*>(out), p[0]);
      std::fill(ctx->hblBuf, ctx->hblBuf + 7, nullptr);
    };
  }};
}

Row DetailDriver() {
  return {"Boxfilter_2even_A_NEON", {"h", "w", "image"},
          Combos({{4, 6, 7, 8}, {4, 6, 8, 18, 20, 22, 36, 38}}, {5},
                 {{3, 8, 0}, {8, 7, 0}, {8, 2, 0}, {4, 8194, 0}}),
          Draws({{4, 14}, {4, 120, 2}, {0, 4}}), [](const Params& p, Case& c) {
    const int h = p[0], w = p[1], rows = h / 4 * 4;
    uint8_t* src = Image(c, h, w, p[2]);
    c.Out<float>(size_t(h) * w, w);
    c.Grid<float>(BoxSizeOk(h, w) ? rows : 0, w, w, [&](int y, int x) {
      return oracle::DetailPixel(src[y * w + x], oracle::BoxSum(src, rows, w, y, x));
    });
    _StLanczos1p5x* ctx = c.Context();
    c.run = [=](void* out) { Boxfilter_2even_A_NEON(ctx, src, static_cast<float*>(out), h, w); };
  }};
}

Row DetailFinal() {
  return {"VBoxfilter_final_A_NEON", {"nvec", "ntail"}, {{0, 0}, {0, 5}, {1, 0}, {2, 7}},
          Draws({{0, 12}, {0, 7}}), [](const Params& p, Case& c) {
    const int n = 8 * p[0] + p[1];
    short* s = c.In<short>(2 * size_t(n), [&] { return Uniform(c.rng, 0, 1530); });
    uint8_t* src = c.RandomBytes(n);
    c.Out<float>(n, n);
    for (int i = 0; i < n; ++i) c.Want(i, oracle::DetailPixel(src[i], s[i] + s[n + i]));
    c.run = [=](void* out) { VBoxfilter_final_A_NEON(s, s + n, src, static_cast<float*>(out), p[0], p[1]); };
  }};
}

// Detail and gain: 0 random, 1 zero gain, 2 values on and beyond every
// rounding and saturation edge (99.6, 300, negatives, NaN, infinities).
void SharpenInputs(Case& c, float* detail, float* gain, size_t n, int kind) {
  static const float kEdge[] = {0.6f, -0.4f, 0.5f, 200.0f, -300.0f, 1e10f, -1e10f, 40000.0f,
                                std::numeric_limits<float>::quiet_NaN(),
                                std::numeric_limits<float>::infinity()};
  for (size_t i = 0; i < n; ++i) {
    detail[i] = kind == 2 ? kEdge[c.rng() % std::size(kEdge)] : UniformF(c.rng, -100.0f, 100.0f);
    gain[i] = kind == 1 ? 0.0f : kind == 2 ? UniformF(c.rng, 0.0f, 2.0f) : UniformF(c.rng, -3.0f, 3.0f);
  }
}

Row Sharpen() {
  return {"SharpenProduce_NEON", {"nvec", "ntail", "kind"}, Combos({{0, 1, 2}, Span(0, 7)}, {3}),
          Draws({{0, 12}, {0, 7}, {0, 2}}), [](const Params& p, Case& c) {
    const int n = 8 * p[0] + p[1];
    float* detail = c.In<float>(n);
    float* gain = c.In<float>(n);
    SharpenInputs(c, detail, gain, n, p[2]);
    uint8_t* src = c.RandomBytes(n);
    c.Out<uint8_t>(n, n);
    for (int i = 0; i < n; ++i) c.Want(i, oracle::SharpenPixel(detail[i], gain[i], src[i], i < 8 * p[0]));
    c.run = [=](void* out) { SharpenProduce_NEON(detail, gain, src, static_cast<uint8_t*>(out), p[0], p[1]); };
  }};
}

Row SharpenPlane() {
  return {"SharpenProduce_Stride_NEON", {"h", "w", "gpad", "kind"},
          {{0, 8, 0, 0}, {3, 0, 0, 0}, {1, 5, 0, 2}, {3, 7, 2, 0}, {2, 8, 0, 2}, {4, 23, 9, 1}},
          Draws({{1, 6}, {1, 70}, {0, 9}, {0, 2}}), [](const Params& p, Case& c) {
    const int h = p[0], w = p[1], gs = w + p[2];
    const size_t n = size_t(h) * w, gn = h > 0 && w > 0 ? size_t(h - 1) * gs + w : 0;
    float* detail = c.In<float>(n);
    float* gain = c.In<float>(gn);
    std::vector<float> scratch(gn);
    SharpenInputs(c, detail, gain, n, p[3]);
    SharpenInputs(c, scratch.data(), gain, gn, p[3]);
    uint8_t* src = c.RandomBytes(n);
    c.Out<uint8_t>(n, std::max(w, 1));
    c.Grid<uint8_t>(h, w, w, [&](int y, int x) {
      return oracle::SharpenPixel(detail[y * w + x], gain[size_t(y) * gs + x], src[y * w + x], x < w / 8 * 8);
    });
    c.run = [=](void* out) {
      SharpenProduce_Stride_NEON(detail, gain, src, static_cast<uint8_t*>(out), w, h, gs);
    };
  }};
}

// The one-step helpers, one code path on every target: their results one
// after the other in one byte buffer.
Row LaneHelpers() {
  return {"FilterLaneHelpers", {"case"}, Combos({Span(0, 23)}), nullptr, [](const Params&, Case& c) {
    float* f = c.In<float>(24);  // p, d, w for Result_NEON
    static const float kW[] = {0.0f, 0.0005f, 0.0015f, 0.4995f, 1.0f, 1.5f, 1e30f, 0.2345f};
    for (int i = 0; i < 8; ++i) {
      f[i] = Uniform(c.rng, 0, 255);
      f[8 + i] = UniformF(c.rng, -300.0f, 300.0f);
      f[16 + i] = c.rng() % 2 ? kW[i] : UniformF(c.rng, 0.0f, 1.2f);
    }
    uint8_t* bytes = c.RandomBytes(16);
    c.Out<uint8_t>(8 + 4 * 8 + 8 + 4 * 8 + 32 + 16 + 4 * 8, 8);
    size_t at = 0;
    auto want = [&](auto v) {
      for (size_t k = 0; k < sizeof(v); ++k) c.Want<uint8_t>(at++, reinterpret_cast<uint8_t*>(&v)[k]);
    };
    for (int i = 0; i < 8; ++i) {
      const float e = oracle::PowerEntry(int(std::floor(std::min(f[16 + i], 1.0f) * 1000.0 + 0.5)));
      want(oracle::FilterByte((f[i] + f[8 + i]) + f[8 + i] * e, true));
    }
    for (int i = 0; i < 8; ++i) want(oracle::PowerEntry(int(std::floor(std::min(f[16 + i], 1.0f) * 1000.0 + 0.5))));
    for (int i = 0; i < 8; ++i) want(oracle::FilterByte(f[8 + i], false));
    for (int i = 0; i < 8; ++i) want(float(bytes[i]));
    for (int i = 0; i < 16; ++i) want(int16_t{bytes[i]});
    for (int i = 0; i < 8; ++i) want(int16_t{bytes[i]});
    for (int i = 0; i < 8; ++i) want(float(int16_t(bytes[i] * 257)));
    c.run = [=](void* out) {
      uint8_t* o = static_cast<uint8_t*>(out);
      float32x4 v[6];
      for (int k = 0; k < 6; ++k) std::memcpy(static_cast<void*>(&v[k]), f + 4 * k, 16);
      Result_NEON(v[0], v[1], v[2], v[3], v[4], v[5], o);
      for (int i = 0; i < 8; ++i) {
        const float e = ExpCal(f[16 + i]);
        std::memcpy(o + 8 + 4 * i, &e, 4);
        o[40 + i] = float_to_uchar(f[8 + i]);
      }
      u8_to_float_NEON_8LEN(bytes, v[0], v[1]);
      std::memcpy(o + 48, &v[0], 16), std::memcpy(o + 64, &v[1], 16);
      int16x8 lo, hi;
      GET_s16(bytes, lo, hi);
      std::memcpy(o + 80, &lo, 16), std::memcpy(o + 96, &hi, 16);
      const int16x8 s = HBL_GET_s16(bytes);
      std::memcpy(o + 112, &s, 16);
      int16_t wide[8];
      for (int i = 0; i < 8; ++i) wide[i] = int16_t(bytes[i] * 257);  // negative lanes too
      std::memcpy(static_cast<void*>(&lo), wide, 16);
      short8_to_float4(lo, v[0], v[1]);
      std::memcpy(o + 128, &v[0], 16), std::memcpy(o + 144, &v[1], 16);
    };
  }, false};
}

}  // namespace

std::vector<Row> FilterRows() {
  return {GuidedDriver(),   HBoxRows(),      VBoxRows(),     GuidedFinal(),  LaplaceDriver(),
          LaplacePasses(),  BilateralDriver(), BilateralStep(), DetailDriver(), DetailFinal(),
          Sharpen(),        SharpenPlane(),  LaneHelpers()};
}

}  // namespace vorlith::check

namespace {

using vorlith::oracle::BilateralPixel;

// The constant tables hold their formulas' values, rounded once to float.
TEST(FilterTables, HoldTheirFormulas) {
  for (int i = 0; i <= 1000; ++i) ASSERT_EQ(expTableBuffer[i], vorlith::oracle::PowerEntry(i)) << i;
  EXPECT_TRUE(std::signbit(expTableBuffer[0]));
  for (int d = 0; d < 256; ++d) ASSERT_EQ(BLBuffer[d], vorlith::oracle::RangeWeight(d)) << d;
}

// The worked examples the oracle must reproduce; where an example and the
// formula part ways (a flat plane through the vector columns) the formula holds.
TEST(FilterOracle, AgreesWithTheDocumentedExamples) {
  using namespace vorlith::oracle;
  // Laplacian: 255 on zero, in the interior and in a corner.
  uint8_t dot[9] = {0, 0, 0, 0, 255, 0, 0, 0, 0};
  EXPECT_EQ(LaplacePixel(dot, 3, 3, 1, 1), -1020);
  EXPECT_EQ(LaplacePixel(dot, 3, 3, 0, 1), 255);
  dot[4] = 0, dot[0] = 255;
  EXPECT_EQ(LaplacePixel(dot, 3, 3, 0, 0), -510);
  // Corner box: P(0,0) four times, its two neighbours twice, the diagonal once.
  const uint8_t corner[4] = {1, 10, 100, 200};
  EXPECT_EQ(BoxSum(corner, 2, 2, 0, 0), 4 + 20 + 200 + 200);
  for (int p = 0; p < 256; ++p) {
    // Flat plane: detail exactly 0; a zero guide or a flat source passes P.
    EXPECT_EQ(DetailPixel(p, 9 * p), 0.0f);
    for (bool vector : {true, false}) {
      EXPECT_EQ(GuidedPixel(2.5f, 0.3f, p, 9 * p, 1234, vector), p);
      EXPECT_EQ(SharpenPixel(0.0f, 1.7f, p, vector), p);
    }
    EXPECT_EQ(GuidedPixel(-1.5f, 0.7f, p, 9 * 128, 0, true), p);
  }
  // b|N| = 1: the full boost P + a (P - M), here 100 + 2 (100 - 40).
  EXPECT_EQ(GuidedPixel(2.0f, 1.0f, 100, 360, 9, true), 220);
  EXPECT_EQ(SharpenPixel(99.6f, 1.0f, 0, true), 100);
  EXPECT_EQ(SharpenPixel(99.6f, 1.0f, 0, false), 99);
  for (bool vector : {true, false}) {
    EXPECT_EQ(SharpenPixel(300.0f, 1.0f, 0, vector), 255);
    EXPECT_EQ(SharpenPixel(-20.0f, 1.0f, 10, vector), 0);
  }
  // Bilateral, flat: unchanged by the exact division; the vector columns'
  // 9q * FRECPE(9) + 0.5 truncates to q - 1 from q = 205.
  for (int q = 0; q < 256; ++q) {
    const uint8_t flat[9] = {uint8_t(q), uint8_t(q), uint8_t(q), uint8_t(q), uint8_t(q),
                             uint8_t(q), uint8_t(q), uint8_t(q), uint8_t(q)};
    EXPECT_EQ(BilateralPixel(flat, 3, 3, 1, 1, false), q);
    EXPECT_EQ(BilateralPixel(flat, 3, 3, 1, 1, true), q < 205 ? q : q - 1);
  }
  // A pixel 106 or more away from all its neighbours is returned unchanged.
  const uint8_t spike[9] = {0, 0, 0, 0, 106, 0, 0, 0, 0};
  EXPECT_EQ(BilateralPixel(spike, 3, 3, 1, 1, false), 106);
  EXPECT_EQ(BilateralPixel(spike, 3, 3, 1, 1, true), 106);
  // +20 on a flat 100: (120 + 8 * 100 e) / (1 + 8 e), e = exp(-0.5).
  const uint8_t bump[9] = {100, 100, 100, 100, 120, 100, 100, 100, 100};
  const double e = std::exp(-0.5), want = (120 + 800 * e) / (1 + 8 * e);
  EXPECT_EQ(BilateralPixel(bump, 3, 3, 1, 1, false), int(want));
  EXPECT_EQ(BilateralPixel(bump, 3, 3, 1, 1, true), int(want + 0.5));
}

uint32_t Bits(float f) { return std::bit_cast<uint32_t>(f); }

// FRECPE results as the architecture defines them (taken from qemu-aarch64,
// which implements the Arm pseudocode): normals, the edges of the subnormal
// and overflow ranges, zeros, infinities and NaNs.
TEST(RecipEstimate, GivesTheArchitectureValues) {
  const uint32_t known[][2] = {
      {0x3F800000u, 0x3F7F8000u}, {0x41100000u, 0x3DE30000u}, {0x40400000u, 0x3EAA8000u},
      {0x3FFFFFFFu, 0x3F000000u}, {0x40A00000u, 0x3E4C8000u}, {0x00000000u, 0x7F800000u},
      {0x80000000u, 0xFF800000u}, {0x7F800000u, 0x00000000u}, {0xFF800000u, 0x80000000u},
      {0x7F800001u, 0x7FC00001u}, {0x7FC00000u, 0x7FC00000u}, {0x00200000u, 0x7F7F8000u},
      {0x001FFFFFu, 0x7F800000u}, {0x00400000u, 0x7EFF8000u}, {0x00000001u, 0x7F800000u},
      {0x7EFFFFFFu, 0x00400000u}, {0x7E800000u, 0x007FC000u}, {0x7F7FFFFFu, 0x00200000u},
      {0xC1100000u, 0xBDE30000u}, {0x3DCCCCCDu, 0x41200000u}};
  for (const auto& k : known) {
    EXPECT_EQ(Bits(vorlith::RecipEstimate(std::bit_cast<float>(k[0]))), k[1]) << std::hex << k[0];
  }
}

// Inputs for the vector path: every float from 1 to 9 (every weight sum the
// filter forms), then each exponent of 2^-126..2^124 with all 256 leading
// fraction patterns and three trailing ones, both signs.
std::vector<float> KernelRange() {
  std::vector<float> in;
  for (uint32_t b = Bits(1.0f); b <= Bits(9.0f); ++b) in.push_back(std::bit_cast<float>(b));
  for (uint32_t e = 1; e <= 251; ++e) {
    for (uint32_t top = 0; top < 256; ++top) {
      for (uint32_t low : {0u, 0x5A5Au, 0x7FFFu}) {
        const uint32_t b = e << 23 | top << 15 | low;
        in.push_back(std::bit_cast<float>(b));
        in.push_back(std::bit_cast<float>(b | 0x80000000u));
      }
    }
  }
  return in;
}

void ExpectDefinition(const std::vector<float>& in, const std::vector<float>& got) {
  size_t wrong = 0;
  for (size_t i = 0; i < in.size(); ++i) {
    if (Bits(got[i]) != Bits(vorlith::RecipEstimate(in[i])) && wrong++ < 3) {
      ADD_FAILURE() << std::hex << "FRECPE(0x" << Bits(in[i]) << ") = 0x" << Bits(got[i])
                    << ", defined as 0x" << Bits(vorlith::RecipEstimate(in[i]));
    }
  }
  EXPECT_EQ(wrong, 0u) << "of " << in.size();
}

// The kernels' reciprocal estimate on every target (the instruction on NEON
// and SVE, the emulation elsewhere) is the definition, bit for bit.
TEST(RecipEstimate, KernelPathIsTheDefinitionOnEveryTarget) {
  const std::vector<float> in = KernelRange();
  std::vector<float> out(in.size());
  vorlith::test::ForEachTarget([&](int64_t) {
    vorlith::RecipEstimates(in.data(), out.data(), in.size());
    ExpectDefinition(in, out);
  });
}

#if defined(__aarch64__)
// The instruction itself against the definition over every exponent, all
// 256 leading fraction patterns with four trailing ones, both signs, every
// 61st subnormal, and the NaNs' payloads: the inputs the emulation might
// mishandle that the kernels never form.
TEST(RecipEstimate, InstructionIsTheDefinition) {
  std::vector<float> in;
  for (uint32_t e = 0; e <= 255; ++e) {
    for (uint32_t top = 0; top < 256; ++top) {
      for (uint32_t low : {0u, 1u, 0x4000u, 0x7FFFu}) {
        in.push_back(std::bit_cast<float>(e << 23 | top << 15 | low));
        in.push_back(std::bit_cast<float>(0x80000000u | e << 23 | top << 15 | low));
      }
    }
  }
  for (uint32_t b = 0; b < 0x800000u; b += 61) in.push_back(std::bit_cast<float>(b));
  in.resize(in.size() / 4 * 4);
  std::vector<float> out(in.size());
  for (size_t i = 0; i < in.size(); i += 4) vst1q_f32(&out[i], vrecpeq_f32(vld1q_f32(&in[i])));
  ExpectDefinition(in, out);
}
#endif

}  // namespace
