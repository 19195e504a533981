#include "src/model/onnx_graph.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>
#include <unordered_map>
#include <utility>

#include "onnx/onnx_pb.h"

namespace vorlith::model {
namespace {

// raw_data holds little-endian floats, which we copy as they are.
static_assert(std::endian::native == std::endian::little);

constexpr float kInf = std::numeric_limits<float>::infinity();

std::string Join(const std::vector<int64_t>& values) {
  std::string s = "[";
  for (size_t i = 0; i < values.size(); ++i) {
    if (i > 0) s += ", ";
    s += std::to_string(values[i]);
  }
  return s + "]";
}

std::string JoinFloats(const std::vector<float>& values) {
  std::ostringstream s;
  s << "[";
  for (size_t i = 0; i < values.size(); ++i) s << (i > 0 ? ", " : "") << values[i];
  s << "]";
  return s.str();
}

const onnx::AttributeProto* FindAttribute(const onnx::NodeProto& node, const char* name) {
  for (const onnx::AttributeProto& a : node.attribute()) {
    if (a.name() == name) return &a;
  }
  return nullptr;
}

int64_t IntAttribute(const onnx::NodeProto& node, const char* name, int64_t fallback) {
  const onnx::AttributeProto* a = FindAttribute(node, name);
  return a != nullptr ? a->i() : fallback;
}

std::string StringAttribute(const onnx::NodeProto& node, const char* name, const char* fallback) {
  const onnx::AttributeProto* a = FindAttribute(node, name);
  return a != nullptr ? a->s() : fallback;
}

std::vector<int64_t> IntsAttribute(const onnx::NodeProto& node, const char* name) {
  const onnx::AttributeProto* a = FindAttribute(node, name);
  if (a == nullptr) return {};
  return {a->ints().begin(), a->ints().end()};
}

bool HasInput(const onnx::NodeProto& node, int i) {
  return i < node.input_size() && !node.input(i).empty();
}

// Reads a float32 tensor, from raw_data or float_data.
bool ReadFloats(const onnx::TensorProto& t, std::vector<float>* out, std::string* why) {
  if (t.data_location() == onnx::TensorProto::EXTERNAL) {
    *why = "uses external data, which is not supported";
    return false;
  }
  if (t.data_type() != onnx::TensorProto::FLOAT) {
    *why = "is not float32";
    return false;
  }
  int64_t count = 1;
  for (int64_t d : t.dims()) {
    if (d < 0 || d > (int64_t{1} << 30)) {
      *why = "has an invalid shape";
      return false;
    }
    count *= d;
    if (count > (int64_t{1} << 30)) {
      *why = "is too large";
      return false;
    }
  }
  // The data must be in the file before anything is allocated for it: a
  // shape alone may claim gigabytes.
  if (!t.raw_data().empty()) {
    if (t.raw_data().size() != static_cast<size_t>(count) * sizeof(float)) {
      *why = "holds " + std::to_string(t.raw_data().size()) + " bytes for " +
             std::to_string(count) + " floats";
      return false;
    }
    out->resize(static_cast<size_t>(count));
    std::memcpy(out->data(), t.raw_data().data(), t.raw_data().size());
  } else if (t.float_data_size() == count) {
    out->assign(t.float_data().begin(), t.float_data().end());
  } else {
    *why = "holds " + std::to_string(t.float_data_size()) + " floats for a shape of " +
           std::to_string(count);
    return false;
  }
  return true;
}

// Reads an integer tensor of `type` (INT8, UINT8 or INT32), from raw_data or
// int32_data.
bool ReadInts(const onnx::TensorProto& t, int type, std::vector<int64_t>* out, std::string* why) {
  if (t.data_location() == onnx::TensorProto::EXTERNAL) {
    *why = "uses external data, which is not supported";
    return false;
  }
  if (t.data_type() != type) {
    *why = type == onnx::TensorProto::INT8    ? "is not int8"
           : type == onnx::TensorProto::UINT8 ? "is not uint8"
                                              : "is not int32";
    return false;
  }
  int64_t count = 1;
  for (int64_t d : t.dims()) {
    if (d < 0 || d > (int64_t{1} << 30) || (count *= d) > (int64_t{1} << 30)) {
      *why = "has an invalid shape";
      return false;
    }
  }
  const size_t size = type == onnx::TensorProto::INT32 ? 4 : 1;
  if (!t.raw_data().empty()) {
    if (t.raw_data().size() != static_cast<size_t>(count) * size) {
      *why = "holds " + std::to_string(t.raw_data().size()) + " bytes for " + std::to_string(count) + " values";
      return false;
    }
    out->resize(static_cast<size_t>(count));
    const char* p = t.raw_data().data();
    for (int64_t i = 0; i < count; ++i) {
      if (type == onnx::TensorProto::INT32) {
        int32_t v;
        std::memcpy(&v, p + 4 * i, 4);
        (*out)[i] = v;
      } else {
        (*out)[i] = type == onnx::TensorProto::INT8 ? static_cast<int8_t>(p[i]) : static_cast<uint8_t>(p[i]);
      }
    }
  } else if (t.int32_data_size() == count) {
    out->assign(t.int32_data().begin(), t.int32_data().end());
    const int64_t lo = type == onnx::TensorProto::INT8 ? -128 : type == onnx::TensorProto::UINT8 ? 0 : INT32_MIN;
    const int64_t hi = type == onnx::TensorProto::INT8 ? 127 : type == onnx::TensorProto::UINT8 ? 255 : INT32_MAX;
    for (int64_t v : *out) {
      if (v < lo || v > hi) {
        *why = "holds a value out of its type's range";
        return false;
      }
    }
  } else {
    *why = "holds " + std::to_string(t.int32_data_size()) + " values for a shape of " + std::to_string(count);
    return false;
  }
  return true;
}

// Which (coordinate convention, rounding) pairs make nearest 2x resampling
// read input sample x/2 for every output sample x, i.e. plain replication.
bool NearestIsReplication(const std::string& coords, const std::string& rounding) {
  if (coords == "half_pixel" || coords == "pytorch_half_pixel") {
    return rounding == "round_prefer_floor" || rounding == "round_prefer_ceil";
  }
  if (coords == "asymmetric") return rounding == "floor" || rounding == "round_prefer_floor";
  if (coords == "tf_half_pixel_for_nn") return rounding == "floor";
  return false;
}

class Importer {
 public:
  explicit Importer(Graph* graph) : g_(graph) {}

