// The exported single vector steps of the Lanczos and bicubic horizontal
// passes: each loader reads exactly its bytes, and each step computes the
// outputs its position in the row stands for.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "tests/oracle/oracle.h"
#include "tests/support/guarded.h"
#include "vorlith/kernels.h"

namespace {

using vorlith::oracle::Resampler;
using vorlith::test::Guarded;

std::vector<int32_t> Lanes(const int32x4& v) {
  std::vector<int32_t> l(4);
  std::memcpy(l.data(), &v, 16);
  return l;
}

int32x4 Make(const int32_t* lanes) {
  int32x4 v;
  std::memcpy(static_cast<void*>(&v), lanes, 16);
  return v;
}

// Bytes src[first + i*step], i = 0..7, as two vectors.
void ExpectWidened(const uint8_t* src, size_t first, size_t step, const int32x4& lo,
                   const int32x4& hi) {
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(Lanes(lo)[i], src[first + i * step]) << "lane " << i;
    EXPECT_EQ(Lanes(hi)[i], src[first + (i + 4) * step]) << "lane " << i + 4;
  }
}

class ResampleLanes : public testing::Test {
 protected:
  ResampleLanes() {
    InitLanczos1p5x(&ctx_);
    std::mt19937 rng(11);
    for (uint8_t& b : row_) b = static_cast<uint8_t>(rng());
  }
  ~ResampleLanes() override { UInitLanczos1p5x(&ctx_); }

  // inputs[k] lane i = row[stride * (start + i) + k], k < count.
  std::vector<int32x4> Inputs(int start, int stride, int count) const {
    std::vector<int32x4> in(count);
    for (int k = 0; k < count; ++k) {
      int32_t l[4];
      for (int i = 0; i < 4; ++i) l[i] = row_[stride * (start + i) + k];
      in[k] = Make(l);
    }
    return in;
  }

  // dst[per*i + p] must be horizontal output first + per*i + p of the row.
  void ExpectOutputs(Resampler r, const int* dst, int per, int first) {
    for (int i = 0; i < 4; ++i) {
      for (int p = 0; p < per; ++p) {
        EXPECT_EQ(dst[per * i + p], vorlith::oracle::ResampleH(r, row_, 1, kWidth, first + per * i + p))
            << "group " << i << " output " << p;
      }
    }
  }

  static constexpr int kWidth = 96;
  _StLanczos1p5x ctx_{};
  uint8_t row_[kWidth];
};

TEST_F(ResampleLanes, LoadersReadExactlyTheirBytes) {
  std::mt19937 rng(12);
  auto bytes = [&](size_t n) {
    auto g = std::make_unique<Guarded<uint8_t>>(n);
    for (size_t i = 0; i < n; ++i) (*g)[i] = static_cast<uint8_t>(rng());
    return g;
  };
  int32x4 v[8], lo, hi, lo2, hi2;
  auto b11 = bytes(11);
  NEON_LOAD(b11->data(), v);
  for (size_t k = 0; k < 4; ++k) ExpectWidened(b11->data(), k, 1, v[2 * k], v[2 * k + 1]);
  auto b24 = bytes(24);
  H_NEON_LOAD_S(b24->data(), v);
  for (size_t c = 0; c < 3; ++c) ExpectWidened(b24->data(), c, 3, v[2 * c], v[2 * c + 1]);
  u8_3x_to_s32_NEON_8LEN(b24->data(), v);
  for (size_t p = 0; p < 3; ++p) ExpectWidened(b24->data(), p, 3, v[2 * p], v[2 * p + 1]);
  auto b22 = bytes(22);
  u8_3x_0_to_s32_NEON_8LEN(b22->data(), lo, hi);
  ExpectWidened(b22->data(), 0, 3, lo, hi);
  auto b16 = bytes(16);
  u8_2x_to_s32_NEON_8LEN(b16->data(), lo, hi, lo2, hi2);
  ExpectWidened(b16->data(), 0, 2, lo, hi);
  ExpectWidened(b16->data(), 1, 2, lo2, hi2);
  auto b15 = bytes(15);
  u8_2x_to_s32_NEON_8LEN_FirstRow(b15->data(), lo, hi);
  ExpectWidened(b15->data(), 0, 2, lo, hi);
  auto b8 = bytes(8);
  u8_to_s32_NEON_8LEN(b8->data(), lo, hi);
  ExpectWidened(b8->data(), 0, 1, lo, hi);
}

TEST_F(ResampleLanes, StepsComputeTheBodyOutputsOfTheirPositions) {
  int dst[16];
  // Four positions from 5: outputs 2p+7 (mirror) and 2p+8 interleaved.
  NEON_CAL(&ctx_, Inputs(5, 1, 8).data(), dst);
  ExpectOutputs(Resampler::kLanczos2x, dst, 2, 2 * 5 + 7);
  // Four 2-pixel groups from 6: outputs 3g+5 .. 3g+7.
  H_1p5x_NEON_CAL(&ctx_, Inputs(6, 2, 9).data(), dst);
  ExpectOutputs(Resampler::kLanczos1p5x, dst, 3, 3 * 6 + 5);
  // Four 3-pixel groups from 4: outputs 4g+5 .. 4g+8.
  H_4d3x_NEON_CAL(&ctx_, Inputs(4, 3, 10).data(), dst);
  ExpectOutputs(Resampler::kLanczos4d3x, dst, 4, 4 * 4 + 5);
  HCubic1p5x_NEON_CAL(&ctx_, Inputs(7, 2, 5).data(), dst);
  ExpectOutputs(Resampler::kCubic1p5x, dst, 3, 3 * 7 + 2);
  HCubic2x_NEON_CAL(&ctx_, Inputs(9, 1, 4).data(), dst);
  ExpectOutputs(Resampler::kCubic2x, dst, 2, 2 * 9 + 3);
}

TEST_F(ResampleLanes, ThreeChannelStepsApplyTheTapsAndTheirMirror) {
  // Channel 1 of the row seen as RGB pixels; positions 3 .. 6.
  std::vector<int32x4> g(8);
  for (int k = 0; k < 8; ++k) {
    int32_t l[4];
    for (int i = 0; i < 4; ++i) l[i] = row_[3 * (3 + i + k) + 1];
    g[k] = Make(l);
  }
  int32x4 even, odd;
  NEON_CALCULATION1(g.data(), even);
  NEON_CALCULATION2(g.data(), odd);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(Lanes(odd)[i], vorlith::oracle::ResampleH(Resampler::kLanczos2x, row_ + 1, 3,
                                                        kWidth / 3, 2 * (3 + i) + 7));
    EXPECT_EQ(Lanes(even)[i], vorlith::oracle::ResampleH(Resampler::kLanczos2x, row_ + 1, 3,
                                                         kWidth / 3, 2 * (3 + i) + 8));
  }
}

TEST_F(ResampleLanes, StepsReadTheirTapsFromTheContext) {
  // Doubling every context tap doubles the step's outputs.
  int before[8], after[8];
  const std::vector<int32x4> in = Inputs(5, 1, 8);
  NEON_CAL(&ctx_, in.data(), before);
  for (int32x4& t : ctx_.tapsLanczos2x) {
    std::vector<int32_t> l = Lanes(t);
    for (int32_t& x : l) x *= 2;
    t = Make(l.data());
  }
  NEON_CAL(&ctx_, in.data(), after);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(after[i], 2 * before[i]) << i;
}

}  // namespace
