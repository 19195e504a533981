// Bilinear 3x and 4x enlargement of float planes, and the NHWC float-to-byte
// converters.
//
// Every blend is two separately rounded single-precision products and one
// addition (the build disables contraction into fused multiply-adds), so all
// targets give the same bits. Rows that fall on a source sample are copies.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/resize/linear_float.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "src/kernels/arm_numerics-inl.h"
#include "src/kernels/arm_numerics.h"
#include "vorlith/resize.h"

#ifndef VORLITH_LINEAR_FLOAT_ONCE
#define VORLITH_LINEAR_FLOAT_ONCE
namespace vorlith::linear {
inline constexpr float kOneThird = std::bit_cast<float>(0x3EAAAAABu);
inline constexpr float kTwoThirds = std::bit_cast<float>(0x3F2AAAABu);
// Weight of the left sample of 4x outputs 0..3 between two samples; the
// right one is 1 - it, exactly.
inline constexpr float kEighths[4] = {0.875f, 0.625f, 0.375f, 0.125f};

// FCVTZS, XTN, SQXTUN: truncate, keep the low 16 bits as signed, clamp.
inline uint8_t FloatToByte(float v) {
  const int16_t low = static_cast<int16_t>(static_cast<uint16_t>(TruncToI32Sat(v)));
  return static_cast<uint8_t>(low < 0 ? 0 : (low > 255 ? 255 : low));
}
}  // namespace vorlith::linear
#endif