  bool Import(const onnx::ModelProto& model) {
    opset_ = -1;
    for (const onnx::OperatorSetIdProto& set : model.opset_import()) {
      if (set.domain().empty() || set.domain() == "ai.onnx") opset_ = set.version();
    }
    if (opset_ < 0) return Fail("the model declares no ONNX operator set");
    const onnx::GraphProto& graph = model.graph();
    for (const onnx::TensorProto& t : graph.initializer()) constants_[t.name()] = &t;
    if (!ImportInput(graph)) return false;
    for (int i = 0; i < graph.node_size(); ++i) {
      if (!ImportNode(graph.node(i), i)) return false;
    }
    if (graph.output_size() != 1) {
      return Fail("the graph has " + std::to_string(graph.output_size()) +
                  " outputs; exactly one is supported");
    }
    g_->output_name = graph.output(0).name();
    auto it = activations_.find(g_->output_name);
    if (it == activations_.end()) {
      return Fail("the graph output '" + g_->output_name + "' is not computed from its input");
    }
    if (it->second == g_->input) return Fail("the graph output is the graph input itself");
    if (Act(it->second).quantized) return Fail("the graph output '" + g_->output_name + "' is quantised");
    g_->output = it->second;
    return ReorderCrdProducers();
  }

  const std::string& error() const { return error_; }

 private:
  bool Fail(std::string message) {
    error_ = std::move(message);
    return false;
  }

  bool ImportInput(const onnx::GraphProto& graph) {
    const onnx::ValueInfoProto* input = nullptr;
    int count = 0;
    for (const onnx::ValueInfoProto& v : graph.input()) {
      if (constants_.count(v.name())) continue;  // older files list initializers as inputs
      input = &v;
      ++count;
    }
    if (count != 1) {
      return Fail("the graph has " + std::to_string(count) + " inputs; exactly one is supported");
    }
    g_->input_name = input->name();
    const onnx::TypeProto& type = input->type();
    if (!type.has_tensor_type() || type.tensor_type().elem_type() != onnx::TensorProto::FLOAT) {
      return Fail("the graph input '" + input->name() + "' is not a float32 tensor");
    }
    // One luma plane; H and W are whatever the caller passes.
    const onnx::TensorShapeProto& shape = type.tensor_type().shape();
    bool ok = shape.dim_size() == 4;
    for (int i = 0; ok && i < 2; ++i) ok = !shape.dim(i).has_dim_value() || shape.dim(i).dim_value() == 1;
    if (!ok) return Fail("the graph input '" + input->name() + "' is not of shape [1, 1, H, W]");
    g_->input = NewActivation(input->name(), {1, {1, 0}, {1, 0}});
    return true;
  }

  int NewActivation(const std::string& name, const Activation& a) {
    g_->activations.push_back(a);
    const int id = static_cast<int>(g_->activations.size()) - 1;
    activations_[name] = id;
    return id;
  }

  const Activation& Act(int id) const { return g_->activations[id]; }

