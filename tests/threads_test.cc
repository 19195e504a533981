// What the threading rules allow, done at once: two kernel contexts on two
// threads, predictions from two threads on one model, and sixteen plug-ins
// (frame sizes changing mid-stream) on four host threads sharing the
// process's workers. Each result must equal the same work done alone; under
// ThreadSanitizer (VORLITH_TSAN) the runs must also be free of races.
#include <gtest/gtest.h>

#include <dirent.h>

#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "tests/support/plugin_fixture.h"
#include "vorlith/kernels.h"
#include "vorlith/model.h"
#include "vorlith/plugin.h"

namespace {

using vorlith::test::PackedPlane;
using Output = std::vector<std::vector<uint8_t>>;

// One frame through a plug-in: the packed output luma and chroma.
void Frame(SuperResolutionInterface* sr, int w, int h, std::mt19937& rng, Output* out) {
  VLPixelBufferRef frame = vorlith::test::RandomFrame(w, h, rng);
  _tagVideoData in = vorlith::test::Record(frame, w, h), result{};
  EXPECT_EQ(sr->ProcessData(&in, &result), SR_OK);
  if (result.pixelBuffer != nullptr) {
    out->push_back(PackedPlane(result.pixelBuffer, 0));
    out->push_back(PackedPlane(result.pixelBuffer, 1));
  }
  VLPixelBufferRelease(result.pixelBuffer);
  VLPixelBufferRelease(frame);
}

int ProcessThreads() {
  int n = 0;
  if (DIR* d = opendir("/proc/self/task")) {
    while (const dirent* e = readdir(d)) n += e->d_name[0] != '.';
    closedir(d);
  }
  return n;
}

// A kernel context of its own through a resampler, a filter and a conversion.
Output KernelRun(unsigned seed) {
  std::mt19937 rng(seed);
  constexpr int kW = 48, kH = 20;
  std::vector<uint8_t> src(kW * kH * 4);
  for (auto& b : src) b = static_cast<uint8_t>(rng());
  _StLanczos1p5x ctx{};
  InitLanczos1p5x(&ctx);
  Output out(3);
  out[0].resize(size_t(4) * kW * kH);
  Linear_2x_nv(&ctx, src.data(), out[0].data(), kH, kW / 2, kW, 2 * kW);
  out[1].resize(size_t(kW) * kH);
  BilateralAllocRows(&ctx, kW);
  BL_NEON(&ctx, src.data(), out[1].data(), kH, kW);
  out[2].resize(size_t(kW) * kH * 5 / 2);
  RGBA2I420A_NEON(&ctx, src.data(), out[2].data(), kH, kW);
  UInitLanczos1p5x(&ctx);
  return out;
}

// Predictions on one shared model.
Output ModelRun(vorlith::Model& model, unsigned seed) {
  std::mt19937 rng(seed);
  Output out;
  for (int i = 0; i < 6; ++i) {
    const int h = 5 + i, w = 9 + 3 * i;
    auto array = vorlith::MultiArray::initWithShape({1, 1, h, w}, vorlith::MultiArrayDataType::Float32);
    for (int k = 0; k < h * w; ++k) static_cast<float*>(array->dataPointer())[k] = float(rng() % 256);
    vorlith::DictionaryFeatureProvider in;
    in.set(model.inputName(), vorlith::FeatureValue::featureValueWithMultiArray(array));
    auto result = model.predictionFromFeatures(in, vorlith::PredictionOptions());
    EXPECT_NE(result, nullptr);
    if (result == nullptr) continue;
    auto y = result->featureValueForName(model.outputName())->multiArrayValue();
    const auto* p = static_cast<const float*>(y->dataPointer());
    std::vector<uint8_t> bytes(reinterpret_cast<const uint8_t*>(p),
                               reinterpret_cast<const uint8_t*>(p + y->count()));
    out.push_back(std::move(bytes));
  }
  return out;
}

// Runs work(seed) for two seeds alone, then both at once on two threads.
template <class Work>
void ExpectSameAtOnce(Work work) {
  const Output alone[2] = {work(1), work(2)};
  Output together[2];
  std::thread other([&] { together[1] = work(2); });
  together[0] = work(1);
  other.join();
  EXPECT_EQ(together[0], alone[0]);
  EXPECT_EQ(together[1], alone[1]);
}

TEST(Threads, TwoContextsAndOneSharedModel) {
  ExpectSameAtOnce(KernelRun);
  std::string error;
  auto model = vorlith::Model::modelWithContentsOfURL(vorlith::test::FixturePath("tiny_sr.onnx"), &error);
  ASSERT_NE(model, nullptr) << error;
  ExpectSameAtOnce([&](unsigned seed) { return ModelRun(*model, seed); });
}

// Sixteen streams from four host threads, each thread taking its four
// plug-ins in turn: the objects start no threads of their own (their
// networks and conversions share the process's workers), and every frame
// equals the one an object gives on its own.
TEST(Threads, SixteenPluginsOnFourHostThreads) {
  vorlith::test::ResourceDirectory networks("tiny_sr.onnx", "nearest2x.onnx");
  constexpr int kObjects = 16, kHosts = 4;
  const std::pair<int, int> sizes[] = {{96, 66}, {33, 17}, {96, 66}};
  Output alone[kObjects];
  for (int i = 0; i < kObjects; ++i) {
    std::unique_ptr<SuperResolutionInterface> sr(SuperResolutionInterface::Create());
    sr->Init("");
    std::mt19937 rng(100 + i);
    for (auto [w, h] : sizes) Frame(sr.get(), w, h, rng, &alone[i]);
  }
  const int threads_before = ProcessThreads();
  std::unique_ptr<SuperResolutionInterface> objects[kObjects];
  std::vector<std::mt19937> rngs;
  for (int i = 0; i < kObjects; ++i) {
    objects[i].reset(SuperResolutionInterface::Create());
    objects[i]->Init("");
    rngs.emplace_back(100 + i);
  }
  EXPECT_EQ(ProcessThreads(), threads_before);
  Output together[kObjects];
  std::vector<std::thread> hosts;
  for (int t = 0; t < kHosts; ++t) {
    hosts.emplace_back([&, t] {
      for (auto [w, h] : sizes) {
        for (int i = t; i < kObjects; i += kHosts) Frame(objects[i].get(), w, h, rngs[i], &together[i]);
      }
    });
  }
  for (std::thread& h : hosts) h.join();
  for (int i = 0; i < kObjects; ++i) EXPECT_EQ(together[i], alone[i]) << "object " << i;
}

}  // namespace
