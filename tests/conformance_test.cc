// Every exported kernel against its oracle on every target (the rows are in
// *_rows.cc), plus what the rows rest on: the targets reached, the oracle's
// documented values, and the kernel context.
#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "src/kernels/dispatch.h"
#include "tests/oracle/oracle.h"
#include "tests/support/conformance.h"
#include "tests/support/targets.h"
#include "vorlith/convert.h"
#include "vorlith/kernel_context.h"

namespace {

using vorlith::check::Row;

std::vector<Row> AllRows() {
  std::vector<Row> rows = vorlith::check::ResampleRows();
  for (Row& r : vorlith::check::PlaneRows()) rows.push_back(std::move(r));
  for (Row& r : vorlith::check::FilterRows()) rows.push_back(std::move(r));
  for (Row& r : vorlith::check::ConvertRows()) rows.push_back(std::move(r));
  return rows;
}

class Conformance : public testing::TestWithParam<Row> {};

TEST_P(Conformance, Row) { vorlith::check::RunRow(GetParam()); }

INSTANTIATE_TEST_SUITE_P(Kernels, Conformance, testing::ValuesIn(AllRows()),
                         [](const testing::TestParamInfo<Row>& info) { return info.param.name; });

// The rows are only as good as the targets they reach: each architecture's
// vector target must be among them, beside the scalar one.
TEST(Targets, EveryArchitectureRunsItsVectorAndScalarPaths) {
  std::string names;
  bool scalar = false, vector = false;
  for (int64_t target : vorlith::RunnableTargets()) {
    names += vorlith::test::TargetName(target) + " ";
    scalar |= target == HWY_SCALAR;
#if HWY_ARCH_X86
    vector |= target == HWY_SSE4;
#elif HWY_ARCH_ARM_A64
    vector |= target == HWY_NEON;
#endif
  }
  std::printf("targets compiled and runnable here: %s\n", names.c_str());
  EXPECT_TRUE(scalar) << names;
  EXPECT_TRUE(vector) << names;
}

// The kernels match the oracle byte for byte, so the oracle alone must agree
// with the documented examples.
TEST(Oracle, AgreesWithTheDocumentedExamples) {
  using namespace vorlith::oracle;
  const struct {
    float value;
    uint8_t body, tail;
  } bytes[] = {{300.0f, 255, 44}, {-3.7f, 0, 253}, {40000.0f, 0, 64}, {255.9f, 255, 255},
               {256.0f, 255, 0}, {-1.0f, 0, 255}};
  for (const auto& b : bytes) {
    EXPECT_EQ(F32ToU8(b.value, true), b.body) << b.value;
    EXPECT_EQ(F32ToU8(b.value, false), b.tail) << b.value;
  }
  // 100*200 + 100*200 = 40000: -25536 in the 16-bit body, 2500 capped in the tail.
  EXPECT_EQ(VLinearValue(100, 100, 200, 200, 0.0625f, true), 0);
  EXPECT_EQ(VLinearValue(100, 100, 200, 200, 0.0625f, false), 255);
  // 4.5 * 2^22 - 1 rounds up in float, not in double.
  EXPECT_EQ(ResampleRound(18874367, true), 5);
  EXPECT_EQ(ResampleRound(18874367, false), 4);
  // A horizontal edge between rows of 0 and 255 gives 64 and 191 beside it.
  const uint8_t edge[4] = {0, 9, 255, 9};
  const uint8_t want[4] = {0, 64, 191, 255};
  for (int row = 0; row < 4; ++row) {
    EXPECT_EQ(Linear2xNvSample(edge, 2, 2, 1, row, 1, 0), want[row]);
    EXPECT_EQ(Linear2xNvSample(edge, 2, 2, 1, row, 0, 1), 9);
  }
  // A step from a row of 0 to a row of 255, enlarged 2x, 4x and (two
  // columns wide) 1.5x, where 127.5 rounds up.
  const uint8_t step[4] = {0, 0, 255, 255};
  const uint8_t want2[4] = {0, 64, 191, 255}, want15[3] = {0, 128, 255};
  const uint8_t want4[8] = {0, 0, 32, 96, 159, 223, 255, 255};
  for (int row = 0; row < 8; ++row) {
    EXPECT_EQ(LinearSample(2, 1, step + 1, 2, 1, row / 2, 1), want2[row / 2]);
    EXPECT_EQ(LinearSample(3, 2, step, 2, 2, row % 3, 2), want15[row % 3]);
    EXPECT_EQ(LinearSample(4, 1, step + 1, 2, 1, row, 3), want4[row]);
    const float rows01[2] = {0.0f, 1.0f};
    const int eighths = row < 2 ? 0 : (row > 5 ? 8 : 2 * row - 3);
    EXPECT_EQ(LinearFloatSample(4, rows01, 2, 1, row, 2), eighths / 8.0f);
  }
  for (auto [v, byte] : {std::pair{255.9f, 255}, {-0.5f, 0}, {300.0f, 255}}) {
    EXPECT_EQ(NhwcByte(v), byte);
  }
  // Tap sums of 2046 to 2049 move a constant by less than one half, in every
  // phase pair and by both rounding rules.
  for (auto r : {Resampler::kLanczos2x, Resampler::kLanczos1p5x, Resampler::kLanczos4d3x,
                 Resampler::kCubic1p5x, Resampler::kCubic2x}) {
    for (int j = 0; j < 12; ++j) {
      for (int v = 0; v < 256; v += 17) {
        const uint8_t flat[1] = {static_cast<uint8_t>(v)};
        const int64_t acc = ResampleAcc(r, flat, 1, 1, 1, 1, j, (j * 7) % 12);
        ASSERT_EQ(ResampleRound(static_cast<int32_t>(acc), true), v) << j;
        ASSERT_EQ(ResampleRound(static_cast<int32_t>(acc), false), v) << j;
      }
    }
  }
}

// Every table value is written whatever the memory held, in every lane
// (the rows check the values, the colour constants included, through the
// kernels that use them); nothing else is touched.
TEST(KernelContext, InitFillsEveryLaneAndTouchesNothingElse) {
  _StLanczos1p5x ctx[2];
  std::memset(static_cast<void*>(&ctx[0]), 0x5A, sizeof(ctx[0]));
  std::memset(static_cast<void*>(&ctx[1]), 0xA5, sizeof(ctx[1]));
  for (_StLanczos1p5x& c : ctx) InitLanczos1p5x(&c);
  const auto* a = reinterpret_cast<const unsigned char*>(&ctx[0]);
  const auto* b = reinterpret_cast<const unsigned char*>(&ctx[1]);
  // The tables are 16-byte vectors from yCoefR to the last taps; a
  // broadcast of 8-, 16- or 32-bit values repeats every 4 bytes.
  for (size_t at = offsetof(_StLanczos1p5x, yCoefR); at < offsetof(_StLanczos1p5x, hblBuf); at += 16) {
    if (at == offsetof(_StLanczos1p5x, halfVec) || at == offsetof(_StLanczos1p5x, q16Vec)) {
      for (size_t i = at; i < at + 16; ++i) EXPECT_EQ(a[i] ^ b[i], 0xFF) << "unset vector, byte " << i;
      continue;
    }
    EXPECT_EQ(std::memcmp(a + at, b + at, 16), 0) << "vector at byte " << at << " not fully written";
    for (size_t lane = 4; lane < 16; lane += 4) {
      EXPECT_EQ(std::memcmp(a + at, a + at + lane, 4), 0) << "vector at byte " << at << ", lane " << lane / 4;
    }
  }
  // Untouched: the ring indices and every pointer but lineBuf, which must be
  // writable end to end.
  for (int32_t index : ctx[0].rowIndex) EXPECT_EQ(index, 0x5A5A5A5A);
  unsigned char* const pattern = ctx[0].hblBuf[0];
  EXPECT_EQ(reinterpret_cast<uintptr_t>(pattern), uintptr_t(0x5A5A5A5A5A5A5A5Aull));
  for (unsigned char* p : ctx[0].hblBuf) EXPECT_EQ(p, pattern);
  for (unsigned char* p : {ctx[0].spareBuf0, ctx[0].workBuf, ctx[0].spareBuf1, ctx[0].spareBuf2,
                           ctx[0].floatLineBuf, ctx[0].spareBuf3, ctx[0].spareBuf4}) {
    EXPECT_EQ(p, pattern);
  }
  for (_StLanczos1p5x& c : ctx) {
    ASSERT_NE(c.lineBuf, pattern);
    std::memset(c.lineBuf, 0, kVorlithLineBufBytes);
    delete[] c.lineBuf;
  }
}

TEST(KernelContext, UInitFreesEverySetPointerAndSkipsNull) {
  // Under AddressSanitizer a missed pointer is a reported leak and a wrong
  // delete a reported mismatch.
  _StLanczos1p5x ctx{};
  UInitLanczos1p5x(&ctx);
  InitLanczos1p5x(&ctx);
  ctx.workBuf = new unsigned char[64];
  ctx.floatLineBuf = new unsigned char[64];
  ctx.spareBuf2 = new unsigned char[1];
  ctx.hblBuf[0] = new unsigned char[8];
  ctx.hblBuf[6] = new unsigned char[8];
  UInitLanczos1p5x(&ctx);
}

}  // namespace

