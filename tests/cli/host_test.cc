// The command-line host's side of the plug-in contract, against a scripted
// plug-in: which path enlarged each frame, what the governor's decisions
// do to the output, and the errors that stop a run.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/support/plugin_fixture.h"
#include "tools/cli/host.h"
#include "vorlith/resize.h"

namespace vorlith::cli {
namespace {

constexpr int kReturnsNothing = 1000;  // script entry: 41 without an output frame

// Returns the scripted status for each frame; on 0, 3 and a refusal with a
// frame it hands back a 2x buffer whose luma is the status code.
class ScriptedPlugin : public SuperResolutionInterface {
 public:
  explicit ScriptedPlugin(std::vector<int> script) : script_(std::move(script)) {}
  int GetSupportFormat() override { return 1; }
  int SelectNetType(NetType) override { return 0; }
  int Init(std::string) override { return 0; }
  int Clear() override { return 0; }
  int SetFrameStatus() override { return 0; }
  int GetDeviceType() override { return 1; }
  int ProcessData(_tagVideoData* in, _tagVideoData* out) override {
    const int step = script_.at(next_++);
    if (step == kReturnsNothing) return SR_ERR_TOO_SLOW;
    if (step != SR_OK && step != SR_OK_LIGHT && step != SR_ERR_TOO_SLOW) return step;
    Frame frame = Frame::Create(2 * in->width, 2 * in->height);
    {
      FrameLock lock(frame);
      std::memset(frame.plane(0), step, size_t(frame.stride(0)) * frame.height());
    }
    *out = test::Record(VLPixelBufferRetain(frame.get()), 2 * in->width, 2 * in->height);
    return step;
  }

 private:
  std::vector<int> script_;
  size_t next_ = 0;
};

Frame RandomFrame(int width, int height, unsigned seed) {
  std::mt19937 rng(seed);
  return Frame(test::RandomFrame(width, height, rng));
}

TEST(PluginHost, FollowsTheGovernorAndFillsRefusedFramesBilinearly) {
  PluginHost host(std::make_unique<ScriptedPlugin>(std::vector<int>{
                      SR_OK, SR_OK, SR_OK_LIGHT, SR_OK_LIGHT, SR_ERR_TOO_SLOW, kReturnsNothing,
                      kReturnsNothing}),
                  NET_TYPE_FULL);
  const Frame in = RandomFrame(37, 21, 1);
  KernelContext ctx;
  const Frame bilinear = BilinearEnlarge(in, ctx);
  const std::vector<uint8_t> bilinear_y = test::PackedPlane(bilinear.get(), 0);

  const Path want_path[] = {Path::kFull,  Path::kFull,     Path::kLight,   Path::kLight,
                            Path::kLight, Path::kBilinear, Path::kBilinear};
  for (int i = 0; i < 7; ++i) {
    SCOPED_TRACE(i);
    const Enlarged e = host.Enlarge(in);
    EXPECT_EQ(std::tuple(e.path, e.fell_back, e.refused_here), std::tuple(want_path[i], i == 2, i == 4));
    ASSERT_TRUE(e.frame);
    ASSERT_EQ(std::pair(e.frame.width(), e.frame.height()), std::pair(74, 42));
    const std::vector<uint8_t> y = test::PackedPlane(e.frame.get(), 0);
    if (e.path == Path::kBilinear) {
      EXPECT_EQ(y, bilinear_y);
    } else {
      // The plug-in's own frame, the refusing one included.
      EXPECT_EQ(y, std::vector<uint8_t>(y.size(), static_cast<uint8_t>(e.status)));
    }
  }
  const HostStats& s = host.stats();
  EXPECT_EQ(std::tuple(s.frames, s.per_path[0], s.per_path[1], s.per_path[2], s.fallbacks, s.refused),
            std::tuple(7, 2, 3, 2, 1, 3));
  // Started on the light network, its frames are no fallback.
  PluginHost light(std::make_unique<ScriptedPlugin>(std::vector<int>{SR_OK_LIGHT}), NET_TYPE_LIGHT);
  EXPECT_FALSE(light.Enlarge(in).fell_back);
}

TEST(PluginHost, SizeLimitAndUnusableNetworksStopTheRun) {
  const Frame in = RandomFrame(8, 8, 3);
  for (auto [status, code, message] : {std::tuple{SR_ERR_TOO_LARGE, kExitTooLarge, "1280"},
                                       {SR_ERR_UNSUPPORTED, kExitNoNetwork, ""}}) {
    PluginHost host(std::make_unique<ScriptedPlugin>(std::vector<int>{status}), NET_TYPE_FULL);
    try {
      host.Enlarge(in);
      ADD_FAILURE() << "no error for status " << status;
    } catch (const CliError& e) {
      EXPECT_EQ(e.code(), code);
      EXPECT_NE(std::string(e.what()).find(message), std::string::npos) << e.what();
    }
  }
}

// The host's luma bilinear must sit on the same grid, with the same weights
// and rounding, as the library's chroma kernel: the Cb samples of a chroma
// plane that carries the luma as Cb come out of Linear_2x_nv equal to it.
TEST(BilinearEnlarge, LumaMatchesTheLibraryChromaKernel) {
  for (const auto& [w, h] : {std::pair{1, 1}, {2, 3}, {17, 9}, {64, 33}}) {
    SCOPED_TRACE(testing::Message() << w << "x" << h);
    const Frame in = RandomFrame(w, h, 4);
    KernelContext ctx;
    const Frame out = BilinearEnlarge(in, ctx);
    const std::vector<uint8_t> y = test::PackedPlane(in.get(), 0);
    const std::vector<uint8_t> out_y = test::PackedPlane(out.get(), 0);

    std::vector<uint8_t> as_chroma(size_t(2) * w * h, 0), enlarged(size_t(16) * w * h);
    for (size_t i = 0; i < y.size(); ++i) as_chroma[2 * i] = y[i];
    Linear_2x_nv(ctx.get(), as_chroma.data(), enlarged.data(), h, w, 2 * w, 4 * w);
    for (size_t i = 0; i < out_y.size(); ++i) ASSERT_EQ(out_y[i], enlarged[2 * i]) << i;
  }
}

TEST(FitSize, KeepsTheAspectWithinTheLimit) {
  for (auto [w, h, fit_w, fit_h] : {std::array{1920, 1080, 1280, 720}, {1080, 1920, 720, 1280},
                                    {1281, 3, 1280, 3}, {1280, 1280, 1280, 1280}}) {
    int got_w = 0, got_h = 0;
    FitSize(w, h, &got_w, &got_h);
    EXPECT_EQ(std::pair(got_w, got_h), std::pair(fit_w, fit_h)) << w << "x" << h;
  }
}

TEST(HostStats, NearestRankPercentile) {
  HostStats stats;
  for (int i = 20; i >= 1; --i) stats.ms.push_back(i);
  EXPECT_EQ(std::pair(stats.PercentileMs(95), stats.PercentileMs(100)), std::pair(19.0, 20.0));
  EXPECT_DOUBLE_EQ(stats.MeanMs(), 10.5);
}

}  // namespace
}  // namespace vorlith::cli
