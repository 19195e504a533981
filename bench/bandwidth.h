// The memory-bandwidth limit a kernel is held to: the bytes it reads plus
// the bytes it writes, at the rate memcpy moves bytes (read plus written)
// through buffers of the same total size, measured once per size in the
// same run. A share near 1 is a kernel bound by memory; well below, one
// bound by its arithmetic.
#ifndef VORLITH_BENCH_BANDWIDTH_H_
#define VORLITH_BENCH_BANDWIDTH_H_

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <map>
#include <vector>

namespace vorlith::bench {

// memcpy's bytes moved (twice the bytes copied) per second when it moves
// `bytes` in all, best of five runs of about 20 ms.
inline double MemcpyBytesPerSecond(size_t bytes) {
  static std::map<size_t, double> rates;
  const size_t half = std::max<size_t>(bytes / 2, 4096);
  if (const auto it = rates.find(half); it != rates.end()) return it->second;
  std::vector<uint8_t> src(half, 1), dst(half, 0);
  double best = 0.0;
  for (int run = 0; run < 5; ++run) {
    int64_t copies = 0;
    const auto t0 = std::chrono::steady_clock::now();
    double seconds = 0.0;
    do {
      std::memcpy(dst.data(), src.data(), half);
      benchmark::DoNotOptimize(dst.data());
      benchmark::ClobberMemory();
      ++copies;
      seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    } while (seconds < 0.02);
    best = std::max(best, 2.0 * static_cast<double>(half) * static_cast<double>(copies) / seconds);
  }
  return rates[half] = best;
}

// Counters: bytes moved per second, and their share of memcpy's rate.
inline void ReportBandwidth(benchmark::State& state, double bytes_per_iteration) {
  const double moved = bytes_per_iteration * static_cast<double>(state.iterations());
  state.counters["bytes/s"] = benchmark::Counter(moved, benchmark::Counter::kIsRate);
  state.counters["bw_share"] = benchmark::Counter(
      moved / MemcpyBytesPerSecond(static_cast<size_t>(bytes_per_iteration)), benchmark::Counter::kIsRate);
}

}  // namespace vorlith::bench

#endif  // VORLITH_BENCH_BANDWIDTH_H_
