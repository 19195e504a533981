// The machine's fused multiply-add peak with the widest vectors dispatch
// picks: independent chains of multiply-adds on registers, enough of them to
// cover the latency of every FMA unit. The networks' speed is reported as a
// share of this.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "bench/fma_peak.cc"
// The byte dot-product peak needs the VNNI target, as the engine's
// quantised rows do.
#ifndef HWY_WANT_AVX3_DL
#define HWY_WANT_AVX3_DL
#endif
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <thread>
#include <utility>
#include <vector>

#include "bench/fma_peak.h"

HWY_BEFORE_NAMESPACE();
#if HWY_TARGET == HWY_AVX3_DL
#if HWY_COMPILER_CLANG
#pragma clang attribute push(__attribute__((target("avx512vnni"))), apply_to = function)
#else
#pragma GCC target("avx512vnni")
#endif
#endif
namespace vorlith::bench {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Multiply-accumulates done: rounds x 16 chains x lanes. The sum comes back
// so that nothing is optimised away.
float FmaChains(int64_t rounds, int64_t* macs) {
  const hn::ScalableTag<float> d;
  const auto m = hn::Set(d, 0.999999f), c = hn::Set(d, 1e-7f);
#define VL_CHAINS(M) M(0) M(1) M(2) M(3) M(4) M(5) M(6) M(7) M(8) M(9) M(10) M(11) M(12) M(13) M(14) M(15)
#define VL_INIT(i) auto a##i = hn::Set(d, 1.0f + 0.01f * i);
  VL_CHAINS(VL_INIT)
  for (int64_t r = 0; r < rounds; ++r) {
#define VL_STEP(i) a##i = hn::MulAdd(a##i, m, c);
    VL_CHAINS(VL_STEP)
  }
#define VL_SUM(i) sum = hn::Add(sum, a##i);
  auto sum = hn::Zero(d);
  VL_CHAINS(VL_SUM)
  *macs = rounds * 16 * static_cast<int64_t>(hn::Lanes(d));
  return hn::GetLane(sum);
}

// Byte multiply-accumulates the way the engine's quantised rows do them on
// this target: four per 32-bit lane and instruction with VNNI, two 16-bit
// pairwise products per four on the other x86 targets, 32-bit products
// elsewhere. Counts rounds x 16 chains x lanes x 4.
int32_t DotChains(int64_t rounds, int64_t* macs) {
  const hn::ScalableTag<int32_t> d;
  const auto w = hn::Set(d, 0x01020304);
#define VL_INIT_I(i) auto a##i = hn::Set(d, i);
  VL_CHAINS(VL_INIT_I)
  for (int64_t r = 0; r < rounds; ++r) {
#if HWY_TARGET == HWY_AVX3_DL
#define VL_DOT(i) asm volatile("vpdpbusd %2, %1, %0" : "+v"(a##i.raw) : "v"(w.raw), "v"(w.raw));
#elif HWY_TARGET == HWY_AVX3
#define VL_DOT(i) \
  a##i = hn::Add(a##i, decltype(a##i){_mm512_add_epi32(_mm512_madd_epi16(w.raw, w.raw), _mm512_madd_epi16(w.raw, a##i.raw))});
#elif HWY_TARGET == HWY_AVX2
#define VL_DOT(i) \
  a##i = hn::Add(a##i, decltype(a##i){_mm256_add_epi32(_mm256_madd_epi16(w.raw, w.raw), _mm256_madd_epi16(w.raw, a##i.raw))});
#elif HWY_TARGET == HWY_SSE4
#define VL_DOT(i) \
  a##i = hn::Add(a##i, decltype(a##i){_mm_add_epi32(_mm_madd_epi16(w.raw, w.raw), _mm_madd_epi16(w.raw, a##i.raw))});
#else
#define VL_DOT(i) a##i = hn::Add(hn::Add(hn::Mul(a##i, w), hn::Mul(w, w)), hn::Add(hn::Mul(a##i, w), hn::Mul(w, w)));
#endif
    VL_CHAINS(VL_DOT)
#undef VL_DOT
  }
  auto sum = hn::Zero(d);
  VL_CHAINS(VL_SUM)
  *macs = rounds * 16 * static_cast<int64_t>(hn::Lanes(d)) * 4;
  return hn::GetLane(sum);
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith::bench
#if HWY_TARGET == HWY_AVX3_DL && HWY_COMPILER_CLANG
#pragma clang attribute pop
#endif
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith::bench {

HWY_EXPORT(FmaChains);
HWY_EXPORT(DotChains);

template <typename Chains>
double MeasurePeak(int threads, Chains chains) {
  constexpr int64_t kRounds = int64_t{1} << 25;
  double best = 0.0;
  for (int trial = 0; trial < 3; ++trial) {
    std::vector<int64_t> macs(static_cast<size_t>(threads));
    std::vector<float> sink(static_cast<size_t>(threads));
    const auto t0 = std::chrono::steady_clock::now();
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
      workers.emplace_back([&, t] { sink[t] = static_cast<float>(chains(kRounds, &macs[t])); });
    }
    for (std::thread& w : workers) w.join();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    double total = 0.0;
    for (int64_t m : macs) total += static_cast<double>(m);
    if (sink[0] != 0.0f) best = std::max(best, total / seconds);
  }
  return best;
}

// Measured once per process, kind of arithmetic and thread count.
template <typename Chains>
double CachedPeak(bool dot, int threads, Chains chains) {
  static std::map<std::pair<bool, int>, double> peaks;
  auto it = peaks.find({dot, threads});
  if (it == peaks.end()) it = peaks.emplace(std::make_pair(dot, threads), MeasurePeak(threads, chains)).first;
  return it->second;
}

double FmaPeak(int threads) {
  return CachedPeak(false, threads, [](int64_t r, int64_t* m) { return HWY_DYNAMIC_DISPATCH(FmaChains)(r, m); });
}

double DotPeak(int threads) {
  return CachedPeak(true, threads, [](int64_t r, int64_t* m) { return HWY_DYNAMIC_DISPATCH(DotChains)(r, m); });
}

}  // namespace vorlith::bench
#endif  // HWY_ONCE
