// The ONNX importer and the network engine against the networks that
// tests/fixtures/make_onnx_fixtures.py writes, with NumPy reference outputs.
#include "src/model/network.h"

#include <gtest/gtest.h>
#include <onnx/onnx_pb.h>
#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace vorlith::model {
namespace {

std::string Fixture(const std::string& name) { return std::string(VORLITH_FIXTURES_DIR) + "/" + name; }

std::unique_ptr<Network> Load(const std::string& name, int threads = 1) {
  std::string error;
  std::unique_ptr<Network> net = Network::Load(Fixture(name), threads, &error);
  EXPECT_NE(net, nullptr) << name << ": " << error;
  return net;
}

// Deterministic luma-like samples, different for every seed.
std::vector<float> Samples(int64_t h, int64_t w, uint32_t seed) {
  std::vector<float> v(static_cast<size_t>(h * w));
  for (float& x : v) {
    seed = seed * 1664525u + 1013904223u;
    x = static_cast<float>(seed >> 24) + 0.25f;
  }
  return v;
}

struct Result {
  bool ok = false;
  std::vector<float> data;
  std::vector<int64_t> shape;
  std::string error;
};

Result Infer(Network& net, const std::vector<float>& input, int64_t h, int64_t w) {
  Result r;
  r.ok = net.Run(input.data(), {1, 1, h, w}, &r.data, &r.shape, &r.error);
  return r;
}

// Fixtures whose output is a known multiple of the nearest enlargement:
// out[c][y][x] = k(c, y, x) * in[y / 2][x / 2]. nearest2x.onnx runs at odd
// sizes, 1x1, a repeat and a return to an earlier shape; the CRD fixture
// reorders its convolution and writes a two-channel NCHW output.
TEST(Network, ExactFixturesAcrossShapeChanges) {
  const struct {
    const char* file;
    int64_t channels;
    float (*k)(int64_t c, int64_t y, int64_t x);
  } cases[] = {
      {"nearest2x.onnx", 1, [](int64_t, int64_t, int64_t) { return 1.0f; }},
      {"crd_two_channels.onnx", 2,
       [](int64_t c, int64_t y, int64_t x) { return float(4 * c + 2 * (y % 2) + x % 2 + 1); }},
  };
  const int64_t sizes[][2] = {{1, 1}, {7, 5}, {7, 5}, {2, 33}, {16, 16}, {1, 9}, {7, 5}};
  for (const auto& t : cases) {
    std::unique_ptr<Network> net = Load(t.file);
    ASSERT_NE(net, nullptr);
    uint32_t seed = 1;
    for (const auto& [h, w] : sizes) {
      const std::vector<float> in = Samples(h, w, seed++);
      const Result r = Infer(*net, in, h, w);
      ASSERT_TRUE(r.ok) << r.error;
      ASSERT_EQ(r.shape, (std::vector<int64_t>{1, t.channels, 2 * h, 2 * w}));
      for (int64_t c = 0; c < t.channels; ++c) {
        for (int64_t y = 0; y < 2 * h; ++y) {
          for (int64_t x = 0; x < 2 * w; ++x) {
            ASSERT_EQ(r.data[(c * 2 * h + y) * 2 * w + x], t.k(c, y, x) * in[(y / 2) * w + x / 2])
                << t.file << " " << h << "x" << w << " at " << c << "," << y << "," << x;
          }
        }
      }
    }
  }
}

// A network against the NumPy interpreter in make_onnx_fixtures.py.
void ExpectMatchesReference(const std::string& name) {
  SCOPED_TRACE(name);
  std::ifstream file(Fixture(name + ".ref"), std::ios::binary);
  ASSERT_TRUE(file) << "missing " << name << ".ref";
  int32_t dims[4];
  file.read(reinterpret_cast<char*>(dims), sizeof(dims));
  const int64_t h = dims[0], w = dims[1], oh = dims[2], ow = dims[3];
  std::vector<float> in(h * w), expected(oh * ow);
  file.read(reinterpret_cast<char*>(in.data()), in.size() * sizeof(float));
  file.read(reinterpret_cast<char*>(expected.data()), expected.size() * sizeof(float));
  ASSERT_TRUE(file);

  std::unique_ptr<Network> net = Load(name + ".onnx");
  ASSERT_NE(net, nullptr);
  const Result r = Infer(*net, in, h, w);
  ASSERT_TRUE(r.ok) << r.error;
  ASSERT_EQ(r.shape, (std::vector<int64_t>{1, 1, oh, ow}));
  for (size_t i = 0; i < expected.size(); ++i) {
    ASSERT_NEAR(r.data[i], expected[i], 1e-3 * std::max(1.0f, std::fabs(expected[i])))
        << "at " << i / ow << "," << i % ow;
  }
}

// tiny_sr: the shape of the shipped networks. mixed_ops and opset10: both
// Resize modes, CRD reordering with two channels, asymmetric padding,
// constant bias and scale, Relu6, Add of two activations, Identity, and the
// opset 10 forms.
TEST(Network, FixturesMatchTheReference) {
  for (const char* name : {"tiny_sr", "mixed_ops", "opset10"}) ExpectMatchesReference(name);
}

// Each file that must not load, with its reason (empty: any reason).
TEST(Network, UnusableFilesFailToLoadWithTheReason) {
  const std::string dir = testing::TempDir();
  std::ofstream(dir + "vorlith_text.onnx", std::ios::binary) << "this is not a model\n";
  std::ofstream(dir + "vorlith_empty.onnx", std::ios::binary);
  // A file cut short mid-weights.
  std::ifstream whole(Fixture("tiny_sr.onnx"), std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(whole)), std::istreambuf_iterator<char>());
  std::ofstream(dir + "vorlith_cut.onnx", std::ios::binary) << bytes.substr(0, bytes.size() / 2);
  // Weights whose shape claims 2^30 values over the 288 bytes they hold:
  // refused before anything of that size is allocated.
  onnx::ModelProto huge;
  ASSERT_TRUE(huge.ParseFromString(bytes));
  for (onnx::TensorProto& t : *huge.mutable_graph()->mutable_initializer()) {
    if (t.name() == "w1") {
      t.clear_dims();
      t.add_dims(int64_t{1} << 30);
    }
  }
  std::ofstream(dir + "vorlith_huge.onnx", std::ios::binary) << huge.SerializeAsString();
  const struct {
    std::string path, error;
  } cases[] = {
      {Fixture("unsupported_op.onnx"), "unsupported operator Softmax (node 'sm1')"},
      {Fixture("reject_strides.onnx"), "unsupported strides [2, 2] in Conv (node 'down')"},
      {Fixture("reject_group.onnx"), "unsupported group 2 in Conv (node 'grouped')"},
      {Fixture("reject_crd_shared.onnx"),
       "DepthToSpace (node 'ps'): CRD mode with 2 output channels needs a Conv that feeds only this node"},
      {Fixture("reject_resize_scale.onnx"),
       "unsupported scales [1, 1, 3, 3] in Resize (node 'up3') (only [1, 1, 2, 2] is supported)"},
      {Fixture("reject_q_int8.onnx"),
       "QuantizeLinear (node 'q'): zero point 'zp' is not uint8 (only uint8 activations are supported)"},
      {Fixture("reject_q_bias_scale.onnx"),
       "Conv (node 'c1'): bias scale 0.25 of output channel 0 is not input scale x filter scale (0.5)"},
      {Fixture("reject_q_float_reader.onnx"),
       "Relu (node 'r1'): reads the quantised 'x'; only a Conv with a quantised filter may"},
      {Fixture("no_such_model.onnx"),
       "cannot open " + Fixture("no_such_model.onnx") + ": No such file or directory"},
      {dir + "vorlith_text.onnx", dir + "vorlith_text.onnx is not an ONNX model"},
      {dir + "vorlith_empty.onnx", dir + "vorlith_empty.onnx is not an ONNX model"},
      {dir + "vorlith_cut.onnx", ""},
      {dir + "vorlith_huge.onnx", "Conv (node 'conv1'): filter 'w1' holds 288 bytes for 1073741824 floats"},
  };
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const long peak_kib = usage.ru_maxrss;
  for (const auto& c : cases) {
    std::string error;
    EXPECT_EQ(Network::Load(c.path, 1, &error), nullptr) << c.path;
    if (c.error.empty()) {
      EXPECT_FALSE(error.empty()) << c.path;
    } else {
      EXPECT_EQ(error, c.error) << c.path;
    }
  }
  getrusage(RUSAGE_SELF, &usage);
  EXPECT_LT(usage.ru_maxrss - peak_kib, 256 << 10) << "KiB more at the peak: the huge claim was allocated";
  for (const char* name : {"vorlith_text.onnx", "vorlith_empty.onnx", "vorlith_cut.onnx", "vorlith_huge.onnx"}) {
    std::remove((dir + name).c_str());
  }
}

}  // namespace
}  // namespace vorlith::model
