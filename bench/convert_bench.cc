// Colour and layout conversions beside the peers a video engineer would
// reach for, at 640x360 and 1280x720, one thread: libyuv (ARGBToI420 plus
// ARGBExtractAlpha, I420AlphaToARGB, I420ToRGB24, NV12ToRGB24, ARGBCopy,
// RGB24ToARGB), OpenCV's cv::cvtColor where it has the conversion, and
// memcpy of the bytes written for the copies. Every benchmark reports
// pixels per second, and its bytes read plus written per second with their
// share of memcpy's rate (bw_share); frame:0 is 640x360, frame:1 1280x720.
// Our YUV/RGB conversions keep every sum exact in 32-bit lanes; libyuv
// rounds in 16-bit lanes, twice the results per operation. With AVX-512
// byte permutes the exact loops still lead it; on AVX2 they run about level
// with it, and would stay short of 1.5x even without their output interleave.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#ifdef VORLITH_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

#ifdef VORLITH_BENCH_LIBYUV
#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/planar_functions.h>
#endif

#include "vorlith/kernels.h"
#include "bench/bandwidth.h"
#include "bench/bench_frames.h"

namespace {

using vorlith::bench::Frame;
using vorlith::bench::kFrames;
using vorlith::bench::RandomBytes;

// Runs `body` per iteration and reports the frame's pixels, and `bytes`
// per pixel read plus written against memcpy's rate.
template <class Body>
void Loop(benchmark::State& s, const Frame& f, void* out, double bytes, Body body) {
  for (auto _ : s) {
    body();
    benchmark::DoNotOptimize(out);
    benchmark::ClobberMemory();
  }
  s.SetItemsProcessed(s.iterations() * int64_t{f.w} * f.h);
  vorlith::bench::ReportBandwidth(s, bytes * f.w * f.h);
}

struct Context {
  Context() { InitLanczos1p5x(&ctx); }
  ~Context() { UInitLanczos1p5x(&ctx); }
  _StLanczos1p5x ctx{};
};

// ---- RGBA to I420 with alpha, and back ----

void BM_RGBA2I420A_NEON(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  auto rgba = RandomBytes(size_t(4) * f.w * f.h);
  std::vector<uint8_t> out(size_t(f.w) * f.h * 5 / 2);
  Context c;
  Loop(s, f, out.data(), 6.5, [&] { RGBA2I420A_NEON(&c.ctx, rgba.data(), out.data(), f.h, f.w); });
}

void BM_I420A2RGBA_NEON(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  const size_t n = size_t(f.w) * f.h;
  auto planes = RandomBytes(n * 5 / 2);
  std::vector<uint8_t> out(4 * n);
  Context c;
  uint8_t* y = planes.data();
  Loop(s, f, out.data(), 6.5, [&] {
    I420A2RGBA_NEON(&c.ctx, y, y + n, y + n * 5 / 4, y + n * 3 / 2, out.data(), f.h, f.w);
  });
}

// ---- Luma-ratio split and merge (no peer does these) ----

void BM_RGBA2RGBA_Y_RGBR_NEON(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  const size_t n = size_t(f.w) * f.h;
  auto rgba = RandomBytes(4 * n);
  std::vector<float> luma(n);
  std::vector<int> diff(12 * n);
  std::vector<uint8_t> alpha(4 * n);
  Context c;
  Loop(s, f, diff.data(), 60.0, [&] {
    RGBA2RGBA_Y_RGBR_NEON(&c.ctx, rgba.data(), luma.data(), diff.data(), alpha.data(), f.h, f.w);
  });
}

// Merge at the enlarged size of the frame (2w x 2h pixels counted).
void BM_RGBA2RGBA_F_NEON(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  const Frame big{2 * f.w, 2 * f.h};
  const size_t n = size_t(big.w) * big.h;
  std::vector<float> luma(n, 125.0f * 1220544);
  std::vector<int> diff(3 * n, -19528688);
  auto alpha = RandomBytes(n);
  std::vector<uint8_t> out(4 * n);
  Loop(s, big, out.data(), 21.0, [&] {
    RGBA2RGBA_F_NEON(out.data(), luma.data(), diff.data(), alpha.data(), big.h, big.w);
  });
}

// ---- YUV copy, crop, YUV to RGB, RGB to RGBA ----

void BM_yuvcpy_nv12(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  const size_t n = size_t(f.w) * f.h;
  auto yuv = RandomBytes(n * 3 / 2);
  std::vector<uint8_t> out(4 * n);
  Loop(s, f, out.data(), 5.5, [&] {
    yuvcpy(yuv.data(), f.w, f.h, f.w, yuv.data() + n, f.w / 2, f.h / 2, f.w, out.data(), f.w, f.h,
           4 * f.w, true);
  });
}

void BM_BGRACrop(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  // A frame-sized rectangle out of a frame 64 pixels wider.
  auto src = RandomBytes(size_t(4) * (f.w + 64) * f.h);
  std::vector<uint8_t> out(size_t(4) * f.w * f.h);
  Loop(s, f, out.data(), 8.0, [&] {
    BGRACrop(src.data() + 128, out.data(), 0, 0, 4 * (f.w + 64), f.w, f.h, 4 * f.w);
  });
}

void BM_memcpy_frame_rgba(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  auto src = RandomBytes(size_t(4) * f.w * f.h);
  std::vector<uint8_t> out(src.size());
  Loop(s, f, out.data(), 8.0, [&] { std::memcpy(out.data(), src.data(), src.size()); });
  s.SetBytesProcessed(s.iterations() * int64_t(src.size()));
}

template <bool kNv12>
void BM_CvtColorToRGBInterleaved(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  const size_t n = size_t(f.w) * f.h;
  auto yuv = RandomBytes(n * 3 / 2);
  std::vector<uint8_t> out(3 * n);
  Loop(s, f, out.data(), 4.5, [&] {
    (kNv12 ? CvtColorNV12ToRGBInterleaved : CvtColorI420ToRGBInterleaved)(
        yuv.data(), f.w, yuv.data() + n, kNv12 ? f.w : f.w / 2, out.data(), f.w, f.h);
  });
}

void BM_CvtRGBtoRGBA_lanczos(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  auto rgb = RandomBytes(size_t(3) * f.w * f.h);
  std::vector<uint8_t> out(size_t(4) * f.w * f.h);
  Loop(s, f, out.data(), 7.0, [&] { CvtRGBtoRGBA_lanczos(rgb.data(), out.data(), f.w, f.h, 4 * f.w); });
}

#ifdef VORLITH_BENCH_LIBYUV
void BM_libyuv_ARGBToI420_ExtractAlpha(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  const size_t n = size_t(f.w) * f.h;
  auto argb = RandomBytes(4 * n);
  std::vector<uint8_t> out(n * 5 / 2);
  uint8_t* y = out.data();
  Loop(s, f, y, 6.5, [&] {
    libyuv::ARGBToI420(argb.data(), 4 * f.w, y, f.w, y + n, f.w / 2, y + n * 5 / 4, f.w / 2, f.w,
                       f.h);
    libyuv::ARGBExtractAlpha(argb.data(), 4 * f.w, y + n * 3 / 2, f.w, f.w, f.h);
  });
}

void BM_libyuv_I420AlphaToARGB(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  const size_t n = size_t(f.w) * f.h;
  auto p = RandomBytes(n * 5 / 2);
  std::vector<uint8_t> out(4 * n);
  Loop(s, f, out.data(), 6.5, [&] {
    libyuv::I420AlphaToARGB(p.data(), f.w, p.data() + n, f.w / 2, p.data() + n * 5 / 4, f.w / 2,
                            p.data() + n * 3 / 2, f.w, out.data(), 4 * f.w, f.w, f.h, 0);
  });
}

template <bool kNv12>
void BM_libyuv_ToRGB24(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  const size_t n = size_t(f.w) * f.h;
  auto p = RandomBytes(n * 3 / 2);
  std::vector<uint8_t> out(3 * n);
  Loop(s, f, out.data(), 4.5, [&] {
    if (kNv12) {
      libyuv::NV12ToRGB24(p.data(), f.w, p.data() + n, f.w, out.data(), 3 * f.w, f.w, f.h);
    } else {
      libyuv::I420ToRGB24(p.data(), f.w, p.data() + n, f.w / 2, p.data() + n * 5 / 4, f.w / 2,
                          out.data(), 3 * f.w, f.w, f.h);
    }
  });
}

void BM_libyuv_ARGBCopy(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  auto src = RandomBytes(size_t(4) * (f.w + 64) * f.h);
  std::vector<uint8_t> out(size_t(4) * f.w * f.h);
  Loop(s, f, out.data(), 8.0, [&] {
    libyuv::ARGBCopy(src.data() + 128, 4 * (f.w + 64), out.data(), 4 * f.w, f.w, f.h);
  });
}

void BM_libyuv_RGB24ToARGB(benchmark::State& s) {
  const Frame f = kFrames[s.range(0)];
  auto rgb = RandomBytes(size_t(3) * f.w * f.h);
  std::vector<uint8_t> out(size_t(4) * f.w * f.h);
  Loop(s, f, out.data(), 7.0,
       [&] { libyuv::RGB24ToARGB(rgb.data(), 3 * f.w, out.data(), 4 * f.w, f.w, f.h); });
}
#endif

#ifdef VORLITH_BENCH_OPENCV
// cv::cvtColor on one thread; `in_rows` is the input Mat's height in units of
// the frame's (3/2 for the 4:2:0 layouts), `kOutBytes` the bytes a pixel
// gets.
template <int kCode, int kInChannels, int kInRowsX2, int kOutBytesX2>
void BM_cv_cvtColor(benchmark::State& s) {
  constexpr double kBytes = kInChannels * kInRowsX2 / 2.0 + kOutBytesX2 / 2.0;
  const Frame f = kFrames[s.range(0)];
  const int saved = cv::getNumThreads();
  cv::setNumThreads(1);
  const int rows = f.h * kInRowsX2 / 2;
  auto bytes = RandomBytes(size_t(rows) * f.w * kInChannels);
  cv::Mat in(rows, f.w, CV_8UC(kInChannels), bytes.data()), out;
  cv::cvtColor(in, out, kCode);
  Loop(s, f, out.data, kBytes, [&] { cv::cvtColor(in, out, kCode); });
  cv::setNumThreads(saved);
}
#endif

void FrameArgs(benchmark::internal::Benchmark* b) { b->ArgName("frame")->Arg(0)->Arg(1); }

}  // namespace

