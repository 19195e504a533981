// Row functions of the network engine: each computes one row of an
// activation from rows of its inputs, on the SIMD target that dispatch picks.
//
// Row layout: an activation row holds its channels one after another, each a
// run of `stride` floats whose column 0 is what the pointers below address.
// Lanes hold neighbouring pixels of one channel, so every channel count fills
// whole vectors. Functions compute whole vectors: they may write up to
// kRowSlack floats past `width` and read correspondingly past their inputs'
// widths (plus a convolution's padding on either side). The engine keeps
// those margins allocated, and zero where a convolution's padding lies.
#ifndef VORLITH_SRC_MODEL_ENGINE_ROWS_H_
#define VORLITH_SRC_MODEL_ENGINE_ROWS_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vorlith::model::rows {

// Widest vector any target uses, in floats (2048-bit SVE), and the most a
// function writes past `width` (the depth-to-space writes twice its input's
// rounding).
constexpr int64_t kMaxLanes = 64;
constexpr int64_t kRowSlack = 2 * kMaxLanes;

// What follows a convolution inside its store.
enum class Post { kNone, kPRelu, kClamp };

// Output channels a packed group holds.
constexpr int64_t kGroup = 4;

// Filter [out][kh][kw][in] -> groups of kGroup output channels, each
// [in][kh][kw][kGroup]; the last group is padded with zeros.
std::vector<float> PackConvWeights(const std::vector<float>& filter, int64_t out_channels,
                                   int64_t in_channels, int64_t kernel_h, int64_t kernel_w);

struct ConvRow {
  const float* const* in;  // kernel_h input rows, top first (a zero row for padding)
  int64_t in_stride = 0, in_channels = 0;
  int64_t kernel_h = 0, kernel_w = 0, pad_left = 0;
  const float* weights = nullptr;  // PackConvWeights
  const float* bias = nullptr;     // [out_channels]
  Post post = Post::kNone;
  const float* slope = nullptr;  // kPRelu: [out_channels]
  float lo = 0.0f, hi = 0.0f;    // kClamp
  float* out = nullptr;
  int64_t out_stride = 0, out_channels = 0, width = 0;
};
void Convolve(const ConvRow& args);

// out[c] = op(a[c or 0], b[c or 0]) or op(a[c or 0], constant[c or 0]).
enum class Binary { kAdd, kMul };
struct BinaryRow {
  Binary op = Binary::kAdd;
  const float* a = nullptr;
  int64_t a_stride = 0;  // 0: one channel broadcast to all
  const float* b = nullptr;
  int64_t b_stride = 0;
  const float* constant = nullptr;  // instead of b
  int64_t constant_channels = 0;    // 1 or channels
  float* out = nullptr;
  int64_t out_stride = 0, channels = 0, width = 0;
};
void Combine(const BinaryRow& args);

// PReLU with a slope per channel, or clamp to [lo, hi]; in may equal out.
void Activate(const float* in, float* out, int64_t stride, int64_t channels, int64_t width, Post post,
              const float* slope, float lo, float hi);

// Depth-to-space, DCR order: output row y of `block` x `block` blocks takes
// input channels (y % block) * block * channels + dx * channels + c.
void DepthToSpace(const float* in, int64_t in_stride, float* out, int64_t out_stride, int64_t channels,
                  int64_t block, int64_t out_row, int64_t in_width);

// Quantised rows. A byte activation row holds its channels in groups of
// four, one 32-bit slot per pixel and group (channel 4g + j in byte j), each
// group a run of `stride` slots; padding and margins hold the zero point in
// every byte, so padding contributes nothing to a sum over (x - zero point).

// Filter [out][kh][kw][in] (int8) -> the weights of each pixel slot (four
// input channels) in three forms, one per kind of multiply-accumulate a
// target has, each a section of its own so that a target reads only its
// form: packed bytes (1 int), two 16-bit pairs (2 ints), four ints. Within a
// section: groups of kGroup output channels, each [in group][kh][kw][kGroup];
// missing channels weigh zero. The entry count per form is
// QConvWeightEntries().
std::vector<int32_t> PackQConvWeights(const std::vector<int8_t>& filter, int64_t out_channels,
                                      int64_t in_channels, int64_t kernel_h, int64_t kernel_w);
int64_t QConvWeightEntries(int64_t out_channels, int64_t in_channels, int64_t kernel_h, int64_t kernel_w);

// out = clamp(rne(x / scale) + zero_point, 0, 255) for every channel of a
// float row (x / scale one float division, NaN counted as 0), into a byte row;
// the bytes of missing channels in the last group are zero.
void QuantizeRow(const float* in, int64_t in_stride, int64_t channels, uint32_t* out, int64_t out_stride,
                 int64_t width, float scale, int32_t zero_point);

struct QConvRow {
  const uint32_t* const* in;  // kernel_h byte rows, top first (a zero-point row for padding)
  int64_t in_stride = 0, in_groups = 0;
  int64_t kernel_h = 0, kernel_w = 0, pad_left = 0;
  const int32_t* weights = nullptr;  // PackQConvWeights
  int64_t weight_entries = 0;        // QConvWeightEntries
  const int32_t* bias = nullptr;     // [groups * kGroup]: bias_q - input zero point * sum of weights
  const int32_t* bias_signed = nullptr;  // the same + 128 * sum of weights, for signed dot products
  const float* scale = nullptr;      // [groups * kGroup]: bias scale
  const float* slope = nullptr;      // PReLU slope [groups * kGroup], or null
  // Bytes out when `quantize`: clamp(rne(v / out_scale) + out_zero_point);
  // floats v out otherwise.
  bool quantize = false;
  float out_scale = 1.0f;
  int32_t out_zero_point = 0;
  void* out = nullptr;
  int64_t out_stride = 0, out_channels = 0, width = 0;
};
void QConvolve(const QConvRow& args);
// The target QConvolve dispatches to now (the dot-product target is compiled
// only for it).
int64_t QConvolveTarget();

}  // namespace vorlith::model::rows

#endif  // VORLITH_SRC_MODEL_ENGINE_ROWS_H_
