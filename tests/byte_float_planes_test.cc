#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "tests/oracle/oracle.h"
#include "tests/support/guarded.h"
#include "tests/support/targets.h"
#include "vorlith/convert.h"

namespace {

using vorlith::test::ForEachTarget;
using vorlith::test::Guarded;

const int kWidths[] = {1, 7, 8, 9, 15, 16, 17, 23, 24, 31, 33, 64, 71};

// Values on both sides of every rule: exact bytes, fractions, the 8-bit and
// 16-bit edges, the int32 and uint32 edges, NaN and infinities.
std::vector<float> SpecialFloats() {
  const float inf = std::numeric_limits<float>::infinity();
  return {0.0f,        -0.0f,      0.5f,          1.0f,          127.5f,      254.99f,
          255.0f,      255.99f,    256.0f,        300.0f,        -1.0f,       -3.7f,
          -0.99f,      -256.0f,    32767.0f,      32767.99f,     32768.0f,    40000.0f,
          65535.0f,    65536.0f,   65791.0f,      1.0e6f,        2147483520.0f, 2147483648.0f,
          3.0e9f,      4294967040.0f, 4294967296.0f, 1.0e10f,    -2147483648.0f, -3.0e9f,
          -1.0e10f,    1.0e38f,    inf,           -inf,          std::numeric_limits<float>::quiet_NaN(),
          -std::numeric_limits<float>::quiet_NaN(), 1.0e-30f, 16777217.0f};
}

TEST(CvtF32ToU8Stride, MatchesOracleOnSpecialAndRandomValues) {
  std::mt19937 rng(5);
  const std::vector<float> specials = SpecialFloats();
  std::uniform_real_distribution<float> wide(-70000.0f, 70000.0f);
  for (int width : kWidths) {
    for (int pad : {0, 5}) {
      const int height = 3;
      const int src_stride = width + pad + 1;  // float gap of at least one
      const int dst_stride = width + pad;
      SCOPED_TRACE(testing::Message() << "W " << width << " pad " << pad);
      Guarded<float> src(size_t(height - 1) * src_stride + width);
      // Every special value visits every column over the rows and offsets.
      for (size_t offset = 0; offset < specials.size(); offset += 3) {
        for (size_t i = 0; i < src.size(); ++i) {
          src[i] = (i % 4 == 3) ? wide(rng) : specials[(i + offset) % specials.size()];
        }
        Guarded<uint8_t> dst(size_t(height - 1) * dst_stride + width);
        ForEachTarget([&](int64_t) {
          std::memset(dst.data(), 0xC3, dst.size());
          CvtF32ToU8_STRIDE(src.data(), dst.data(), height, width, src_stride, dst_stride);
          for (int y = 0; y < height; ++y) {
            for (int x = 0; x < dst_stride && size_t(y) * dst_stride + x < dst.size(); ++x) {
              const uint8_t got = dst[size_t(y) * dst_stride + x];
              if (x >= width) {
                ASSERT_EQ(got, 0xC3) << "gap written at row " << y;
                continue;
              }
              const float v = src[size_t(y) * src_stride + x];
              const bool body = x < width / 8 * 8;
              ASSERT_EQ(int(got), int(vorlith::oracle::F32ToU8(v, body)))
                  << "row " << y << " col " << x << " value " << v;
            }
          }
        });
      }
    }
  }
}

TEST(CvtF32ToU8Stride, BodySaturatesTailWraps) {
  const struct {
    float value;
    uint8_t body, tail;
  } cases[] = {{300.0f, 255, 44}, {-3.7f, 0, 253}, {40000.0f, 0, 64}, {255.9f, 255, 255},
               {256.0f, 255, 0}, {-1.0f, 0, 255}};
  for (const auto& c : cases) {
    std::vector<float> row(9, c.value);
    uint8_t out[9];
    ForEachTarget([&](int64_t) {
      CvtF32ToU8_STRIDE(row.data(), out, 1, 9, 9, 9);
      for (int x = 0; x < 8; ++x) EXPECT_EQ(out[x], c.body) << c.value;
      EXPECT_EQ(out[8], c.tail) << c.value;
      // Seven columns: all of them take the tail's rule.
      CvtF32ToU8_STRIDE(row.data(), out, 1, 7, 7, 7);
      for (int x = 0; x < 7; ++x) EXPECT_EQ(out[x], c.tail) << c.value;
    });
  }
}

TEST(CvtU8ToF32Stride, ExactValuesStridesAndRoundTrip) {
  std::mt19937 rng(11);
  for (int width : kWidths) {
    const int height = 4, src_stride = width + 3, dst_stride = width + 2;
    SCOPED_TRACE(testing::Message() << "W " << width);
    Guarded<uint8_t> src(size_t(height - 1) * src_stride + width);
    for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(rng());
    src[0] = 255;
    src[src.size() - 1] = 0;
    Guarded<float> dst(size_t(height - 1) * dst_stride + width);
    Guarded<uint8_t> back(src.size());
    ForEachTarget([&](int64_t) {
      for (size_t i = 0; i < dst.size(); ++i) dst[i] = -7.0f;
      CvtU8ToF32_STRIDE(src.data(), dst.data(), height, width, src_stride, dst_stride);
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < dst_stride && size_t(y) * dst_stride + x < dst.size(); ++x) {
          const float got = dst[size_t(y) * dst_stride + x];
          if (x >= width) {
            ASSERT_EQ(got, -7.0f) << "gap written at row " << y;
          } else {
            ASSERT_EQ(got, vorlith::oracle::U8ToF32(src[size_t(y) * src_stride + x]));
          }
        }
      }
      CvtF32ToU8_STRIDE(dst.data(), back.data(), height, width, dst_stride, src_stride);
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
          ASSERT_EQ(back[size_t(y) * src_stride + x], src[size_t(y) * src_stride + x]);
        }
      }
    });
  }
}

TEST(ByteFloatPlanes, EmptySizesAndNegativeStrides) {
  std::vector<uint8_t> bytes(32, 1);
  std::vector<float> floats(32, 2.0f);
  CvtU8ToF32_STRIDE(bytes.data(), floats.data(), 0, 8, 8, 8);
  CvtF32ToU8_STRIDE(floats.data(), bytes.data(), 4, 0, 8, 8);
  for (float f : floats) ASSERT_EQ(f, 2.0f);
  for (uint8_t b : bytes) ASSERT_EQ(b, 1);
  // Bottom-up: start at the last row and step back.
  for (int i = 0; i < 32; ++i) bytes[i] = static_cast<uint8_t>(i);
  CvtU8ToF32_STRIDE(bytes.data() + 24, floats.data(), 4, 8, -8, 8);
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 8; ++x) ASSERT_EQ(floats[y * 8 + x], float((3 - y) * 8 + x));
  }
}

}  // namespace