BENCHMARK(BM_RGBA2I420A_NEON)->Apply(FrameArgs);
BENCHMARK(BM_I420A2RGBA_NEON)->Apply(FrameArgs);
BENCHMARK(BM_RGBA2RGBA_Y_RGBR_NEON)->Apply(FrameArgs);
BENCHMARK(BM_RGBA2RGBA_F_NEON)->Apply(FrameArgs);
BENCHMARK(BM_yuvcpy_nv12)->Apply(FrameArgs);
BENCHMARK(BM_BGRACrop)->Apply(FrameArgs);
BENCHMARK(BM_memcpy_frame_rgba)->Apply(FrameArgs);
BENCHMARK(BM_CvtColorToRGBInterleaved<false>)->Name("BM_CvtColorI420ToRGBInterleaved")->Apply(FrameArgs);
BENCHMARK(BM_CvtColorToRGBInterleaved<true>)->Name("BM_CvtColorNV12ToRGBInterleaved")->Apply(FrameArgs);
BENCHMARK(BM_CvtRGBtoRGBA_lanczos)->Apply(FrameArgs);
#ifdef VORLITH_BENCH_LIBYUV
BENCHMARK(BM_libyuv_ARGBToI420_ExtractAlpha)->Apply(FrameArgs);
BENCHMARK(BM_libyuv_I420AlphaToARGB)->Apply(FrameArgs);
BENCHMARK(BM_libyuv_ToRGB24<false>)->Name("BM_libyuv_I420ToRGB24")->Apply(FrameArgs);
BENCHMARK(BM_libyuv_ToRGB24<true>)->Name("BM_libyuv_NV12ToRGB24")->Apply(FrameArgs);
BENCHMARK(BM_libyuv_ARGBCopy)->Apply(FrameArgs);
BENCHMARK(BM_libyuv_RGB24ToARGB)->Apply(FrameArgs);
#endif
#ifdef VORLITH_BENCH_OPENCV
BENCHMARK(BM_cv_cvtColor<cv::COLOR_RGBA2YUV_I420, 4, 2, 3>)->Name("BM_cv_RGBA2YUV_I420")->Apply(FrameArgs);
BENCHMARK(BM_cv_cvtColor<cv::COLOR_YUV2RGBA_I420, 1, 3, 8>)->Name("BM_cv_YUV2RGBA_I420")->Apply(FrameArgs);
BENCHMARK(BM_cv_cvtColor<cv::COLOR_YUV2RGB_I420, 1, 3, 6>)->Name("BM_cv_YUV2RGB_I420")->Apply(FrameArgs);
BENCHMARK(BM_cv_cvtColor<cv::COLOR_YUV2RGB_NV12, 1, 3, 6>)->Name("BM_cv_YUV2RGB_NV12")->Apply(FrameArgs);
BENCHMARK(BM_cv_cvtColor<cv::COLOR_RGB2RGBA, 3, 2, 8>)->Name("BM_cv_RGB2RGBA")->Apply(FrameArgs);
#endif
