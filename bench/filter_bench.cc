// The filters beside OpenCV doing the same work on the same frame:
// cv::boxFilter (3x3, normalised, replicated edges) beside both box filters,
// cv::Laplacian (ksize 1, CV_16S) beside the Laplacian, cv::bilateralFilter
// (d = 3, sigmaColor 20, sigmaSpace 1000, so the spatial kernel is flat as
// ours) beside the bilateral filter, and cv::ximgproc::guidedFilter (radius
// 1: 3x3 windows, guided by the picture itself) beside the guided box
// filter, the peer that does the same kind of work. OpenCV runs once on one
// thread and once with its default thread pool; ours are single-threaded.
// Items are pixels; bytes/s and bw_share count the bytes read plus written
// against memcpy's rate.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#ifdef VORLITH_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif
#ifdef VORLITH_BENCH_XIMGPROC
#include <opencv2/ximgproc/edge_filter.hpp>
#endif

#include "vorlith/kernels.h"
#include "bench/bandwidth.h"
#include "bench/bench_frames.h"

namespace {

using vorlith::bench::Frame;
using vorlith::bench::kFrames;

// A smooth ramp with noise, so the bilateral weights are neither all 1 nor
// all 0 and the Laplacian guide is a real one.
std::vector<uint8_t> Picture(const Frame& f) {
  std::mt19937 rng(1);
  std::vector<uint8_t> v(size_t(f.w) * f.h);
  for (int y = 0; y < f.h; ++y) {
    for (int x = 0; x < f.w; ++x) {
      v[size_t(y) * f.w + x] = static_cast<uint8_t>((x / 4 + y / 3) % 200 + rng() % 40);
    }
  }
  return v;
}

enum class Kernel { kGuided, kDetail, kLaplace, kBilateral };

void Run(benchmark::State& state, Kernel k) {
  const Frame f = kFrames[state.range(0)];
  auto src = Picture(f);
  const size_t n = src.size();
  std::vector<uint8_t> dst(n);
  std::vector<short> guide(n);
  std::vector<float> detail(n);
  _StLanczos1p5x ctx{};
  InitLanczos1p5x(&ctx);
  ctx.workBuf = new unsigned char[10 * size_t(f.w)];
  BilateralAllocRows(&ctx, f.w);
  Laplace_NEON(&ctx, src.data(), guide.data(), f.h, f.w);
  for (auto _ : state) {
    switch (k) {
      case Kernel::kGuided:
        Boxfilter_AB_NEON(&ctx, 1.5f, 0.02f, src.data(), guide.data(), dst.data(), f.h, f.w);
        break;
      case Kernel::kDetail:
        Boxfilter_2even_A_NEON(&ctx, src.data(), detail.data(), f.h, f.w);
        break;
      case Kernel::kLaplace:
        Laplace_NEON(&ctx, src.data(), guide.data(), f.h, f.w);
        break;
      case Kernel::kBilateral:
        BL_NEON(&ctx, src.data(), dst.data(), f.h, f.w);
        break;
    }
    benchmark::DoNotOptimize(dst.data());
    benchmark::DoNotOptimize(detail.data());
    benchmark::DoNotOptimize(guide.data());
    benchmark::ClobberMemory();
  }
  UInitLanczos1p5x(&ctx);
  state.SetItemsProcessed(state.iterations() * int64_t(n));
  // Bytes a pixel reads and writes: source byte, guide or detail, output.
  const double bytes[] = {1 + 2 + 1, 1 + 4, 1 + 2, 1 + 1};
  vorlith::bench::ReportBandwidth(state, bytes[static_cast<int>(k)] * double(n));
}

void BM_Boxfilter_AB_NEON(benchmark::State& s) { Run(s, Kernel::kGuided); }
void BM_Boxfilter_2even_A_NEON(benchmark::State& s) { Run(s, Kernel::kDetail); }
void BM_Laplace_NEON(benchmark::State& s) { Run(s, Kernel::kLaplace); }
void BM_BL_NEON(benchmark::State& s) { Run(s, Kernel::kBilateral); }

void FrameArgs(benchmark::internal::Benchmark* b) { b->ArgName("frame")->Arg(0)->Arg(1); }
BENCHMARK(BM_Boxfilter_AB_NEON)->Apply(FrameArgs);
BENCHMARK(BM_Boxfilter_2even_A_NEON)->Apply(FrameArgs);
BENCHMARK(BM_Laplace_NEON)->Apply(FrameArgs);
BENCHMARK(BM_BL_NEON)->Apply(FrameArgs);

#ifdef VORLITH_BENCH_OPENCV
enum class Peer { kBox, kLaplacian, kBilateral, kGuided };

// Arguments: frame, OpenCV threads (1, or 0 for its default).
void RunOpenCv(benchmark::State& state, Peer peer) {
  const Frame f = kFrames[state.range(0)];
  const int saved = cv::getNumThreads();
  if (state.range(1) == 1) cv::setNumThreads(1);
  auto bytes = Picture(f);
  const cv::Mat src(f.h, f.w, CV_8UC1, bytes.data());
  cv::Mat dst;
  for (auto _ : state) {
    switch (peer) {
      case Peer::kBox:
        cv::boxFilter(src, dst, -1, cv::Size(3, 3), cv::Point(-1, -1), true, cv::BORDER_REPLICATE);
        break;
      case Peer::kLaplacian:
        cv::Laplacian(src, dst, CV_16S, 1, 1, 0, cv::BORDER_REPLICATE);
        break;
      case Peer::kBilateral:
        cv::bilateralFilter(src, dst, 3, 20, 1000, cv::BORDER_REPLICATE);
        break;
      case Peer::kGuided:
#ifdef VORLITH_BENCH_XIMGPROC
        cv::ximgproc::guidedFilter(src, src, dst, 1, 0.01 * 255 * 255);
#endif
        break;
    }
    benchmark::DoNotOptimize(dst.data);
    benchmark::ClobberMemory();
  }
  cv::setNumThreads(saved);
  state.SetItemsProcessed(state.iterations() * int64_t{f.w} * f.h);
  vorlith::bench::ReportBandwidth(state, (peer == Peer::kLaplacian ? 3.0 : 2.0) * f.w * f.h);
}

void BM_cv_boxFilter(benchmark::State& s) { RunOpenCv(s, Peer::kBox); }
void BM_cv_Laplacian(benchmark::State& s) { RunOpenCv(s, Peer::kLaplacian); }
void BM_cv_bilateralFilter(benchmark::State& s) { RunOpenCv(s, Peer::kBilateral); }
#ifdef VORLITH_BENCH_XIMGPROC
void BM_cv_guidedFilter(benchmark::State& s) { RunOpenCv(s, Peer::kGuided); }
#endif

void OpenCvArgs(benchmark::internal::Benchmark* b) {
  b->ArgNames({"frame", "cv_threads"});
  for (int frame : {0, 1}) {
    for (int threads : {1, 0}) b->Args({frame, threads});
  }
}
BENCHMARK(BM_cv_boxFilter)->Apply(OpenCvArgs);
BENCHMARK(BM_cv_Laplacian)->Apply(OpenCvArgs);
BENCHMARK(BM_cv_bilateralFilter)->Apply(OpenCvArgs);
#ifdef VORLITH_BENCH_XIMGPROC
BENCHMARK(BM_cv_guidedFilter)->Apply(OpenCvArgs);
#endif
#endif

}  // namespace
