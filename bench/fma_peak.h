#ifndef VORLITH_BENCH_FMA_PEAK_H_
#define VORLITH_BENCH_FMA_PEAK_H_

#include <cstdint>

namespace vorlith::bench {

// Multiply-accumulates per second on `threads` threads, the best of three
// runs of about a second; measured once per process and thread count.
double FmaPeak(int threads);

// Byte multiply-accumulates per second with the instructions the engine's
// quantised path uses on this CPU (VNNI dot products where present).
double DotPeak(int threads);

}  // namespace vorlith::bench

#endif  // VORLITH_BENCH_FMA_PEAK_H_
