// The exported horizontal and vertical passes of the Lanczos and bicubic
// resamplers, called as a host would call them one row at a time.
#include <gtest/gtest.h>

#include <cstddef>
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

using vorlith::test::Context;

// One exported horizontal pass with the counts a driver passes for width w,
// and the outputs its vector body (context taps) covers.
struct HPass {
  const char* name;
  Resampler r;
  int (*outputs)(int w);
  bool (*valid)(int w);
  void (*call)(_StLanczos1p5x* ctx, uint8_t* src, int32_t* dst, int w);
  int body_first;     // first output of the body
  int body_per_unit;  // outputs per body position or group
  int (*body_units)(int w);
};

const HPass kHPasses[] = {
    {"HResizeLanczos2x_NEON", Resampler::kLanczos2x, [](int w) { return 2 * w; },
     [](int w) { return w >= 1; },
     [](_StLanczos1p5x* c, uint8_t* s, int32_t* d, int w) {
       HResizeLanczos2x_NEON(c, s, d, (w - 7) / 16, (w - 7) % 16);
     },
     7, 2, [](int w) { return w >= 7 ? 16 * ((w - 7) / 16) : 0; }},
    {"HResizeLanczos_1p5x_NEON", Resampler::kLanczos1p5x, [](int w) { return 3 * w / 2; },
     [](int w) { return w % 2 == 0; },
     [](_StLanczos1p5x* c, uint8_t* s, int32_t* d, int w) {
       HResizeLanczos_1p5x_NEON(c, s, d, (w - 8) / 32, ((w - 8) % 32) / 2);
     },
     5, 3, [](int w) { return w >= 8 ? 16 * ((w - 8) / 32) : 0; }},
    {"HResizeLanczos_4d3x_NEON", Resampler::kLanczos4d3x, [](int w) { return 4 * w / 3; },
     [](int w) { return w % 3 == 0; },
     [](_StLanczos1p5x* c, uint8_t* s, int32_t* d, int w) {
       HResizeLanczos_4d3x_NEON(c, s, d, (w - 9) / 24, ((w - 9) / 3) % 8);
     },
     5, 4, [](int w) { return w >= 9 ? 8 * ((w - 9) / 24) : 0; }},
    {"HCubic1p5x_NEON", Resampler::kCubic1p5x, [](int w) { return 3 * w / 2; },
     [](int w) { return w % 2 == 0; },
     [](_StLanczos1p5x* c, uint8_t* s, int32_t* d, int w) {
       HCubic1p5x_NEON(c, s, d, (w - 4) / 16, ((w - 4) % 16) / 2);
     },
     2, 3, [](int w) { return w >= 4 ? 8 * ((w - 4) / 16) : 0; }},
    {"HCubic2x_NEON", Resampler::kCubic2x, [](int w) { return 2 * w; },
     [](int w) { return w >= 1; },
     [](_StLanczos1p5x* c, uint8_t* s, int32_t* d, int w) {
       HCubic2x_NEON(c, s, d, (w - 3) / 8, (w - 3) % 8);
     },
     3, 2, [](int w) { return w >= 3 ? 8 * ((w - 3) / 8) : 0; }},
};

// Every width up to 90 the pass is meant for, including those below the
// vector body: exactly the row is read, exactly the outputs are written.
TEST(ResamplePasses, HorizontalPassesMatchOracleInsideTheRow) {
  std::mt19937 rng(5);
  Context ctx;
  for (const HPass& p : kHPasses) {
    for (int w = 1; w <= 90; ++w) {
      if (!p.valid(w)) continue;
      SCOPED_TRACE(testing::Message() << p.name << " width " << w);
      Guarded<uint8_t> src(w);
      for (int i = 0; i < w; ++i) src[i] = static_cast<uint8_t>(rng());
      const int n = p.outputs(w);
      Guarded<int32_t> dst_end(n);
      Guarded<int32_t> dst_start(n, GuardedBytes::Flush::kStart);
      ForEachTarget([&](int64_t) {
        for (Guarded<int32_t>* dst : {&dst_end, &dst_start}) {
          p.call(ctx.get(), src.data(), dst->data(), w);
          for (int j = 0; j < n; ++j) {
            ASSERT_EQ((*dst)[j], vorlith::oracle::ResampleH(p.r, src.data(), 1, w, j))
                << "output " << j;
          }
        }
      });
    }
  }
}

