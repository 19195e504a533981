#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "src/platform/platform.h"
#include "src/plugin/sr_plugin.h"
#include "tests/oracle/oracle.h"
#include "tests/support/plugin_fixture.h"
#include "vorlith/plugin.h"

namespace {

using vorlith::test::FakeClock;
using vorlith::test::PackedPlane;
using vorlith::test::RandomFrame;
using vorlith::test::Record;
using vorlith::test::ResourceDirectory;

// Collects error-level log lines for the lifetime of the object.
struct LogCapture {
  LogCapture() {
    vorlith::platform::SetErrorLogSinkForTest([this](const std::string& line) { lines.push_back(line); });
  }
  ~LogCapture() { vorlith::platform::SetErrorLogSinkForTest(nullptr); }
  std::vector<std::string> lines;
};

SRPlugin* AsPlugin(SuperResolutionInterface* sr) { return static_cast<SRPlugin*>(sr); }

long PeakKib() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// Worker pools and bands are sized by the CPUs the process may use (taskset,
// container cpusets), not by the machine's online count.
TEST(Platform, UsableCpusFollowTheAffinityMask) {
  cpu_set_t saved;
  ASSERT_EQ(sched_getaffinity(0, sizeof(saved), &saved), 0);
  EXPECT_EQ(vorlith::platform::UsableCpus(), CPU_COUNT(&saved));
  int first = 0;
  while (!CPU_ISSET(first, &saved)) ++first;
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(first, &one);
  ASSERT_EQ(sched_setaffinity(0, sizeof(one), &one), 0);
  const int narrowed = vorlith::platform::UsableCpus();
  ASSERT_EQ(sched_setaffinity(0, sizeof(saved), &saved), 0);
  EXPECT_EQ(narrowed, 1);
}

TEST(ModelSize, SmallestCandidateThatHoldsTheFrameFirstInTableOrderOnTies) {
  SRPlugin plugin;
  const struct {
    int w, h, mw, mh;
  } cases[] = {{640, 360, 640, 360},   {600, 350, 640, 360},   {500, 500, 540, 960},
               {1280, 1000, 1280, 1280}, {1, 1, 320, 180},     {100, 300, 180, 320},
               {320, 240, 320, 240},   {240, 320, 240, 320},   {960, 540, 960, 540},
               {961, 540, 1024, 768},  {700, 700, 768, 1024},  {1281, 10, 0, 0}};
  for (const auto& c : cases) {
    plugin.ChooseModelSize(c.w, c.h);
    EXPECT_EQ(std::pair(plugin.modelWidth, plugin.modelHeight), std::pair(c.mw, c.mh)) << c.w << "x" << c.h;
  }
}

// The luma of the nearest2x fixture network, the bilinear chroma.
void ExpectNearest(VLPixelBufferRef in, VLPixelBufferRef out, int width, int height) {
  EXPECT_EQ(std::pair(VLPixelBufferGetWidthOfPlane(out, 1), VLPixelBufferGetHeightOfPlane(out, 1)),
            std::pair(size_t(width), size_t(height)));
  vorlith::test::ExpectNearestLumaBilinearChroma(PackedPlane(in, 0), PackedPlane(in, 1), PackedPlane(out, 0),
                                                 PackedPlane(out, 1), width, height);
}

// The output luma against float values as the plug-in converts them: the
// first 8*(W2/8) columns saturate, the last W2%8 wrap.
template <class Value>
void ExpectLumaOf(VLPixelBufferRef out, int width, int height, Value value) {
  const std::vector<uint8_t> y2 = PackedPlane(out, 0);
  const int w2 = 2 * width, body = w2 / 8 * 8;
  for (int r = 0; r < 2 * height; ++r) {
    for (int c = 0; c < w2; ++c) {
      const float v = value(r, c);
      ASSERT_EQ(y2[size_t(r) * w2 + c], vorlith::oracle::F32ToU8(v, c < body)) << r << "," << c << " value " << v;
    }
  }
}

// The affine fixture gives 2*Y - 100 in each 2x2 block: values from -100 to 410.
void ExpectAffine(VLPixelBufferRef in, VLPixelBufferRef out, int width, int height) {
  const std::vector<uint8_t> y = PackedPlane(in, 0);
  ExpectLumaOf(out, width, height, [&](int r, int c) { return 2.0f * y[size_t(r / 2) * width + c / 2] - 100.0f; });
}

using PixelCheck = std::function<void(VLPixelBufferRef in, VLPixelBufferRef out, int width, int height)>;

class PluginTest : public testing::Test {
 protected:
  // A plug-in with these fixture files (empty: none) as its two networks.
  void Start(const std::string& full, const std::string& light) {
    sr_.reset();
    resources_.reset();  // before the next one is made: it resets the directory
    resources_ = std::make_unique<ResourceDirectory>(full, light);
    sr_.reset(SuperResolutionInterface::Create());
    ASSERT_EQ(sr_->Init(""), 0);
  }
  SRPlugin* plugin() { return AsPlugin(sr_.get()); }