  // Looks up input i of `node`, which must be computed from the graph input.
  bool ActivationInput(const onnx::NodeProto& node, int i, int* id) {
    const std::string& name = i < node.input_size() ? node.input(i) : std::string();
    auto it = activations_.find(name);
    if (it != activations_.end()) {
      *id = it->second;
      if (Act(*id).quantized && node.op_type() != "Conv") {
        return Fail(where_ + ": reads the quantised '" + name + "'; only a Conv with a quantised filter may");
      }
      return true;
    }
    if (quantized_.count(name)) {
      return Fail(where_ + ": reads '" + name + "' as QuantizeLinear writes it; only DequantizeLinear may");
    }
    if (constants_.count(name)) {
      return Fail(where_ + ": input '" + name + "' is a constant; it must be computed from the graph input");
    }
    return Fail(where_ + ": reads '" + name + "', which no earlier node produces");
  }

  // Reads input i of `node`, which must be a float32 constant.
  bool ConstantInput(const onnx::NodeProto& node, int i, const char* role,
                     std::vector<int64_t>* dims, std::vector<float>* data) {
    auto it = constants_.find(node.input(i));
    if (it == constants_.end()) {
      return Fail(where_ + ": " + role + " '" + node.input(i) + "' must be a constant");
    }
    std::string why;
    if (!ReadFloats(*it->second, data, &why)) {
      return Fail(where_ + ": " + role + " '" + node.input(i) + "' " + why);
    }
    dims->assign(it->second->dims().begin(), it->second->dims().end());
    return true;
  }

  bool ScalarInput(const onnx::NodeProto& node, int i, const char* role, float* value) {
    std::vector<int64_t> dims;
    std::vector<float> data;
    if (!ConstantInput(node, i, role, &dims, &data)) return false;
    if (data.size() != 1) return Fail(where_ + ": " + role + " must be a single value");
    *value = data[0];
    return true;
  }

  bool SetOutput(const onnx::NodeProto& node, Op op, const Activation& shape) {
    op.node = where_;
    op.output = NewActivation(node.output(0), shape);
    g_->ops.push_back(std::move(op));
    return true;
  }

  bool ImportNode(const onnx::NodeProto& node, int index) {
    using Handler = bool (Importer::*)(const onnx::NodeProto&);
    static const std::unordered_map<std::string, Handler> kHandlers = {
        {"Constant", &Importer::ImportConstant}, {"Identity", &Importer::ImportIdentity},
        {"Conv", &Importer::ImportConv},         {"Relu", &Importer::ImportRelu},
        {"Clip", &Importer::ImportClip},         {"PRelu", &Importer::ImportPRelu},
        {"Add", &Importer::ImportAdd},           {"Mul", &Importer::ImportMul},
        {"DepthToSpace", &Importer::ImportDepthToSpace}, {"Resize", &Importer::ImportResize},
        {"QuantizeLinear", &Importer::ImportQuantize}, {"DequantizeLinear", &Importer::ImportDequantize},
    };
    const std::string& type = node.op_type();
    const std::string label =
        node.name().empty() ? "node #" + std::to_string(index) : "node '" + node.name() + "'";
    where_ = type + " (" + label + ")";
    const bool standard = node.domain().empty() || node.domain() == "ai.onnx";
    const auto handler = standard ? kHandlers.find(type) : kHandlers.end();
    if (handler == kHandlers.end()) {
      const std::string full = standard ? type : node.domain() + "." + type;
      return Fail("unsupported operator " + full + " (" + label + ")");
    }
    if (node.output_size() != 1) return Fail(where_ + ": expected exactly one output");
    return (this->*handler->second)(node);
  }

  bool ImportConstant(const onnx::NodeProto& node) {
    const onnx::AttributeProto* value = FindAttribute(node, "value");
    if (value == nullptr) {
      return Fail(where_ + ": only the tensor 'value' form is supported");
    }
    constants_[node.output(0)] = &value->t();
    return true;
  }

  bool ImportIdentity(const onnx::NodeProto& node) {
    const std::string& from = node.input_size() > 0 ? node.input(0) : std::string();
    if (auto it = activations_.find(from); it != activations_.end()) {
      activations_[node.output(0)] = it->second;
    } else if (auto c = constants_.find(from); c != constants_.end()) {
      constants_[node.output(0)] = c->second;
    } else {
      return Fail(where_ + ": reads '" + from + "', which no earlier node produces");
    }
    return true;
  }

