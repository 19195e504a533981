// Lanczos and bicubic drivers against the per-pixel oracle, on every target.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "tests/oracle/oracle.h"
#include "tests/support/context.h"
#include "tests/support/guarded.h"
#include "tests/support/targets.h"
#include "vorlith/kernels.h"

namespace {

using vorlith::oracle::Resampler;
using vorlith::test::ForEachTarget;
using vorlith::test::Guarded;
using vorlith::test::GuardedBytes;

constexpr uint8_t kSentinel = 0xA7;

using RunFn = void (*)(_StLanczos1p5x*, int32_t*, uint8_t*, uint8_t*, int, int);

// A driver and the sizes it is documented for.
struct Driver {
  const char* name;
  Resampler r;
  int channels;
  int (*scaled)(int n);         // output count for n source samples
  int (*used)(int n);           // source samples a dimension actually reads
  size_t (*scratch)(int width);  // int32 values of ring scratch
  RunFn run;
  std::vector<int> widths, heights;
  std::vector<std::pair<int, int>> small;  // (width, height) below the contract
};

int Twice(int n) { return 2 * n; }
int ThreeHalves(int n) { return 3 * n / 2; }
int FourThirds(int n) { return 4 * n / 3; }
int All(int n) { return n; }
int Even(int n) { return n >= 2 ? n & ~1 : n; }
int Thirds(int n) { return n >= 3 ? n - n % 3 : n; }

// Context drivers get the ring scratch as workBuf for the call only, so the
// guarded buffer is never handed to UInitLanczos1p5x.
template <void (*F)(_StLanczos1p5x*, unsigned char*, unsigned char*, int, int)>
void WithWorkBuf(_StLanczos1p5x* ctx, int32_t* scratch, uint8_t* src, uint8_t* dst, int h,
                 int w) {
  ctx->workBuf = reinterpret_cast<unsigned char*>(scratch);
  F(ctx, src, dst, h, w);
  ctx->workBuf = nullptr;
}

void RunRgb(_StLanczos1p5x*, int32_t* scratch, uint8_t* src, uint8_t* dst, int h, int w) {
  ResizeLanczos2x_NEON(src, scratch, dst, h, w);
}

const std::vector<Driver>& Drivers() {
  static const std::vector<Driver> drivers = {
      {"Lanczos2x_SingleChannel", Resampler::kLanczos2x, 1, Twice, All,
       [](int w) { return size_t(16) * w; }, WithWorkBuf<Lanczos2x_SingleChannel>,
       {7, 8, 22, 23, 24, 39, 100}, {8, 9}, {{1, 1}, {2, 3}, {5, 4}, {6, 7}, {3, 12}, {40, 2}}},
      {"ResizeLanczos2x_NEON", Resampler::kLanczos2x, 3, Twice, All,
       [](int w) { return size_t(48) * w; }, RunRgb,
       {7, 8, 22, 23, 24, 39, 100}, {8, 9}, {{1, 1}, {4, 3}, {6, 8}, {30, 5}}},
      {"Lanczos_1p5x", Resampler::kLanczos1p5x, 1, ThreeHalves, Even,
       [](int w) { return size_t(8) * ThreeHalves(w); }, WithWorkBuf<Lanczos_1p5x>,
       {8, 10, 40, 42, 9, 41, 130}, {8, 10, 9},
       {{1, 1}, {2, 2}, {4, 6}, {7, 3}, {3, 9}, {44, 1}, {12, 5}}},
      {"Lanczos_4d3x", Resampler::kLanczos4d3x, 1, FourThirds, Thirds,
       [](int w) { return size_t(8) * FourThirds(w); }, WithWorkBuf<Lanczos_4d3x>,
       {9, 12, 33, 36, 10, 11, 99}, {9, 12, 10, 11},
       {{1, 1}, {2, 2}, {3, 4}, {5, 7}, {8, 3}, {40, 2}}},
      {"Cubic1p5x_NEON", Resampler::kCubic1p5x, 1, ThreeHalves, Even,
       [](int w) { return size_t(4) * ThreeHalves(w); }, WithWorkBuf<Cubic1p5x_NEON>,
       {3, 4, 11, 12, 19, 20, 66}, {4, 6, 5}, {{1, 1}, {2, 2}, {2, 3}, {30, 1}}},
      {"Cubic2x_NEON", Resampler::kCubic2x, 1, Twice, All,
       [](int w) { return size_t(8) * w; }, WithWorkBuf<Cubic2x_NEON>,
       {3, 4, 11, 12, 19, 20, 67}, {3, 4}, {{1, 1}, {2, 2}, {1, 5}, {30, 2}}},
  };
  return drivers;
}

using vorlith::test::Context;

enum class Image { kRandom, kEdges };

// Expected output, kSentinel where a row is documented as not written. Also
// counts the pixels whose exact sum lies outside 0..255 before clamping.
std::vector<uint8_t> Expected(const Driver& d, const std::vector<uint8_t>& src, int h, int w,
                              int* clipped) {
  const int ch = d.channels;
  const int out_w = d.scaled(w), out_h = d.scaled(h);
  const int used_w = d.used(w), used_h = d.used(h);
  const int filled_w = d.scaled(used_w), filled_h = d.scaled(used_h);
  const int values = out_w * ch;
  const int block = values / 8 * 8;
  std::vector<uint8_t> out(size_t(out_h) * values, kSentinel);
  *clipped = 0;
  for (int y = 0; y < filled_h; ++y) {
    for (int x = 0; x < out_w; ++x) {
      // Columns past the last one the read columns define repeat its
      // intermediate value.
      const int xh = std::min(x, filled_w - 1);
      for (int c = 0; c < ch; ++c) {
        const int64_t acc = vorlith::oracle::ResampleAcc(d.r, src.data() + c, w * ch, ch, used_h,
                                                         used_w, y, xh);
        if (acc < 0 || acc >= (int64_t{256} << 22) - (int64_t{1} << 21)) ++*clipped;
        const int v = x * ch + c;
        out[size_t(y) * values + v] =
            vorlith::oracle::ResampleRound(static_cast<int32_t>(acc), v < block);
      }
    }
  }
  return out;
}

void CheckDriver(const Driver& d, int h, int w, Image image, std::mt19937& rng) {
  SCOPED_TRACE(testing::Message() << d.name << " " << w << "x" << h
                                  << (image == Image::kEdges ? " edges" : " random"));
  const int ch = d.channels;
  const size_t src_bytes = size_t(h) * w * ch;
  std::vector<uint8_t> pixels(src_bytes);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w * ch; ++x) {
      uint8_t v = static_cast<uint8_t>(rng());
      // Blocks of 0 and 255 a few pixels wide: every edge rings.
      if (image == Image::kEdges) v = ((x / ch + x % ch) / 4 + y / 3) % 2 ? 255 : 0;
      pixels[size_t(y) * w * ch + x] = v;
    }
  }
  int clipped = 0;
  const std::vector<uint8_t> want = Expected(d, pixels, h, w, &clipped);
  if (image == Image::kEdges && w >= 8 && h >= 8) {
    EXPECT_GT(clipped, 0) << "the edges should overshoot";
  }

  // Source, destination and scratch all end at a guard page.
  Guarded<uint8_t> src(src_bytes);
  std::copy(pixels.begin(), pixels.end(), src.data());
  Guarded<uint8_t> dst(want.size());
  Guarded<int32_t> scratch(d.scratch(w));
  Context ctx;
  ForEachTarget([&](int64_t) {
    std::memset(dst.data(), kSentinel, want.size());
    d.run(ctx.get(), scratch.data(), src.data(), dst.data(), h, w);
    int mismatches = 0;
    const size_t values = size_t(d.scaled(w)) * ch;
    for (size_t i = 0; i < want.size(); ++i) {
      if (dst[i] != want[i] && ++mismatches <= 5) {
        ADD_FAILURE() << "row " << i / values << " value " << i % values << ": got "
                      << int(dst[i]) << " want " << int(want[i]);
      }
    }
    EXPECT_EQ(mismatches, 0);
  });
}