  // Runs one random frame. With an output, checks its record and, given a
  // check, its pixels; without one, that the output record was not touched.
  int RunFrame(int width, int height, PixelCheck check = ExpectNearest) {
    VLPixelBufferRef frame = RandomFrame(width, height, rng_);
    _tagVideoData in = Record(frame, width, height), out;
    std::memset(&out, 0x5D, sizeof(out));
    const int status = sr_->ProcessData(&in, &out);
    const auto* bytes = reinterpret_cast<const uint8_t*>(&out);
    // Without an output the record stays as it was; with one, only the host's fields do.
    const bool has_output = status == SR_OK || status == SR_OK_LIGHT || status == SR_ERR_TOO_SLOW;
    const bool written = has_output && out.pixelBuffer != nullptr &&
                         reinterpret_cast<uintptr_t>(out.pixelBuffer) != 0x5D5D5D5D5D5D5D5Dull;
    for (size_t i = written ? 20 : 0; i < (written ? 56 : sizeof(out)); ++i) {
      EXPECT_EQ(bytes[i], 0x5D) << "byte " << i << (written ? " of the host's" : " of an unwritten output");
    }
    if (written) {
      EXPECT_EQ(std::tuple(out.width, out.height, out.format), std::tuple(2u * width, 2u * height, 1));
      EXPECT_EQ(size_t(out.strideY), VLPixelBufferGetBytesPerRowOfPlane(out.pixelBuffer, 0));
      EXPECT_EQ(size_t(out.strideUV), VLPixelBufferGetBytesPerRowOfPlane(out.pixelBuffer, 1));
      if (check != nullptr) check(frame, out.pixelBuffer, width, height);
      VLPixelBufferRelease(out.pixelBuffer);
    }
    VLPixelBufferRelease(frame);
    return status;
  }

