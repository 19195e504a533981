// ProcessData end to end: with a fixture network, for the share of its time
// spent outside the network (luma in and out, chroma, buffers, governor);
// with the shipped networks, for the milliseconds per frame a host sees, for
// what a frame costs against the network on a tensor of its own size, and
// for many streams at once.
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
#include "src/plugin/sr_plugin.h"
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
  // The plug-in runs its networks on every CPU the process may use.
  ReportShareOfPeak(state, NetworkMacs(net == NET_TYPE_FULL ? "RTC.onnx" : "RTC_degrade.onnx", f.h, f.w), total,
                    vorlith::platform::UsableCpus());
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

// Sizes for what a frame costs: frames that fill their tensor and frames
// that do not (720x404 runs on a 960x540 tensor, 400x300 on 480x360, 100x60
// on 320x180).
constexpr Frame kCostFrames[] = {{1280, 720}, {640, 360}, {720, 404}, {400, 300}, {100, 60}};

// ProcessData with a shipped network (frozen clock: the network never
// changes), side by side with that network alone on a tensor of the frame's
// own size and on the tensor ProcessData uses: the ratio to the first is
// what the frame costs over its own pixels' network time, and the difference
// from the second what ProcessData spends outside the network.
void BM_FrameCost(benchmark::State& state) {
  const Frame f = kCostFrames[state.range(0)];
  const bool full = state.range(1) == 0;
  vorlith::platform::SetResourceDirectoryForTest(VORLITH_BENCH_MODELS);
  vorlith::platform::SetClockForTest([] { return int64_t{0}; });
  std::unique_ptr<SuperResolutionInterface> sr(SuperResolutionInterface::Create());
  sr->SelectNetType(full ? NET_TYPE_FULL : NET_TYPE_LIGHT);
  sr->Init("");
  const auto* plugin = reinterpret_cast<const SRPlugin*>(sr.get());
  VLPixelBufferRef frame = NewFrame(f.w, f.h);
  _tagVideoData in = Record(frame, f), out{};
  // The same network file, loaded as the plug-in loads it.
  auto network = vorlith::RTC::initWithContentsOfURL(std::string(VORLITH_BENCH_MODELS) +
                                                     (full ? "/RTC.onnx" : "/RTC_degrade.onnx"));
  const int status = sr->ProcessData(&in, &out);  // picks the tensor
  VLPixelBufferRelease(out.pixelBuffer);
  if (network == nullptr || status != (full ? SR_OK : SR_OK_LIGHT)) {
    state.SkipWithError("ProcessData failed (are models/*.onnx there?)");
    return;
  }
  auto own = vorlith::MultiArray::initWithShape({1, 1, f.h, f.w}, vorlith::MultiArrayDataType::Float32);
  auto tensor = vorlith::MultiArray::initWithShape({1, 1, plugin->modelHeight, plugin->modelWidth},
                                                   vorlith::MultiArrayDataType::Float32);
  for (auto& t : {own, tensor}) {
    auto* p = static_cast<float*>(t->dataPointer());
    for (int64_t i = 0; i < t->count(); ++i) p[i] = static_cast<float>((i * 37) & 255);
  }
  double process = 0, own_net = 0, tensor_net = 0;
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    sr->ProcessData(&in, &out);
    const auto t1 = std::chrono::steady_clock::now();
    VLPixelBufferRelease(out.pixelBuffer);
    const auto t2 = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(network->predictionFromRTC_input(own));
    const auto t3 = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(network->predictionFromRTC_input(tensor));
    const auto t4 = std::chrono::steady_clock::now();
    process += Seconds(t0, t1);
    own_net += Seconds(t2, t3);
    tensor_net += Seconds(t3, t4);
    state.SetIterationTime(Seconds(t0, t1));
  }
  const double n = static_cast<double>(state.iterations());
  state.SetLabel(std::to_string(f.w) + "x" + std::to_string(f.h) + " on " + std::to_string(plugin->modelWidth) +
                 "x" + std::to_string(plugin->modelHeight) + (full ? ", full" : ", light"));
  if (n > 0) {
    state.counters["process_ms"] = 1e3 * process / n;
    state.counters["own_size_net_ms"] = 1e3 * own_net / n;
    state.counters["tensor_net_ms"] = 1e3 * tensor_net / n;
    state.counters["cost_over_own_size"] = process / own_net;
    state.counters["outside_net_ms"] = 1e3 * (process - own_net) / n;
  }
  VLPixelBufferRelease(frame);
  vorlith::platform::SetClockForTest(nullptr);
  vorlith::platform::SetResourceDirectoryForTest("");
}