TEST(Resample, DriversMatchOracle) {
  std::mt19937 rng(20240611);
  for (const Driver& d : Drivers()) {
    for (int w : d.widths) {
      for (int h : d.heights) {
        CheckDriver(d, h, w, Image::kRandom, rng);
        CheckDriver(d, h, w, Image::kEdges, rng);
      }
    }
    for (auto [w, h] : d.small) CheckDriver(d, h, w, Image::kRandom, rng);
  }
}

TEST(Resample, ConstantImagesStayConstant) {
  // Tap sums of 2046, 2047 and 2049 move a constant by less than one half,
  // on the block rows and on the remainder values alike.
  for (const Driver& d : Drivers()) {
    SCOPED_TRACE(d.name);
    // The first width whose rows have block and remainder values.
    const int w = *std::find_if(d.widths.begin(), d.widths.end(), [&](int n) {
      return d.scaled(n) * d.channels > 8 && d.scaled(n) * d.channels % 8 != 0;
    });
    const int h = d.heights[0];
    const size_t out_values = size_t(d.scaled(w)) * d.scaled(h) * d.channels;
    std::vector<uint8_t> src(size_t(w) * h * d.channels), dst(out_values);
    std::vector<int32_t> scratch(d.scratch(w));
    Context ctx;
    ForEachTarget([&](int64_t) {
      for (int v = 0; v < 256; ++v) {
        std::fill(src.begin(), src.end(), static_cast<uint8_t>(v));
        d.run(ctx.get(), scratch.data(), src.data(), dst.data(), h, w);
        for (size_t i = 0; i < out_values; ++i) ASSERT_EQ(dst[i], v) << "index " << i;
      }
    });
  }
}

TEST(Resample, PureRedStaysPureRed) {
  const int w = 23, h = 9;
  std::vector<uint8_t> src(size_t(3) * w * h), dst(size_t(12) * w * h);
  for (size_t i = 0; i < src.size(); i += 3) src[i] = 255;
  std::vector<int32_t> scratch(size_t(48) * w);
  ForEachTarget([&](int64_t) {
    std::fill(dst.begin(), dst.end(), kSentinel);
    ResizeLanczos2x_NEON(src.data(), scratch.data(), dst.data(), h, w);
    for (size_t i = 0; i < dst.size(); i += 3) {
      ASSERT_EQ(dst[i], 255) << "pixel " << i / 3;
      ASSERT_EQ(dst[i + 1], 0) << "pixel " << i / 3;
      ASSERT_EQ(dst[i + 2], 0) << "pixel " << i / 3;
    }
  });
}

TEST(Resample, EmptySizesWriteNothing) {
  Context ctx;
  std::vector<uint8_t> src(64, 9), dst(256, kSentinel);
  std::vector<int32_t> scratch(1024);
  for (const Driver& d : Drivers()) {
    for (auto [w, h] : {std::pair{0, 4}, std::pair{4, 0}, std::pair{-3, 4}}) {
      d.run(ctx.get(), scratch.data(), src.data(), dst.data(), h, w);
    }
  }
  for (uint8_t b : dst) ASSERT_EQ(b, kSentinel);
}

}  // namespace