  bool ImportConv(const onnx::NodeProto& node) {
    int x;
    if (!ActivationInput(node, 0, &x)) return false;
    if (!HasInput(node, 1)) return Fail(where_ + ": no filter");
    std::vector<int64_t> wdims, bdims;
    std::vector<float> w, b;
    const bool quantized = dequantized_.count(node.input(1)) > 0;
    if (quantized != Act(x).quantized) {
      return Fail(where_ + (quantized ? ": a quantised filter needs a quantised input (QuantizeLinear and "
                                        "DequantizeLinear before the Conv)"
                                      : ": a quantised input needs a quantised filter (DequantizeLinear of int8)"));
    }
    std::vector<float> filter_scale, bias_scale;
    if (quantized) {
      std::vector<int64_t> q;
      if (!Dequantized(node.input(1), onnx::TensorProto::INT8, "filter", &wdims, &q, &filter_scale)) return false;
      w.assign(q.begin(), q.end());
      if (HasInput(node, 2)) {
        if (!dequantized_.count(node.input(2))) {
          return Fail(where_ + ": the bias of a quantised Conv must be DequantizeLinear of int32");
        }
        if (!Dequantized(node.input(2), onnx::TensorProto::INT32, "bias", &bdims, &q, &bias_scale)) return false;
        b.assign(q.begin(), q.end());
      }
    } else {
      if (!ConstantInput(node, 1, "filter", &wdims, &w)) return false;
      if (HasInput(node, 2) && !ConstantInput(node, 2, "bias", &bdims, &b)) return false;
    }

    if (const int64_t group = IntAttribute(node, "group", 1); group != 1) {
      return Fail("unsupported group " + std::to_string(group) + " in " + where_);
    }
    for (const char* name : {"strides", "dilations"}) {
      const std::vector<int64_t> v = IntsAttribute(node, name);
      for (int64_t s : v) {
        if (s != 1) return Fail("unsupported " + std::string(name) + " " + Join(v) + " in " + where_);
      }
    }
    if (wdims.size() != 4) return Fail(where_ + ": filter is not 4-D (only 2-D convolution is supported)");
    const int64_t out_c = wdims[0], in_c = wdims[1], kh = wdims[2], kw = wdims[3];
    if (in_c != Act(x).channels) {
      return Fail(where_ + ": filter expects " + std::to_string(in_c) + " input channels, input has " +
                  std::to_string(Act(x).channels));
    }
    if (out_c < 1 || kh < 1 || kw < 1) return Fail(where_ + ": empty filter");
    if (const std::vector<int64_t> k = IntsAttribute(node, "kernel_shape");
        !k.empty() && k != std::vector<int64_t>{kh, kw}) {
      return Fail(where_ + ": kernel_shape " + Join(k) + " does not match the filter");
    }
    if (!b.empty() && static_cast<int64_t>(b.size()) != out_c) {
      return Fail(where_ + ": bias has " + std::to_string(b.size()) + " values for " +
                  std::to_string(out_c) + " output channels");
    }

    Op op;
    op.kind = OpKind::kConv;
    op.inputs = {x};
    op.kernel_h = kh;
    op.kernel_w = kw;
    const std::string auto_pad = StringAttribute(node, "auto_pad", "NOTSET");
    if (auto_pad == "SAME_UPPER") {
      // Stride 1: the output keeps the input size, any odd padding goes last.
      op.pad_top = (kh - 1) / 2;
      op.pad_bottom = kh - 1 - op.pad_top;
      op.pad_left = (kw - 1) / 2;
      op.pad_right = kw - 1 - op.pad_left;
    } else if (auto_pad == "NOTSET") {
      std::vector<int64_t> pads = IntsAttribute(node, "pads");
      if (pads.empty()) pads.assign(4, 0);
      bool ok = pads.size() == 4;
      for (int64_t p : pads) ok = ok && p >= 0 && p < (int64_t{1} << 16);
      if (!ok) return Fail("unsupported pads " + Join(pads) + " in " + where_);
      // ONNX order: begins then ends, rows before columns.
      op.pad_top = pads[0];
      op.pad_left = pads[1];
      op.pad_bottom = pads[2];
      op.pad_right = pads[3];
    } else {
      return Fail("unsupported auto_pad " + auto_pad + " in " + where_);
    }
    // OIHW -> OHWI.
    op.filter.resize(w.size());
    for (int64_t o = 0; o < out_c; ++o) {
      for (int64_t i = 0; i < in_c; ++i) {
        for (int64_t y = 0; y < kh; ++y) {
          for (int64_t xx = 0; xx < kw; ++xx) {
            op.filter[((o * kh + y) * kw + xx) * in_c + i] = w[((o * in_c + i) * kh + y) * kw + xx];
          }
        }
      }
    }
    op.bias = b.empty() ? std::vector<float>(out_c, 0.0f) : std::move(b);
    if (quantized && !QuantizeConv(filter_scale, bias_scale, &op)) return false;

    Activation out = Act(x);
    out.quantized = false;
    out.zero_point = 0;
    out.channels = out_c;
    out.height.offset += op.pad_top + op.pad_bottom - kh + 1;
    out.width.offset += op.pad_left + op.pad_right - kw + 1;
    return SetOutput(node, std::move(op), out);
  }