TEST(ResamplePasses, HorizontalBodyTakesTheContextTaps) {
  // With the context's taps zeroed, exactly the body outputs become 0: the
  // borders and the single groups after the blocks keep the constant taps.
  std::mt19937 rng(6);
  _StLanczos1p5x zeroed{};
  InitLanczos1p5x(&zeroed);
  const size_t taps_begin = offsetof(_StLanczos1p5x, tapsLanczos2x);
  const size_t taps_end = offsetof(_StLanczos1p5x, hblBuf);
  std::memset(reinterpret_cast<unsigned char*>(&zeroed) + taps_begin, 0, taps_end - taps_begin);
  for (const HPass& p : kHPasses) {
    for (int w : {42, 90}) {
      if (!p.valid(w)) continue;
      SCOPED_TRACE(testing::Message() << p.name << " width " << w);
      std::vector<uint8_t> src(w);
      for (uint8_t& b : src) b = static_cast<uint8_t>(rng() | 1);
      const int n = p.outputs(w);
      const int body_end = p.body_first + p.body_per_unit * p.body_units(w);
      ASSERT_GT(body_end, p.body_first);
      ASSERT_LT(body_end, n - 7);
      std::vector<int32_t> dst(n);
      ForEachTarget([&](int64_t) {
        p.call(&zeroed, src.data(), dst.data(), w);
        for (int j = 0; j < n; ++j) {
          const bool body = j >= p.body_first && j < body_end;
          ASSERT_EQ(dst[j], body ? 0 : vorlith::oracle::ResampleH(p.r, src.data(), 1, w, j))
              << "output " << j;
        }
      });
    }
  }
  UInitLanczos1p5x(&zeroed);
}

TEST(ResamplePasses, ThreeChannelHorizontalPassMatchesOracle) {
  std::mt19937 rng(7);
  for (int w = 1; w <= 60; ++w) {
    SCOPED_TRACE(testing::Message() << "width " << w);
    Guarded<uint8_t> src(3 * w);
    for (int i = 0; i < 3 * w; ++i) src[i] = static_cast<uint8_t>(rng());
    Guarded<int32_t> dst(6 * w);
    ForEachTarget([&](int64_t) {
      HResizeLanczos2x_NEON(src.data(), dst.data(), (w - 7) % 8, (w - 7) / 16, ((w - 7) / 8) % 2);
      for (int j = 0; j < 2 * w; ++j) {
        for (int c = 0; c < 3; ++c) {
          ASSERT_EQ(dst[3 * j + c], vorlith::oracle::ResampleH(Resampler::kLanczos2x,
                                                               src.data() + c, 3, w, j))
              << "output " << j << " channel " << c;
        }
      }
    });
  }
}

// The exported vertical passes; each reads its ring indices from the context
// or, for the three-channel one, from lanczos2xRowRing.
struct VPass {
  const char* name;
  int taps;
  void (*call)(_StLanczos1p5x* ctx, int** rows, uint8_t* dst, const short* taps, int blocks8,
               int rest);
  int32_t* (*index)(_StLanczos1p5x* ctx);
};

int32_t* ContextIndex(_StLanczos1p5x* ctx) { return ctx->rowIndex; }
int32_t* GlobalRing(_StLanczos1p5x*) { return lanczos2xRowRing; }

const VPass kVPasses[] = {
    {"VResizeLanczos2x_NEON(ctx)", 8, VResizeLanczos2x_NEON, ContextIndex},
    {"VResizeLanczos2x_NEON", 8,
     [](_StLanczos1p5x*, int** rows, uint8_t* dst, const short* taps, int b, int r) {
       VResizeLanczos2x_NEON(rows, dst, taps, b, r);
     },
     GlobalRing},
    {"VResizeLanczos_1p5x_NEON", 8, VResizeLanczos_1p5x_NEON, ContextIndex},
    {"VCubic_NEON", 4, VCubic_NEON, ContextIndex},
};