  std::unique_ptr<ResourceDirectory> resources_;
  std::unique_ptr<SuperResolutionInterface> sr_;
  std::mt19937 rng_{42};
};

TEST_F(PluginTest, MissingNetworksAreLoggedAndFramesRefusedUntouched) {
  LogCapture log;
  Start("", "");
  EXPECT_EQ(plugin()->fullModel, nullptr);
  EXPECT_EQ(plugin()->lightModel, nullptr);
  EXPECT_EQ(log.lines, (std::vector<std::string>{"Could not load RTC.onnx in the bundle resource",
                                                 "Could not load RTC_degrade.onnx in the bundle resource"}));
  EXPECT_EQ(sr_->GetSupportFormat(), 1);
  EXPECT_EQ(RunFrame(64, 36), SR_ERR_UNSUPPORTED);
}

TEST_F(PluginTest, LegacyBranchRefusesEveryFrame) {
  vorlith::platform::SetNeuralPathSupportedForTest(false);
  Start("nearest2x.onnx", "nearest2x.onnx");
  vorlith::platform::SetNeuralPathSupportedForTest(true);
  EXPECT_EQ(plugin()->legacyMode, 1);
  EXPECT_EQ(RunFrame(64, 36), SR_ERR_UNSUPPORTED);
  // The destructor frees both legacy buffers (a leak would fail under ASan).
}

TEST_F(PluginTest, OutputLumaSaturatesInTheBodyAndWrapsInTheLastColumns) {
  Start("nearest2x_affine.onnx", "nearest2x_affine.onnx");
  for (auto [w, h] : std::vector<std::pair<int, int>>{{641, 3}, {2, 2}, {5, 4}}) {
    SCOPED_TRACE(testing::Message() << w << "x" << h);
    EXPECT_EQ(RunFrame(w, h, ExpectAffine), SR_OK);
  }
}

TEST_F(PluginTest, BrokenNetworksRefuseFramesWithoutLeaks) {
  LogCapture log;
  // Loads, but its tensors are not named "RTC_input" and "161".
  Start("wrong_names.onnx", "wrong_names.onnx");
  ASSERT_NE(plugin()->fullModel, nullptr);
  EXPECT_EQ(RunFrame(16, 16), SR_ERR_UNSUPPORTED);
  EXPECT_TRUE(log.lines.empty());
  Start("unsupported_op.onnx", "nearest2x.onnx");
  EXPECT_EQ(plugin()->fullModel, nullptr);
  EXPECT_NE(plugin()->lightModel, nullptr);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_NE(log.lines[0].find("RTC.onnx"), std::string::npos) << log.lines[0];
  EXPECT_NE(log.lines[0].find("unsupported operator"), std::string::npos) << log.lines[0];
}

class PluginEndToEnd : public PluginTest {
 protected:
  void SetUp() override {
    Start("nearest2x.onnx", "nearest2x.onnx");
    ASSERT_NE(plugin()->fullModel, nullptr);
    ASSERT_NE(plugin()->lightModel, nullptr);
  }
};

TEST_F(PluginEndToEnd, EnlargesFramesOfEveryShapeExactly) {
  // Table sizes, odd sizes, tiny frames, the largest accepted, and size
  // changes in both directions (the tensor is rebuilt and reused).
  for (auto [w, h] : std::vector<std::pair<int, int>>{{640, 360}, {641, 361}, {2, 2}, {1, 1},
                                                      {33, 17}, {180, 320}, {640, 360}}) {
    SCOPED_TRACE(testing::Message() << w << "x" << h);
    EXPECT_EQ(RunFrame(w, h), SR_OK);
    EXPECT_EQ(plugin()->frameWidth, w);
  }
  EXPECT_EQ(plugin()->frameCount, 7);
}

// A long run with the size changing every few frames: memory stays flat
// (and, under the sanitizers, nothing leaks at exit).
TEST_F(PluginEndToEnd, TenThousandFramesOfChangingSizesKeepMemoryFlat) {
  const std::pair<int, int> sizes[] = {{64, 36}, {17, 9}, {200, 300}, {1, 1}, {321, 181}, {96, 64}};
  FakeClock clock;  // the full network throughout, however slow the build
  long peak_kib = 0;
  // scripts/valgrind.sh asks for fewer: memcheck runs ~50 times slower.
  const char* frames = std::getenv("VORLITH_LONG_RUN_FRAMES");
  const int count = frames ? std::max(std::atoi(frames), 1000) : 10000;
  for (int i = 0; i < count; ++i) {
    const auto [w, h] = sizes[i / 7 % std::size(sizes)];
    ASSERT_EQ(RunFrame(w, h, nullptr), SR_OK) << i;
    if (i == 999) peak_kib = PeakKib();
  }
#ifdef __SANITIZE_ADDRESS__
  constexpr long kSlackKib = 320 << 10;  // its quarantine keeps 256 MiB of freed memory
#else
  constexpr long kSlackKib = 16 << 10;
#endif
  EXPECT_LT(PeakKib() - peak_kib, kSlackKib) << "KiB more at the peak after " << count - 1000 << " more frames";
}

// Luma as the whole tensor's prediction gives it, converted to bytes: what
// the plug-in computes for the frame's own part of the tensor must equal it.
void ExpectWholeTensorLuma(SRPlugin* p, VLPixelBufferRef out, int width, int height) {
  auto prediction = p->fullModel->predictionFromRTC_input(p->inputTensor)->_161;
  ASSERT_NE(prediction, nullptr);
  const auto* whole = static_cast<const float*>(prediction->dataPointer());
  ExpectLumaOf(out, width, height, [&](int r, int c) { return whole[size_t(r) * 2 * p->modelWidth + c]; });
}

// A frame smaller than its tensor costs its own size: the plug-in computes
// only its part of the prediction (three 3x3 convolutions deep here), and
// gives the whole tensor's bytes there, at every size class, with zeros in
// the tensor's margin and with values there (as a reused tensor may hold),
// however many bands the conversions are split into.
TEST_F(PluginTest, FramesGiveTheWholeTensorsBytesAtEverySizeClass) {
  Start("tiny_sr.onnx", "tiny_sr.onnx");
  std::uniform_real_distribution<float> margin(0.0f, 255.0f);
  for (int i = 0; i < vorlith::kCandidateCount; ++i) {
    const int w = vorlith::kCandidateWidths[i] - 1 - 2 * (i % 3), h = vorlith::kCandidateHeights[i] - 1 - i % 4;
#ifdef VORLITH_TEST_EMULATED
    if (w * h > 480 * 360) continue;  // the region logic is the same at every size
#endif
    SCOPED_TRACE(testing::Message() << w << "x" << h);
    plugin()->bands = 1 + i % 5;
    const PixelCheck check = [&](VLPixelBufferRef, VLPixelBufferRef out, int fw, int fh) {
      ExpectWholeTensorLuma(plugin(), out, fw, fh);
    };
    ASSERT_EQ(RunFrame(w, h, check), SR_OK);
    ASSERT_EQ(std::pair(plugin()->modelWidth, plugin()->modelHeight),
              std::pair(vorlith::kCandidateWidths[i], vorlith::kCandidateHeights[i]));
    if (i % 4 != 1) continue;
    auto* tensor = static_cast<float*>(plugin()->inputTensor->dataPointer());
    for (int r = 0; r < plugin()->modelHeight; ++r) {
      for (int c = r < h ? w : 0; c < plugin()->modelWidth; ++c) tensor[size_t(r) * plugin()->modelWidth + c] = margin(rng_);
    }
    ASSERT_EQ(RunFrame(w, h, check), SR_OK);
  }
}

TEST_F(PluginEndToEnd, SizeLimitsAndFormat) {
  EXPECT_EQ(RunFrame(1280, 1280, nullptr), SR_OK);
  _tagVideoData in = Record(nullptr, 1281, 10), out{};
  EXPECT_EQ(sr_->ProcessData(&in, &out), SR_ERR_TOO_LARGE);
  in = Record(nullptr, uint32_t(-640), 360);
  EXPECT_EQ(sr_->ProcessData(&in, &out), SR_ERR_TOO_LARGE);
  std::mt19937 rng(3);
  VLPixelBufferRef frame = RandomFrame(64, 36, rng);
  in = Record(frame, 64, 36);
  in.format = 2;
  EXPECT_EQ(sr_->ProcessData(&in, &out), SR_ERR_UNSUPPORTED);
  EXPECT_EQ(plugin()->frameWidth, 64);  // the size change was taken before the format check
  in.format = 1;
  in.width = 66;  // record disagrees with its buffer
  EXPECT_EQ(sr_->ProcessData(&in, &out), SR_ERR_UNSUPPORTED);
  EXPECT_EQ(out.pixelBuffer, nullptr);
  VLPixelBufferRelease(frame);
}

TEST_F(PluginEndToEnd, GovernorFallsBackThenRefusesOneSize) {
  FakeClock clock;
  clock.step = 31000;  // 31 ms a frame: over the full network's 30
  for (int i = 0; i < 30; ++i) ASSERT_EQ(RunFrame(64, 36, nullptr), SR_OK) << i;
  EXPECT_EQ(RunFrame(64, 36, nullptr), SR_OK);  // 31st frame: decides, still returns 0
  EXPECT_EQ(plugin()->deviceType, 1);
  EXPECT_EQ(plugin()->periodFrames, 0);
  EXPECT_EQ(RunFrame(64, 36, nullptr), SR_OK_LIGHT);

  clock.step = 51000;  // over the light network's 50 ms
  for (int i = 1; i < 30; ++i) ASSERT_EQ(RunFrame(64, 36, nullptr), SR_OK_LIGHT) << i;
  const int frames = plugin()->frameCount;
  EXPECT_EQ(RunFrame(64, 36), SR_ERR_TOO_SLOW);  // processed, with output
  EXPECT_EQ(plugin()->frameCount, frames);
  EXPECT_EQ(plugin()->refusedWidth, 64);
  EXPECT_EQ(RunFrame(64, 36), SR_ERR_TOO_SLOW);  // refused at once, out untouched
  // Another size is processed, and since the period was not reset it is
  // refused in its turn and replaces the first refusal.
  EXPECT_EQ(RunFrame(48, 32), SR_ERR_TOO_SLOW);
  EXPECT_EQ(plugin()->refusedWidth, 48);
  // Only one size is refused at a time: the first is processed again (and,
  // the mean still being over budget, refused again).
  EXPECT_EQ(RunFrame(64, 36), SR_ERR_TOO_SLOW);
  EXPECT_EQ(plugin()->refusedWidth, 64);

  // Init clears the refusal. A second Init leaks the context's row buffer by
  // design; free it first so that the leak checker sees only real leaks.
  delete[] plugin()->kernelCtx.lineBuf;
  ASSERT_EQ(sr_->Init(""), 0);
  EXPECT_EQ(plugin()->refusedWidth, -1);
}

TEST_F(PluginEndToEnd, SetFrameStatusUndoesAFallback) {
  FakeClock clock;
  clock.step = 40000;
  for (int i = 0; i < 31; ++i) ASSERT_EQ(RunFrame(32, 32, nullptr), SR_OK);
  EXPECT_EQ(plugin()->deviceType, 1);
  clock.step = 1000;
  EXPECT_EQ(RunFrame(32, 32, nullptr), SR_OK_LIGHT);
  sr_->SetFrameStatus();
  EXPECT_EQ(RunFrame(32, 32, nullptr), SR_OK);  // netType 0 re-applied
  EXPECT_EQ(plugin()->deviceType, 2);
  EXPECT_EQ(plugin()->periodFrames, 2);  // the period was not reset

  sr_->SelectNetType(NET_TYPE_LIGHT);
  sr_->SetFrameStatus();
  EXPECT_EQ(RunFrame(32, 32, nullptr), SR_OK_LIGHT);
}

}  // namespace
