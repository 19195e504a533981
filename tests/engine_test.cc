// The network engine against the float64 reference executor: graphs built in
// code with random weights, covering every operator the importer produces,
// on every SIMD target, at sizes that end mid-vector and mid-block, and on
// one and several threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <utility>
#include <string>
#include <vector>

#include "src/model/engine_rows.h"
#include "src/model/network.h"
#include "src/model/onnx_graph.h"
#if VORLITH_HAS_VULKAN
#include "src/model/vulkan_network.h"
#endif
#include "tests/oracle/network_oracle.h"
#include "tests/support/targets.h"

namespace vorlith::model {
namespace {

class Builder {
 public:
  explicit Builder(uint32_t seed) : rng_(seed) {
    g_.input_name = std::string("x");
    g_.output_name = std::string("y");
    g_.input = 0;
    g_.activations.push_back({1, {1, 0}, {1, 0}});
  }

  int Conv(int x, int64_t out_c, int64_t kh, int64_t kw, int64_t top, int64_t left, int64_t bottom,
           int64_t right) {
    Activation out;
    Op op = Window(OpKind::kConv, x, out_c, kh, kw, top, left, bottom, right, &out);
    // Weights scaled by fan-in keep activations near 1 through deep stacks.
    const int64_t in_c = g_.activations[x].channels;
    op.filter = Random(out_c * kh * kw * in_c, 1.5f / std::sqrt(float(kh * kw * in_c)));
    op.bias = Random(out_c, 0.5f);
    return Push(std::move(op), out);
  }
  int Same3x3(int x, int64_t out_c) { return Conv(x, out_c, 3, 3, 1, 1, 1, 1); }
  int PRelu(int x) {
    return Push(Make(OpKind::kPRelu, {x}, Random(g_.activations[x].channels, 0.5f)), g_.activations[x]);
  }
  int Clamp(int x, float lo, float hi) {
    Op op = Make(OpKind::kClamp, {x});
    op.min = lo;
    op.max = hi;
    return Push(std::move(op), g_.activations[x]);
  }
  // With b < 0 the second operand is a constant of `constant_channels` values.
  int Binary(OpKind kind, int a, int b, int64_t constant_channels = 1) {
    Activation out = g_.activations[a];
    out.channels = std::max(out.channels, b >= 0 ? g_.activations[b].channels : constant_channels);
    return Push(b >= 0 ? Make(kind, {a, b}) : Make(kind, {a}, Random(constant_channels, 2.0f)), out);
  }
  int DepthToSpace(int x, int64_t block) {
    const Activation a = g_.activations[x];
    Op op = Make(OpKind::kDepthToSpace, {x});
    op.block = block;
    return Push(std::move(op), {a.channels / (block * block), {a.height.scale * block, a.height.offset * block},
                                {a.width.scale * block, a.width.offset * block}});
  }
  int Resize(int x, ResizeCoords coords) {
    const Activation a = g_.activations[x];
    Op op = Make(OpKind::kResizeBilinear, {x});
    op.coords = coords;
    return Push(std::move(op), {a.channels, {a.height.scale * 2, a.height.offset * 2},
                                {a.width.scale * 2, a.width.offset * 2}});
  }

  int Quantize(int x, float scale, int32_t zero_point) {
    Activation out = g_.activations[x];
    out.quantized = true;
    out.zero_point = zero_point;
    Op op = Make(OpKind::kQuantize, {x});
    op.scale = scale;
    scale_[Push(std::move(op), out)] = scale;
    return static_cast<int>(g_.activations.size()) - 1;
  }
  // Int8 weights over the whole range (-128 included), biases and scales
  // that put the float outputs near +-4, so that requantising at 1/32 both
  // rounds and saturates.
  int QConv(int x, int64_t out_c, int64_t kh, int64_t kw, int64_t top, int64_t left, int64_t bottom,
            int64_t right) {
    Activation out;
    Op op = Window(OpKind::kQConv, x, out_c, kh, kw, top, left, bottom, right, &out);
    const int64_t in_c = g_.activations[x].channels;
    std::uniform_int_distribution<int> w8(-128, 127), bias(-20000, 20000);
    for (int64_t i = 0; i < out_c * kh * kw * in_c; ++i) op.qfilter.push_back(static_cast<int8_t>(w8(rng_)));
    const float typical = 4.0f / (40.0f * 70.0f * std::sqrt(float(kh * kw * in_c)));
    std::uniform_real_distribution<float> spread(0.5f, 2.0f);
    for (int64_t o = 0; o < out_c; ++o) {
      op.qbias.push_back(bias(rng_));
      op.scales.push_back(scale_.at(x) * (typical / scale_.at(x) * spread(rng_)));
    }
    return Push(std::move(op), out);
  }

