#ifndef VORLITH_BENCH_FMA_PEAK_H_
#define VORLITH_BENCH_FMA_PEAK_H_

#include <cstdint>

namespace vorlith::bench {

// Multiply-accumulates per second on `threads` threads, the best of three
// runs of about a second; measured once per process and thread count.
double FmaPeak(int threads);

}  // namespace vorlith::bench

#endif  // VORLITH_BENCH_FMA_PEAK_H_
