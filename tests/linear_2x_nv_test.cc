#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "tests/oracle/oracle.h"
#include "tests/support/context.h"
#include "tests/support/guarded.h"
#include "tests/support/targets.h"
#include "vorlith/kernels.h"

namespace {

using vorlith::test::ForEachTarget;
using vorlith::test::Guarded;
using vorlith::test::GuardedBytes;

constexpr uint8_t kSentinel = 0xA7;

using vorlith::test::Context;

// Runs Linear_2x_nv on a random plane against the per-pixel oracle. The
// source ends flush against a guard page, and so does the destination, whose
// gap bytes between rows must keep the sentinel.
void CheckLinear2xNv(int height, int width, int src_pad, int dst_pad, std::mt19937& rng) {
  SCOPED_TRACE(testing::Message() << height << "x" << width << " pads " << src_pad << "/"
                                  << dst_pad);
  const int src_stride = 2 * width + src_pad;
  const int dst_stride = 4 * width + dst_pad;
  const size_t src_bytes = size_t(height - 1) * src_stride + 2 * width;
  const size_t dst_bytes = size_t(2 * height - 1) * dst_stride + 4 * width;
  Guarded<uint8_t> src(src_bytes);
  for (size_t i = 0; i < src_bytes; ++i) src[i] = static_cast<uint8_t>(rng());
  Guarded<uint8_t> dst(dst_bytes);
  Context ctx;

  ForEachTarget([&](int64_t) {
    std::memset(dst.data(), kSentinel, dst_bytes);
    Linear_2x_nv(ctx.get(), src.data(), dst.data(), height, width, src_stride, dst_stride);
    int mismatches = 0;
    for (int row = 0; row < 2 * height; ++row) {
      for (int col = 0; col < 2 * width; ++col) {
        for (int c = 0; c < 2; ++c) {
          const uint8_t want = vorlith::oracle::Linear2xNvSample(src.data(), src_stride, height,
                                                                 width, row, col, c);
          const uint8_t got = dst[size_t(row) * dst_stride + 2 * col + c];
          if (got != want && ++mismatches <= 5) {
            ADD_FAILURE() << "row " << row << " col " << col << " c " << c << ": got "
                          << int(got) << " want " << int(want);
          }
        }
      }
      if (row + 1 < 2 * height) {
        for (int x = 4 * width; x < dst_stride; ++x) {
          ASSERT_EQ(dst[size_t(row) * dst_stride + x], kSentinel) << "gap written, row " << row;
        }
      }
    }
    EXPECT_EQ(mismatches, 0);
    // The ring ends with both indices on the bottom row's buffer.
    EXPECT_EQ(ctx.get()->rowIndex[0], ctx.get()->rowIndex[1]);
  });
}

TEST(Linear2xNv, MatchesOracleAtPathBoundaries) {
  std::mt19937 rng(20261123);
  // Widths around the 8-pair horizontal step and the vertical vector widths
  // (8 output bytes per pair pair, 16 to 64 per vector); odd and even heights.
  for (int width : {1, 2, 3, 7, 8, 9, 15, 16, 17, 24, 31, 33, 64, 65, 100}) {
    for (int height : {1, 2, 3, 4, 7}) {
      CheckLinear2xNv(height, width, 0, 0, rng);
    }
  }
  CheckLinear2xNv(5, 23, 6, 12, rng);
  CheckLinear2xNv(9, 320, 64, 128, rng);
}

TEST(Linear2xNv, KnownValues) {
  // A uniform plane stays uniform, and a horizontal edge between rows of 0 and
  // 255 gives 64 and 191 on the two output rows next to it.
  const int width = 9, height = 2;
  std::vector<uint8_t> src(2 * width * height);
  for (int x = 0; x < width; ++x) {
    src[2 * x] = 0;
    src[2 * x + 1] = 77;
    src[2 * width + 2 * x] = 255;
    src[2 * width + 2 * x + 1] = 77;
  }
  std::vector<uint8_t> dst(16 * width * height);
  Context ctx;
  ForEachTarget([&](int64_t) {
    Linear_2x_nv(ctx.get(), src.data(), dst.data(), height, width, 2 * width, 4 * width);
    const uint8_t expect_cb[4] = {0, 64, 191, 255};
    for (int row = 0; row < 4; ++row) {
      for (int col = 0; col < 2 * width; ++col) {
        ASSERT_EQ(dst[row * 4 * width + 2 * col], expect_cb[row]) << row << "," << col;
        ASSERT_EQ(dst[row * 4 * width + 2 * col + 1], 77) << row << "," << col;
      }
    }
  });
}

TEST(Linear2xNv, NonPositiveSizesWriteNothing) {
  Context ctx;
  std::vector<uint8_t> src(64, 9), dst(256, kSentinel);
  Linear_2x_nv(ctx.get(), src.data(), dst.data(), 0, 4, 8, 16);
  Linear_2x_nv(ctx.get(), src.data(), dst.data(), 4, 0, 8, 16);
  for (uint8_t b : dst) ASSERT_EQ(b, kSentinel);
}

TEST(HResizeLinear2xNv, MatchesOracleAndStaysInsideTheRow) {
  std::mt19937 rng(7);
  for (int width = 1; width <= 41; ++width) {
    SCOPED_TRACE(testing::Message() << "width " << width);
    // Source flush against the guard at its end, destination at both ends.
    Guarded<uint8_t> src(2 * width);
    for (int i = 0; i < 2 * width; ++i) src[i] = static_cast<uint8_t>(rng());
    Guarded<int16_t> dst_end(4 * width);
    Guarded<int16_t> dst_start(4 * width, GuardedBytes::Flush::kStart);
    ForEachTarget([&](int64_t) {
      for (Guarded<int16_t>* dst : {&dst_end, &dst_start}) {
        HResizeLinear_2x_nv_NEON(src.data(), dst->data(), (width - 1) / 8, (width - 1) % 8);
        for (int i = 0; i < 4 * width; ++i) {
          ASSERT_EQ((*dst)[i], vorlith::oracle::HLinear2xNvValue(src.data(), width, i))
              << "index " << i;
        }
      }
    });
  }
}

// The general vertical pass, whose 16-bit body and 32-bit tail differ.
class VResizeLinearTest : public testing::Test {
 protected:
  void Check(const std::vector<int16_t>& a, const std::vector<int16_t>& b, int16_t w0,
             int16_t w1, int groups, int tail, float scale) {
    SCOPED_TRACE(testing::Message() << "w " << w0 << "," << w1 << " groups " << groups
                                    << " tail " << tail << " scale " << scale);
    const size_t n = 8 * size_t(groups) + tail;
    // Row slots in a shuffled order, so the ring indices must be honoured.
    std::vector<int16_t> other(n, 12345);
    short* rows[3] = {other.data(), const_cast<int16_t*>(b.data()),
                      const_cast<int16_t*>(a.data())};
    ctx_.get()->rowIndex[0] = 2;
    ctx_.get()->rowIndex[1] = 1;
    const short weights[2] = {w0, w1};
    Guarded<uint8_t> dst(n);
    ForEachTarget([&](int64_t) {
      VResizeLinear_NEON(ctx_.get(), rows, dst.data(), weights, groups, tail, scale);
      for (size_t i = 0; i < n; ++i) {
        const bool body = i < 8 * size_t(groups);
        ASSERT_EQ(int(dst[i]),
                  int(vorlith::oracle::VLinearValue(a[i], b[i], w0, w1, scale, body)))
            << "index " << i << " a " << a[i] << " b " << b[i];
      }
    });
  }
  Context ctx_;
};

TEST_F(VResizeLinearTest, BodyWrapsTailDoesNot) {
  // 100*200 + 100*200 = 40000: the body sees -25536 and gives 0, the tail
  // gives 2500 capped to 255.
  const std::vector<int16_t> rows(9, 100);
  Check(rows, rows, 200, 200, 1, 1, 0.0625f);
  short* ring[2] = {const_cast<int16_t*>(rows.data()), const_cast<int16_t*>(rows.data())};
  ctx_.get()->rowIndex[0] = 0;
  ctx_.get()->rowIndex[1] = 1;
  const short weights[2] = {200, 200};
  uint8_t out[9];
  ForEachTarget([&](int64_t) {
    VResizeLinear_NEON(ctx_.get(), ring, out, weights, 1, 1, 0.0625f);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(out[i], 0);
    EXPECT_EQ(out[8], 255);
  });
}

TEST_F(VResizeLinearTest, MatchesOracleOverRandomRowsWeightsAndScales) {
  std::mt19937 rng(99);
  std::uniform_int_distribution<int> any16(-32768, 32767);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const float scales[] = {0.0625f, 0.25f, 1.0f, 0.001f, -0.0625f, 3.0e-5f, 7.5f, 1.0e30f,
                          -1.0e30f, nan, inf};
  for (int groups : {0, 1, 2, 3, 5}) {
    for (int tail : {0, 1, 7, 8, 9, 17}) {
      const size_t n = 8 * size_t(groups) + tail;
      std::vector<int16_t> a(n), b(n);
      for (size_t i = 0; i < n; ++i) {
        a[i] = static_cast<int16_t>(any16(rng));
        b[i] = static_cast<int16_t>(any16(rng));
      }
      // The pair whose 32-bit sum is exactly 2^31 and wraps on the tail too.
      if (n > 0) a[n - 1] = b[n - 1] = -32768;
      for (float scale : scales) {
        Check(a, b, static_cast<int16_t>(any16(rng)), static_cast<int16_t>(any16(rng)), groups,
              tail, scale);
      }
      Check(a, b, -32768, -32768, groups, tail, 1.0f);
      Check(a, b, 1, 3, groups, tail, 0.0625f);
    }
  }
}

}  // namespace