  Graph Finish(int output) {
    g_.output = output;
    return g_;
  }

 private:
  std::vector<float> Random(int64_t n, float scale) {
    std::uniform_real_distribution<float> u(-scale, scale);
    std::vector<float> v(static_cast<size_t>(n));
    for (float& x : v) x = u(rng_);
    return v;
  }
  // A convolution's kernel and padding, and the float activation it gives.
  Op Window(OpKind kind, int x, int64_t out_c, int64_t kh, int64_t kw, int64_t top, int64_t left, int64_t bottom,
            int64_t right, Activation* out) {
    Op op = Make(kind, {x});
    op.kernel_h = kh;
    op.kernel_w = kw;
    op.pad_top = top;
    op.pad_left = left;
    op.pad_bottom = bottom;
    op.pad_right = right;
    *out = g_.activations[x];
    out->quantized = false;
    out->zero_point = 0;
    out->channels = out_c;
    out->height.offset += top + bottom - kh + 1;
    out->width.offset += left + right - kw + 1;
    return op;
  }
  static Op Make(OpKind kind, std::vector<int> inputs, std::vector<float> constant = {}) {
    Op op;
    op.kind = kind;
    op.inputs = std::move(inputs);
    op.constant = std::move(constant);
    return op;
  }
  int Push(Op op, Activation out) {
    g_.activations.push_back(out);
    const int id = static_cast<int>(g_.activations.size()) - 1;
    op.output = id;
    op.node = "node " + std::to_string(g_.ops.size());
    g_.ops.push_back(std::move(op));
    return id;
  }

