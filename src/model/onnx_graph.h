// The network as the runtime sees it: a list of operations on activations
// of shape [1, C, h, w], imported from an ONNX file and checked up front so
// that a graph the runtime cannot run fails at load time, not per frame.
#ifndef VORLITH_SRC_MODEL_ONNX_GRAPH_H_
#define VORLITH_SRC_MODEL_ONNX_GRAPH_H_

#include <cstdint>
#include <string>
#include <vector>

namespace vorlith::model {

// A spatial extent as a function of the graph input's extent n: scale*n+offset.
// Padding and kernel size move the offset, DepthToSpace and Resize the scale,
// so every shape is known before the input size is.
struct Extent {
  int64_t scale = 1;
  int64_t offset = 0;

  int64_t At(int64_t n) const { return scale * n + offset; }
  bool operator==(const Extent&) const = default;
};

struct Activation {
  int64_t channels = 0;
  Extent height;
  Extent width;
  // Bytes with a zero point instead of floats: what QuantizeLinear writes
  // and only a quantised convolution reads.
  bool quantized = false;
  int32_t zero_point = 0;
};

enum class OpKind {
  kConv,          // filter OHWI, bias per output channel
  kClamp,         // Relu, Clip
  kPRelu,         // one slope per channel
  kAdd,           // two activations, or one and `constant`
  kMul,           // likewise
  kDepthToSpace,  // DCR order; CRD is rewritten into it at import
  kResizeBilinear,
  kQuantize,  // float -> bytes: clamp(rne(x / scale) + zero point, 0, 255)
  kQConv,     // bytes -> float: float(accumulator) * bias scale
};

// Where an output sample of a bilinear 2x resize reads the input.
enum class ResizeCoords { kHalfPixel, kAlignCorners, kAsymmetric };

struct Op {
  OpKind kind = OpKind::kConv;
  std::string node;                // "node 'name'" for messages
  std::vector<int> inputs;         // activation ids, one or two
  int output = -1;

  // kConv.
  int64_t kernel_h = 0, kernel_w = 0;
  int64_t pad_top = 0, pad_left = 0, pad_bottom = 0, pad_right = 0;
  std::vector<float> filter;       // [out][kh][kw][in]
  std::vector<float> bias;         // [out]

  // kClamp.
  float min = 0.0f, max = 0.0f;

  // kPRelu slope, or the constant operand of kAdd / kMul ([1] or [channels]).
  std::vector<float> constant;

  // kDepthToSpace.
  int64_t block = 0;
  // kResizeBilinear.
  ResizeCoords coords = ResizeCoords::kHalfPixel;

  // kQuantize: the scale (the zero point is the output activation's).
  float scale = 1.0f;
  // kQConv: int8 filter [out][kh][kw][in] with zero point 0, int32 bias, and
  // per output channel the bias scale, which must be the float product of the
  // input's scale and the filter's. The accumulator is
  //   bias_q + sum of qfilter * (input - input zero point),
  // exact in 32 bits (the importer checks the bound); the output is
  // float(accumulator) * scales[o], one rounding.
  std::vector<int8_t> qfilter;
  std::vector<int32_t> qbias;
  std::vector<float> scales;
};

struct Graph {
  std::string input_name;
  std::string output_name;
  int input = -1;   // activation id of the graph input
  int output = -1;  // activation id of the graph output
  std::vector<Activation> activations;
  std::vector<Op> ops;  // in execution order
};

// How many input pixels beyond those under it an output pixel may depend on,
// on any side: a bound from the kernels' reach, the resizes' neighbours and
// the depth-to-space blocks, rounded up. Tiles of an input that overlap by
// this much give, away from the tiles' cut edges, what the whole input gives.
int64_t InputMargin(const Graph& graph);

// Reads `path` into *graph. On failure returns false and a one-line reason.
bool ImportOnnx(const std::string& path, Graph* graph, std::string* error);
// The same for a file's contents; `name` stands for the file in messages.
bool ImportOnnxBytes(const std::string& bytes, const std::string& name, Graph* graph, std::string* error);

}  // namespace vorlith::model

#endif  // VORLITH_SRC_MODEL_ONNX_GRAPH_H_
