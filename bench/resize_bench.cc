// Lanczos and bicubic resamplers beside OpenCV's cv::resize to the same
// output size (INTER_LANCZOS4 for the Lanczos kernels, INTER_CUBIC for the
// bicubic ones). OpenCV runs once on one thread, for a like-for-like
// comparison with our single-threaded kernels, and once with its default
// thread pool. Every benchmark reports output pixels per second.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#ifdef VORLITH_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include "vorlith/kernels.h"

namespace {

struct Frame {
  int w, h;
};
constexpr Frame kFrames[] = {{640, 360}, {1280, 720}};

std::vector<uint8_t> RandomBytes(size_t n) {
  std::mt19937 rng(1);
  std::vector<uint8_t> v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

using Driver = void (*)(_StLanczos1p5x*, unsigned char*, unsigned char*, int, int);

struct Kernel {
  Driver run;
  int (*out_w)(int);
  int (*out_h)(int);
  size_t (*work_ints)(int w);
};

int Twice(int n) { return 2 * n; }
int ThreeHalves(int n) { return static_cast<int>(1.5 * n); }
int FourThirds(int n) { return static_cast<int>(n * 4.0 / 3.0); }

const Kernel kLanczos2x{Lanczos2x_SingleChannel, Twice, Twice,
                        [](int w) { return size_t(16) * w; }};
const Kernel kLanczos1p5x{Lanczos_1p5x, ThreeHalves, ThreeHalves,
                          [](int w) { return size_t(8) * ThreeHalves(w); }};
const Kernel kLanczos4d3x{Lanczos_4d3x, FourThirds, FourThirds,
                          [](int w) { return size_t(8) * FourThirds(w); }};
const Kernel kCubic1p5x{Cubic1p5x_NEON, ThreeHalves, ThreeHalves,
                        [](int w) { return size_t(4) * ThreeHalves(w); }};
const Kernel kCubic2x{Cubic2x_NEON, Twice, Twice, [](int w) { return size_t(8) * w; }};

void RunKernel(benchmark::State& state, const Kernel& k) {
  const Frame f = kFrames[state.range(0)];
  auto src = RandomBytes(size_t(f.w) * f.h);
  const int ow = k.out_w(f.w), oh = k.out_h(f.h);
  std::vector<uint8_t> dst(size_t(ow) * oh);
  _StLanczos1p5x ctx{};
  InitLanczos1p5x(&ctx);
  ctx.workBuf = new unsigned char[k.work_ints(f.w) * sizeof(int32_t)];
  for (auto _ : state) {
    k.run(&ctx, src.data(), dst.data(), f.h, f.w);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  UInitLanczos1p5x(&ctx);
  state.SetItemsProcessed(state.iterations() * int64_t{ow} * oh);
}

void BM_Lanczos2x_SingleChannel(benchmark::State& s) { RunKernel(s, kLanczos2x); }
void BM_Lanczos_1p5x(benchmark::State& s) { RunKernel(s, kLanczos1p5x); }
void BM_Lanczos_4d3x(benchmark::State& s) { RunKernel(s, kLanczos4d3x); }
void BM_Cubic1p5x_NEON(benchmark::State& s) { RunKernel(s, kCubic1p5x); }
void BM_Cubic2x_NEON(benchmark::State& s) { RunKernel(s, kCubic2x); }

// Three channels: a 640x360 RGB image.
void BM_ResizeLanczos2x_NEON_rgb(benchmark::State& state) {
  const Frame f = kFrames[0];
  auto src = RandomBytes(size_t(3) * f.w * f.h);
  std::vector<uint8_t> dst(size_t(12) * f.w * f.h);
  std::vector<int32_t> scratch(size_t(48) * f.w);
  for (auto _ : state) {
    ResizeLanczos2x_NEON(src.data(), scratch.data(), dst.data(), f.h, f.w);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * int64_t{4} * f.w * f.h);
}

#ifdef VORLITH_BENCH_OPENCV
// Arguments: frame, OpenCV threads (1, or 0 for its default).
void RunOpenCv(benchmark::State& state, int channels, const Frame& f, int (*out_w)(int),
               int (*out_h)(int), int interpolation) {
  const int saved = cv::getNumThreads();
  if (state.range(1) == 1) cv::setNumThreads(1);
  auto bytes = RandomBytes(size_t(channels) * f.w * f.h);
  const cv::Mat src(f.h, f.w, CV_8UC(channels), bytes.data());
  const cv::Size size(out_w(f.w), out_h(f.h));
  cv::Mat dst(size, CV_8UC(channels));
  for (auto _ : state) {
    cv::resize(src, dst, size, 0, 0, interpolation);
    benchmark::DoNotOptimize(dst.data);
    benchmark::ClobberMemory();
  }
  cv::setNumThreads(saved);
  state.SetItemsProcessed(state.iterations() * int64_t{size.width} * size.height);
}

void BM_cv_LANCZOS4_2x(benchmark::State& s) {
  RunOpenCv(s, 1, kFrames[s.range(0)], Twice, Twice, cv::INTER_LANCZOS4);
}
void BM_cv_LANCZOS4_1p5x(benchmark::State& s) {
  RunOpenCv(s, 1, kFrames[s.range(0)], ThreeHalves, ThreeHalves, cv::INTER_LANCZOS4);
}
void BM_cv_LANCZOS4_4d3x(benchmark::State& s) {
  RunOpenCv(s, 1, kFrames[s.range(0)], FourThirds, FourThirds, cv::INTER_LANCZOS4);
}
void BM_cv_CUBIC_1p5x(benchmark::State& s) {
  RunOpenCv(s, 1, kFrames[s.range(0)], ThreeHalves, ThreeHalves, cv::INTER_CUBIC);
}
void BM_cv_CUBIC_2x(benchmark::State& s) {
  RunOpenCv(s, 1, kFrames[s.range(0)], Twice, Twice, cv::INTER_CUBIC);
}
void BM_cv_LANCZOS4_2x_rgb(benchmark::State& s) {
  RunOpenCv(s, 3, kFrames[0], Twice, Twice, cv::INTER_LANCZOS4);
}

void OpenCvArgs(benchmark::internal::Benchmark* b) {
  b->ArgNames({"frame", "cv_threads"});
  for (int frame : {0, 1}) {
    for (int threads : {1, 0}) b->Args({frame, threads});
  }
}
#endif

void FrameArgs(benchmark::internal::Benchmark* b) { b->ArgName("frame")->Arg(0)->Arg(1); }

}  // namespace

// frame:0 is 640x360, frame:1 is 1280x720 (the source size); cv_threads:1
// pins OpenCV to one thread, cv_threads:0 leaves its default.
BENCHMARK(BM_Lanczos2x_SingleChannel)->Apply(FrameArgs);
BENCHMARK(BM_Lanczos_1p5x)->Apply(FrameArgs);
BENCHMARK(BM_Lanczos_4d3x)->Apply(FrameArgs);
BENCHMARK(BM_Cubic1p5x_NEON)->Apply(FrameArgs);
BENCHMARK(BM_Cubic2x_NEON)->Apply(FrameArgs);
BENCHMARK(BM_ResizeLanczos2x_NEON_rgb);
#ifdef VORLITH_BENCH_OPENCV
BENCHMARK(BM_cv_LANCZOS4_2x)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_LANCZOS4_1p5x)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_LANCZOS4_4d3x)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_CUBIC_1p5x)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_CUBIC_2x)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_LANCZOS4_2x_rgb)
    ->ArgNames({"frame", "cv_threads"})
    ->Args({0, 1})
    ->Args({0, 0})
    ->UseRealTime();
#endif
