// What every benchmark program shares: the two frame sizes a video engineer
// cares about, and reproducible random bytes to fill them.
#ifndef VORLITH_BENCH_BENCH_FRAMES_H_
#define VORLITH_BENCH_BENCH_FRAMES_H_

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace vorlith::bench {

struct Frame {
  int w, h;
};
inline constexpr Frame kFrames[] = {{640, 360}, {1280, 720}};

inline std::vector<uint8_t> RandomBytes(size_t n) {
  std::mt19937 rng(1);
  std::vector<uint8_t> v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

}  // namespace vorlith::bench

#endif  // VORLITH_BENCH_BENCH_FRAMES_H_
