#include "tests/oracle/network_oracle.h"

#include <algorithm>
#include <cmath>

namespace vorlith::oracle {
namespace {

using model::Graph;
using model::Op;
using model::OpKind;

struct Tensor {
  int64_t c = 0, h = 0, w = 0;
  std::vector<double> v;
  // Float32 values (the graph input and what quantised convolutions and the
  // element-wise operators after them give): operators on them round to
  // float32 as they go. Byte codes with a zero point after QuantizeLinear.
  bool f32 = false, bytes = false;
  int32_t zero_point = 0;
  double At(int64_t ch, int64_t y, int64_t x) const { return v[(ch * h + y) * w + x]; }
};

Tensor Make(int64_t c, int64_t h, int64_t w) { return {c, h, w, std::vector<double>(c * h * w, 0.0)}; }

// out[o][y][x] = bias[o] + sum over i, ky, kx of filter[o][ky][kx][i] * in[i][y - top + ky][x - left + kx],
// zero outside the input.
Tensor Conv(const Op& op, const Tensor& in, int64_t oh, int64_t ow) {
  const int64_t oc = static_cast<int64_t>(op.bias.size());
  Tensor out = Make(oc, oh, ow);
  for (int64_t o = 0; o < oc; ++o) {
    for (int64_t y = 0; y < oh; ++y) {
      for (int64_t x = 0; x < ow; ++x) {
        double sum = op.bias[o];
        for (int64_t ky = 0; ky < op.kernel_h; ++ky) {
          const int64_t sy = y - op.pad_top + ky;
          if (sy < 0 || sy >= in.h) continue;
          for (int64_t kx = 0; kx < op.kernel_w; ++kx) {
            const int64_t sx = x - op.pad_left + kx;
            if (sx < 0 || sx >= in.w) continue;
            for (int64_t i = 0; i < in.c; ++i) {
              sum += double{op.filter[((o * op.kernel_h + ky) * op.kernel_w + kx) * in.c + i]} * in.At(i, sy, sx);
            }
          }
        }
        out.v[(o * oh + y) * ow + x] = sum;
      }
    }
  }
  return out;
}

// Where output sample o of a 2x bilinear resize of n samples reads: the
// ONNX coordinate transform, clamped to the input.
void Source(model::ResizeCoords coords, int64_t n, int64_t o, int64_t* i0, int64_t* i1, double* frac) {
  double s = coords == model::ResizeCoords::kHalfPixel      ? (o + 0.5) / 2 - 0.5
             : coords == model::ResizeCoords::kAlignCorners ? o * double(n - 1) / double(2 * n - 1)
                                                            : o / 2.0;
  const double lo = std::floor(s);
  *frac = s - lo;
  *i0 = std::clamp<int64_t>(static_cast<int64_t>(lo), 0, n - 1);
  *i1 = std::clamp<int64_t>(static_cast<int64_t>(lo) + 1, 0, n - 1);
}

// ONNX QuantizeLinear with a float32 division and ties to even; NaN as 0.
double Quantize(double x, float scale, int32_t zero_point) {
  const float t = static_cast<float>(x) / scale;
  const double r = std::isnan(t) ? 0.0 : std::nearbyint(std::clamp<double>(t, -1e9, 1e9));
  return std::clamp<double>(r + zero_point, 0.0, 255.0);
}

// Convolution of dequantised operands: the integer accumulator over
// (code - zero point), padding contributing nothing, then one float32 product
// with the bias scale.
Tensor QConv(const Op& op, const Tensor& in, int64_t oh, int64_t ow) {
  const int64_t oc = static_cast<int64_t>(op.qbias.size());
  Tensor out = Make(oc, oh, ow);
  out.f32 = true;
  for (int64_t o = 0; o < oc; ++o) {
    for (int64_t y = 0; y < oh; ++y) {
      for (int64_t x = 0; x < ow; ++x) {
        int64_t acc = op.qbias[o];
        for (int64_t ky = 0; ky < op.kernel_h; ++ky) {
          for (int64_t kx = 0; kx < op.kernel_w; ++kx) {
            const int64_t sy = y - op.pad_top + ky, sx = x - op.pad_left + kx;
            if (sy < 0 || sy >= in.h || sx < 0 || sx >= in.w) continue;
            for (int64_t i = 0; i < in.c; ++i) {
              acc += op.qfilter[((o * op.kernel_h + ky) * op.kernel_w + kx) * in.c + i] *
                     (static_cast<int64_t>(in.At(i, sy, sx)) - in.zero_point);
            }
          }
        }
        out.v[(o * oh + y) * ow + x] = static_cast<float>(acc) * op.scales[o];
      }
    }
  }
  return out;
}

}  // namespace

std::vector<double> RunGraph(const Graph& g, const std::vector<float>& input, int64_t h, int64_t w,
                             std::vector<int64_t>* shape) {
  std::vector<Tensor> t(g.activations.size());
  t[g.input] = Make(1, h, w);
  t[g.input].f32 = true;
  std::copy(input.begin(), input.end(), t[g.input].v.begin());
  for (const Op& op : g.ops) {
    const Tensor& a = t[op.inputs[0]];
    const model::Activation& act = g.activations[op.output];
    const int64_t oc = act.channels, oh = act.height.At(h), ow = act.width.At(w);
    Tensor out = Make(oc, oh, ow);
    bool f32 = a.f32;
    for (int in : op.inputs) f32 = f32 && t[in].f32;
    // Rounds a result to float32 when the operands are float32 values.
    const auto round = [f32](double v) { return f32 ? double{static_cast<float>(v)} : v; };
    for (int64_t c = 0; c < oc; ++c) {
      for (int64_t y = 0; y < oh; ++y) {
        for (int64_t x = 0; x < ow; ++x) {
          double& r = out.v[(c * oh + y) * ow + x];
          switch (op.kind) {
            case OpKind::kClamp: r = std::min<double>(std::max<double>(a.At(c, y, x), op.min), op.max); break;
            case OpKind::kPRelu: {
              const double v = a.At(c, y, x);
              r = v < 0 ? round(op.constant[c] * v) : v;
              break;
            }
            case OpKind::kAdd:
            case OpKind::kMul: {
              // Channel broadcasting: a single channel or constant serves all.
              const double u = a.At(a.c == 1 ? 0 : c, y, x);
              double v;
              if (op.inputs.size() > 1) {
                const Tensor& b = t[op.inputs[1]];
                v = b.At(b.c == 1 ? 0 : c, y, x);
              } else {
                v = op.constant[op.constant.size() == 1 ? 0 : c];
              }
              r = f32 ? double{op.kind == OpKind::kAdd ? static_cast<float>(u) + static_cast<float>(v)
                                                       : static_cast<float>(u) * static_cast<float>(v)}
                      : op.kind == OpKind::kAdd ? u + v
                                                : u * v;
              break;
            }
            case OpKind::kDepthToSpace: {
              const int64_t b = op.block;
              r = a.At(((y % b) * b + x % b) * oc + c, y / b, x / b);
              break;
            }
            case OpKind::kResizeBilinear: {
              int64_t y0, y1, x0, x1;
              double fy, fx;
              Source(op.coords, a.h, y, &y0, &y1, &fy);
              Source(op.coords, a.w, x, &x0, &x1, &fx);
              const double top = a.At(c, y0, x0) * (1 - fx) + a.At(c, y0, x1) * fx;
              const double bottom = a.At(c, y1, x0) * (1 - fx) + a.At(c, y1, x1) * fx;
              r = top * (1 - fy) + bottom * fy;
              break;
            }
            case OpKind::kQuantize: r = Quantize(a.At(c, y, x), op.scale, act.zero_point); break;
            case OpKind::kConv:
            case OpKind::kQConv: break;
          }
        }
      }
    }
    out.f32 = f32 && op.kind != OpKind::kResizeBilinear;
    if (op.kind == OpKind::kConv) out = Conv(op, a, oh, ow);
    if (op.kind == OpKind::kQConv) out = QConv(op, a, oh, ow);
    if (op.kind == OpKind::kQuantize) {
      out.f32 = false;
      out.bytes = true;
      out.zero_point = act.zero_point;
    }
    t[op.output] = std::move(out);
  }
  const Tensor& out = t[g.output];
  *shape = {1, out.c, out.h, out.w};
  return out.v;
}

}  // namespace vorlith::oracle