HWY_BEFORE_NAMESPACE();
namespace vorlith {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// `steps` pixel steps over src[0 .. steps], edges copied.
template <int R>
void HorizontalRowF(const float* HWY_RESTRICT src, float* HWY_RESTRICT out, size_t steps) {
  constexpr size_t kLead = R == 4 ? 2 : 1;
  for (size_t k = 0; k < kLead; ++k) out[k] = src[0];
  float* o = out + kLead;
  size_t i = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<float> df;
  const size_t n = hn::Lanes(df);
  for (; i + n <= steps; i += n) {
    const auto a = hn::LoadU(df, src + i), b = hn::LoadU(df, src + i + 1);
    auto blend = [&](float wa, float wb) {
      return hn::Add(hn::Mul(a, hn::Set(df, wa)), hn::Mul(b, hn::Set(df, wb)));
    };
    if constexpr (R == 3) {
      hn::StoreInterleaved3(a, blend(linear::kTwoThirds, linear::kOneThird),
                            blend(linear::kOneThird, linear::kTwoThirds), df, o + 3 * i);
    } else {
      const float* e = linear::kEighths;
      hn::StoreInterleaved4(blend(e[0], e[3]), blend(e[1], e[2]), blend(e[2], e[1]),
                            blend(e[3], e[0]), df, o + 4 * i);
    }
  }
#endif
  for (; i < steps; ++i) {
    const float a = src[i], b = src[i + 1];
    if constexpr (R == 3) {
      o[3 * i] = a;
      o[3 * i + 1] = a * linear::kTwoThirds + b * linear::kOneThird;
      o[3 * i + 2] = a * linear::kOneThird + b * linear::kTwoThirds;
    } else {
      for (int k = 0; k < 4; ++k) {
        o[4 * i + k] = a * linear::kEighths[k] + b * linear::kEighths[3 - k];
      }
    }
  }
  o[R * steps] = o[R * steps + 1] = src[steps];
}

// dst[i] = wa * a[i] + wb * b[i], i < count.
void BlendRow(const float* a, const float* b, float wa, float wb, float* dst, size_t count) {
  size_t i = 0;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<float> df;
  const size_t n = hn::Lanes(df);
  const auto va = hn::Set(df, wa), vb = hn::Set(df, wb);
  for (; i + n <= count; i += n) {
    hn::StoreU(hn::Add(hn::Mul(hn::LoadU(df, a + i), va), hn::Mul(hn::LoadU(df, b + i), vb)), df,
               dst + i);
  }
#endif
  for (; i < count; ++i) dst[i] = a[i] * wa + b[i] * wb;
}

template <int R>
void LinearFloat(_StLanczos1p5x* ctx, const float* src, float* dst, int height, int width) {
  if (height < 1 || width < 1) return;
  const size_t w = static_cast<size_t>(width), ow = R * w;
  float* const rows[2] = {reinterpret_cast<float*>(ctx->floatLineBuf),
                          reinterpret_cast<float*>(ctx->floatLineBuf) + ow};
  int32_t* const index = ctx->rowIndex;
  index[0] = 0;
  index[1] = 1;
  auto emit = [&](float wa, float wb) {
    BlendRow(rows[index[0]], rows[index[1]], wa, wb, dst, ow);
    dst += ow;
  };
  auto copy = [&](const float* row) {
    std::memcpy(dst, row, ow * sizeof(float));
    dst += ow;
  };
  if constexpr (R == 3) {
    HorizontalRowF<3>(src, rows[1], w - 1);
    copy(rows[1]);
    for (int y = 1; y < height; ++y) {
      src += w;
      HorizontalRowF<3>(src, rows[index[0]], w - 1);
      std::swap(index[0], index[1]);
      copy(rows[index[0]]);
      emit(linear::kTwoThirds, linear::kOneThird);
      emit(linear::kOneThird, linear::kTwoThirds);
    }
    std::swap(index[0], index[1]);
    copy(rows[index[0]]);
    copy(rows[index[0]]);
  } else {
    const float* e = linear::kEighths;
    HorizontalRowF<4>(src, rows[0], w - 1);
    HorizontalRowF<4>(src, rows[1], w - 1);
    emit(e[2], e[1]);
    emit(e[3], e[0]);
    for (int y = 1; y < height; ++y) {
      src += w;
      HorizontalRowF<4>(src, rows[index[0]], w - 1);
      std::swap(index[0], index[1]);
      for (int k = 0; k < 4; ++k) emit(e[k], e[3 - k]);
    }
    index[0] = index[1];
    emit(e[0], e[3]);
    emit(e[1], e[2]);
  }
}

void LinearFloat3x(_StLanczos1p5x* ctx, float* src, float* dst, int h, int w) {
  LinearFloat<3>(ctx, src, dst, h, w);
}
void LinearFloat4x(_StLanczos1p5x* ctx, float* src, float* dst, int h, int w) {
  LinearFloat<4>(ctx, src, dst, h, w);
}
void HLinearFloat3x(float* src, float* dst, int g, int p) {
  HorizontalRowF<3>(src, dst, 4 * static_cast<size_t>(g > 0 ? g : 0) + (p > 0 ? p : 0));
}
void HLinearFloat4x(float* src, float* dst, int g, int p) {
  HorizontalRowF<4>(src, dst, 4 * static_cast<size_t>(g > 0 ? g : 0) + (p > 0 ? p : 0));
}
void VLinearFloat(_StLanczos1p5x* ctx, float** rows, float* dst, const float* w, int n4, int n1) {
  const size_t count = 4 * static_cast<size_t>(n4 > 0 ? n4 : 0) + (n1 > 0 ? n1 : 0);
  BlendRow(rows[ctx->rowIndex[0]], rows[ctx->rowIndex[1]], w[0], w[1], dst, count);
}

// `Ch` output rows per input row from blocks of 8*Ch floats of which the
// first 4*Ch (4 positions) are read; each 8-byte group is those 4 bytes
// twice.
template <int Ch>
void CvtNhwc(const float* src, uint8_t* dst, int height, int width) {
  const size_t w = width > 0 ? static_cast<size_t>(width) : 0;
  const size_t blocks = Ch == 3 ? 9 * w / 24 : w / 4, stride = Ch * w;
  for (int h = 0; h < height; ++h) {
    for (size_t g = 0; g < blocks; ++g) {
      const float* in = src + 8 * Ch * g;
      for (int k = 0; k < Ch; ++k) {
        uint8_t* out = dst + k * stride + 8 * g;
        for (int i = 0; i < 4; ++i) out[i] = out[i + 4] = linear::FloatToByte(in[Ch * i + k]);
      }
    }
    src += 8 * Ch * blocks;
    dst += 8 * blocks + (Ch - 1) * stride;
  }
}
void CvtNhwc3(float* src, uint8_t* dst, int h, int w) { CvtNhwc<3>(src, dst, h, w); }
void CvtNhwc2(float* src, uint8_t* dst, int h, int w) { CvtNhwc<2>(src, dst, h, w); }

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith {
HWY_EXPORT(LinearFloat3x);
HWY_EXPORT(LinearFloat4x);
HWY_EXPORT(HLinearFloat3x);
HWY_EXPORT(HLinearFloat4x);
HWY_EXPORT(VLinearFloat);
HWY_EXPORT(CvtNhwc3);
HWY_EXPORT(CvtNhwc2);
}  // namespace vorlith

void Linear_float_3x(_StLanczos1p5x* ctx, float* src, float* dst, int height, int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::LinearFloat3x)(ctx, src, dst, height, width);
}
void Linear_float_4x(_StLanczos1p5x* ctx, float* src, float* dst, int height, int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::LinearFloat4x)(ctx, src, dst, height, width);
}
void HResizeLinear_float_3x_NEON(float* src, float* dst, int groups, int singles) {
  HWY_DYNAMIC_DISPATCH(vorlith::HLinearFloat3x)(src, dst, groups, singles);
}
void HResizeLinear_float_4x_NEON(float* src, float* dst, int groups, int singles) {
  HWY_DYNAMIC_DISPATCH(vorlith::HLinearFloat4x)(src, dst, groups, singles);
}
void VResizeLinear_float_NEON(_StLanczos1p5x* ctx, float** rows, float* dst, float const* weights,
                              int groups, int singles) {
  HWY_DYNAMIC_DISPATCH(vorlith::VLinearFloat)(ctx, rows, dst, weights, groups, singles);
}
void CvtF32ToU8_NHWC_3x3_NEON(float* src, unsigned char* dst, int height, int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::CvtNhwc3)(src, dst, height, width);
}
void CvtF32ToU8_NHWC_2x2_NEON(float* src, unsigned char* dst, int height, int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::CvtNhwc2)(src, dst, height, width);
}
#endif  // HWY_ONCE
