#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/model/engine_rows.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>

#include "src/model/engine_block-inl.h"
#include "src/model/engine_rows.h"

HWY_BEFORE_NAMESPACE();
namespace vorlith::model::rows {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<float>;
using V = hn::Vec<D>;

// Output channels co .. co+G-1 at columns x .. x + B vectors. K is the
// kernel width when it is known at compile time, else 0.
template <int G, int B, int K>
HWY_INLINE void ConvBlock(const ConvRow& a, const float* HWY_RESTRICT w, int64_t co, int64_t x) {
  const D d;
  const int64_t n = static_cast<int64_t>(hn::Lanes(d));
  const int64_t kw = K > 0 ? K : a.kernel_w;
#define VL_DECLARE(g, b) V acc##g##b = hn::Zero(d);
  VL_FOR_GB(VL_DECLARE)
#undef VL_DECLARE
#define VL_BIAS(g, b) \
  if constexpr (g < G && b < B) acc##g##b = hn::Set(d, a.bias[co + g]);
  VL_FOR_GB(VL_BIAS)
#undef VL_BIAS
  for (int64_t ci = 0; ci < a.in_channels; ++ci) {
    for (int64_t ky = 0; ky < a.kernel_h; ++ky) {
      const float* HWY_RESTRICT r = a.in[ky] + ci * a.in_stride + x - a.pad_left;
      for (int64_t kx = 0; kx < kw; ++kx, w += kGroup) {
#define VL_LOAD(b) \
  V v##b = hn::Zero(d); \
  if constexpr (b < B) v##b = hn::LoadU(d, r + kx + b * n);
        VL_FOR_V(VL_LOAD)
#undef VL_LOAD
#define VL_FMA(g, b) \
  if constexpr (g < G && b < B) acc##g##b = hn::MulAdd(hn::Set(d, w[g]), v##b, acc##g##b);
        VL_FOR_GB(VL_FMA)
#undef VL_FMA
      }
    }
  }
  const V zero = hn::Zero(d);
#define VL_STORE(g, b)                                                      \
  if constexpr (g < G && b < B) {                                           \
    V y = acc##g##b;                                                        \
    if (a.post == Post::kPRelu) {                                           \
      y = hn::IfThenElse(hn::Lt(y, zero), hn::Mul(y, hn::Set(d, a.slope[co + g])), y); \
    } else if (a.post == Post::kClamp) {                                    \
      y = hn::Min(hn::Max(y, hn::Set(d, a.lo)), hn::Set(d, a.hi));          \
    }                                                                       \
    hn::StoreU(y, d, a.out + (co + g) * a.out_stride + x + b * n);          \
  }
  VL_FOR_GB(VL_STORE)
#undef VL_STORE
}

template <int B, int K>
HWY_INLINE void ConvColumns(const ConvRow& a, int64_t x) {
  const int64_t group_floats = a.in_channels * a.kernel_h * a.kernel_w * kGroup;
  for (int64_t co = 0; co < a.out_channels; co += kGroup) {
    const float* w = a.weights + (co / kGroup) * group_floats;
    switch (std::min<int64_t>(kGroup, a.out_channels - co)) {
      case 4: ConvBlock<4, B, K>(a, w, co, x); break;
      case 3: ConvBlock<3, B, K>(a, w, co, x); break;
      case 2: ConvBlock<2, B, K>(a, w, co, x); break;
      default: ConvBlock<1, B, K>(a, w, co, x); break;
    }
  }
}

template <int K>
HWY_INLINE void ConvolveWith(const ConvRow& a) {
  const int64_t n = static_cast<int64_t>(hn::Lanes(D()));
  const int64_t end = (a.width + n - 1) / n * n;
  // Column blocks outside, channel groups inside: a block's inputs stay in
  // the first-level cache while every group reads them.
  int64_t x = 0;
  for (; x + kBlock * n <= end; x += kBlock * n) ConvColumns<kBlock, K>(a, x);
  for (; x < end; x += n) ConvColumns<1, K>(a, x);
}

void Convolve(const ConvRow& a) {
  if (a.kernel_w == 3) {
    ConvolveWith<3>(a);
  } else if (a.kernel_w == 1) {
    ConvolveWith<1>(a);
  } else {
    ConvolveWith<0>(a);
  }
}

void Combine(const BinaryRow& a) {
  const D d;
  const int64_t n = static_cast<int64_t>(hn::Lanes(d));
  for (int64_t c = 0; c < a.channels; ++c) {
    const float* pa = a.a + c * a.a_stride;
    const float* pb = a.b != nullptr ? a.b + c * a.b_stride : nullptr;
    const V k = hn::Set(d, a.constant != nullptr ? a.constant[a.constant_channels > 1 ? c : 0] : 0.0f);
    float* out = a.out + c * a.out_stride;
    for (int64_t x = 0; x < a.width; x += n) {
      const V u = hn::LoadU(d, pa + x);
      const V v = pb != nullptr ? hn::LoadU(d, pb + x) : k;
      hn::StoreU(a.op == Binary::kAdd ? hn::Add(u, v) : hn::Mul(u, v), d, out + x);
    }
  }
}

void Activate(const float* in, float* out, int64_t stride, int64_t channels, int64_t width, Post post,
              const float* slope, float lo, float hi) {
  const D d;
  const int64_t n = static_cast<int64_t>(hn::Lanes(d));
  const V zero = hn::Zero(d);
  for (int64_t c = 0; c < channels; ++c) {
    const V s = hn::Set(d, post == Post::kPRelu ? slope[c] : 0.0f);
    const V vlo = hn::Set(d, lo), vhi = hn::Set(d, hi);
    for (int64_t x = 0; x < width; x += n) {
      V y = hn::LoadU(d, in + c * stride + x);
      y = post == Post::kPRelu ? hn::IfThenElse(hn::Lt(y, zero), hn::Mul(y, s), y)
                               : hn::Min(hn::Max(y, vlo), vhi);
      hn::StoreU(y, d, out + c * stride + x);
    }
  }
}

void DepthToSpace(const float* in, int64_t in_stride, float* out, int64_t out_stride, int64_t channels,
                  int64_t block, int64_t out_row, int64_t in_width) {
  const int64_t dy = out_row % block;
  for (int64_t c = 0; c < channels; ++c) {
    const float* first = in + (dy * block * channels + c) * in_stride;
    float* o = out + c * out_stride;
    if (block == 2) {
      const D d;
      const int64_t n = static_cast<int64_t>(hn::Lanes(d));
      const float* second = first + channels * in_stride;
      for (int64_t x = 0; x < in_width; x += n) {
        hn::StoreInterleaved2(hn::LoadU(d, first + x), hn::LoadU(d, second + x), d, o + 2 * x);
      }
      continue;
    }
    for (int64_t x = 0; x < in_width; ++x) {
      for (int64_t dx = 0; dx < block; ++dx) o[x * block + dx] = first[dx * channels * in_stride + x];
    }
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith::model::rows
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith::model::rows {

HWY_EXPORT(Convolve);
HWY_EXPORT(Combine);
HWY_EXPORT(Activate);
HWY_EXPORT(DepthToSpace);

std::vector<float> PackConvWeights(const std::vector<float>& filter, int64_t out_channels,
                                   int64_t in_channels, int64_t kernel_h, int64_t kernel_w) {
  const int64_t groups = (out_channels + kGroup - 1) / kGroup;
  const int64_t taps = kernel_h * kernel_w;
  std::vector<float> packed(static_cast<size_t>(groups * in_channels * taps * kGroup), 0.0f);
  for (int64_t o = 0; o < out_channels; ++o) {
    for (int64_t t = 0; t < taps; ++t) {
      for (int64_t i = 0; i < in_channels; ++i) {
        packed[(((o / kGroup) * in_channels + i) * taps + t) * kGroup + o % kGroup] =
            filter[(o * taps + t) * in_channels + i];
      }
    }
  }
  return packed;
}

void Convolve(const ConvRow& args) { HWY_DYNAMIC_DISPATCH(Convolve)(args); }
void Combine(const BinaryRow& args) { HWY_DYNAMIC_DISPATCH(Combine)(args); }
void Activate(const float* in, float* out, int64_t stride, int64_t channels, int64_t width, Post post,
              const float* slope, float lo, float hi) {
  HWY_DYNAMIC_DISPATCH(Activate)(in, out, stride, channels, width, post, slope, lo, hi);
}
void DepthToSpace(const float* in, int64_t in_stride, float* out, int64_t out_stride, int64_t channels,
                  int64_t block, int64_t out_row, int64_t in_width) {
  HWY_DYNAMIC_DISPATCH(DepthToSpace)(in, in_stride, out, out_stride, channels, block, out_row, in_width);
}

}  // namespace vorlith::model::rows
#endif  // HWY_ONCE
