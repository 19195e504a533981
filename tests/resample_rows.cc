// Conformance rows of the Lanczos, bicubic and bilinear resamplers: the
// drivers, their exported horizontal and vertical passes, and the single
// vector steps.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>

#include <gtest/gtest.h>

#include "tests/oracle/oracle.h"
#include "tests/support/conformance.h"
#include "vorlith/kernels.h"

namespace vorlith::check {
namespace {

using oracle::Resampler;
using oracle::ResampleH;

// Zeroes the context's tap fields: outputs that take them become 0, so a
// pass that uses its constant taps where the context's are due shows up.
void ZeroContextTaps(_StLanczos1p5x* ctx) {
  const size_t begin = offsetof(_StLanczos1p5x, tapsLanczos2x);
  std::memset(reinterpret_cast<unsigned char*>(ctx) + begin, 0,
              offsetof(_StLanczos1p5x, hblBuf) - begin);
}

// ---- Drivers ----
using DriverFn = void (*)(_StLanczos1p5x*, int32_t*, uint8_t*, uint8_t*, int, int);

template <void (*F)(_StLanczos1p5x*, unsigned char*, unsigned char*, int, int)>
void WithWorkBuf(_StLanczos1p5x* ctx, int32_t* scratch, uint8_t* src, uint8_t* dst, int h, int w) {
  ctx->workBuf = reinterpret_cast<unsigned char*>(scratch);  // for the call only
  F(ctx, src, dst, h, w);
  ctx->workBuf = nullptr;
}

struct Driver {
  const char* name;
  Resampler r;
  int channels, num, den;  // output size num*n/den
  int group;               // source samples a step consumes; the rest are not read
  int scratch;             // ring int32 values per output value of a row
  DriverFn run;
  std::vector<int> widths, heights;
  std::vector<std::pair<int, int>> small;  // (w, h) below the ring's reach
};

// Expected output (kSentinel where a row is not written) of the clamped
// per-pixel formula; image 0 random, 1 blocks of 0 and 255 (every edge
// rings past the byte range), 2 constant.
void MakeDriverCase(const Driver& d, const Params& p, Case& c) {
  const int h = p[0], w = p[1], ch = d.channels;
  const bool empty = h < 1 || w < 1;
  const size_t n = empty ? 0 : size_t(h) * w * ch;
  const uint8_t level = static_cast<uint8_t>(c.rng());
  size_t i = 0;
  uint8_t* src = c.In<uint8_t>(n, [&] {
    const size_t x = i % (size_t(w) * ch), y = i++ / (size_t(w) * ch);
    return p[2] == 0 ? c.rng() : p[2] == 1 ? (((x / ch + x % ch) / 4 + y / 3) % 2 ? 255 : 0) : level;
  });
  auto scaled = [&](int s) { return empty ? 0 : d.num * s / d.den; };
  auto used = [&](int s) { return s >= d.group ? s - s % d.group : s; };
  const int out_w = scaled(w), values = out_w * ch, block = values / 8 * 8;
  c.Out<uint8_t>(size_t(scaled(h)) * values, values);
  c.Grid<uint8_t>(scaled(used(h)), values, values, [&](int y, int v) {
    // Columns past the last the read samples define repeat its value.
    const int xh = std::min(v / ch, scaled(used(w)) - 1);
    const int64_t acc = oracle::ResampleAcc(d.r, src + v % ch, w * ch, ch, used(h), used(w), y, xh);
    return oracle::ResampleRound(static_cast<int32_t>(acc), v < block);
  });
  int32_t* scratch = c.In<int32_t>(size_t(d.scratch) * std::max(values, 2));
  _StLanczos1p5x* ctx = c.Context();
  c.run = [=, run = d.run](void* out) { run(ctx, scratch, src, static_cast<uint8_t*>(out), h, w); };
}

void AddDrivers(std::vector<Row>& rows) {
  const Driver drivers[] = {
      {"Lanczos2x_SingleChannel", Resampler::kLanczos2x, 1, 2, 1, 1, 8,
       WithWorkBuf<Lanczos2x_SingleChannel>, {7, 8, 22, 23, 24, 39, 100}, {8, 9},
       {{1, 1}, {2, 3}, {5, 4}, {6, 7}, {3, 12}, {40, 2}}},
      {"ResizeLanczos2x_NEON", Resampler::kLanczos2x, 3, 2, 1, 1, 8,
       [](_StLanczos1p5x*, int32_t* s, uint8_t* src, uint8_t* dst, int h, int w) {
         ResizeLanczos2x_NEON(src, s, dst, h, w);
       },
       {7, 8, 22, 23, 24, 39, 100}, {8, 9}, {{1, 1}, {4, 3}, {6, 8}, {30, 5}}},
      {"Lanczos_1p5x", Resampler::kLanczos1p5x, 1, 3, 2, 2, 8, WithWorkBuf<Lanczos_1p5x>,
       {8, 10, 40, 42, 9, 41, 130}, {8, 10, 9},
       {{1, 1}, {2, 2}, {4, 6}, {7, 3}, {3, 9}, {44, 1}, {12, 5}}},
      {"Lanczos_4d3x", Resampler::kLanczos4d3x, 1, 4, 3, 3, 8, WithWorkBuf<Lanczos_4d3x>,
       {9, 12, 33, 36, 10, 11, 99}, {9, 12, 10, 11}, {{1, 1}, {2, 2}, {3, 4}, {5, 7}, {8, 3}, {40, 2}}},
      {"Cubic1p5x_NEON", Resampler::kCubic1p5x, 1, 3, 2, 2, 4, WithWorkBuf<Cubic1p5x_NEON>,
       {3, 4, 11, 12, 19, 20, 66}, {4, 6, 5}, {{1, 1}, {2, 2}, {2, 3}, {30, 1}}},
      {"Cubic2x_NEON", Resampler::kCubic2x, 1, 2, 1, 1, 4, WithWorkBuf<Cubic2x_NEON>,
       {3, 4, 11, 12, 19, 20, 67}, {3, 4}, {{1, 1}, {2, 2}, {1, 5}, {30, 2}}},
  };
  for (const Driver& d : drivers) {
    std::vector<Params> first = {{0, 4, 0}, {4, 0, 0}, {4, -3, 0}};
    for (auto [w, h] : d.small) first.push_back({h, w, 0});
    rows.push_back({d.name, {"h", "w", "image"}, Combos({d.heights, d.widths}, {3}, first),
                    Draws({{1, 20}, {1, 140}, {0, 2}}),
                    [d](const Params& p, Case& c) { MakeDriverCase(d, p, c); }});
  }
}

// ---- Horizontal passes: one row of w samples, exactly w read ----
struct HPass {
  const char* name;
  Resampler r;
  int num, den, channels;
  void (*call)(_StLanczos1p5x* ctx, uint8_t* src, int32_t* dst, int w);
  int body_first, body_per_unit;  // outputs that take the context's taps
  int (*body_units)(int w);
};

void AddHorizontalPasses(std::vector<Row>& rows) {
  const HPass passes[] = {
      {"HResizeLanczos2x_NEON", Resampler::kLanczos2x, 2, 1, 1,
       [](_StLanczos1p5x* c, uint8_t* s, int32_t* d, int w) {
         HResizeLanczos2x_NEON(c, s, d, (w - 7) / 16, (w - 7) % 16);
       },
       7, 2, [](int w) { return w >= 7 ? 16 * ((w - 7) / 16) : 0; }},
      {"HResizeLanczos_1p5x_NEON", Resampler::kLanczos1p5x, 3, 2, 1,
       [](_StLanczos1p5x* c, uint8_t* s, int32_t* d, int w) {
         HResizeLanczos_1p5x_NEON(c, s, d, (w - 8) / 32, ((w - 8) % 32) / 2);
       },
       5, 3, [](int w) { return w >= 8 ? 16 * ((w - 8) / 32) : 0; }},
      {"HResizeLanczos_4d3x_NEON", Resampler::kLanczos4d3x, 4, 3, 1,
       [](_StLanczos1p5x* c, uint8_t* s, int32_t* d, int w) {
         HResizeLanczos_4d3x_NEON(c, s, d, (w - 9) / 24, ((w - 9) / 3) % 8);
       },
       5, 4, [](int w) { return w >= 9 ? 8 * ((w - 9) / 24) : 0; }},
      {"HCubic1p5x_NEON", Resampler::kCubic1p5x, 3, 2, 1,
       [](_StLanczos1p5x* c, uint8_t* s, int32_t* d, int w) {
         HCubic1p5x_NEON(c, s, d, (w - 4) / 16, ((w - 4) % 16) / 2);
       },
       2, 3, [](int w) { return w >= 4 ? 8 * ((w - 4) / 16) : 0; }},
      {"HCubic2x_NEON", Resampler::kCubic2x, 2, 1, 1,
       [](_StLanczos1p5x* c, uint8_t* s, int32_t* d, int w) {
         HCubic2x_NEON(c, s, d, (w - 3) / 8, (w - 3) % 8);
       },
       3, 2, [](int w) { return w >= 3 ? 8 * ((w - 3) / 8) : 0; }},
      // The three-channel pass: constant taps only.
      {"HResizeLanczos2x_NEON_rgb", Resampler::kLanczos2x, 2, 1, 3,
       [](_StLanczos1p5x*, uint8_t* s, int32_t* d, int w) {
         HResizeLanczos2x_NEON(s, d, (w - 7) % 8, (w - 7) / 16, ((w - 7) / 8) % 2);
       },
       0, 0, [](int) { return 0; }},
  };
  for (const HPass& p : passes) {
    // Every width up to 90 the pass is meant for, then the body with the
    // context's taps zeroed.
    const int step = p.den == 1 ? 1 : p.den;
    std::vector<Params> sizes;
    for (int w = step; w <= (p.channels == 3 ? 60 : 90); w += step) sizes.push_back({w, 0});
    if (p.body_per_unit) sizes.insert(sizes.end(), {{42 / step * step, 1}, {90, 1}});
    rows.push_back({p.name, {"w", "zeroed_taps"}, sizes,
                    Draws({{step, 100 * step, step}, {0, p.body_per_unit != 0}}),
                    [p](const Params& q, Case& c) {
      const int w = q[0], ch = p.channels, n = p.num * w / p.den;
      uint8_t* src = c.RandomBytes(size_t(w) * ch);
      _StLanczos1p5x* ctx = c.Context();
      if (q[1]) ZeroContextTaps(ctx);
      const int body_end = p.body_first + p.body_per_unit * p.body_units(w);
      c.Out<int32_t>(size_t(n) * ch, size_t(n) * ch);
      c.Grid<int32_t>(n, ch, ch, [&](int j, int k) {
        return q[1] && j >= p.body_first && j < body_end ? 0 : ResampleH(p.r, src + k, ch, w, j);
      });
      c.run = [=, call = p.call](void* out) { call(ctx, src, static_cast<int32_t*>(out), w); };
    }});
  }
}

// ---- Vertical passes: rows named through ring indices ----
struct VPass {
  const char* name;
  int taps;
  void (*call)(_StLanczos1p5x* ctx, int** rows, uint8_t* dst, const short* taps, int b, int r);
  bool global_ring;  // indices in lanczos2xRowRing rather than the context
};

void AddVerticalPasses(std::vector<Row>& rows) {
  const VPass passes[] = {
      {"VResizeLanczos2x_NEON", 8, VResizeLanczos2x_NEON, false},
      {"VResizeLanczos2x_NEON_rgb", 8,
       [](_StLanczos1p5x*, int** rows, uint8_t* dst, const short* taps, int b, int r) {
         VResizeLanczos2x_NEON(rows, dst, taps, b, r);
       },
       true},
      {"VResizeLanczos_1p5x_NEON", 8, VResizeLanczos_1p5x_NEON, false},
      {"VCubic_NEON", 4, VCubic_NEON, false},
  };
  for (const VPass& p : passes) {
    // mode 0: any rows and taps (sums wrap in 32 bits, negatives clamp);
    // 1: rows a horizontal pass makes and the documented taps; 2: one row of
    // sums (k + 1/2) * 2^22 - 1, which the block rule rounds up and the
    // remainder rule down.
    rows.push_back({p.name, {"blocks8", "rest", "mode"}, Combos({{0, 1, 3, 9}, {0, 5, 7, 12}, {0, 1, 2}}),
                    Draws({{0, 12}, {0, 15}, {0, 2}}), [p](const Params& q, Case& c) {
      const int n = 8 * q[0] + q[1], t = p.taps;
      const short lanczos[8] = {-8, 64, -188, 579, 1830, -312, 114, -31}, cubic[4] = {-36, 329, 1932, -178};
      int k = 0;
      short* taps = c.In<short>(t, [&] {
        return q[2] == 0 ? short(c.rng()) : q[2] == 1 ? (t == 8 ? lanczos[k++] : cubic[k++]) : short(k++ == 1);
      });
      // Slot t-1-k holds row k, so the ring indices must be followed.
      int** slots = c.In<int*>(t);
      std::vector<int32_t*> row_of(t);
      for (int k = 0; k < t; ++k) {
        row_of[k] = slots[t - 1 - k] = c.In<int32_t>(n, [&] {
          return q[2] == 0 ? int32_t(c.rng()) : q[2] == 1 ? Uniform(c.rng, -137445, 659685)
                                                          : Uniform(c.rng, 4, 254) * 4194304 + 2097151;
        });
      }
      c.Out<uint8_t>(n, n);
      for (int x = 0; x < n; ++x) {
        uint32_t acc = 0;
        for (int k = 0; k < t; ++k) acc += uint32_t(row_of[k][x]) * uint32_t(int32_t{taps[k]});
        c.Want(x, oracle::ResampleRound(static_cast<int32_t>(acc), x < 8 * q[0]));
      }
      _StLanczos1p5x* ctx = c.Context();
      c.run = [=](void* out) {
        for (int k = 0; k < t; ++k) (p.global_ring ? lanczos2xRowRing : ctx->rowIndex)[k] = t - 1 - k;
        p.call(ctx, slots, static_cast<uint8_t*>(out), taps, q[0], q[1]);
      };
    }});
  }
}

// ---- Vector steps ----
// Loaders: out vector v, lane i holds src[index(v, i)]; exactly `bytes` read.
struct Loader {
  const char* name;
  int bytes, vectors;
  int (*index)(int v, int i);
  void (*call)(uint8_t* src, int32x4* out);
};

// Steps: lane i of in[k] holds row[stride * (start + i) + k]; dst[per*i + p]
// is horizontal output first(start) + per*i + p of the row.
struct Step {
  const char* name;
  Resampler r;
  int stride, count, per, mul, add;  // first = mul * start + add
  void (*call)(_StLanczos1p5x* ctx, const int32x4* in, int* dst);
};

void AddVectorSteps(std::vector<Row>& rows) {
  const Loader loaders[] = {
      {"NEON_LOAD", 11, 8, [](int v, int i) { return v / 2 + v % 2 * 4 + i; }, NEON_LOAD},
      {"H_NEON_LOAD_S", 24, 6, [](int v, int i) { return 3 * (v % 2 * 4 + i) + v / 2; },
       H_NEON_LOAD_S},
      {"u8_3x_to_s32_NEON_8LEN", 24, 6, [](int v, int i) { return 3 * (v % 2 * 4 + i) + v / 2; },
       u8_3x_to_s32_NEON_8LEN},
      {"u8_3x_0_to_s32_NEON_8LEN", 22, 2, [](int v, int i) { return 3 * (v % 2 * 4 + i); },
       [](uint8_t* s, int32x4* o) { u8_3x_0_to_s32_NEON_8LEN(s, o[0], o[1]); }},
      {"u8_2x_to_s32_NEON_8LEN", 16, 4, [](int v, int i) { return 2 * (v % 2 * 4 + i) + v / 2; },
       [](uint8_t* s, int32x4* o) { u8_2x_to_s32_NEON_8LEN(s, o[0], o[1], o[2], o[3]); }},
      {"u8_2x_to_s32_NEON_8LEN_FirstRow", 15, 2, [](int v, int i) { return 2 * (v % 2 * 4 + i); },
       [](uint8_t* s, int32x4* o) { u8_2x_to_s32_NEON_8LEN_FirstRow(s, o[0], o[1]); }},
      {"u8_to_s32_NEON_8LEN", 8, 2, [](int v, int i) { return v % 2 * 4 + i; },
       [](uint8_t* s, int32x4* o) { u8_to_s32_NEON_8LEN(s, o[0], o[1]); }},
  };
  for (const Loader& l : loaders) {
    rows.push_back({l.name, {}, {{}}, Draws({}), [l](const Params&, Case& c) {
      uint8_t* src = c.RandomBytes(l.bytes);
      c.Out<int32_t>(4 * l.vectors, 4);
      c.Grid<int32_t>(l.vectors, 4, 4, [&](int v, int i) { return src[l.index(v, i)]; });
      c.run = [=](void* out) { l.call(src, static_cast<int32x4*>(out)); };
    }, false});
  }

  const Step steps[] = {
      {"NEON_CAL", Resampler::kLanczos2x, 1, 8, 2, 2, 7, NEON_CAL},
      {"H_1p5x_NEON_CAL", Resampler::kLanczos1p5x, 2, 9, 3, 3, 5, H_1p5x_NEON_CAL},
      {"H_4d3x_NEON_CAL", Resampler::kLanczos4d3x, 3, 10, 4, 4, 5, H_4d3x_NEON_CAL},
      {"HCubic1p5x_NEON_CAL", Resampler::kCubic1p5x, 2, 5, 3, 3, 2, HCubic1p5x_NEON_CAL},
      {"HCubic2x_NEON_CAL", Resampler::kCubic2x, 1, 4, 2, 2, 3, HCubic2x_NEON_CAL},
      // Constant taps: even outputs from NEON_CALCULATION1, odd from 2.
      {"NEON_CALCULATION", Resampler::kLanczos2x, 1, 8, 2, 2, 7,
       [](_StLanczos1p5x*, const int32x4* in, int* dst) {
         int32x4 even, odd;
         NEON_CALCULATION1(in, even);
         NEON_CALCULATION2(in, odd);
         for (int i = 0; i < 4; ++i) {
           std::memcpy(&dst[2 * i], reinterpret_cast<const int32_t*>(&odd) + i, 4);
           std::memcpy(&dst[2 * i + 1], reinterpret_cast<const int32_t*>(&even) + i, 4);
         }
       }},
  };
  for (const Step& s : steps) {
    const bool ctx_taps = std::string(s.name) != "NEON_CALCULATION";
    rows.push_back({s.name, {"start", "zeroed_taps"}, {{0, 0}, {5, 0}, {3, ctx_taps}},
                    Draws({{0, 16}, {0, ctx_taps}}), [s](const Params& q, Case& c) {
      constexpr int kWidth = 96;
      const uint8_t* line = c.RandomBytes(kWidth);
      int32x4* in = c.In<int32x4>(s.count);
      for (int k = 0; k < s.count; ++k) {
        for (int i = 0; i < 4; ++i) {
          const int32_t v = line[s.stride * (q[0] + i) + k];
          std::memcpy(reinterpret_cast<int32_t*>(&in[k]) + i, &v, 4);
        }
      }
      _StLanczos1p5x* ctx = c.Context();
      if (q[1]) ZeroContextTaps(ctx);
      c.Out<int32_t>(4 * s.per, s.per);
      for (int j = 0; j < 4 * s.per; ++j) {
        c.Want<int32_t>(j, q[1] ? 0 : ResampleH(s.r, line, 1, kWidth, s.mul * q[0] + s.add + j));
      }
      c.run = [=, call = s.call](void* out) { call(ctx, in, static_cast<int*>(out)); };
    }, false});
  }
}

// ---- Bilinear resamplers: drivers, row passes, the 3x vertical passes ----
struct LinearDriver {
  const char* name;
  int num, den;  // output size num * n / den; sizes below den write nothing
  _StLanczos1p5x* (*run)(_StLanczos1p5x*, unsigned char*, unsigned char*, int, int);
  void (*row)(uint8_t* src, uint16_t* dst, int groups, int singles);  // den * (8g + s + 1) pixels
};

template <void (*F)(unsigned char*, short*, int, int)>
void AsU16(uint8_t* src, uint16_t* dst, int groups, int singles) {
  F(src, reinterpret_cast<short*>(dst), groups, singles);
}

void AddLinear(std::vector<Row>& rows) {
  const LinearDriver drivers[] = {
      {"Linear_2x", 2, 1, Linear_2x, AsU16<HResizeLinear_2x_NEON>},
      {"Linear_3x", 3, 1, Linear_3x, HResizeLinear_3x_NEON},
      {"Linear_4x", 4, 1, Linear_4x, AsU16<HResizeLinear_4x_NEON>},
      {"Linear_1p5x", 3, 2, Linear_1p5x, AsU16<HResizeLinear_1p5x_NEON>},
      {"Linear_4div3x", 4, 3, Linear_4div3x, AsU16<HResizeLinear_4div3x_NEON>},
  };
  for (const LinearDriver& d : drivers) {
    // image 0 random, 1 blocks of 0 and 255, 2 constant.
    rows.push_back({d.name, {"h", "w", "image"},
                    Combos({{1, 2, 3, 5, 7}, {1, 2, 3, 8, 9, 16, 17, 18, 23, 24, 27, 29}}, {3},
                           {{0, 4, 0}, {4, 0, 0}}),
                    Draws({{1, 12}, {1, 100}, {0, 2}}), [d](const Params& p, Case& c) {
      const int h = std::max(p[0], 0), w = std::max(p[1], 0);
      const uint8_t level = static_cast<uint8_t>(c.rng());
      int i = 0;
      uint8_t* src = c.In<uint8_t>(size_t(h) * w, [&] {
        const int at = i++, block = (at % w / 3 + at / w / 2) % 2 * 255;
        return p[2] == 0 ? uint8_t(c.rng()) : p[2] == 1 ? block : level;
      });
      const int ow = d.num * w / d.den, oh = d.num * (h - h % d.den) / d.den;
      c.Out<uint8_t>(size_t(ow) * oh, std::max(ow, 1));
      c.Grid<uint8_t>(h >= d.den && w >= d.den ? oh : 0, ow, ow,
                      [&](int y, int x) { return oracle::LinearSample(d.num, d.den, src, h, w, y, x); });
      _StLanczos1p5x* ctx = c.Context();
      c.run = [=](void* out) { EXPECT_EQ(d.run(ctx, src, static_cast<uint8_t*>(out), h, w), ctx); };
    }});

    rows.push_back({std::string("HResizeLinear_") + (d.name + 7) + "_NEON", {"groups", "singles"},
                    Combos({{0, 1, 2}, Span(0, 7)}), Draws({{0, 12}, {0, 7}}), [d](const Params& q, Case& c) {
      const int w = d.den * (8 * q[0] + q[1] + 1), n = d.num * w / d.den;
      uint8_t* src = c.RandomBytes(w);
      c.Out<uint16_t>(n, n);
      for (int j = 0; j < n; ++j) c.Want(j, uint16_t(oracle::LinearH(d.num, d.den, src, w, j)));
      c.run = [=](void* out) { d.row(src, static_cast<uint16_t*>(out), q[0], q[1]); };
    }});
  }

  // The 1.5x vector steps over pairs start .. start+7 of a row.
  rows.push_back({"u8_2x_to_s16_NEON_8LEN", {}, {{}}, Draws({}), [](const Params&, Case& c) {
    uint8_t* src = c.RandomBytes(16);
    c.Out<int16_t>(16, 8);
    for (int i = 0; i < 16; ++i) c.Want(i, int16_t{src[2 * (i % 8) + i / 8]});
    c.run = [=](void* out) {
      auto* v = static_cast<__simd128_int16_t*>(out);
      u8_2x_to_s16_NEON_8LEN(src, v[0], v[1]);
    };
  }, false});
  rows.push_back({"HLinear_1p5x_NEON_CAL", {"start"}, {{0}, {5}}, Draws({{0, 20}}), [](const Params& q, Case& c) {
    constexpr int kWidth = 60;
    const uint8_t* line = c.RandomBytes(kWidth);
    auto* in = c.In<__simd128_int16_t>(3);
    int16_t lanes[3][8];
    for (int k = 0; k < 8; ++k) {
      for (int v = 0; v < 3; ++v) lanes[v][k] = line[2 * (q[0] + k) + v];
    }
    std::memcpy(static_cast<void*>(in), lanes, sizeof(lanes));
    c.Out<int16_t>(24, 3);
    for (int j = 0; j < 24; ++j) {
      c.Want(j, int16_t(oracle::LinearH(3, 2, line, kWidth, 1 + 3 * q[0] + j)));
    }
    c.run = [=](void* out) {
      HLinear_1p5x_NEON_CAL(static_cast<short*>(out), in[0], in[1], in[2]);
    };
  }, false});

  // 3x vertical passes, weights of the older and newer rows (give: older / 3).
  for (auto [name, wa, wb] : {std::tuple{"VResizeLinear_3x_NEON_1", 2, 1},
                              {"VResizeLinear_3x_NEON_2", 1, 2}, {"Linear_3x_give_NEON", 1, 0}}) {
    // mode 0: any 16-bit rows (the body's sums wrap); 1: sums of a 3x row.
    rows.push_back({name, {"groups", "singles", "mode"}, Combos({{0, 1, 2, 4}, {0, 3, 5, 7}, {0, 1}}),
                    Draws({{0, 12}, {0, 7}, {0, 1}}), [wa, wb](const Params& q, Case& c) {
      const int n = 8 * q[0] + q[1];
      // Slot 1 holds the older row, so the ring indices must be followed.
      unsigned short** slots = c.In<unsigned short*>(2);
      for (int k = 0; k < 2; ++k) {
        slots[k] = c.In<unsigned short>(n, [&] { return q[2] ? Uniform(c.rng, 0, 765) : c.rng(); });
      }
      c.Out<uint8_t>(n, n);
      const float f = std::bit_cast<float>(wb ? 0x3DE38E39u : 0x3EAAAAABu);
      for (int x = 0; x < n; ++x) {
        c.Want(x, oracle::LinearRound(wa * slots[1][x] + wb * slots[0][x], f, x < 8 * q[0]));
      }
      _StLanczos1p5x* ctx = c.Context();
      c.run = [=](void* out) {
        auto* dst = static_cast<uint8_t*>(out);
        ctx->rowIndex[0] = 1;
        ctx->rowIndex[1] = 0;
        if (wb == 0) return Linear_3x_give_NEON(dst, slots[1], q[0], q[1]);
        (wa == 2 ? VResizeLinear_3x_NEON_1 : VResizeLinear_3x_NEON_2)(ctx, slots, dst, q[0], q[1]);
      };
    }});
  }
}

// ---- Float bilinear 3x and 4x, and the NHWC float-to-byte converters ----
float AnyFloat(std::mt19937& rng) {
  // Mostly pixel values; sometimes values the conversions saturate, wrap or
  // zero (NaN), and exact extremes.
  const float special[] = {255.9f, -0.5f, 300.0f, 70000.5f, -70000.0f, 3e9f, NAN, 1e-30f};
  return rng() % 8 ? std::uniform_real_distribution<float>(-20.0f, 280.0f)(rng)
                   : special[rng() % 8];
}

void AddLinearFloat(std::vector<Row>& rows) {
  using Driver = void (*)(_StLanczos1p5x*, float*, float*, int, int);
  using HPass = void (*)(float*, float*, int, int);
  for (auto [r, run, hpass] : {std::tuple<int, Driver, HPass>{3, Linear_float_3x,
                                                             HResizeLinear_float_3x_NEON},
                               {4, Linear_float_4x, HResizeLinear_float_4x_NEON}}) {
    const std::string ratio = std::to_string(r) + "x";
    rows.push_back({"Linear_float_" + ratio, {"h", "w"},
                    Combos({{1, 2, 4}, {1, 2, 4, 5, 8, 9, 13}}, {}, {{0, 3}, {3, 0}}), Draws({{1, 10}, {1, 60}}),
                    [r, run](const Params& p, Case& c) {
      const int h = std::max(p[0], 0), w = std::max(p[1], 0), ow = r * w;
      float* src = c.In<float>(size_t(h) * w, [&] { return AnyFloat(c.rng); });
      c.Out<float>(size_t(r) * h * ow, std::max(ow, 1));
      c.Grid<float>(r * h, ow, ow, [&](int y, int x) { return oracle::LinearFloatSample(r, src, h, w, y, x); });
      float* ring = c.In<float>(2 * size_t(ow));
      _StLanczos1p5x* ctx = c.Context();
      c.run = [=](void* out) {
        ctx->floatLineBuf = reinterpret_cast<unsigned char*>(ring);  // for the call only
        run(ctx, src, static_cast<float*>(out), h, w);
        ctx->floatLineBuf = nullptr;
      };
    }});

    rows.push_back({"HResizeLinear_float_" + ratio + "_NEON", {"groups", "singles"},
                    Combos({{0, 1, 3}, Span(0, 3)}), Draws({{0, 12}, {0, 3}}),
                    [r, hpass](const Params& q, Case& c) {
      const int w = 4 * q[0] + q[1] + 1;
      float* src = c.In<float>(w, [&] { return AnyFloat(c.rng); });
      c.Out<float>(size_t(r) * w, size_t(r) * w);
      for (int j = 0; j < r * w; ++j) c.Want(j, oracle::LinearFloatH(r, src, w, j));
      c.run = [=](void* out) { hpass(src, static_cast<float*>(out), q[0], q[1]); };
    }});
  }

  rows.push_back({"VResizeLinear_float_NEON", {"groups", "singles"}, {{0, 3}, {1, 0}, {5, 2}},
                  Draws({{0, 20}, {0, 3}}), [](const Params& q, Case& c) {
    const int n = 4 * q[0] + q[1];
    float* weights = c.In<float>(2, [&] { return AnyFloat(c.rng) / 256.0f; });
    // Slot 1 holds the older row, so the ring indices must be followed.
    float** slots = c.In<float*>(2);
    for (int k = 0; k < 2; ++k) slots[k] = c.In<float>(n, [&] { return AnyFloat(c.rng); });
    c.Out<float>(n, n);
    for (int x = 0; x < n; ++x) {
      const float older = slots[1][x] * weights[0], newer = slots[0][x] * weights[1];
      c.Want(x, older + newer);
    }
    _StLanczos1p5x* ctx = c.Context();
    c.run = [=](void* out) {
      ctx->rowIndex[0] = 1;
      ctx->rowIndex[1] = 0;
      VResizeLinear_float_NEON(ctx, slots, static_cast<float*>(out), weights, q[0], q[1]);
    };
  }});

  // Ch output rows per input row: blocks of 8*Ch floats, the first 4
  // positions read, each 8-byte group their bytes twice; rows run on.
  for (int ch : {3, 2}) {
    const std::string name = ch == 3 ? "CvtF32ToU8_NHWC_3x3_NEON" : "CvtF32ToU8_NHWC_2x2_NEON";
    rows.push_back({name, {"h", "w"}, {{1, 8}, {2, 8}, {3, 16}, {2, 3}, {1, 2}, {2, 4}, {2, 5}, {1, 11}},
                    Draws({{1, 6}, {1, 40}}), [ch](const Params& p, Case& c) {
      const int h = p[0], w = p[1], blocks = ch == 3 ? 9 * w / 24 : w / 4;
      float* src = c.In<float>(size_t(h) * ch * ch * w, [&] { return AnyFloat(c.rng); });
      c.Out<uint8_t>(size_t(h) * ch * ch * w, size_t(ch) * w);
      for (int y = 0; y < h; ++y) {
        const size_t base = size_t(y) * (8 * blocks + (ch - 1) * ch * w);
        for (int g = 0; g < blocks; ++g) {
          for (int k = 0; k < ch; ++k) {
            for (int i = 0; i < 8; ++i) {
              const float v = src[(size_t(y) * blocks + g) * 8 * ch + ch * (i % 4) + k];
              c.Want(base + size_t(k) * ch * w + 8 * g + i, oracle::NhwcByte(v));
            }
          }
        }
      }
      c.run = [=](void* out) {
        (ch == 3 ? CvtF32ToU8_NHWC_3x3_NEON : CvtF32ToU8_NHWC_2x2_NEON)(
            src, static_cast<uint8_t*>(out), h, w);
      };
    }});
  }
}

}  // namespace

std::vector<Row> ResampleRows() {
  std::vector<Row> rows;
  AddDrivers(rows);
  AddHorizontalPasses(rows);
  AddVerticalPasses(rows);
  AddVectorSteps(rows);
  AddLinear(rows);
  AddLinearFloat(rows);
  return rows;
}

}  // namespace vorlith::check
