// ProcessData end to end: with a fixture network, for the share of its time
// spent outside the network (luma in and out, chroma, buffers, governor), and
// with the shipped networks, for the milliseconds per frame a host sees.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <random>

#include "src/platform/platform.h"
#include "vorlith/model.h"
#include "vorlith/plugin.h"

namespace {

struct Frame {
  int w, h;
};
constexpr Frame kFrames[] = {{640, 360}, {1280, 720}};

VLPixelBufferRef NewFrame(int w, int h) {
  VLPixelBufferRef b = nullptr;
  VLPixelBufferCreate(w, h, kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange, &b);
  std::mt19937 rng(7);
  for (int plane = 0; plane < 2; ++plane) {
    auto* p = static_cast<uint8_t*>(VLPixelBufferGetBaseAddressOfPlane(b, plane));
    const size_t n = VLPixelBufferGetBytesPerRowOfPlane(b, plane) * VLPixelBufferGetHeightOfPlane(b, plane);
    for (size_t i = 0; i < n; ++i) p[i] = static_cast<uint8_t>(rng());
  }
  return b;
}

_tagVideoData Record(VLPixelBufferRef frame, Frame f) {
  _tagVideoData in{};
  in.width = f.w;
  in.height = f.h;
  in.pixelBuffer = frame;
  in.format = 1;
  return in;
}

double Seconds(std::chrono::steady_clock::time_point a, std::chrono::steady_clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

// Reports the mean milliseconds of ProcessData and of the network alone on a
// tensor of the size ProcessData picks, and their difference.
void BM_ProcessData(benchmark::State& state) {
  const Frame f = kFrames[state.range(0)];
  vorlith::platform::SetResourceDirectoryForTest(VORLITH_BENCH_RESOURCES);
  std::unique_ptr<SuperResolutionInterface> sr(SuperResolutionInterface::Create());
  sr->Init("");
  vorlith::ModelConfiguration config;
  auto network = vorlith::RTC::initWithConfiguration(config);
  if (network == nullptr) {
    state.SkipWithError("fixture network missing");
    return;
  }
  // Frame sizes here are table sizes, so the tensor is the frame's size.
  auto tensor = vorlith::MultiArray::initWithShape({1, 1, f.h, f.w},
                                                   vorlith::MultiArrayDataType::Float32);
  VLPixelBufferRef frame = NewFrame(f.w, f.h);
  _tagVideoData in = Record(frame, f), out{};
  double total = 0, net = 0;
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    const int status = sr->ProcessData(&in, &out);
    const auto t1 = std::chrono::steady_clock::now();
    if (status != SR_OK && status != SR_OK_LIGHT) {
      state.SkipWithError("ProcessData failed");
      break;
    }
    VLPixelBufferRelease(out.pixelBuffer);
    const auto t2 = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(network->predictionFromRTC_input(tensor));
    const auto t3 = std::chrono::steady_clock::now();
    total += Seconds(t0, t1);
    net += Seconds(t2, t3);
    state.SetIterationTime(Seconds(t0, t1));
  }
  const double n = static_cast<double>(state.iterations());
  if (n > 0) {
    state.counters["process_ms"] = 1e3 * total / n;
    state.counters["network_ms"] = 1e3 * net / n;
    state.counters["outside_network_ms"] = 1e3 * (total - net) / n;
  }
  VLPixelBufferRelease(frame);
  vorlith::platform::SetResourceDirectoryForTest("");
}

// ProcessData with the shipped networks (models/), one network held: the
// plug-in's clock is frozen so that the time governor never switches.
void BM_ProcessDataShipped(benchmark::State& state) {
  const Frame f = kFrames[state.range(0)];
  const NetType net = state.range(1) == 0 ? NET_TYPE_FULL : NET_TYPE_LIGHT;
  vorlith::platform::SetResourceDirectoryForTest(VORLITH_BENCH_MODELS);
  vorlith::platform::SetClockForTest([] { return int64_t{0}; });
  std::unique_ptr<SuperResolutionInterface> sr(SuperResolutionInterface::Create());
  sr->SelectNetType(net);
  sr->Init("");
  VLPixelBufferRef frame = NewFrame(f.w, f.h);
  _tagVideoData in = Record(frame, f), out{};
  const int want = net == NET_TYPE_FULL ? SR_OK : SR_OK_LIGHT;
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    const int status = sr->ProcessData(&in, &out);
    state.SetIterationTime(Seconds(t0, std::chrono::steady_clock::now()));
    if (status != want) {
      state.SkipWithError("ProcessData failed (are models/*.onnx there?)");
      break;
    }
    VLPixelBufferRelease(out.pixelBuffer);
  }
  VLPixelBufferRelease(frame);
  vorlith::platform::SetClockForTest(nullptr);
  vorlith::platform::SetResourceDirectoryForTest("");
}

}  // namespace

// frame:0 is 640x360, frame:1 is 1280x720; net:0 is RTC (full), net:1 RTC_degrade.
BENCHMARK(BM_ProcessDataShipped)->ArgNames({"frame", "net"})->ArgsProduct({{0, 1}, {0, 1}})
    ->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ProcessData)->ArgName("frame")->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond);
