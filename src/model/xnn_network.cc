// Network on XNNPACK's subgraph API. A subgraph has fixed tensor shapes, so
// the runtime is built for one input size and rebuilt when the size changes.
#include <pthreadpool.h>
#include <xnnpack.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "src/model/network.h"
#include "src/model/onnx_graph.h"

namespace vorlith::model {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
// XNNPACK may read (never write) this many floats past any tensor it is given.
constexpr size_t kOverread = (XNN_EXTRA_BYTES + sizeof(float) - 1) / sizeof(float);
// Far beyond any video frame; keeps every size computation in range.
constexpr int64_t kMaxSide = int64_t{1} << 16;

// xnn_initialize counts its calls; one per process is enough and is never
// undone, as other users of XNNPACK in the process may rely on it.
xnn_status InitializeXnnpack() {
  static const xnn_status status = xnn_initialize(nullptr);
  return status;
}

std::string Dims(const std::vector<int64_t>& shape) {
  std::string s = "[";
  for (size_t i = 0; i < shape.size(); ++i) s += (i > 0 ? ", " : "") + std::to_string(shape[i]);
  return s + "]";
}

uint32_t ResizeFlags(ResizeCoords coords) {
  switch (coords) {
    case ResizeCoords::kHalfPixel: return 0;
    case ResizeCoords::kAlignCorners: return XNN_FLAG_ALIGN_CORNERS;
    case ResizeCoords::kAsymmetric: return XNN_FLAG_TENSORFLOW_LEGACY_MODE;
  }
  return 0;
}

class XnnNetwork final : public Network {
 public:
  XnnNetwork(Graph graph, int threads) : graph_(std::move(graph)) {
    for (Op& op : graph_.ops) {
      for (std::vector<float>* v : {&op.filter, &op.bias, &op.constant}) v->reserve(v->size() + kOverread);
    }
    if (threads > 1) pool_ = pthreadpool_create(static_cast<size_t>(threads));
  }

  ~XnnNetwork() override {
    // The runtime uses the pool; the graph's weights outlive both.
    ReleaseRuntime();
    if (pool_ != nullptr) pthreadpool_destroy(pool_);
  }

  const std::string& InputName() const override { return graph_.input_name; }
  const std::string& OutputName() const override { return graph_.output_name; }

  std::vector<int64_t> OutputShape(const std::vector<int64_t>& input_shape) const override {
    if (input_shape.size() != 4) return {};
    const Activation& out = graph_.activations[graph_.output];
    return {1, out.channels, out.height.At(input_shape[2]), out.width.At(input_shape[3])};
  }

  bool Run(const float* input, const std::vector<int64_t>& input_shape, std::vector<float>* output,
           std::vector<int64_t>* output_shape, std::string* error) override {
    std::string scratch;
    if (error == nullptr) error = &scratch;
    if (input == nullptr || output == nullptr || output_shape == nullptr) {
      *error = "null input or output";
      return false;
    }
    if (input_shape.size() != 4 || input_shape[0] != 1 || input_shape[1] != 1 || input_shape[2] < 1 ||
        input_shape[3] < 1) {
      *error = "expected an input of shape [1, 1, H, W], got " + Dims(input_shape);
      return false;
    }
    if (input_shape[2] > kMaxSide || input_shape[3] > kMaxSide) {
      *error = "input " + Dims(input_shape) + " is too large";
      return false;
    }
    const int64_t h = input_shape[2], w = input_shape[3];
    if (runtime_ == nullptr || h != built_h_ || w != built_w_) {
      ReleaseRuntime();
      if (!BuildRuntime(h, w, error)) return false;
    }

    const Activation& out = graph_.activations[graph_.output];
    const int64_t out_c = out.channels, out_h = out.height.At(h), out_w = out.width.At(w);
    output->resize(static_cast<size_t>(out_c * out_h * out_w));
    *output_shape = {1, out_c, out_h, out_w};

    // The input is copied because XNNPACK reads past its end; outputs are
    // only written. With one channel NHWC is the same memory as NCHW.
    staging_in_.resize(static_cast<size_t>(h * w) + kOverread);
    std::copy_n(input, h * w, staging_in_.data());
    const float* in_data = staging_in_.data();
    float* out_data = output->data();
    if (out_c > 1) {
      staging_out_.resize(output->size());
      out_data = staging_out_.data();
    }
    if (in_data != bound_in_ || out_data != bound_out_) {
      const xnn_external_value values[2] = {{0, const_cast<float*>(in_data)}, {1, out_data}};
      if (xnn_setup_runtime(runtime_, 2, values) != xnn_status_success) {
        bound_in_ = bound_out_ = nullptr;
        *error = "XNNPACK could not set up the network";
        return false;
      }
      bound_in_ = in_data;
      bound_out_ = out_data;
    }
    if (xnn_invoke_runtime(runtime_) != xnn_status_success) {
      *error = "XNNPACK failed to run the network";
      return false;
    }
    if (out_c > 1) {
      // NHWC -> NCHW.
      const int64_t plane = out_h * out_w;
      for (int64_t p = 0; p < plane; ++p) {
        for (int64_t c = 0; c < out_c; ++c) (*output)[c * plane + p] = out_data[p * out_c + c];
      }
    }
    return true;
  }