  // Turns a Conv read with integer filter and bias into a quantised one:
  // filter scale per output channel (or one), bias scale equal to the float
  // product of the input's and the filter's, and an accumulator that cannot
  // leave 32 bits.
  bool QuantizeConv(const std::vector<float>& filter_scale,
                    const std::vector<float>& bias_scale, Op* op) {
    const int64_t out_c = static_cast<int64_t>(op->bias.size());
    const size_t per_channel = op->filter.size() / static_cast<size_t>(out_c);
    const float in_scale = scale_.at(op->inputs[0]);
    op->kind = OpKind::kQConv;
    op->qfilter.assign(op->filter.begin(), op->filter.end());
    op->qbias.assign(op->bias.begin(), op->bias.end());
    op->scales.resize(static_cast<size_t>(out_c));
    for (int64_t o = 0; o < out_c; ++o) {
      const float ws = filter_scale[filter_scale.size() == 1 ? 0 : o];
      op->scales[o] = in_scale * ws;
      if (!bias_scale.empty() && bias_scale[bias_scale.size() == 1 ? 0 : o] != op->scales[o]) {
        std::ostringstream m;
        m << where_ << ": bias scale " << bias_scale[bias_scale.size() == 1 ? 0 : o] << " of output channel " << o
          << " is not input scale x filter scale (" << op->scales[o] << ")";
        return Fail(m.str());
      }
      if (!(op->scales[o] > 0.0f) || std::isinf(op->scales[o])) {
        return Fail(where_ + ": the product of the input and filter scales is not a positive float");
      }
      int64_t bound = std::abs(int64_t{op->qbias[o]});
      for (size_t k = 0; k < per_channel; ++k) bound += 2 * 255 * std::abs(int64_t{op->qfilter[o * per_channel + k]});
      if (bound > INT32_MAX) return Fail(where_ + ": the accumulator of output channel " + std::to_string(o) +
                                         " could leave 32 bits");
    }
    op->filter.clear();
    op->bias.clear();
    op->bias.shrink_to_fit();
    return true;
  }

  // Scale and zero point of a QuantizeLinear or DequantizeLinear on an
  // activation: one positive float scale, one uint8 zero point (0 if absent).
  bool QuantParams(const onnx::NodeProto& node, float* scale, int32_t* zero_point) {
    if (!HasInput(node, 1)) return Fail(where_ + ": no scale");
    if (!ScalarInput(node, 1, "scale", scale)) return false;
    if (!(*scale > 0.0f) || std::isinf(*scale)) return Fail(where_ + ": the scale must be a positive float");
    *zero_point = 0;
    if (HasInput(node, 2)) {
      auto it = constants_.find(node.input(2));
      if (it == constants_.end()) return Fail(where_ + ": the zero point must be a constant");
      std::vector<int64_t> zp;
      std::string why;
      if (!ReadInts(*it->second, onnx::TensorProto::UINT8, &zp, &why)) {
        return Fail(where_ + ": zero point '" + node.input(2) + "' " + why + " (only uint8 activations are supported)");
      }
      if (zp.size() != 1) return Fail(where_ + ": the zero point must be a single value");
      *zero_point = static_cast<int32_t>(zp[0]);
    }
    return true;
  }

  bool ImportQuantize(const onnx::NodeProto& node) {
    int x;
    if (!ActivationInput(node, 0, &x)) return false;
    Op op;
    op.kind = OpKind::kQuantize;
    op.inputs = {x};
    int32_t zp;
    if (!QuantParams(node, &op.scale, &zp)) return false;
    Activation out = Act(x);
    out.quantized = true;
    out.zero_point = zp;
    op.node = where_;
    g_->activations.push_back(out);
    op.output = static_cast<int>(g_->activations.size()) - 1;
    quantized_[node.output(0)] = op.output;
    scale_[op.output] = op.scale;
    g_->ops.push_back(std::move(op));
    return true;
  }

  // On a quantised activation: the same activation, read by quantised Convs.
  // On a constant: an integer filter or bias for the Conv that reads it.
  bool ImportDequantize(const onnx::NodeProto& node) {
    const std::string& from = node.input_size() > 0 ? node.input(0) : std::string();
    if (auto q = quantized_.find(from); q != quantized_.end()) {
      float scale;
      int32_t zp;
      if (!QuantParams(node, &scale, &zp)) return false;
      if (scale != scale_[q->second] || zp != Act(q->second).zero_point) {
        return Fail(where_ + ": scale and zero point differ from those of the QuantizeLinear it reads");
      }
      activations_[node.output(0)] = q->second;
      return true;
    }
    if (constants_.count(from)) {
      dequantized_[node.output(0)] = {node, where_};
      return true;
    }
    int unused;
    return ActivationInput(node, 0, &unused) &&
           Fail(where_ + ": dequantises a tensor that no QuantizeLinear wrote");
  }

