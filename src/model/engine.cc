// The network engine: runs an imported graph row by row. Rows stream through
// the whole graph, each activation keeping only the few rows its consumers
// still need, so a frame's activations stay in the caches instead of making
// one pass through memory per layer. Threads take bands of output rows and
// recompute the rows a band's edge needs from its neighbour. A run may ask
// for the top-left part of the output only: then each activation computes
// only the rows and columns that part depends on.
#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "src/model/engine_rows.h"
#include "src/model/network.h"
#include "src/model/onnx_graph.h"
#include "src/platform/platform.h"
#include "src/platform/worker_pool.h"
#if VORLITH_HAS_VULKAN
#include "src/model/vulkan_network.h"
#endif

namespace vorlith::model {
namespace {

// Far beyond any video frame; keeps every size computation in range.
constexpr int64_t kMaxSide = int64_t{1} << 16;
constexpr int64_t kMaxElements = int64_t{1} << 31;
constexpr int64_t kNotNeeded = INT64_MAX;

int64_t RoundUp(int64_t v, int64_t m) { return (v + m - 1) / m * m; }

std::string Dims(const std::vector<int64_t>& shape) {
  std::string s = "[";
  for (size_t i = 0; i < shape.size(); ++i) s += (i > 0 ? ", " : "") + std::to_string(shape[i]);
  return s + "]";
}

// Floats aligned for the widest vector.
struct AlignedFloats {
  struct Free {
    void operator()(float* p) const { ::operator delete[](p, std::align_val_t{256}); }
  };
  std::unique_ptr<float[], Free> data;
  void Reset(size_t count) {
    data.reset(static_cast<float*>(::operator new[](count * sizeof(float), std::align_val_t{256})));
    std::fill_n(data.get(), count, 0.0f);
  }
  // Byte activations: every slot the zero point in each byte.
  void ResetSlots(size_t count, uint32_t pattern) {
    Reset(count);
    std::fill_n(reinterpret_cast<uint32_t*>(data.get()), count, pattern);
  }
};

enum class StepKind { kInput, kConv, kActivate, kBinary, kDepthToSpace, kResize, kQuantize, kQConv };

// One computed activation: a graph op, with a PReLU or clamp that only it
// feeds folded into a convolution's store.
struct Step {
  StepKind kind = StepKind::kInput;
  const Op* op = nullptr;
  std::vector<int> inputs;
  int output = -1;
  rows::Post post = rows::Post::kNone;
  const float* slope = nullptr;
  float lo = 0.0f, hi = 0.0f;
  std::vector<float> weights;  // kConv, packed
  // kQConv: packed filter; per output channel, padded to whole groups, the
  // bias less the input zero point times the filter's sum, the bias scale
  // and a folded PReLU's slope; a folded QuantizeLinear's parameters.
  std::vector<int32_t> qweights, qbias, qbias_signed;
  int64_t qweight_entries = 0;
  std::vector<float> qscale, qslope;
  bool quantize = false;
  float out_scale = 1.0f;
  int32_t out_zero_point = 0;
};

// Sizes for one input size.
struct Shape {
  int64_t channels = 0, height = 0, width = 0;  // byte activations: channels in groups of four
  int64_t stride = 0;  // floats (or 4-byte slots) per channel row, margins included
  int64_t columns = 0;  // columns computed: those the run's region depends on
  bool bytes = false;
  uint32_t pad = 0;    // byte activations: the zero point in every byte
  int64_t floats() const { return channels * stride; }
};

struct Layout {
  int64_t in_h = 0, in_w = 0;
  int64_t rows = 0, columns = 0;  // the output region
  int64_t lead = 0;  // zero columns left of column 0 in every channel row
  std::vector<Shape> shapes;
  AlignedFloats zero;  // a row of zeros for any float activation, read as padding
  std::vector<AlignedFloats> pads;  // byte activations: a row of their zero point
};

// Rows [lo, hi] of input `k` that step `s` reads for its output row y;
// the rows may lie outside the input, where padding is read.
struct Window {
  int64_t lo, hi;
};

class Engine final : public Network {
 public:
  Engine(Graph graph, int threads) : graph_(std::move(graph)), threads_(std::max(1, threads)) {
    if (threads_ > 1) platform::WorkerPool::Shared().Reserve(threads_);
    Plan();
  }

