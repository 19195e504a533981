// The checked Upscaler: frames of any size equal a whole-frame run of the
// engine, converted per pixel; the NV12 and RGB paths' plumbing; refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "src/model/network.h"
#include "tests/oracle/oracle.h"
#include "tests/support/plugin_fixture.h"
#include "vorlith/resize.h"
#include "vorlith/vorlith.hpp"

namespace vorlith {
namespace {

std::vector<uint8_t> Random(size_t n, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

// The network on the whole w x h frame at once, each output value as a byte
// by the vector columns' rule.
std::vector<uint8_t> WholeFrame(const std::string& path, const std::vector<uint8_t>& y, int w, int h) {
  std::string error;
  auto net = model::Network::Load(path, 1, &error);
  EXPECT_NE(net, nullptr) << error;
  if (net == nullptr) return {};
  std::vector<float> in(y.begin(), y.end()), out;
  std::vector<int64_t> shape;
  EXPECT_TRUE(net->Run(in.data(), {1, 1, h, w}, &out, &shape, &error)) << error;
  std::vector<uint8_t> bytes(out.size());
  for (size_t i = 0; i < out.size(); ++i) bytes[i] = oracle::F32ToU8(out[i], true);
  return bytes;
}

void ExpectTilesEqualWholeFrame(Upscaler& up, const std::string& path, int w, int h) {
  SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
  // Rows padded, so the views' strides matter.
  const int stride = w + 5, out_stride = 2 * w + 3;
  std::vector<uint8_t> y = Random(size_t(stride) * h, w * 7 + h), y2(size_t(out_stride) * 2 * h, 0xCD);
  up.Enlarge(ConstPlane(y.data(), w, h, stride), Plane(y2.data(), 2 * w, 2 * h, out_stride));
  std::vector<uint8_t> packed(size_t(w) * h);
  for (int r = 0; r < h; ++r) std::memcpy(&packed[size_t(r) * w], &y[size_t(r) * stride], w);
  const std::vector<uint8_t> want = WholeFrame(path, packed, w, h);
  ASSERT_EQ(want.size(), size_t(4) * w * h);
  for (int r = 0; r < 2 * h; ++r) {
    ASSERT_EQ(std::memcmp(&y2[size_t(r) * out_stride], &want[size_t(r) * 2 * w], 2 * w), 0) << "output row " << r;
    ASSERT_EQ(y2[size_t(r) * out_stride + 2 * w], 0xCD) << "row padding written, row " << r;
  }
}

// Tiles cut where the frame passes 1280 in either direction; their overlap
// must carry each network's whole receptive field.
TEST(CheckedUpscaler, TilesGiveTheWholeFramesBytes) {
#ifndef VORLITH_TEST_EMULATED  // tiling is host logic; emulated, this frame takes minutes
  {
    test::ResourceDirectory networks("tiny_sr.onnx", "tiny_sr.onnx");
    Upscaler up(Upscaler::Options{Upscaler::Network::kFull, 0, ""});
    EXPECT_GE(up.margin(), 3);
    ExpectTilesEqualWholeFrame(up, test::FixturePath("tiny_sr.onnx"), 1920, 1080);
  }
#endif
  for (const char* file : {"RTC.onnx", "RTC_degrade.onnx"}) {
    const bool full = std::string(file) == "RTC.onnx";
    Upscaler up(Upscaler::Options{full ? Upscaler::Network::kFull : Upscaler::Network::kLight, 0, VORLITH_MODELS_DIR});
    const std::string path = std::string(VORLITH_MODELS_DIR) + "/" + file;
    ExpectTilesEqualWholeFrame(up, path, 1283, 21);
    ExpectTilesEqualWholeFrame(up, path, 19, 1301);
  }
}

// NV12: the luma as Enlarge gives it, the chroma as Linear_2x_nv gives it,
// cropped for odd sizes; RGB: BGR is RGB with the channels swapped.
TEST(CheckedUpscaler, NV12AndRGBFrames) {
  Upscaler up(Upscaler::Options{Upscaler::Network::kLight, 0, VORLITH_MODELS_DIR});
  const int w = 37, h = 23, cw = 19, ch = 12;
  const std::vector<uint8_t> y = Random(size_t(w) * h, 1), uv = Random(size_t(2) * cw * ch, 2);
  std::vector<uint8_t> y2(size_t(4) * w * h), uv2(size_t(2) * w * h), luma(size_t(4) * w * h);
  up.EnlargeNV12(ConstPlane(y.data(), w, h, w), ConstPlane(uv.data(), cw, ch, 2 * cw, 2),
                 Plane(y2.data(), 2 * w, 2 * h, 2 * w), Plane(uv2.data(), w, h, 2 * w, 2));
  up.Enlarge(ConstPlane(y.data(), w, h, w), Plane(luma.data(), 2 * w, 2 * h, 2 * w));
  EXPECT_EQ(y2, luma);
  _StLanczos1p5x ctx{};
  InitLanczos1p5x(&ctx);
  std::vector<uint8_t> raw(size_t(2 * ch) * 4 * cw);
  Linear_2x_nv(&ctx, const_cast<uint8_t*>(uv.data()), raw.data(), ch, cw, 2 * cw, 4 * cw);
  UInitLanczos1p5x(&ctx);
  for (int r = 0; r < h; ++r) {
    ASSERT_EQ(std::memcmp(&uv2[size_t(r) * 2 * w], &raw[size_t(r) * 4 * cw], 2 * w), 0) << "chroma row " << r;
  }

  std::vector<uint8_t> rgb = Random(size_t(3) * w * h, 3), bgr(rgb.size());
  for (size_t i = 0; i < rgb.size(); i += 3) bgr[i] = rgb[i + 2], bgr[i + 1] = rgb[i + 1], bgr[i + 2] = rgb[i];
  std::vector<uint8_t> out_rgb(size_t(12) * w * h), out_bgr(out_rgb.size());
  up.EnlargeRGB(ConstPlane(rgb.data(), w, h, 3 * w, 3), Plane(out_rgb.data(), 2 * w, 2 * h, 6 * w, 3));
  up.EnlargeRGB(ConstPlane(bgr.data(), w, h, 3 * w, 3), Plane(out_bgr.data(), 2 * w, 2 * h, 6 * w, 3), true);
  for (size_t i = 0; i < out_rgb.size(); i += 3) {
    ASSERT_EQ(out_bgr[i], out_rgb[i + 2]) << i;
    ASSERT_EQ(out_bgr[i + 2], out_rgb[i]) << i;
  }
}

// Each broken rule is refused with its argument named, before anything is
// touched.
TEST(CheckedUpscaler, RefusesWhatWouldOverrun) {
  Upscaler up(Upscaler::Options{Upscaler::Network::kLight, 0, VORLITH_MODELS_DIR});
  std::vector<uint8_t> a(64 * 64), b(128 * 128, 7);
  const ConstPlane src(a.data(), 16, 8, 16);
  const Plane dst(b.data(), 32, 16, 32);
  const auto refuses = [&](const std::function<void()>& call, const std::string& words) {
    try {
      call();
      ADD_FAILURE() << "no exception; wanted one saying: " << words;
    } catch (const std::invalid_argument& e) {
      EXPECT_NE(std::string(e.what()).find(words), std::string::npos) << e.what();
    }
  };
  refuses([&] { up.Enlarge(src, Plane(b.data(), 31, 16, 32)); }, "dst must be 32x16, got 31x16");
  refuses([&] { up.Enlarge(ConstPlane(a.data(), 16, 8, 15), dst); }, "src.stride must be at least");
  refuses([&] { up.Enlarge(ConstPlane(a.data(), 0, 8, 16), dst); }, "src must not be empty");
  refuses([&] { up.Enlarge(ConstPlane(b.data(), 16, 8, 16), Plane(b.data() + 64, 32, 16, 32)); },
          "src and dst must not overlap");
  refuses([&] { up.EnlargeNV12(src, ConstPlane(a.data(), 8, 4, 16, 1), dst, Plane(b.data(), 16, 8, 32, 2)); },
          "uv must have 2 channel(s)");
  EXPECT_TRUE(std::all_of(b.begin(), b.end(), [](uint8_t v) { return v == 7; }));
  EXPECT_THROW(Upscaler(Upscaler::Options{Upscaler::Network::kFull, 0, "/nonexistent"}), std::runtime_error);
  EXPECT_THROW(Upscaler(Upscaler::Options{Upscaler::Network::kFull, -1, ""}), std::invalid_argument);
}

}  // namespace
}  // namespace vorlith