  // Reads a constant dequantised with zero point 0 and a scale that is one
  // value or one per entry of axis 0.
  bool Dequantized(const std::string& name, int type, const char* role, std::vector<int64_t>* dims,
                   std::vector<int64_t>* values, std::vector<float>* scales) {
    const auto& [dq, at] = dequantized_.at(name);
    const onnx::TensorProto& data = *constants_.at(dq.input(0));
    std::string why;
    if (!ReadInts(data, type, values, &why)) return Fail(at + ": " + role + " '" + dq.input(0) + "' " + why);
    dims->assign(data.dims().begin(), data.dims().end());
    std::vector<int64_t> sdims;
    const std::string saved = where_;
    where_ = at;
    const bool ok = HasInput(dq, 1) && ConstantInput(dq, 1, "scale", &sdims, scales);
    where_ = saved;
    if (!ok) return HasInput(dq, 1) ? false : Fail(at + ": no scale");
    const int64_t axis = IntAttribute(dq, "axis", 1);
    const int64_t first = dims->empty() ? 1 : (*dims)[0];
    if (scales->size() != 1 && !(axis == 0 && static_cast<int64_t>(scales->size()) == first)) {
      return Fail(at + ": " + role + " scale must be one value or one per output channel (axis 0)");
    }
    for (float v : *scales) {
      if (!(v > 0.0f) || std::isinf(v)) return Fail(at + ": " + role + " scales must be positive floats");
    }
    if (HasInput(dq, 2)) {
      auto it = constants_.find(dq.input(2));
      std::vector<int64_t> zp;
      if (it == constants_.end() || !ReadInts(*it->second, type, &zp, &why)) {
        return Fail(at + ": " + role + " zero point must be a constant of the data's type");
      }
      for (int64_t z : zp) {
        if (z != 0) return Fail(at + ": " + role + " zero point must be 0 (symmetric)");
      }
    }
    return true;
  }

  bool ImportRelu(const onnx::NodeProto& node) { return ImportClamp(node, 0.0f, kInf); }

  bool ImportClamp(const onnx::NodeProto& node, float lo, float hi) {
    int x;
    if (!ActivationInput(node, 0, &x)) return false;
    if (std::isnan(lo) || std::isnan(hi) || !(lo < hi)) {
      std::ostringstream s;
      s << where_ << ": min " << lo << " must be below max " << hi;
      return Fail(s.str());
    }
    Op op;
    op.kind = OpKind::kClamp;
    op.inputs = {x};
    op.min = lo;
    op.max = hi;
    return SetOutput(node, std::move(op), Act(x));
  }

  bool ImportClip(const onnx::NodeProto& node) {
    // Up to opset 10 the bounds are attributes, from 11 on optional inputs.
    float lo = -kInf, hi = kInf;
    if (const onnx::AttributeProto* a = FindAttribute(node, "min")) lo = a->f();
    if (const onnx::AttributeProto* a = FindAttribute(node, "max")) hi = a->f();
    if (HasInput(node, 1) && !ScalarInput(node, 1, "min", &lo)) return false;
    if (HasInput(node, 2) && !ScalarInput(node, 2, "max", &hi)) return false;
    return ImportClamp(node, lo, hi);
  }

  bool ImportPRelu(const onnx::NodeProto& node) {
    int x;
    if (!ActivationInput(node, 0, &x)) return false;
    std::vector<int64_t> dims;
    std::vector<float> slope;
    if (!HasInput(node, 1)) return Fail(where_ + ": no slope");
    if (!ConstantInput(node, 1, "slope", &dims, &slope)) return false;
    const int64_t channels = Act(x).channels;
    // One slope, or one per channel as [C], [C, 1, 1] or [1, C, 1, 1].
    while (!dims.empty() && dims.front() == 1) dims.erase(dims.begin());
    const bool per_channel = dims == std::vector<int64_t>{channels} ||
                             dims == std::vector<int64_t>{channels, 1, 1};
    if (slope.size() == 1) {
      slope.assign(channels, slope[0]);
    } else if (!per_channel) {
      return Fail(where_ + ": slope must be a single value or one per channel (" +
                  std::to_string(channels) + ")");
    }
    Op op;
    op.kind = OpKind::kPRelu;
    op.inputs = {x};
    op.constant = std::move(slope);
    return SetOutput(node, std::move(op), Act(x));
  }

  bool ImportAdd(const onnx::NodeProto& node) { return ImportBinary(node, OpKind::kAdd); }
  bool ImportMul(const onnx::NodeProto& node) { return ImportBinary(node, OpKind::kMul); }