 private:
  void ReleaseRuntime() {
    if (runtime_ != nullptr) xnn_delete_runtime(runtime_);
    runtime_ = nullptr;
    bound_in_ = bound_out_ = nullptr;
  }

  bool BuildRuntime(int64_t h, int64_t w, std::string* error) {
    // Every shape follows from the input's; refuse sizes that empty a
    // tensor or that no buffer could hold.
    const int64_t kMaxElements = int64_t{1} << 31;
    for (const Op& op : graph_.ops) {
      const Activation& a = graph_.activations[op.output];
      const int64_t ah = a.height.At(h), aw = a.width.At(w);
      if (ah < 1 || aw < 1) {
        *error = "a " + std::to_string(w) + "x" + std::to_string(h) + " input is too small: " +
                 op.node + " would produce an empty tensor";
        return false;
      }
      if (ah > kMaxElements / aw / a.channels) {
        *error = "a " + std::to_string(w) + "x" + std::to_string(h) + " input is too large";
        return false;
      }
    }

    xnn_subgraph_t subgraph = nullptr;
    if (xnn_create_subgraph(/*external_value_ids=*/2, 0, &subgraph) != xnn_status_success) {
      *error = "XNNPACK could not create a subgraph";
      return false;
    }
    std::unique_ptr<xnn_subgraph, decltype(&xnn_delete_subgraph)> owner(subgraph, xnn_delete_subgraph);

    // Activations are NHWC tensors; the graph input and output are the
    // runtime's external values 0 and 1.
    std::vector<uint32_t> ids(graph_.activations.size(), XNN_INVALID_VALUE_ID);
    for (size_t i = 0; i < graph_.activations.size(); ++i) {
      const Activation& a = graph_.activations[i];
      const size_t dims[4] = {1, static_cast<size_t>(a.height.At(h)), static_cast<size_t>(a.width.At(w)),
                              static_cast<size_t>(a.channels)};
      uint32_t external = XNN_INVALID_VALUE_ID, flags = 0;
      if (static_cast<int>(i) == graph_.input) {
        external = 0;
        flags = XNN_VALUE_FLAG_EXTERNAL_INPUT;
      } else if (static_cast<int>(i) == graph_.output) {
        external = 1;
        flags = XNN_VALUE_FLAG_EXTERNAL_OUTPUT;
      }
      if (xnn_define_tensor_value(subgraph, xnn_datatype_fp32, 4, dims, nullptr, external, flags, &ids[i]) !=
          xnn_status_success) {
        *error = "XNNPACK rejected a tensor of shape " + Dims({1, a.channels, a.height.At(h), a.width.At(w)});
        return false;
      }
    }

    for (const Op& op : graph_.ops) {
      const uint32_t in = ids[op.inputs[0]], out = ids[op.output];
      xnn_status status = xnn_status_success;
      uint32_t constant = XNN_INVALID_VALUE_ID;
      // Weights are static data that XNNPACK reads (and packs) while the
      // runtime is created; graph_ keeps them alive longer than any runtime.
      auto define_static = [&](std::vector<size_t> dims, const std::vector<float>& data) {
        uint32_t id = XNN_INVALID_VALUE_ID;
        if (status == xnn_status_success) {
          status = xnn_define_tensor_value(subgraph, xnn_datatype_fp32, dims.size(), dims.data(), data.data(),
                                           XNN_INVALID_VALUE_ID, 0, &id);
        }
        return id;
      };
      switch (op.kind) {
        case OpKind::kConv: {
          const size_t out_c = op.bias.size();
          const size_t in_c = static_cast<size_t>(graph_.activations[op.inputs[0]].channels);
          const uint32_t filter = define_static(
              {out_c, static_cast<size_t>(op.kernel_h), static_cast<size_t>(op.kernel_w), in_c}, op.filter);
          const uint32_t bias = define_static({out_c}, op.bias);
          if (status != xnn_status_success) break;
          status = xnn_define_convolution_2d(
              subgraph, static_cast<uint32_t>(op.pad_top), static_cast<uint32_t>(op.pad_right),
              static_cast<uint32_t>(op.pad_bottom), static_cast<uint32_t>(op.pad_left),
              static_cast<uint32_t>(op.kernel_h), static_cast<uint32_t>(op.kernel_w), 1, 1, 1, 1, 1, in_c, out_c,
              -kInf, kInf, in, filter, bias, out, 0);
          break;
        }
        case OpKind::kClamp:
          status = xnn_define_clamp(subgraph, op.min, op.max, in, out, 0);
          break;
        case OpKind::kPRelu:
          constant = define_static({op.constant.size()}, op.constant);
          if (status == xnn_status_success) status = xnn_define_prelu(subgraph, in, constant, out, 0);
          break;
        case OpKind::kAdd:
        case OpKind::kMul: {
          const uint32_t other =
              op.inputs.size() > 1 ? ids[op.inputs[1]] : define_static({1, 1, 1, op.constant.size()}, op.constant);
          if (status != xnn_status_success) break;
          status = op.kind == OpKind::kAdd ? xnn_define_add2(subgraph, -kInf, kInf, in, other, out, 0)
                                           : xnn_define_multiply2(subgraph, -kInf, kInf, in, other, out, 0);
          break;
        }
        case OpKind::kDepthToSpace:
          status = xnn_define_depth_to_space(subgraph, in, out, static_cast<uint32_t>(op.block), 0);
          break;
        case OpKind::kResizeBilinear: {
          const Activation& a = graph_.activations[op.output];
          status = xnn_define_static_resize_bilinear_2d(subgraph, static_cast<size_t>(a.height.At(h)),
                                                        static_cast<size_t>(a.width.At(w)), in, out,
                                                        ResizeFlags(op.coords));
          break;
        }
      }
      if (status != xnn_status_success) {
        *error = "XNNPACK rejected " + op.node + " (status " + std::to_string(status) + ")";
        return false;
      }
    }

    const xnn_status status = xnn_create_runtime_v2(subgraph, pool_, 0, &runtime_);
    if (status != xnn_status_success) {
      runtime_ = nullptr;
      *error = "XNNPACK could not create a runtime for a " + std::to_string(w) + "x" + std::to_string(h) +
               " input (status " + std::to_string(status) + ")";
      return false;
    }
    built_h_ = h;
    built_w_ = w;
    return true;
  }

  Graph graph_;  // holds the weights every runtime reads
  pthreadpool_t pool_ = nullptr;
  xnn_runtime_t runtime_ = nullptr;
  int64_t built_h_ = 0, built_w_ = 0;
  // Buffers the runtime is set up with; setup is repeated only when they move.
  const void* bound_in_ = nullptr;
  const void* bound_out_ = nullptr;
  std::vector<float> staging_in_;   // padded copy of the input
  std::vector<float> staging_out_;  // NHWC output when it has several channels
};

}  // namespace

std::unique_ptr<Network> Network::Load(const std::string& path, int threads, std::string* error) {
  std::string scratch;
  if (error == nullptr) error = &scratch;
  Graph graph;
  if (!ImportOnnx(path, &graph, error)) return nullptr;
  if (const xnn_status status = InitializeXnnpack(); status != xnn_status_success) {
    *error = "XNNPACK cannot run on this machine (status " + std::to_string(status) + ")";
    return nullptr;
  }
  return std::make_unique<XnnNetwork>(std::move(graph), threads);
}

}  // namespace vorlith::model