  int64_t InputMargin() const override { return model::InputMargin(graph_); }
  const std::string& InputName() const override { return graph_.input_name; }
  const std::string& OutputName() const override { return graph_.output_name; }

  std::vector<int64_t> OutputShape(const std::vector<int64_t>& input_shape) const override {
    if (input_shape.size() != 4) return {};
    const Activation& out = graph_.activations[graph_.output];
    return {1, out.channels, out.height.At(input_shape[2]), out.width.At(input_shape[3])};
  }

  bool Run(const float* input, const std::vector<int64_t>& input_shape, const Region& region,
           std::vector<float>* output, std::vector<int64_t>* output_shape, std::string* error) override {
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
    if (region.rows < 0 || region.columns < 0) {
      *error = "a negative output region";
      return false;
    }
    const int64_t h = input_shape[2], w = input_shape[3];
    // The rings serve one prediction at a time; callers on other threads
    // wait their turn.
    std::lock_guard<std::mutex> one_at_a_time(run_mutex_);
    if (layout_.in_h != h || layout_.in_w != w || layout_.rows != region.rows ||
        layout_.columns != region.columns) {
      layout_.in_h = layout_.in_w = 0;
      if (!Prepare(h, w, region, error)) return false;
    }
    const Shape& out = layout_.shapes[graph_.output];
    output->resize(static_cast<size_t>(out.channels * out.height * out.width));
    *output_shape = {1, out.channels, out.height, out.width};
    // One captured pointer keeps the task within std::function's own
    // storage: a frame allocates nothing here.
    struct Job {
      Engine* engine;
      const float* input;
      float* output;
      const Region* region;
    } job{this, input, output->data(), &region};
    platform::WorkerPool::Shared().Run(static_cast<int>(bands_.size()), [&job](int band) {
      job.engine->RunBand(job.engine->bands_[band], job.input, job.output, job.region->on_rows);
    });
    return true;
  }

 private:
  // Rings of one band: rows of each activation, in slots row % rows.
  struct Band {
    int64_t first_out = 0, end_out = 0;  // graph output rows of the band
    std::vector<int64_t> first, next, ring_rows;
    std::vector<AlignedFloats> rings;
    std::vector<const float*> row_ptrs;  // scratch for a convolution's input rows
    std::vector<const uint32_t*> qrow_ptrs;
  };

  void Plan() {
    std::vector<int> consumers(graph_.activations.size(), 0);
    for (const Op& op : graph_.ops) {
      for (int in : op.inputs) ++consumers[in];
    }
    ++consumers[graph_.output];
    producer_.assign(graph_.activations.size(), -1);
    Step input;
    input.output = graph_.input;
    AddStep(std::move(input));
    std::vector<bool> folded(graph_.ops.size(), false);
    for (size_t i = 0; i < graph_.ops.size(); ++i) {
      if (folded[i]) continue;
      const Op& op = graph_.ops[i];
      Step s;
      s.op = &op;
      s.inputs = op.inputs;
      s.output = op.output;
      switch (op.kind) {
        case OpKind::kConv: {
          s.kind = StepKind::kConv;
          const int64_t in_c = graph_.activations[op.inputs[0]].channels;
          s.weights = rows::PackConvWeights(op.filter, static_cast<int64_t>(op.bias.size()), in_c, op.kernel_h,
                                            op.kernel_w);
          if (consumers[op.output] == 1) {
            for (size_t j = i + 1; j < graph_.ops.size(); ++j) {
              const Op& next = graph_.ops[j];
              if (next.inputs[0] != op.output) continue;
              if (next.kind == OpKind::kPRelu || next.kind == OpKind::kClamp) {
                SetActivation(next, &s);
                s.output = next.output;
                folded[j] = true;
              }
              break;
            }
          }
          break;
        }
        case OpKind::kClamp:
        case OpKind::kPRelu:
          s.kind = StepKind::kActivate;
          SetActivation(op, &s);
          break;
        case OpKind::kAdd:
        case OpKind::kMul: s.kind = StepKind::kBinary; break;
        case OpKind::kDepthToSpace: s.kind = StepKind::kDepthToSpace; break;
        case OpKind::kResizeBilinear: s.kind = StepKind::kResize; break;
        case OpKind::kQuantize: s.kind = StepKind::kQuantize; break;
        case OpKind::kQConv: PlanQConv(op, i, consumers, &folded, &s); break;
      }
      AddStep(std::move(s));
    }
    for (const Op& op : graph_.ops) {
      if (op.kind == OpKind::kConv || op.kind == OpKind::kQConv) {
        max_pad_left_ = std::max(max_pad_left_, op.pad_left);
        max_pad_right_ = std::max(max_pad_right_, op.pad_right);
        max_kernel_h_ = std::max(max_kernel_h_, op.kernel_h);
      }
    }
  }

