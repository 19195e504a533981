// ProcessData end to end: with a fixture network, for the share of its time
// spent outside the network (luma in and out, chroma, buffers, governor), and
// with the shipped networks, for the milliseconds per frame a host sees.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "bench/fma_peak.h"
#include "src/model/onnx_graph.h"
#include "src/platform/platform.h"
#include "vorlith/model.h"
#include "vorlith/plugin.h"
#include "bench/bench_frames.h"

namespace {

using vorlith::bench::Frame;
using vorlith::bench::kFrames;

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

// Multiply-accumulates of the convolutions of a shipped network for one
// h x w input, from its graph, and whether they are byte (quantised) ones.
struct Macs {
  double count = 0.0;
  bool bytes = false;
};
Macs NetworkMacs(const char* file, int h, int w) {
  vorlith::model::Graph g;
  std::string error;
  Macs macs;
  if (!vorlith::model::ImportOnnx(std::string(VORLITH_BENCH_MODELS) + "/" + file, &g, &error)) return macs;
  for (const vorlith::model::Op& op : g.ops) {
    const bool bytes = op.kind == vorlith::model::OpKind::kQConv;
    if (op.kind != vorlith::model::OpKind::kConv && !bytes) continue;
    const vorlith::model::Activation& out = g.activations[op.output];
    macs.count += static_cast<double>(bytes ? op.qfilter.size() : op.filter.size()) * out.height.At(h) *
                  out.width.At(w);
    macs.bytes = macs.bytes || bytes;
  }
  return macs;
}

// Throughput counters: multiply-accumulates per second and their share of
// the machine's peak on the same number of threads: the FMA peak for float
// networks, the byte dot-product peak for quantised ones. Both peaks are
// reported so that a table can set them side by side.
void ReportShareOfPeak(benchmark::State& state, Macs macs, double seconds, int threads) {
  if (state.iterations() == 0 || seconds <= 0.0) return;
  const double rate = macs.count * static_cast<double>(state.iterations()) / seconds;
  const double fma = vorlith::bench::FmaPeak(threads), dot = vorlith::bench::DotPeak(threads);
  state.counters["GMAC/s"] = rate * 1e-9;
  state.counters["peak_GMAC/s"] = fma * 1e-9;
  state.counters["int8_peak_GMAC/s"] = dot * 1e-9;
  state.counters["share_of_peak"] = rate / (macs.bytes ? dot : fma);
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
  double total = 0.0;
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    const int status = sr->ProcessData(&in, &out);
    const double seconds = Seconds(t0, std::chrono::steady_clock::now());
    state.SetIterationTime(seconds);
    total += seconds;
    if (status != want) {
      state.SkipWithError("ProcessData failed (are models/*.onnx there?)");
      break;
    }
    VLPixelBufferRelease(out.pixelBuffer);
  }
  // The plug-in runs its networks on every core.
  ReportShareOfPeak(state, NetworkMacs(net == NET_TYPE_FULL ? "RTC.onnx" : "RTC_degrade.onnx", f.h, f.w), total,
                    static_cast<int>(std::thread::hardware_concurrency()));
  VLPixelBufferRelease(frame);
  vorlith::platform::SetClockForTest(nullptr);
  vorlith::platform::SetResourceDirectoryForTest("");
}

// The network files models/ holds: the shipped integer networks and the
// float networks they were quantised from, in the order of the `file` argument.
constexpr const char* kNetworkFiles[] = {"RTC.onnx", "RTC_degrade.onnx", "float/RTC.onnx", "float/RTC_degrade.onnx"};

// A network file alone on a frame-sized tensor, on 1 or 2 threads.
void BM_Network(benchmark::State& state) {
  const Frame f = kFrames[state.range(0)];
  const char* file = kNetworkFiles[state.range(1)];
  const int threads = static_cast<int>(state.range(2));
  vorlith::ModelConfiguration config;
  config.threads = threads;
  std::string error;
  auto network = vorlith::RTC::initWithContentsOfURL(std::string(VORLITH_BENCH_MODELS) + "/" + file, config, &error);
  if (network == nullptr) {
    state.SkipWithError(error.c_str());
    return;
  }
  state.SetLabel(file);
  auto tensor = vorlith::MultiArray::initWithShape({1, 1, f.h, f.w}, vorlith::MultiArrayDataType::Float32);
  std::mt19937 rng(3);
  auto* p = static_cast<float*>(tensor->dataPointer());
  for (int64_t i = 0; i < tensor->count(); ++i) p[i] = static_cast<float>(rng() & 255);
  double total = 0.0;
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(network->predictionFromRTC_input(tensor));
    const double seconds = Seconds(t0, std::chrono::steady_clock::now());
    state.SetIterationTime(seconds);
    total += seconds;
  }
  ReportShareOfPeak(state, NetworkMacs(file, f.h, f.w), total, threads);
}

}  // namespace

// frame:0 is 640x360, frame:1 is 1280x720; net:0 is RTC (full), net:1 RTC_degrade.
BENCHMARK(BM_ProcessDataShipped)->ArgNames({"frame", "net"})->ArgsProduct({{0, 1}, {0, 1}})
    ->UseManualTime()->Unit(benchmark::kMillisecond);
// file: 0 RTC, 1 RTC_degrade (shipped, integer), 2 and 3 their float versions.
BENCHMARK(BM_Network)->ArgNames({"frame", "file", "threads"})->ArgsProduct({{0, 1}, {0, 1, 2, 3}, {1, 2}})
    ->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ProcessData)->ArgName("frame")->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond);