  bool ImportBinary(const onnx::NodeProto& node, OpKind kind) {
    if (node.input_size() != 2) return Fail(where_ + ": expected two inputs");
    const bool a_act = activations_.count(node.input(0)) > 0;
    const bool b_act = activations_.count(node.input(1)) > 0;
    Op op;
    op.kind = kind;
    if (a_act && b_act) {
      const Activation& a = Act(activations_[node.input(0)]);
      const Activation& b = Act(activations_[node.input(1)]);
      if (a.height != b.height || a.width != b.width ||
          (a.channels != b.channels && a.channels != 1 && b.channels != 1)) {
        return Fail(where_ + ": the operand shapes do not broadcast");
      }
      Activation out = a;
      out.channels = std::max(a.channels, b.channels);
      op.inputs = {activations_[node.input(0)], activations_[node.input(1)]};
      return SetOutput(node, std::move(op), out);
    }
    if (!a_act && !b_act) {
      int unused;
      for (int i = 0; i < 2; ++i) {
        if (!constants_.count(node.input(i))) return ActivationInput(node, i, &unused);
      }
      return Fail(where_ + ": both operands are constants");
    }
    // An activation and a constant that broadcasts per channel: numpy rules,
    // so the constant's last two dimensions must be 1.
    const int x = activations_[node.input(a_act ? 0 : 1)];
    std::vector<int64_t> dims;
    std::vector<float> data;
    if (!ConstantInput(node, a_act ? 1 : 0, "operand", &dims, &data)) return false;
    while (dims.size() < 4) dims.insert(dims.begin(), 1);
    const int64_t channels = Act(x).channels;
    if (dims.size() != 4 || dims[0] != 1 || dims[2] != 1 || dims[3] != 1 ||
        (dims[1] != 1 && dims[1] != channels && channels != 1)) {
      return Fail(where_ + ": constant operand of shape " + Join(dims) +
                  " must be a single value or one per channel");
    }
    Activation out = Act(x);
    out.channels = std::max(channels, dims[1]);
    op.inputs = {x};
    op.constant = std::move(data);
    return SetOutput(node, std::move(op), out);
  }

  bool ImportDepthToSpace(const onnx::NodeProto& node) {
    int x;
    if (!ActivationInput(node, 0, &x)) return false;
    const int64_t block = IntAttribute(node, "blocksize", 0);
    const std::string mode = StringAttribute(node, "mode", "DCR");
    if (block < 2 || block > 16) {
      return Fail("unsupported blocksize " + std::to_string(block) + " in " + where_);
    }
    if (mode != "DCR" && mode != "CRD") return Fail("unsupported mode " + mode + " in " + where_);
    const Activation& in = Act(x);
    if (in.channels % (block * block) != 0) {
      return Fail(where_ + ": " + std::to_string(in.channels) + " channels do not divide into " +
                  std::to_string(block) + "x" + std::to_string(block) + " blocks");
    }
    Op op;
    op.kind = OpKind::kDepthToSpace;
    op.inputs = {x};
    op.block = block;
    Activation out{in.channels / (block * block),
                   {in.height.scale * block, in.height.offset * block},
                   {in.width.scale * block, in.width.offset * block}};
    // With one output channel the two orders coincide.
    if (mode == "CRD" && out.channels > 1) crd_.push_back(static_cast<int>(g_->ops.size()));
    return SetOutput(node, std::move(op), out);
  }

  bool ImportResize(const onnx::NodeProto& node) {
    int x;
    if (!ActivationInput(node, 0, &x)) return false;
    // Opset 10: (X, scales). From 11: (X, roi, scales, sizes).
    const int scales_at = opset_ < 11 ? 1 : 2;
    if (!HasInput(node, scales_at)) {
      return Fail(where_ + ": only constant scales are supported, not sizes");
    }
    std::vector<int64_t> dims;
    std::vector<float> scales;
    if (!ConstantInput(node, scales_at, "scales", &dims, &scales)) return false;
    if (scales != std::vector<float>{1.0f, 1.0f, 2.0f, 2.0f}) {
      return Fail("unsupported scales " + JoinFloats(scales) + " in " + where_ +
                  " (only [1, 1, 2, 2] is supported)");
    }
    const std::string mode = StringAttribute(node, "mode", "nearest");
    const std::string coords =
        StringAttribute(node, "coordinate_transformation_mode", opset_ < 11 ? "asymmetric" : "half_pixel");
    const Activation& in = Act(x);
    const Activation out{in.channels, {in.height.scale * 2, in.height.offset * 2},
                         {in.width.scale * 2, in.width.offset * 2}};
    Op op;
    op.inputs = {x};
    if (mode == "linear") {
      op.kind = OpKind::kResizeBilinear;
      if (coords == "half_pixel" || coords == "pytorch_half_pixel") {
        op.coords = ResizeCoords::kHalfPixel;
      } else if (coords == "align_corners") {
        op.coords = ResizeCoords::kAlignCorners;
      } else if (coords == "asymmetric") {
        op.coords = ResizeCoords::kAsymmetric;
      } else {
        return Fail("unsupported coordinate_transformation_mode " + coords + " in " + where_);
      }
      return SetOutput(node, std::move(op), out);
    }
    if (mode != "nearest") return Fail("unsupported mode " + mode + " in " + where_);
    const std::string rounding =
        StringAttribute(node, "nearest_mode", opset_ < 11 ? "floor" : "round_prefer_floor");
    if (!NearestIsReplication(coords, rounding)) {
      return Fail("unsupported coordinate_transformation_mode " + coords + " with nearest_mode " +
                  rounding + " in " + where_);
    }
    // Replication from operators the engine has: a 1x1 convolution copies each
    // channel four times, DepthToSpace spreads the copies over 2x2 blocks.
    const int64_t c = in.channels;
    op.kind = OpKind::kConv;
    op.kernel_h = op.kernel_w = 1;
    op.filter.assign(4 * c * c, 0.0f);
    for (int64_t o = 0; o < 4 * c; ++o) op.filter[o * c + o % c] = 1.0f;
    op.bias.assign(4 * c, 0.0f);
    op.node = where_;
    op.output = NewActivation(node.output(0) + "#copies", {4 * c, in.height, in.width});
    Op spread;
    spread.kind = OpKind::kDepthToSpace;
    spread.inputs = {op.output};
    spread.block = 2;
    g_->ops.push_back(std::move(op));
    return SetOutput(node, std::move(spread), out);
  }

