// The ONNX importer and the network engine against the networks that
// tests/fixtures/make_onnx_fixtures.py writes, with NumPy reference outputs.
#include "src/model/network.h"

#include <gtest/gtest.h>

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

TEST(Network, NearestFixtureEnlargesExactlyAcrossShapeChanges) {
  std::unique_ptr<Network> net = Load("nearest2x.onnx");
  ASSERT_NE(net, nullptr);
  // Odd sizes, 1x1, a repeat (same runtime) and a return to an earlier shape.
  const int64_t sizes[][2] = {{1, 1}, {7, 5}, {7, 5}, {2, 33}, {16, 16}, {1, 9}, {7, 5}};
  uint32_t seed = 1;
  for (const auto& [h, w] : sizes) {
    const std::vector<float> in = Samples(h, w, seed++);
    const Result r = Infer(*net, in, h, w);
    ASSERT_TRUE(r.ok) << r.error;
    ASSERT_EQ(r.shape, (std::vector<int64_t>{1, 1, 2 * h, 2 * w}));
    for (int64_t y = 0; y < 2 * h; ++y) {
      for (int64_t x = 0; x < 2 * w; ++x) {
        ASSERT_EQ(r.data[y * 2 * w + x], in[(y / 2) * w + x / 2]) << h << "x" << w << " at " << y << "," << x;
      }
    }
  }
}

TEST(Network, CrdWithSeveralChannelsReordersTheConvAndOutputIsNchw) {
  std::unique_ptr<Network> net = Load("crd_two_channels.onnx");
  ASSERT_NE(net, nullptr);
  const int64_t h = 3, w = 5;
  const std::vector<float> in = Samples(h, w, 11);
  const Result r = Infer(*net, in, h, w);
  ASSERT_TRUE(r.ok) << r.error;
  ASSERT_EQ(r.shape, (std::vector<int64_t>{1, 2, 2 * h, 2 * w}));
  for (int64_t c = 0; c < 2; ++c) {
    for (int64_t y = 0; y < 2 * h; ++y) {
      for (int64_t x = 0; x < 2 * w; ++x) {
        const float k = static_cast<float>(4 * c + 2 * (y % 2) + x % 2 + 1);
        ASSERT_EQ(r.data[(c * 2 * h + y) * 2 * w + x], k * in[(y / 2) * w + x / 2]) << c << "," << y << "," << x;
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

TEST(Network, TinySrMatchesReference) { ExpectMatchesReference("tiny_sr"); }

// Both Resize modes, CRD reordering with two channels, asymmetric padding,
// constant bias and scale, Relu6, Add of two activations, Identity.
TEST(Network, OtherOperatorFormsMatchReference) {
  ExpectMatchesReference("mixed_ops");
  ExpectMatchesReference("opset10");
}

TEST(Network, ReportsTheGraphsTensorNames) {
  std::unique_ptr<Network> rtc = Load("nearest2x.onnx");
  std::unique_ptr<Network> other = Load("wrong_names.onnx");
  ASSERT_NE(rtc, nullptr);
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(rtc->InputName(), "RTC_input");
  EXPECT_EQ(rtc->OutputName(), "161");
  EXPECT_EQ(other->InputName(), "x");
  EXPECT_EQ(other->OutputName(), "y");
  EXPECT_TRUE(Infer(*other, Samples(2, 2, 5), 2, 2).ok);
}

TEST(Network, UnsupportedGraphsFailToLoadWithTheReason) {
  const struct {
    const char* file;
    const char* error;
  } cases[] = {
      {"unsupported_op.onnx", "unsupported operator Softmax (node 'sm1')"},
      {"reject_strides.onnx", "unsupported strides [2, 2] in Conv (node 'down')"},
      {"reject_group.onnx", "unsupported group 2 in Conv (node 'grouped')"},
      {"reject_crd_shared.onnx",
       "DepthToSpace (node 'ps'): CRD mode with 2 output channels needs a Conv that feeds only this node"},
      {"reject_resize_scale.onnx",
       "unsupported scales [1, 1, 3, 3] in Resize (node 'up3') (only [1, 1, 2, 2] is supported)"},
  };
  for (const auto& c : cases) {
    std::string error;
    EXPECT_EQ(Network::Load(Fixture(c.file), 1, &error), nullptr) << c.file;
    EXPECT_EQ(error, c.error) << c.file;
  }
}

TEST(Network, MissingOrCorruptFilesFailToLoad) {
  std::string error;
  const std::string missing = Fixture("no_such_model.onnx");
  EXPECT_EQ(Network::Load(missing, 1, &error), nullptr);
  EXPECT_EQ(error, "cannot open " + missing + ": No such file or directory");

  const std::string corrupt = testing::TempDir() + "vorlith_corrupt.onnx";
  for (const std::string& bytes : {std::string("this is not a model\n"), std::string()}) {
    std::ofstream(corrupt, std::ios::binary) << bytes;
    error.clear();
    EXPECT_EQ(Network::Load(corrupt, 1, &error), nullptr);
    EXPECT_EQ(error, corrupt + " is not an ONNX model");
  }
  // A file cut short mid-weights.
  std::ifstream whole(Fixture("tiny_sr.onnx"), std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(whole)), std::istreambuf_iterator<char>());
  std::ofstream(corrupt, std::ios::binary) << bytes.substr(0, bytes.size() / 2);
  error.clear();
  EXPECT_EQ(Network::Load(corrupt, 1, &error), nullptr);
  EXPECT_FALSE(error.empty());
  std::remove(corrupt.c_str());
}

TEST(Network, RunRejectsInputsOfTheWrongShape) {
  std::unique_ptr<Network> net = Load("nearest2x.onnx");
  ASSERT_NE(net, nullptr);
  const std::vector<float> in = Samples(4, 4, 9);
  std::vector<float> out;
  std::vector<int64_t> shape;
  std::string error;
  EXPECT_FALSE(net->Run(in.data(), {1, 2, 2, 4}, &out, &shape, &error));
  EXPECT_EQ(error, "expected an input of shape [1, 1, H, W], got [1, 2, 2, 4]");
  EXPECT_FALSE(net->Run(in.data(), {1, 1, 0, 4}, &out, &shape, &error));
  EXPECT_FALSE(net->Run(in.data(), {1, 1, 16}, &out, &shape, &error));
  // Still usable afterwards.
  EXPECT_TRUE(Infer(*net, in, 4, 4).ok);
}

}  // namespace
}  // namespace vorlith::model