  // A quantised convolution, with the PReLU that only it feeds and the
  // QuantizeLinear that only that feeds folded into its store.
  void PlanQConv(const Op& op, size_t index, const std::vector<int>& consumers, std::vector<bool>* folded,
                 Step* s) {
    s->kind = StepKind::kQConv;
    const Activation& in = graph_.activations[op.inputs[0]];
    const int64_t out_c = static_cast<int64_t>(op.qbias.size());
    const int64_t padded = (out_c + rows::kGroup - 1) / rows::kGroup * rows::kGroup;
    s->qweights = rows::PackQConvWeights(op.qfilter, out_c, in.channels, op.kernel_h, op.kernel_w);
    s->qweight_entries = rows::QConvWeightEntries(out_c, in.channels, op.kernel_h, op.kernel_w);
    s->qbias.assign(static_cast<size_t>(padded), 0);
    s->qbias_signed.assign(static_cast<size_t>(padded), 0);
    s->qscale.assign(static_cast<size_t>(padded), 0.0f);
    const size_t per_channel = op.qfilter.size() / static_cast<size_t>(out_c);
    for (int64_t o = 0; o < out_c; ++o) {
      int64_t sum = 0;
      for (size_t k = 0; k < per_channel; ++k) sum += op.qfilter[o * per_channel + k];
      // The importer bounds |bias| + 2 * 255 * sum |w| to 32 bits.
      s->qbias[o] = static_cast<int32_t>(op.qbias[o] - int64_t{in.zero_point} * sum);
      s->qbias_signed[o] = static_cast<int32_t>(op.qbias[o] - int64_t{in.zero_point - 128} * sum);
      s->qscale[o] = op.scales[o];
    }
    const auto only_consumer = [&](int value) -> int {
      if (consumers[value] != 1) return -1;
      for (size_t j = index + 1; j < graph_.ops.size(); ++j) {
        for (int k : graph_.ops[j].inputs) {
          if (k == value) return static_cast<int>(j);
        }
      }
      return -1;
    };
    int next = only_consumer(s->output);
    if (next >= 0 && graph_.ops[next].kind == OpKind::kPRelu) {
      s->qslope.assign(static_cast<size_t>(padded), 0.0f);
      std::copy(graph_.ops[next].constant.begin(), graph_.ops[next].constant.end(), s->qslope.begin());
      s->output = graph_.ops[next].output;
      (*folded)[next] = true;
      next = only_consumer(s->output);
    }
    if (next >= 0 && graph_.ops[next].kind == OpKind::kQuantize) {
      s->quantize = true;
      s->out_scale = graph_.ops[next].scale;
      s->out_zero_point = graph_.activations[graph_.ops[next].output].zero_point;
      s->output = graph_.ops[next].output;
      (*folded)[next] = true;
    }
  }

  static void SetActivation(const Op& op, Step* s) {
    if (op.kind == OpKind::kPRelu) {
      s->post = rows::Post::kPRelu;
      s->slope = op.constant.data();
    } else {
      s->post = rows::Post::kClamp;
      s->lo = op.min;
      s->hi = op.max;
    }
  }

  void AddStep(Step s) {
    producer_[s.output] = static_cast<int>(steps_.size());
    steps_.push_back(std::move(s));
  }

