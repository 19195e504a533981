// Lanczos, bicubic and bilinear resamplers beside OpenCV's cv::resize to the
// same output size (INTER_LANCZOS4 for the Lanczos kernels, INTER_CUBIC for
// the bicubic ones, INTER_LINEAR for the bilinear ones, CV_32F for the float
// ones), and the byte bilinear ones beside libyuv's ScalePlane with
// kFilterBilinear. OpenCV runs once on one thread, for a like-for-like
// comparison with our single-threaded kernels, and once with its default
// thread pool. Every benchmark reports output pixels per second, and its
// bytes read plus written per second with their share of memcpy's rate
// (bw_share).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#ifdef VORLITH_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

#ifdef VORLITH_BENCH_LIBYUV
#include <libyuv/scale.h>
#endif

#include "vorlith/kernels.h"
#include "bench/bandwidth.h"
#include "bench/bench_frames.h"

namespace {

using vorlith::bench::Frame;
using vorlith::bench::kFrames;
using vorlith::bench::RandomBytes;

// Items are output pixels; `bytes` are the source and destination bytes one
// iteration reads and writes (rings and scratch not counted).
void Report(benchmark::State& s, int64_t pixels, double bytes) {
  s.SetItemsProcessed(s.iterations() * pixels);
  vorlith::bench::ReportBandwidth(s, bytes);
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
  // Both frames' heights are multiples of 6, so every dst row is written.
  Report(state, int64_t{ow} * oh, double(src.size() + dst.size()));
}

// Bilinear: ratio num/den; float planes when `floats`.
template <int Num, int Den, bool Floats = false>
void RunLinear(benchmark::State& state) {
  const Frame f = kFrames[state.range(0)];
  const int ow = Num * f.w / Den, oh = Num * f.h / Den;
  auto src = RandomBytes(size_t(f.w) * f.h);
  std::vector<float> fsrc(src.begin(), src.end()), fdst(Floats ? size_t(ow) * oh : 0);
  std::vector<uint8_t> dst(size_t(ow) * oh);
  _StLanczos1p5x ctx{};
  InitLanczos1p5x(&ctx);
  ctx.floatLineBuf = new unsigned char[2 * sizeof(float) * ow];
  for (auto _ : state) {
    if constexpr (Floats) {
      (Num == 3 ? Linear_float_3x : Linear_float_4x)(&ctx, fsrc.data(), fdst.data(), f.h, f.w);
    } else {
      auto* run = Den == 2 ? Linear_1p5x
                  : Den == 3 ? Linear_4div3x
                  : Num == 2 ? Linear_2x
                  : Num == 3 ? Linear_3x
                             : Linear_4x;
      run(&ctx, src.data(), dst.data(), f.h, f.w);
    }
    benchmark::DoNotOptimize(dst.data());
    benchmark::DoNotOptimize(fdst.data());
    benchmark::ClobberMemory();
  }
  UInitLanczos1p5x(&ctx);
  const size_t bytes =
      Floats ? sizeof(float) * (fsrc.size() + fdst.size()) : src.size() + dst.size();
  Report(state, int64_t{ow} * oh, double(bytes));
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
  Report(state, int64_t{4} * f.w * f.h, double(src.size() + dst.size()));
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
  Report(state, int64_t{size.width} * size.height,
         double((src.total() + dst.total()) * src.elemSize()));
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

template <int Num, int Den, int Type = CV_8U>
void BM_cv_LINEAR(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  const int saved = cv::getNumThreads();
  if (s.range(1) == 1) cv::setNumThreads(1);
  cv::Mat src(f.h, f.w, Type);
  cv::randu(src, 0, 255);
  const cv::Size size(Num * f.w / Den, Num * f.h / Den);
  cv::Mat dst(size, Type);
  for (auto _ : s) {
    cv::resize(src, dst, size, 0, 0, cv::INTER_LINEAR);
    benchmark::DoNotOptimize(dst.data);
    benchmark::ClobberMemory();
  }
  cv::setNumThreads(saved);
  Report(s, int64_t{size.width} * size.height,
         double((src.total() + dst.total()) * src.elemSize()));
}

void OpenCvArgs(benchmark::internal::Benchmark* b) {
  b->ArgNames({"frame", "cv_threads"});
  for (int frame : {0, 1}) {
    for (int threads : {1, 0}) b->Args({frame, threads});
  }
}
#endif

void FrameArgs(benchmark::internal::Benchmark* b) { b->ArgName("frame")->Arg(0)->Arg(1); }

#ifdef VORLITH_BENCH_LIBYUV
template <int Num, int Den>
void BM_libyuv_ScalePlane_bilinear(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  const int ow = Num * f.w / Den, oh = Num * f.h / Den;
  auto src = RandomBytes(size_t(f.w) * f.h);
  std::vector<uint8_t> dst(size_t(ow) * oh);
  for (auto _ : s) {
    libyuv::ScalePlane(src.data(), f.w, f.w, f.h, dst.data(), ow, ow, oh, libyuv::kFilterBilinear);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  Report(s, int64_t{ow} * oh, double(src.size() + dst.size()));
}
#endif

}  // namespace

// frame:0 is 640x360, frame:1 is 1280x720 (the source size); cv_threads:1
// pins OpenCV to one thread, cv_threads:0 leaves its default.
BENCHMARK(BM_Lanczos2x_SingleChannel)->Apply(FrameArgs);
BENCHMARK(BM_Lanczos_1p5x)->Apply(FrameArgs);
BENCHMARK(BM_Lanczos_4d3x)->Apply(FrameArgs);
BENCHMARK(BM_Cubic1p5x_NEON)->Apply(FrameArgs);
BENCHMARK(BM_Cubic2x_NEON)->Apply(FrameArgs);
BENCHMARK(BM_ResizeLanczos2x_NEON_rgb);
BENCHMARK(RunLinear<2, 1>)->Name("BM_Linear_2x")->Apply(FrameArgs);
BENCHMARK(RunLinear<3, 1>)->Name("BM_Linear_3x")->Apply(FrameArgs);
BENCHMARK(RunLinear<4, 1>)->Name("BM_Linear_4x")->Apply(FrameArgs);
BENCHMARK(RunLinear<3, 2>)->Name("BM_Linear_1p5x")->Apply(FrameArgs);
BENCHMARK(RunLinear<4, 3>)->Name("BM_Linear_4div3x")->Apply(FrameArgs);
BENCHMARK(RunLinear<3, 1, true>)->Name("BM_Linear_float_3x")->Apply(FrameArgs);
BENCHMARK(RunLinear<4, 1, true>)->Name("BM_Linear_float_4x")->Apply(FrameArgs);
#ifdef VORLITH_BENCH_LIBYUV
BENCHMARK(BM_libyuv_ScalePlane_bilinear<2, 1>)->Apply(FrameArgs);
BENCHMARK(BM_libyuv_ScalePlane_bilinear<3, 1>)->Apply(FrameArgs);
BENCHMARK(BM_libyuv_ScalePlane_bilinear<4, 1>)->Apply(FrameArgs);
BENCHMARK(BM_libyuv_ScalePlane_bilinear<3, 2>)->Apply(FrameArgs);
BENCHMARK(BM_libyuv_ScalePlane_bilinear<4, 3>)->Apply(FrameArgs);
#endif
#ifdef VORLITH_BENCH_OPENCV
BENCHMARK(BM_cv_LANCZOS4_2x)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_LANCZOS4_1p5x)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_LANCZOS4_4d3x)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_CUBIC_1p5x)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_CUBIC_2x)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_LINEAR<2, 1>)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_LINEAR<3, 1>)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_LINEAR<4, 1>)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_LINEAR<3, 2>)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_LINEAR<4, 3>)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_LINEAR<3, 1, CV_32F>)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_LINEAR<4, 1, CV_32F>)->Apply(OpenCvArgs)->UseRealTime();
BENCHMARK(BM_cv_LANCZOS4_2x_rgb)
    ->ArgNames({"frame", "cv_threads"})
    ->Args({0, 1})
    ->Args({0, 0})
    ->UseRealTime();
#endif