class ResampleVerticalPasses : public testing::Test {
 protected:
  // Runs `pass` over rows whose slots are named in reverse order, so the
  // ring indices must be followed, and checks every value against the
  // oracle's rounding of the wrapped 32-bit sum.
  void Check(const VPass& pass, const std::vector<std::vector<int32_t>>& rows,
             const short* taps, int blocks8, int rest) {
    const int n = 8 * blocks8 + rest;
    std::vector<int*> slots(pass.taps);
    for (int k = 0; k < pass.taps; ++k) {
      slots[pass.taps - 1 - k] = const_cast<int*>(rows[k].data());
      pass.index(ctx_.get())[k] = pass.taps - 1 - k;
    }
    Guarded<uint8_t> dst(n);
    ForEachTarget([&](int64_t) {
      pass.call(ctx_.get(), slots.data(), dst.data(), taps, blocks8, rest);
      for (int x = 0; x < n; ++x) {
        uint32_t acc = 0;
        for (int k = 0; k < pass.taps; ++k) {
          acc += static_cast<uint32_t>(rows[k][x]) * static_cast<uint32_t>(int32_t{taps[k]});
        }
        ASSERT_EQ(dst[x], vorlith::oracle::ResampleRound(static_cast<int32_t>(acc), x < 8 * blocks8))
            << "value " << x;
      }
    });
  }
  Context ctx_;
};

TEST_F(ResampleVerticalPasses, BlocksRoundInFloatRemainderInDouble) {
  // acc = 4.5 * 2^22 - 1 is odd and above 2^24: float rounds it up to
  // 4.5 * 2^22, so the block values give 5; the remainder values, in double,
  // give 4.
  const int32_t acc = 18874367;
  for (const VPass& pass : kVPasses) {
    SCOPED_TRACE(pass.name);
    std::vector<std::vector<int32_t>> rows(pass.taps, std::vector<int32_t>(21, 0));
    for (int32_t& v : rows[1]) v = acc;
    std::vector<short> taps(pass.taps, 0);
    taps[1] = 1;
    Check(pass, rows, taps.data(), 2, 5);
    std::vector<int*> ring(pass.taps);
    for (int k = 0; k < pass.taps; ++k) {
      ring[k] = rows[k].data();
      pass.index(ctx_.get())[k] = k;
    }
    uint8_t out[21];
    ForEachTarget([&](int64_t) {
      pass.call(ctx_.get(), ring.data(), out, taps.data(), 2, 5);
      for (int x = 0; x < 16; ++x) ASSERT_EQ(out[x], 5) << x;
      for (int x = 16; x < 21; ++x) ASSERT_EQ(out[x], 4) << x;
    });
  }
}

TEST_F(ResampleVerticalPasses, MatchOracleOverAnyRowsAndTaps) {
  // Row values far outside what a horizontal pass produces: sums wrap in 32
  // bits, the float path sees up to +-512, negatives clamp to 0.
  std::mt19937 rng(8);
  for (const VPass& pass : kVPasses) {
    SCOPED_TRACE(pass.name);
    for (auto [blocks8, rest] : {std::pair{0, 7}, std::pair{1, 0}, std::pair{3, 5},
                                 std::pair{9, 1}, std::pair{2, 12}}) {
      const int n = 8 * blocks8 + rest;
      std::vector<std::vector<int32_t>> rows(pass.taps, std::vector<int32_t>(n));
      for (auto& row : rows) {
        for (int32_t& v : row) v = static_cast<int32_t>(rng());
      }
      std::vector<short> taps(pass.taps);
      for (short& t : taps) t = static_cast<short>(rng());
      Check(pass, rows, taps.data(), blocks8, rest);
      // Realistic magnitudes: Q11 rows of bytes and the documented taps.
      for (auto& row : rows) {
        for (int32_t& v : row) v = static_cast<int32_t>(rng() % 797131) - 137445;
      }
      const short lanczos[8] = {-8, 64, -188, 579, 1830, -312, 114, -31};
      const short cubic[4] = {-36, 329, 1932, -178};
      Check(pass, rows, pass.taps == 8 ? lanczos : cubic, blocks8, rest);
    }
  }
}

}  // namespace