  Window WindowOf(const Step& s, size_t k, int64_t y) const {
    switch (s.kind) {
      case StepKind::kConv:
      case StepKind::kQConv: return {y - s.op->pad_top, y - s.op->pad_top + s.op->kernel_h - 1};
      case StepKind::kDepthToSpace: return {y / s.op->block, y / s.op->block};
      case StepKind::kResize: {
        int64_t r0, r1;
        float f;
        ResizeSource(*s.op, layout_.shapes[s.inputs[k]].height, y, &r0, &r1, &f);
        return {r0, r1};
      }
      default: return {y, y};
    }
  }

  // The two input samples an output sample of a 2x bilinear resize blends, and the weight of the second.
  static void ResizeSource(const Op& op, int64_t in, int64_t o, int64_t* i0, int64_t* i1, float* frac) {
    double src;
    switch (op.coords) {
      case ResizeCoords::kHalfPixel: src = (static_cast<double>(o) + 0.5) / 2.0 - 0.5; break;
      case ResizeCoords::kAlignCorners:
        src = static_cast<double>(o) * static_cast<double>(in - 1) / static_cast<double>(2 * in - 1);
        break;
      default: src = static_cast<double>(o) / 2.0; break;
    }
    src = std::max(src, 0.0);
    const int64_t lo = std::min(static_cast<int64_t>(src), in - 1);
    *i0 = lo;
    *i1 = std::min(lo + 1, in - 1);
    *frac = static_cast<float>(src - static_cast<double>(lo));
  }

  bool Prepare(int64_t h, int64_t w, Region region, std::string* error) {
    // Every shape follows from the input's; refuse sizes that empty a
    // tensor or that no buffer could hold.
    const std::string size = std::to_string(w) + "x" + std::to_string(h);
    for (const Op& op : graph_.ops) {
      const Activation& a = graph_.activations[op.output];
      const int64_t ah = a.height.At(h), aw = a.width.At(w);
      if (ah < 1 || aw < 1) {
        *error = "a " + size + " input is too small: " + op.node + " would produce an empty tensor";
        return false;
      }
      if (ah > kMaxElements / aw / a.channels) {
        *error = "a " + size + " input is too large";
        return false;
      }
    }
    layout_.shapes.assign(graph_.activations.size(), Shape());
    layout_.lead = RoundUp(std::max<int64_t>(max_pad_left_, 1), 16);
    int64_t zero_floats = 0;
    layout_.pads.clear();
    layout_.pads.resize(graph_.activations.size());
    for (size_t i = 0; i < graph_.activations.size(); ++i) {
      const Activation& a = graph_.activations[i];
      Shape& s = layout_.shapes[i];
      s.bytes = a.quantized;
      s.pad = static_cast<uint32_t>(a.zero_point) * 0x01010101u;
      s.channels = s.bytes ? (a.channels + 3) / 4 : a.channels;
      s.height = a.height.At(h);
      s.width = a.width.At(w);
      s.stride = layout_.lead + RoundUp(s.width + max_pad_right_, 16) + rows::kRowSlack;
      zero_floats = std::max(zero_floats, s.floats());
      if (s.bytes) layout_.pads[i].ResetSlots(static_cast<size_t>(s.floats() + layout_.lead), s.pad);
    }
    layout_.zero.Reset(static_cast<size_t>(zero_floats + layout_.lead));
    Shape& out = layout_.shapes[graph_.output];
    const int64_t out_rows = region.rows > 0 ? std::min(region.rows, out.height) : out.height;
    out.columns = region.columns > 0 ? std::min(region.columns, out.width) : out.width;
    SetColumns();

    // Equal bands of the region's rows; their rings are sized by a dry run of
    // the band's schedule, which is the real run without the arithmetic.
    // Rows outside the region's dependencies are never scheduled.
    const int threads = threads_;
    bands_.clear();
    bands_.resize(static_cast<size_t>(threads));
    for (int t = 0; t < threads; ++t) {
      Band& b = bands_[t];
      b.first_out = out_rows * t / threads;
      b.end_out = out_rows * (t + 1) / threads;
      StartBand(&b);
      b.ring_rows.assign(graph_.activations.size(), 0);
      for (int64_t y = b.first_out; y < b.end_out; ++y) Ensure<false>(b, graph_.output, y, nullptr);
      b.rings.resize(graph_.activations.size());
      for (size_t i = 0; i < graph_.activations.size(); ++i) {
        const Shape& s = layout_.shapes[i];
        b.rings[i].ResetSlots(static_cast<size_t>(b.ring_rows[i] * s.floats()), s.bytes ? s.pad : 0);
      }
      b.row_ptrs.resize(static_cast<size_t>(max_kernel_h_));
      b.qrow_ptrs.resize(static_cast<size_t>(max_kernel_h_));
    }
    layout_.in_h = h;
    layout_.in_w = w;
    layout_.rows = region.rows;
    layout_.columns = region.columns;
    return true;
  }

