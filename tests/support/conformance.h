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
  uint8_t* RandomBytes(size_t count) {
    uint8_t* p = In<uint8_t>(count);
    for (size_t i = 0; i < count; ++i) p[i] = static_cast<uint8_t>(rng());
    return p;
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
  std::function<void(const Params&, Case&)> make;
  bool dispatched = true;  // false: one code path whatever the target
};
inline void PrintTo(const Row& row, std::ostream* os) { *os << row.name; }

// The rows of each kernel family.
std::vector<Row> ResampleRows();
std::vector<Row> PlaneRows();
std::vector<Row> FilterRows();
std::vector<Row> ConvertRows();

}  // namespace vorlith::check

#endif  // VORLITH_TESTS_SUPPORT_CONFORMANCE_H_