  // The engine only has the DCR order. For CRD, the producing convolution's
  // output channels are reordered so that DCR reads them in CRD order.
  bool ReorderCrdProducers() {
    for (int index : crd_) {
      Op& d2s = g_->ops[index];
      const int value = d2s.inputs[0];
      Op* producer = nullptr;
      int consumers = value == g_->output ? 1 : 0;
      for (Op& op : g_->ops) {
        if (op.output == value) producer = &op;
        for (int in : op.inputs) consumers += in == value;
      }
      const int64_t b = d2s.block, c = g_->activations[d2s.output].channels;
      if (producer == nullptr || producer->kind != OpKind::kConv || consumers != 1) {
        return Fail(d2s.node + ": CRD mode with " + std::to_string(c) +
                    " output channels needs a Conv that feeds only this node");
      }
      const size_t row = producer->filter.size() / producer->bias.size();
      std::vector<float> filter(producer->filter.size()), bias(producer->bias.size());
      for (int64_t ch = 0; ch < c; ++ch) {
        for (int64_t i = 0; i < b * b; ++i) {
          const size_t dcr = i * c + ch, crd = ch * b * b + i;
          std::copy_n(&producer->filter[crd * row], row, &filter[dcr * row]);
          bias[dcr] = producer->bias[crd];
        }
      }
      producer->filter = std::move(filter);
      producer->bias = std::move(bias);
    }
    return true;
  }

  Graph* g_;
  int64_t opset_ = 0;
  std::string error_;
  std::string where_;  // "Conv (node 'c1')" while a node is imported
  std::unordered_map<std::string, const onnx::TensorProto*> constants_;
  std::unordered_map<std::string, int> activations_;
  std::vector<int> crd_;  // DepthToSpace ops whose producer needs reordering
  std::unordered_map<std::string, int> quantized_;  // QuantizeLinear outputs: their byte activation
  std::unordered_map<int, float> scale_;            // byte activation -> its scale
  struct Dequantize {
    onnx::NodeProto node;
    std::string where;
  };
  std::unordered_map<std::string, Dequantize> dequantized_;  // DequantizeLinear of constants
};

}  // namespace

bool ImportOnnx(const std::string& path, Graph* graph, std::string* error) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    *error = "cannot open " + path + ": " + std::strerror(errno);
    return false;
  }
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (file.bad()) {
    *error = "cannot read " + path;
    return false;
  }
  return ImportOnnxBytes(bytes, path, graph, error);
}

bool ImportOnnxBytes(const std::string& bytes, const std::string& name, Graph* graph, std::string* error) {
  onnx::ModelProto model;
  if (bytes.empty() || !model.ParseFromString(bytes) || !model.has_graph()) {
    *error = name + " is not an ONNX model";
    return false;
  }
  *graph = Graph();
  Importer importer(graph);
  if (!importer.Import(model)) {
    *error = importer.error();
    return false;
  }
  return true;
}

int64_t InputMargin(const Graph& graph) {
  // Reach in input pixels, kept in units of 1/scale of each activation's
  // own pixels: an activation at scale s reaches r of its pixels = r/s input
  // pixels.
  std::vector<double> reach(graph.activations.size(), 0.0);
  for (const Op& op : graph.ops) {
    double in = 0.0;
    for (int i : op.inputs) in = std::max(in, reach[i]);
    const double scale = static_cast<double>(
        std::max<int64_t>(1, std::min(graph.activations[op.inputs[0]].height.scale,
                                      graph.activations[op.inputs[0]].width.scale)));
    double own = 0.0;  // this op's reach in its input's pixels
    switch (op.kind) {
      case OpKind::kConv:
      case OpKind::kQConv:
        own = static_cast<double>(std::max({op.pad_top, op.pad_left, op.kernel_h - 1 - op.pad_top,
                                            op.kernel_w - 1 - op.pad_left}));
        break;
      case OpKind::kDepthToSpace:
      case OpKind::kResizeBilinear: own = 1.0; break;
      default: break;
    }
    reach[op.output] = std::max(reach[op.output], in + own / scale);
  }
  return static_cast<int64_t>(std::ceil(reach[graph.output])) + 1;
}

}  // namespace vorlith::model