  Graph g_;
  std::mt19937 rng_;
  std::map<int, float> scale_;  // byte activations
};

// The shape of the shipped networks at any width: 3x3 convolutions with
// PReLU, a 4-channel last layer plus the input, and a depth-to-space.
Graph Chain(int64_t channels, int body, uint32_t seed) {
  Builder b(seed);
  int x = b.PRelu(b.Same3x3(0, channels));
  for (int i = 0; i < body; ++i) x = b.PRelu(b.Same3x3(x, channels));
  return b.Finish(b.DepthToSpace(b.Binary(OpKind::kAdd, b.Same3x3(x, 4), 0), 2));
}

// Uneven kernels and padding, a clamp folded into its convolution, an
// activation read by two operators (so nothing folds), channel broadcasts,
// constants, a half-pixel resize, and a depth-to-space read by a
// convolution.
Graph Mixed(uint32_t seed) {
  Builder b(seed);
  const int c = b.Clamp(b.Conv(0, 5, 5, 3, 2, 1, 2, 1), -0.5f, 0.8f);
  const int wide = b.Conv(c, 6, 1, 1, 0, 0, 0, 0);
  const int sum = b.Binary(OpKind::kAdd, b.PRelu(wide), b.Binary(OpKind::kMul, wide, -1, 6));
  const int scaled = b.Binary(OpKind::kAdd, b.Binary(OpKind::kMul, 0, sum), b.Binary(OpKind::kAdd, 0, -1, 6));
  const int up = b.Resize(b.Conv(scaled, 3, 2, 4, 0, 3, 1, 0), ResizeCoords::kHalfPixel);
  const int clamped = b.Clamp(b.Binary(OpKind::kMul, up, b.Resize(0, ResizeCoords::kHalfPixel)), -3.0f, 3.0f);
  // A convolution reads the right padding of a depth-to-space's rows.
  return b.Finish(b.Same3x3(b.DepthToSpace(b.Same3x3(clamped, 8), 2), 1));
}

// The other resize conventions, a block-3 depth-to-space, a scalar constant
// and a convolution that shrinks the image (no padding, even kernel).
Graph Resizes(uint32_t seed) {
  Builder b(seed);
  const int corners = b.Resize(b.Same3x3(0, 2), ResizeCoords::kAlignCorners);
  const int asym = b.Resize(b.Binary(OpKind::kAdd, 0, -1), ResizeCoords::kAsymmetric);
  const int valid = b.Conv(b.Binary(OpKind::kMul, corners, asym), 9, 2, 2, 0, 0, 0, 0);  // 2h-1 x 2w-1
  return b.Finish(b.DepthToSpace(b.PRelu(valid), 3));
}

// The quantised form of Chain: QuantizeLinear, convolutions whose PReLU and
// requantisation fold into their store, and a float last layer.
Graph QChain(int64_t channels, int body, uint32_t seed) {
  Builder b(seed);
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int32_t> zp(0, 255);
  int x = b.Quantize(0, 1.0f / 100.0f, zp(rng));
  for (int i = 0; i <= body; ++i) x = b.Quantize(b.PRelu(b.QConv(x, channels, 3, 3, 1, 1, 1, 1)), 1.0f / 32.0f, zp(rng));
  return b.Finish(b.DepthToSpace(b.Binary(OpKind::kAdd, b.QConv(x, 4, 3, 3, 1, 1, 1, 1), 0), 2));
}

// Nothing folds where a value has two readers: a quantised convolution's
// float output feeds a PReLU and a second QuantizeLinear, which requantises
// six channels on its own; uneven kernels and padding, odd channel counts,
// and a scale that is not a power of two.
Graph QMixed(uint32_t seed) {
  Builder b(seed);
  const int q = b.Quantize(0, 0.013f, 7);
  const int wide = b.QConv(q, 6, 5, 3, 2, 1, 2, 1);
  const int left = b.QConv(b.Quantize(b.PRelu(wide), 0.03f, 200), 5, 1, 1, 0, 0, 0, 0);
  const int right = b.QConv(b.Quantize(wide, 1.0f / 16.0f, 0), 5, 3, 2, 1, 0, 1, 1);
  return b.Finish(b.Binary(OpKind::kAdd, b.Binary(OpKind::kMul, left, 0), b.Binary(OpKind::kAdd, right, 0)));
}

// Heights and widths: single pixels, sizes below one vector, and widths
// that end inside a column block or in the last vector of a row.
constexpr int64_t kSizes[][2] = {{1, 1}, {2, 3}, {17, 9}, {9, 17}, {5, 70}, {3, 131}, {40, 33}};
// The same boundaries in fewer pixels, for the quantised graphs, which the
// aarch64 suite runs under emulation on four SVE targets.
constexpr int64_t kQSizes[][2] = {{1, 1}, {2, 3}, {9, 17}, {5, 70}, {3, 131}};

std::vector<float> Input(int64_t h, int64_t w, uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  std::vector<float> v(static_cast<size_t>(h * w));
  for (float& x : v) x = u(rng);
  return v;
}

// The reference's outputs at every size, and the largest magnitude of each.
struct Expected {
  std::vector<std::vector<double>> values;
  std::vector<std::vector<int64_t>> shapes;
  std::vector<double> scales;
};

template <class Sizes, class In>
Expected Reference(const Graph& graph, const Sizes& sizes, In input) {
  Expected e;
  for (const auto& [h, w] : sizes) {
    e.shapes.emplace_back();
    e.values.push_back(oracle::RunGraph(graph, input(h, w), h, w, &e.shapes.back()));
    e.scales.push_back(1.0);
    for (double v : e.values.back()) e.scales.back() = std::max(e.scales.back(), std::fabs(v));
  }
  return e;
}

// One and three threads on the current target, each engine seeing every size
// in turn (so buffers are resized between runs): every value `same` as the
// reference's, and the two runs bit for bit equal, since bands recompute
// their edge rows exactly as one thread computes them.
template <class Sizes, class In, class Same>
void ExpectReference(const Graph& graph, const Sizes& sizes, In input, const Expected& e, Same same) {
  auto one = Network::FromGraph(graph, 1), three = Network::FromGraph(graph, 3);
  for (size_t s = 0; s < std::size(sizes); ++s) {
    const int64_t h = sizes[s][0], w = sizes[s][1];
    SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
    const std::vector<float> in = input(h, w);
    std::vector<float> out1, out3;
    std::vector<int64_t> shape1, shape3;
    std::string error;
    ASSERT_TRUE(one->Run(in.data(), {1, 1, h, w}, &out1, &shape1, &error)) << error;
    ASSERT_TRUE(three->Run(in.data(), {1, 1, h, w}, &out3, &shape3, &error)) << error;
    ASSERT_EQ(shape1, e.shapes[s]);
    ASSERT_EQ(shape3, e.shapes[s]);
    const int64_t ow = e.shapes[s][3], plane = e.shapes[s][2] * ow;
    for (size_t i = 0; i < out1.size(); ++i) {
      ASSERT_TRUE(same(out1[i], e.values[s][i], e.scales[s])) << out1[i] << " != " << e.values[s][i]
          << " channel " << i / plane << " row " << i % plane / ow << " column " << i % ow;
    }
    ASSERT_EQ(0, std::memcmp(out1.data(), out3.data(), out1.size() * sizeof(float)));
  }
}

std::vector<float> SeededInput(int64_t h, int64_t w) { return Input(h, w, uint32_t(h * 1000 + w)); }

TEST(Engine, MatchesTheReferenceOnEveryTargetSizeAndThreadCount) {
  const std::pair<const char*, Graph> cases[] = {
      {"chain1", Chain(1, 1, 1)},   {"chain3", Chain(3, 1, 2)},   {"chain8", Chain(8, 3, 3)},
      {"chain16", Chain(16, 2, 4)}, {"chain24", Chain(24, 1, 5)}, {"chain32", Chain(32, 1, 6)},
      {"mixed", Mixed(7)},          {"resizes", Resizes(8)},
  };
  for (const auto& [name, graph] : cases) {
    SCOPED_TRACE(std::string("graph ") + name);
    const Expected e = Reference(graph, kSizes, SeededInput);
    test::ForEachTarget([&](int64_t) {
      ExpectReference(graph, kSizes, SeededInput, e,
                      [](float got, double want, double scale) { return std::fabs(got - want) <= 2e-5 * scale; });
    });
  }
}

// Quantised graphs give the reference's bytes and floats exactly, on every
// target (the dot-product one too, which normal dispatch picks where the CPU
// has it) and thread count. One test per graph, so that they run side by side.
struct QCase {
  const char* name;
  Graph (*make)();
};
const QCase kQCases[] = {
    {"qchain1", [] { return QChain(1, 0, 11); }},   {"qchain5", [] { return QChain(5, 1, 12); }},
    {"qchain12", [] { return QChain(12, 1, 13); }}, {"qchain20", [] { return QChain(20, 0, 14); }},
    {"qmixed", [] { return QMixed(15); }},
};

void PrintTo(const QCase& c, std::ostream* os) { *os << c.name; }

class Quantised : public testing::TestWithParam<QCase> {};

TEST_P(Quantised, ExactOnEveryTargetSizeAndThreadCount) {
  std::vector<float> special = Input(9, 17, 3);
  special[0] = std::nanf("");
  special[1] = -1e30f;
  special[2] = 1e30f;
  special[3] = 0.005f;  // a tie at scale 1/100
  special[4] = 0.015f;
  const auto input = [&](int64_t h, int64_t w) { return h == 9 && w == 17 ? special : SeededInput(h, w); };
  const Graph graph = GetParam().make();
  const Expected e = Reference(graph, kQSizes, input);
  const auto check = [&](int64_t) {
    ExpectReference(graph, kQSizes, input, e, [](float got, double want, double) {
      return got == static_cast<float>(want) || (std::isnan(got) && std::isnan(want));
    });
  };
  test::ForEachTarget(check);
  SCOPED_TRACE("normal dispatch: " + test::TargetName(rows::QConvolveTarget()));
  check(0);
}

INSTANTIATE_TEST_SUITE_P(Graphs, Quantised, testing::ValuesIn(kQCases),
                         [](const testing::TestParamInfo<QCase>& info) { return std::string(info.param.name); });

#if VORLITH_HAS_VULKAN
// The quantised graphs on a Vulkan device (Mesa's CPU-emulated one unless
// VORLITH_VULKAN_DEVICE names another) give the CPU engine's floats bit for
// bit, a region too; float graphs are left to the CPU.
TEST(Vulkan, QuantisedGraphsGiveTheCpusBits) {
  if (std::getenv(kVulkanDeviceVariable) == nullptr) setenv(kVulkanDeviceVariable, "llvmpipe", 1);
  std::string why;
  EXPECT_FALSE(VulkanCanRun(Chain(4, 1, 1), &why));
  std::vector<float> special = Input(9, 17, 3);
  special[0] = std::nanf("");
  special[1] = -1e30f;
  special[2] = 1e30f;
  special[3] = 0.005f;
  for (const QCase& c : kQCases) {
    SCOPED_TRACE(c.name);
    const Graph graph = c.make();
    ASSERT_TRUE(VulkanCanRun(graph, &why)) << why;
    auto gpu = CreateVulkanNetwork(graph, 1, &why);
    ASSERT_NE(gpu, nullptr) << why;
    auto cpu = Network::FromGraph(graph, 1);
    for (const auto& [h, w] : {std::pair<int64_t, int64_t>{1, 1}, {2, 3}, {9, 17}, {5, 70}, {37, 53}, {9, 17}}) {
      SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
      const std::vector<float> in = h == 9 ? special : Input(h, w, uint32_t(h * 1000 + w));
      std::vector<float> want, got;
      std::vector<int64_t> want_shape, got_shape;
      std::string error;
      ASSERT_TRUE(cpu->Run(in.data(), {1, 1, h, w}, &want, &want_shape, &error)) << error;
      ASSERT_TRUE(gpu->Run(in.data(), {1, 1, h, w}, &got, &got_shape, &error)) << error;
      ASSERT_EQ(got_shape, want_shape);
      ASSERT_EQ(0, std::memcmp(got.data(), want.data(), want.size() * sizeof(float)));
    }
    EXPECT_NE(gpu->DeviceName(), "CPU") << "the device failed and the CPU took over";
    Network::Region region;
    region.rows = 3;
    region.columns = 5;
    int64_t reported = 0;
    region.on_rows = [&](const float*, int64_t first, int64_t end) { reported += end - first; };
    const std::vector<float> in = Input(37, 53, 5);
    std::vector<float> whole, part(1, -7.0f);
    std::vector<int64_t> shape;
    std::string error;
    ASSERT_TRUE(cpu->Run(in.data(), {1, 1, 37, 53}, &whole, &shape, &error)) << error;
    ASSERT_TRUE(gpu->Run(in.data(), {1, 1, 37, 53}, region, &part, &shape, &error)) << error;
    ASSERT_EQ(part.size(), whole.size());
    EXPECT_EQ(reported, 3);
    for (int64_t ch = 0; ch < shape[1]; ++ch) {
      for (int64_t y = 0; y < 3; ++y) {
        const size_t at = size_t((ch * shape[2] + y) * shape[3]);
        EXPECT_EQ(0, std::memcmp(&part[at], &whole[at], 5 * sizeof(float)));
      }
    }
    EXPECT_NE(gpu->DeviceName(), "CPU");
  }
  // A size that empties a tensor is refused as on the CPU.
  Builder b(9);
  auto valid = CreateVulkanNetwork(b.Finish(b.QConv(b.Quantize(0, 0.01f, 3), 2, 3, 3, 0, 0, 0, 0)), 1, &why);
  ASSERT_NE(valid, nullptr) << why;
  std::vector<float> out;
  std::vector<int64_t> shape;
  std::string error;
  EXPECT_FALSE(valid->Run(Input(2, 5, 1).data(), {1, 1, 2, 5}, &out, &shape, &error));
  EXPECT_NE(error.find("empty tensor"), std::string::npos) << error;
}
#endif

// A run limited to the output's top-left part computes only what that part
// depends on: the values there are the whole run's bit for bit, float and
// quantised, on every target and thread count, and nothing else of the
// output is written. Each of the part's rows is reported once, already
// final. Regions change between runs, so buffers are re-planned.
TEST(Engine, ARegionHoldsTheWholeRunsValuesAndNothingElseIsWritten) {
  const std::pair<const char*, Graph> cases[] = {
      {"chain8", Chain(8, 3, 21)}, {"mixed", Mixed(22)}, {"resizes", Resizes(23)}, {"qchain5", QChain(5, 1, 24)},
      {"qmixed", QMixed(25)}};
  const int64_t h = 23, w = 70;  // uneven region columns end inside and past the vectors
  const std::pair<int64_t, int64_t> regions[] = {{1, 1}, {5, 17}, {0, 33}, {30, 0}, {46, 139}, {0, 0}, {999, 999}};
  const std::vector<float> in = Input(h, w, 5);
  const float untouched = -7.0f;
  for (const auto& [name, graph] : cases) {
    SCOPED_TRACE(name);
    test::ForEachTarget([&](int64_t) {
      auto whole = Network::FromGraph(graph, 1), one = Network::FromGraph(graph, 1),
           three = Network::FromGraph(graph, 3);
      std::vector<float> expected;
      std::vector<int64_t> shape, region_shape;
      std::string error;
      ASSERT_TRUE(whole->Run(in.data(), {1, 1, h, w}, &expected, &shape, &error)) << error;
      const int64_t channels = shape[1], oh = shape[2], ow = shape[3];
      for (const auto& [r_rows, r_columns] : regions) {
        SCOPED_TRACE(std::to_string(r_rows) + " rows, " + std::to_string(r_columns) + " columns");
        const int64_t rows = r_rows > 0 ? std::min(r_rows, oh) : oh, cols = r_columns > 0 ? std::min(r_columns, ow) : ow;
        for (Network* net : {one.get(), three.get()}) {
          std::vector<float> out(expected.size(), untouched);
          std::mutex mutex;
          std::vector<int> reports(size_t(oh), 0);
          int64_t early = 0;  // report entries that differed from the final values
          Network::Region region{r_rows, r_columns, [&](const float* o, int64_t first, int64_t end) {
            std::lock_guard<std::mutex> lock(mutex);
            for (int64_t y = first; y < end; ++y) {
              ++reports[size_t(y)];
              for (int64_t c = 0; c < channels; ++c) {
                const size_t at = size_t((c * oh + y) * ow);
                early += std::memcmp(o + at, &expected[at], size_t(cols) * sizeof(float)) != 0;
              }
            }
          }};
          ASSERT_TRUE(net->Run(in.data(), {1, 1, h, w}, region, &out, &region_shape, &error)) << error;
          ASSERT_EQ(region_shape, shape);
          for (size_t i = 0; i < out.size(); ++i) {
            const int64_t y = int64_t(i) / ow % oh, x = int64_t(i) % ow;
            const bool inside = y < rows && x < cols;
            ASSERT_EQ(std::memcmp(&out[i], inside ? &expected[i] : &untouched, 4), 0)
                << (inside ? "inside" : "outside") << " the region: row " << y << " column " << x;
          }
          EXPECT_EQ(early, 0);
          for (int64_t y = 0; y < oh; ++y) ASSERT_EQ(reports[size_t(y)], y < rows ? 1 : 0) << "row " << y;
        }
      }
      std::vector<float> out;
      EXPECT_FALSE(one->Run(in.data(), {1, 1, h, w}, {-1, 0, nullptr}, &out, &region_shape, &error));
      EXPECT_EQ(error, "a negative output region");
    });
  }
}

// Inputs of the wrong shape, and sizes that empty a tensor, are refused and
// leave the network usable.
TEST(Engine, RefusesWrongShapesAndSizesThatEmptyATensor) {
  Builder b(9);
  const Graph graph = b.Finish(b.Conv(0, 2, 3, 3, 0, 0, 0, 0));
  auto net = Network::FromGraph(graph, 2);
  const std::vector<float> in = Input(4, 5, 1);
  std::vector<float> out;
  std::vector<int64_t> shape;
  std::string error;
  EXPECT_FALSE(net->Run(in.data(), {1, 2, 2, 5}, &out, &shape, &error));
  EXPECT_EQ(error, "expected an input of shape [1, 1, H, W], got [1, 2, 2, 5]");
  EXPECT_FALSE(net->Run(in.data(), {1, 1, 0, 5}, &out, &shape, &error));
  EXPECT_FALSE(net->Run(in.data(), {1, 1, 20}, &out, &shape, &error));
  EXPECT_FALSE(net->Run(in.data(), {1, 1, 2, 5}, &out, &shape, &error));
  EXPECT_EQ(error, "a 5x2 input is too small: node 0 would produce an empty tensor");
  EXPECT_TRUE(net->Run(Input(3, 5, 2).data(), {1, 1, 3, 5}, &out, &shape, &error)) << error;
  EXPECT_EQ(shape, (std::vector<int64_t>{1, 2, 1, 3}));
}

}  // namespace
}  // namespace vorlith::model
