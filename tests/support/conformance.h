// Table-driven kernel conformance: each exported kernel is one Row, run on
// every SIMD target this CPU runs against its per-pixel oracle, with inputs
// and outputs against guard pages. A failure names the row, parameters,
// target, seed and first differing element, and prints the command that
// reruns that one case (VORLITH_SEED, VORLITH_CASE).
#ifndef VORLITH_TESTS_SUPPORT_CONFORMANCE_H_
#define VORLITH_TESTS_SUPPORT_CONFORMANCE_H_

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "tests/support/context.h"
#include "tests/support/guarded.h"
#include "vorlith/kernel_context.h"

namespace vorlith::check {

using test::GuardedBytes;

using Params = std::vector<int>;
constexpr uint8_t kSentinel = 0xA7;  // output bytes the kernel must not write

struct Row;
void RunRow(const Row& row);

inline int Uniform(std::mt19937& rng, int lo, int hi) {
  return std::uniform_int_distribution<int>(lo, hi)(rng);
}

// A random case of independent parameters, each lo..hi in steps of `step`.
struct Range {
  int lo, hi, step = 1;
};
inline std::function<Params(std::mt19937&)> Draws(std::vector<Range> ranges) {
  return [ranges](std::mt19937& rng) {
    Params p;
    for (const Range& r : ranges) p.push_back(r.lo + r.step * Uniform(rng, 0, (r.hi - r.lo) / r.step));
    return p;
  };
}

// One case of a row: its inputs, the oracle's output and how to call the
// kernel. Outputs start as kSentinel, so bytes a kernel must leave alone
// (row gaps, rows it does not write) are expected to keep it.
class Case {
 public:
  Case(uint32_t seed, GuardedBytes::Flush flush) : rng(seed), flush_(flush) {}

  // Input or scratch memory against a guard page (which end varies by case).
  template <class T>
  T* In(size_t count) {
    inputs_.push_back(std::make_unique<GuardedBytes>(count * sizeof(T), flush_));
    return reinterpret_cast<T*>(inputs_.back()->data());
  }
  // The same, each element gen().
  template <class T, class Gen>
  T* In(size_t count, Gen gen) {
    T* p = In<T>(count);
    for (size_t i = 0; i < count; ++i) p[i] = static_cast<T>(gen());
    return p;
  }
  uint8_t* RandomBytes(size_t count) {
    return In<uint8_t>(count, [this] { return rng(); });
  }
  // A context set up by InitLanczos1p5x, released with the case.
  _StLanczos1p5x* Context();

  // The output: `count` elements of T, reported as rows of `row` elements.
  template <class T>
  void Out(size_t count, size_t row) {
    want.assign(count * sizeof(T), kSentinel);
    elem_ = sizeof(T);
    row_ = row ? row : 1;
    show_ = [](const uint8_t* p) {
      T v;
      std::memcpy(&v, p, sizeof(T));
      return std::to_string(v);
    };
  }
  template <class T>
  void Want(size_t i, T value) {
    std::memcpy(&want[i * sizeof(T)], &value, sizeof(T));
  }
  // The oracle over an h x w grid: element (y, x) is oracle(y, x), stored at
  // y * stride + x.
  template <class T, class F>
  void Grid(int h, int w, size_t stride, F oracle) {
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) Want<T>(size_t(y) * stride + x, oracle(y, x));
    }
  }

  std::mt19937 rng;
  std::vector<uint8_t> want;
  std::function<void(void* out)> run;  // calls the kernel on these inputs

 private:
  friend void RunRow(const Row&);
  GuardedBytes::Flush flush_;
  std::vector<std::unique_ptr<GuardedBytes>> inputs_;
  std::shared_ptr<test::Context> ctx_;
  size_t elem_ = 1, row_ = 1;
  std::string (*show_)(const uint8_t*) = nullptr;
};

struct Row {
  std::string name;
  std::vector<const char*> params;  // parameter names, for reports
  std::vector<Params> sizes;        // path boundaries, always run
  std::function<Params(std::mt19937&)> draw;  // a random case, VORLITH_DRAWS of them
  std::function<void(const Params&, Case&)> make = nullptr;
  bool dispatched = true;  // false: one code path whatever the target
};
inline void PrintTo(const Row& row, std::ostream* os) { *os << row.name; }

// Every combination of `values` (the first parameter slowest), each followed
// by one parameter per n in `cycle` that counts round 0..n-1 from case to
// case (the first fastest, the next when it wraps); after the cases `first`.
std::vector<Params> Combos(std::vector<std::vector<int>> values, std::vector<int> cycle = {},
                           std::vector<Params> first = {});
std::vector<int> Span(int lo, int hi);  // lo .. hi

// The rows of each kernel family.
std::vector<Row> ResampleRows();
std::vector<Row> PlaneRows();
std::vector<Row> FilterRows();
std::vector<Row> ConvertRows();

}  // namespace vorlith::check

#endif  // VORLITH_TESTS_SUPPORT_CONFORMANCE_H_