// Many streams on one machine: sixteen plug-in objects fed 640x360 frames
// from four host threads, against one object fed the same number of frames
// from one thread, both in every iteration. streams_share is the sixteen
// objects' throughput over the one object's.
void BM_SixteenStreams(benchmark::State& state) {
  constexpr int kObjects = 16, kHosts = 4;
  const Frame f = kFrames[0];
  vorlith::platform::SetResourceDirectoryForTest(VORLITH_BENCH_MODELS);
  vorlith::platform::SetClockForTest([] { return int64_t{0}; });
  std::unique_ptr<SuperResolutionInterface> objects[kObjects];
  for (auto& sr : objects) {
    sr.reset(SuperResolutionInterface::Create());
    sr->Init("");
  }
  std::unique_ptr<SuperResolutionInterface> single(SuperResolutionInterface::Create());
  single->Init("");
  VLPixelBufferRef frame = NewFrame(f.w, f.h);
  const auto run = [&](SuperResolutionInterface* sr) {
    _tagVideoData in = Record(frame, f), out{};
    const int status = sr->ProcessData(&in, &out);
    VLPixelBufferRelease(out.pixelBuffer);
    return status == SR_OK;
  };
  bool ok = run(single.get());
  for (auto& sr : objects) ok = run(sr.get()) && ok;
  if (!ok) {
    state.SkipWithError("ProcessData failed (are models/*.onnx there?)");
    return;
  }
  double one = 0, many = 0;
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    for (int i = 0; i < kObjects; ++i) run(single.get());
    const auto t1 = std::chrono::steady_clock::now();
    std::thread hosts[kHosts];
    for (int t = 0; t < kHosts; ++t) {
      hosts[t] = std::thread([&, t] {
        for (int i = t; i < kObjects; i += kHosts) run(objects[i].get());
      });
    }
    for (std::thread& h : hosts) h.join();
    const auto t2 = std::chrono::steady_clock::now();
    one += Seconds(t0, t1);
    many += Seconds(t1, t2);
    state.SetIterationTime(Seconds(t1, t2));
  }
  const double n = static_cast<double>(state.iterations());
  if (n > 0) {
    state.counters["one_object_ms_per_frame"] = 1e3 * one / n / kObjects;
    state.counters["sixteen_ms_per_frame"] = 1e3 * many / n / kObjects;
    state.counters["streams_share"] = one / many;
  }
  VLPixelBufferRelease(frame);
  vorlith::platform::SetClockForTest(nullptr);
  vorlith::platform::SetResourceDirectoryForTest("");
}

}  // namespace

// frame: 1280x720, 640x360, 720x404, 400x300, 100x60; net:0 full, 1 light.
BENCHMARK(BM_FrameCost)->ArgNames({"frame", "net"})->ArgsProduct({{0, 1, 2, 3, 4}, {0, 1}})
    ->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SixteenStreams)->UseManualTime()->Unit(benchmark::kMillisecond);
// frame:0 is 640x360, frame:1 is 1280x720; net:0 is RTC (full), net:1 RTC_degrade.
BENCHMARK(BM_ProcessDataShipped)->ArgNames({"frame", "net"})->ArgsProduct({{0, 1}, {0, 1}})
    ->UseManualTime()->Unit(benchmark::kMillisecond);
// file: 0 RTC, 1 RTC_degrade (shipped, integer), 2 and 3 their float versions.
BENCHMARK(BM_Network)->ArgNames({"frame", "file", "threads"})->ArgsProduct({{0, 1}, {0, 1, 2, 3}, {1, 2}})
    ->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ProcessData)->ArgName("frame")->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond);