  // The columns each activation computes: those its consumers' computed
  // columns read, from the output's back through the graph. Every column a
  // row function computes depends only on the input columns under its
  // window, so these hold the values of a whole run.
  void SetColumns() {
    for (size_t i = steps_.size(); i-- > 0;) {
      const Step& s = steps_[i];
      const int64_t c = layout_.shapes[s.output].columns;
      if (c == 0) continue;
      for (size_t k = 0; k < s.inputs.size(); ++k) {
        Shape& in = layout_.shapes[s.inputs[k]];
        int64_t read = c;
        switch (s.kind) {
          case StepKind::kConv:
          case StepKind::kQConv: read = std::max<int64_t>(c - 1 - s.op->pad_left + s.op->kernel_w, 0); break;
          case StepKind::kDepthToSpace: read = (c + s.op->block - 1) / s.op->block; break;
          case StepKind::kResize: {
            int64_t c0, c1;
            float f;
            ResizeSource(*s.op, in.width, c - 1, &c0, &c1, &f);
            read = c1 + 1;
            break;
          }
          default: break;
        }
        in.columns = std::max(in.columns, std::min(read, in.width));
      }
    }
  }

  // The first row of each activation that the band needs, from its output
  // rows back through the graph; and no rows computed yet.
  void StartBand(Band* b) const {
    b->first.assign(graph_.activations.size(), kNotNeeded);
    b->first[graph_.output] = b->first_out;
    for (size_t i = steps_.size(); i-- > 0;) {
      const Step& s = steps_[i];
      if (b->first[s.output] == kNotNeeded) continue;
      for (size_t k = 0; k < s.inputs.size(); ++k) {
        const int64_t lo = std::max<int64_t>(WindowOf(s, k, b->first[s.output]).lo, 0);
        b->first[s.inputs[k]] = std::min(b->first[s.inputs[k]], lo);
      }
    }
    b->next = b->first;
  }

  // Records that rows from `lo` on of activation a must still be held.
  void Need(Band* b, int a, int64_t lo) const {
    b->ring_rows[a] = std::max(b->ring_rows[a], b->next[a] - std::max<int64_t>(lo, 0));
  }

  const float* RowOf(const Band& b, int a, int64_t r) const {
    const Shape& s = layout_.shapes[a];
    if (r < 0 || r >= s.height) return (s.bytes ? layout_.pads[a] : layout_.zero).data.get() + layout_.lead;
    return b.rings[a].data.get() + (r % b.ring_rows[a]) * s.floats() + layout_.lead;
  }

  // Computes rows of activation a up to `row` (clamped to its height). Without
  // kCompute only the schedule runs, to size the rings.
  template <bool kCompute>
  void Ensure(Band& b, int a, int64_t row, const float* input) const {
    row = std::min(row, layout_.shapes[a].height - 1);
    while (b.next[a] <= row) {
      const Step& s = steps_[producer_[a]];
      const int64_t y = b.next[a];
      for (size_t k = 0; k < s.inputs.size(); ++k) {
        const Window win = WindowOf(s, k, y);
        if (win.hi >= 0) Ensure<kCompute>(b, s.inputs[k], win.hi, input);
      }
      if constexpr (kCompute) {
        ComputeRow(b, s, y, input);
      } else {
        for (size_t k = 0; k < s.inputs.size(); ++k) Need(&b, s.inputs[k], WindowOf(s, k, y).lo);
      }
      ++b.next[a];
      if constexpr (!kCompute) Need(&b, a, y);
    }
  }