// The vector steps of RGBA to I420A take their weights and offsets from the
// context, as the header says, whatever they are: weights past 16 bits (the
// pairwise products' correction terms), offsets whose sums leave 32 bits
// once scaled, Y's high half wrapping in 16 bits. Only the scalar target
// (every column a tail, with the built-in weights) has nothing to check.
TEST(RgbaToI420A, VectorStepsTakeAnyWeightsFromTheContext) {
  struct Set {
    int32_t y[3], u[3], v[3];
    int16_t y_off, u_off, v_off;
  };
  const Set sets[] = {
      {{16843, 33030, 6423}, {-9699, -19071, 28770}, {28770, -24117, -4653}, 16, 128, 128},
      {{16843, 33030, 6423}, {-9699, -19071, 28770}, {28770, -24117, -4653}, 16, 32767, 128},
      {{16843, 33030, 6423}, {-9699, -19071, 28770}, {-1, 0, 0}, 16, 128, -32768},
      {{32767, -65536, -32768}, {-32768, -65536, 32767}, {0, 0, 0}, 32767, 32000, -32768},
      {{-40000, 70000, 40000}, {100000, -65537, -32769}, {-200000, 131071, 65536}, -7, 300, -300},
      {{1 << 20, -(1 << 20), 65535}, {-65536, 65534, 32767}, {0, 0, 0}, 0, 32000, -32000},
  };
  auto clamp = [](int64_t v) { return static_cast<uint8_t>(std::clamp<int64_t>(v, 0, 255)); };
  const int h = 4, w = 208, P = w * h;  // 208: the widest steps, then the narrower ones
  std::vector<uint8_t> rgba(4 * size_t(P)), out(size_t(P) * 5 / 2);
  std::mt19937 rng(7);
  for (uint8_t& b : rgba) b = static_cast<uint8_t>(rng());
  for (int i = 0; i < 8; ++i) rgba[4 * size_t(i) + i % 3] = i < 4 ? 0 : 255;  // extremes of each channel
  vorlith::test::Context ctx;
  for (const Set& s : sets) {
    auto put = [](auto& field, const auto& value) {
      std::remove_cvref_t<decltype(value)> lanes[16 / sizeof(value)];
      std::fill(std::begin(lanes), std::end(lanes), value);
      std::memcpy(static_cast<void*>(&field), lanes, 16);
    };
    _StLanczos1p5x* c = ctx.get();
    put(c->yCoefR, s.y[0]), put(c->yCoefG, s.y[1]), put(c->yCoefB, s.y[2]), put(c->yOffset, s.y_off);
    put(c->uCoefR, s.u[0]), put(c->uCoefG, s.u[1]), put(c->uCoefB, s.u[2]), put(c->uOffset, s.u_off);
    put(c->vCoefR, s.v[0]), put(c->vCoefG, s.v[1]), put(c->vCoefB, s.v[2]), put(c->vOffset, s.v_off);
    auto high = [&](const int32_t* k, int at) {
      const uint8_t* p = &rgba[4 * size_t(at)];
      const int64_t sum = int64_t{k[0]} * p[0] + int64_t{k[1]} * p[1] + int64_t{k[2]} * p[2];
      return static_cast<int32_t>(sum >= 0 ? sum / 65536 : -((-sum + 65535) / 65536));
    };
    vorlith::test::ForEachTarget([&](int64_t target) {
      if (target == HWY_SCALAR) return;
      RGBA2I420A_NEON(c, rgba.data(), out.data(), h, w);
      for (int at = 0; at < P; ++at) {
        const int16_t y16 = static_cast<int16_t>(static_cast<uint16_t>(high(s.y, at) + s.y_off));
        ASSERT_EQ(out[at], clamp(y16)) << "Y of pixel " << at << ", weights " << s.y[1];
        ASSERT_EQ(out[size_t(P) * 3 / 2 + at], rgba[4 * size_t(at) + 3]) << "alpha of pixel " << at;
      }
      for (int pair = 0; pair < h / 2; ++pair) {
        for (int x = 0; x < w / 2; ++x) {
          const int at = 2 * pair * w + 2 * x, k = pair * (w / 2) + x;
          ASSERT_EQ(out[P + k], clamp(high(s.u, at) + s.u_off)) << "U " << k << ", " << s.u[0];
          ASSERT_EQ(out[P * 5 / 4 + k], clamp(high(s.v, at) + s.v_off)) << "V " << k << ", " << s.v[0];
        }
      }
    });
  }
}
