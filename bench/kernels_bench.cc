// Kernel throughput beside memcpy of the same bytes and beside libyuv.
// Every benchmark reports bytes read plus bytes written per second, so the
// figures compare directly, and their share of memcpy's rate (bw_share).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#ifdef VORLITH_BENCH_LIBYUV
#include <libyuv/scale.h>
#include <libyuv/scale_uv.h>
#endif

#include "vorlith/kernels.h"
#include "bench/bandwidth.h"
#include "bench/bench_frames.h"

namespace {

// The chroma kernels work on the interleaved CbCr plane of the frame, (w/2) x
// (h/2) pairs.
using vorlith::bench::Frame;
using vorlith::bench::kFrames;
using vorlith::bench::RandomBytes;

void SetBytes(benchmark::State& state, size_t read, size_t written) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * (read + written)));
  vorlith::bench::ReportBandwidth(state, double(read + written));
}

// Bytes the chroma 2x kernels write: 2*ch rows of 2*cw pairs, half of `dst`.
size_t Chroma2xWritten(int cw, int ch) { return size_t(8) * cw * ch; }

void BM_Linear_2x_nv(benchmark::State& state) {
  const Frame f = kFrames[state.range(0)];
  const int cw = f.w / 2, ch = f.h / 2;
  auto src = RandomBytes(size_t(2) * cw * ch);
  std::vector<uint8_t> dst(size_t(16) * cw * ch);
  _StLanczos1p5x ctx{};
  InitLanczos1p5x(&ctx);
  for (auto _ : state) {
    Linear_2x_nv(&ctx, src.data(), dst.data(), ch, cw, 2 * cw, 4 * cw);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  UInitLanczos1p5x(&ctx);
  SetBytes(state, src.size(), Chroma2xWritten(cw, ch));
}

#ifdef VORLITH_BENCH_LIBYUV
void BM_libyuv_UVScale_bilinear(benchmark::State& state) {
  const Frame f = kFrames[state.range(0)];
  const int cw = f.w / 2, ch = f.h / 2;
  auto src = RandomBytes(size_t(2) * cw * ch);
  std::vector<uint8_t> dst(size_t(16) * cw * ch);
  for (auto _ : state) {
    libyuv::UVScale(src.data(), 2 * cw, cw, ch, dst.data(), 4 * cw, 2 * cw, 2 * ch,
                    libyuv::kFilterBilinear);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  SetBytes(state, src.size(), Chroma2xWritten(cw, ch));
}
#endif

// memcpy of the kernel's output size: the same bytes written, as many read.
void BM_memcpy_chroma_2x_output(benchmark::State& state) {
  const Frame f = kFrames[state.range(0)];
  const size_t n = size_t(4) * f.w * f.h;
  auto src = RandomBytes(n);
  std::vector<uint8_t> dst(n);
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), n);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  SetBytes(state, n, n);
}

void BM_CvtU8ToF32_STRIDE(benchmark::State& state) {
  const Frame f = kFrames[state.range(0)];
  auto src = RandomBytes(size_t(f.w) * f.h);
  std::vector<float> dst(size_t(f.w) * f.h);
  for (auto _ : state) {
    CvtU8ToF32_STRIDE(src.data(), dst.data(), f.h, f.w, f.w, f.w);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  SetBytes(state, src.size(), dst.size() * sizeof(float));
}

void BM_CvtF32ToU8_STRIDE(benchmark::State& state) {
  const Frame f = kFrames[state.range(0)];
  std::vector<float> src(size_t(f.w) * f.h);
  std::mt19937 rng(2);
  std::uniform_real_distribution<float> values(-20.0f, 280.0f);
  for (float& v : src) v = values(rng);
  std::vector<uint8_t> dst(size_t(f.w) * f.h);
  for (auto _ : state) {
    CvtF32ToU8_STRIDE(src.data(), dst.data(), f.h, f.w, f.w, f.w);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  SetBytes(state, src.size() * sizeof(float), dst.size());
}

// memcpy of the float plane: the conversions move 5 bytes per pixel.
void BM_memcpy_plane_5bpp(benchmark::State& state) {
  const Frame f = kFrames[state.range(0)];
  const size_t n = size_t(5) * f.w * f.h / 2;
  auto src = RandomBytes(n);
  std::vector<uint8_t> dst(n);
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), n);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  SetBytes(state, n, n);
}

void FrameArgs(benchmark::internal::Benchmark* b) {
  b->ArgName("frame")->Arg(0)->Arg(1);
}

}  // namespace

// frame:0 is 640x360, frame:1 is 1280x720.
BENCHMARK(BM_Linear_2x_nv)->Apply(FrameArgs);
#ifdef VORLITH_BENCH_LIBYUV
BENCHMARK(BM_libyuv_UVScale_bilinear)->Apply(FrameArgs);
#endif
BENCHMARK(BM_memcpy_chroma_2x_output)->Apply(FrameArgs);
BENCHMARK(BM_CvtU8ToF32_STRIDE)->Apply(FrameArgs);
BENCHMARK(BM_CvtF32ToU8_STRIDE)->Apply(FrameArgs);
BENCHMARK(BM_memcpy_plane_5bpp)->Apply(FrameArgs);