  // Output rows go to the caller a few at a time, while they are still in
  // the caches.
  static constexpr int64_t kRowsPerCall = 8;

  void RunBand(Band& b, const float* input, float* output,
               const std::function<void(const float*, int64_t, int64_t)>& on_rows) const {
    b.next = b.first;
    const Shape& out = layout_.shapes[graph_.output];
    int64_t reported = b.first_out;
    for (int64_t y = b.first_out; y < b.end_out; ++y) {
      Ensure<true>(b, graph_.output, y, input);
      const float* row = RowOf(b, graph_.output, y);
      for (int64_t c = 0; c < out.channels; ++c) {
        std::memcpy(output + (c * out.height + y) * out.width, row + c * out.stride,
                    static_cast<size_t>(out.columns) * sizeof(float));
      }
      if (on_rows && (y + 1 - reported == kRowsPerCall || y + 1 == b.end_out)) {
        on_rows(output, reported, y + 1);
        reported = y + 1;
      }
    }
  }

  void ComputeRow(Band& b, const Step& s, int64_t y, const float* input) const {
    const Shape& out = layout_.shapes[s.output];
    float* dst = const_cast<float*>(RowOf(b, s.output, y));
    const Shape* in = s.inputs.empty() ? nullptr : &layout_.shapes[s.inputs[0]];
    switch (s.kind) {
      case StepKind::kInput:
        std::memcpy(dst, input + y * out.width, static_cast<size_t>(out.columns) * sizeof(float));
        break;
      case StepKind::kConv: {
        const Op& op = *s.op;
        for (int64_t ky = 0; ky < op.kernel_h; ++ky) b.row_ptrs[ky] = RowOf(b, s.inputs[0], y - op.pad_top + ky);
        rows::ConvRow a;
        a.in = b.row_ptrs.data();
        a.in_stride = in->stride;
        a.in_channels = in->channels;
        a.kernel_h = op.kernel_h;
        a.kernel_w = op.kernel_w;
        a.pad_left = op.pad_left;
        a.weights = s.weights.data();
        a.bias = op.bias.data();
        a.post = s.post;
        a.slope = s.slope;
        a.lo = s.lo;
        a.hi = s.hi;
        a.out = dst;
        a.out_stride = out.stride;
        a.out_channels = out.channels;
        a.width = out.columns;
        rows::Convolve(a);
        break;
      }
      case StepKind::kQuantize:
        rows::QuantizeRow(RowOf(b, s.inputs[0], y), in->stride, in->channels, reinterpret_cast<uint32_t*>(dst),
                          out.stride, out.columns, s.op->scale, graph_.activations[s.output].zero_point);
        break;
      case StepKind::kQConv: {
        const Op& op = *s.op;
        for (int64_t ky = 0; ky < op.kernel_h; ++ky) {
          b.qrow_ptrs[ky] = reinterpret_cast<const uint32_t*>(RowOf(b, s.inputs[0], y - op.pad_top + ky));
        }
        rows::QConvRow a;
        a.in = b.qrow_ptrs.data();
        a.in_stride = in->stride;
        a.in_groups = in->channels;
        a.kernel_h = op.kernel_h;
        a.kernel_w = op.kernel_w;
        a.pad_left = op.pad_left;
        a.weights = s.qweights.data();
        a.weight_entries = s.qweight_entries;
        a.bias = s.qbias.data();
        a.bias_signed = s.qbias_signed.data();
        a.scale = s.qscale.data();
        a.slope = s.qslope.empty() ? nullptr : s.qslope.data();
        a.quantize = s.quantize;
        a.out_scale = s.out_scale;
        a.out_zero_point = s.out_zero_point;
        a.out = dst;
        a.out_stride = out.stride;
        a.out_channels = static_cast<int64_t>(op.qbias.size());
        a.width = out.columns;
        rows::QConvolve(a);
        break;
      }
      case StepKind::kActivate:
        rows::Activate(RowOf(b, s.inputs[0], y), dst, out.stride, out.channels, out.columns, s.post, s.slope, s.lo,
                       s.hi);
        break;
      case StepKind::kBinary: {
        rows::BinaryRow a;
        a.op = s.op->kind == OpKind::kAdd ? rows::Binary::kAdd : rows::Binary::kMul;
        a.a = RowOf(b, s.inputs[0], y);
        a.a_stride = in->channels == 1 ? 0 : in->stride;
        if (s.inputs.size() > 1) {
          const Shape& other = layout_.shapes[s.inputs[1]];
          a.b = RowOf(b, s.inputs[1], y);
          a.b_stride = other.channels == 1 ? 0 : other.stride;
        } else {
          a.constant = s.op->constant.data();
          a.constant_channels = static_cast<int64_t>(s.op->constant.size());
        }
        a.out = dst;
        a.out_stride = out.stride;
        a.channels = out.channels;
        a.width = out.columns;
        rows::Combine(a);
        break;
      }
      case StepKind::kDepthToSpace:
        rows::DepthToSpace(RowOf(b, s.inputs[0], y / s.op->block), in->stride, dst, out.stride, out.channels,
                           s.op->block, y, (out.columns + s.op->block - 1) / s.op->block);
        break;
      case StepKind::kResize: {
        int64_t r0, r1;
        float fy;
        ResizeSource(*s.op, in->height, y, &r0, &r1, &fy);
        const float* top = RowOf(b, s.inputs[0], r0);
        const float* bottom = RowOf(b, s.inputs[0], r1);
        for (int64_t x = 0; x < out.columns; ++x) {
          int64_t c0, c1;
          float fx;
          ResizeSource(*s.op, in->width, x, &c0, &c1, &fx);
          for (int64_t c = 0; c < out.channels; ++c) {
            const int64_t o = c * in->stride;
            const float left = top[o + c0] * (1.0f - fy) + bottom[o + c0] * fy;
            const float right = top[o + c1] * (1.0f - fy) + bottom[o + c1] * fy;
            dst[c * out.stride + x] = left * (1.0f - fx) + right * fx;
          }
        }
        break;
      }
    }
    // Columns past the width are the next convolution's right padding. No
    // output column inside a width reads further out, so what row functions
    // leave beyond the padding only reaches columns that are never kept.
    // (When a region computes fewer columns, the ones it keeps read none of
    // what lies past them.)
    const int64_t end = out.width + max_pad_right_;
    for (int64_t c = 0; c < out.channels; ++c) {
      if (out.bytes) {
        uint32_t* slots = reinterpret_cast<uint32_t*>(dst + c * out.stride);
        std::fill(slots + out.width, slots + end, out.pad);
      } else {
        std::fill(dst + c * out.stride + out.width, dst + c * out.stride + end, 0.0f);
      }
    }
  }

  Graph graph_;  // holds the weights the steps point to
  std::vector<Step> steps_;
  std::vector<int> producer_;  // step index that computes each activation
  int64_t max_pad_left_ = 0, max_pad_right_ = 0, max_kernel_h_ = 1;
  struct Layout layout_;
  std::vector<Band> bands_;
  int threads_;
  std::mutex run_mutex_;
};

}  // namespace

std::unique_ptr<Network> Network::Load(const std::string& path, int threads, bool gpu, std::string* error) {
  std::string scratch;
  if (error == nullptr) error = &scratch;
  Graph graph;
  if (!ImportOnnx(path, &graph, error)) return nullptr;
#if VORLITH_HAS_VULKAN
  std::string why;
  if (gpu && VulkanCanRun(graph, &why)) {
    if (std::unique_ptr<Network> network = CreateVulkanNetwork(graph, threads, &why)) return network;
    if (!why.empty()) platform::LogError("Vulkan: " + why + "; " + path + " runs on the CPU");
  }
#else
  (void)gpu;
#endif
  return FromGraph(std::move(graph), threads);
}

std::unique_ptr<Network> Network::FromGraph(Graph graph, int threads) {
  return std::make_unique<Engine>(std::move(graph), threads);
}

}  // namespace vorlith::model
