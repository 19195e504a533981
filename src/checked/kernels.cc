// Checked wrappers of the exported kernels (vorlith/checked_kernels.hpp).
#include "vorlith/checked_kernels.hpp"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "src/checked/context.h"
#include "vorlith/convert.h"
#include "vorlith/filter.h"
#include "vorlith/kernel_context.h"
#include "vorlith/resize.h"

namespace vorlith::checked {
namespace {

// ---- Refusals --------------------------------------------------------------------

template <class... Parts>
[[noreturn]] void Fail(const char* fn, const Parts&... parts) {
  std::ostringstream out;
  out << fn << ": ";
  (out << ... << parts);
  throw std::invalid_argument(out.str());
}

void CheckEq(const char* fn, const char* name, long long got, long long want, const char* rule) {
  if (got != want) Fail(fn, name, " must be ", rule, " (", want, "), got ", got);
}

void CheckMin(const char* fn, const char* name, long long got, long long least) {
  if (got < least) Fail(fn, name, " must be at least ", least, ", got ", got);
}

void CheckMax(const char* fn, const char* name, long long got, long long most, const char* why) {
  if (got > most) Fail(fn, name, " must be at most ", most, " (", why, "), got ", got);
}

void CheckEven(const char* fn, const char* name, long long got, const char* why) {
  if (got % 2 != 0) Fail(fn, name, " must be even (", why, "), got ", got);
}

// The rules every view obeys; `channels_why` explains the channel count.
template <class T>
void CheckView(const char* fn, const std::string& name, const PlaneView<T>& v, int channels,
               const char* channels_why = nullptr) {
  if (v.data == nullptr) Fail(fn, name, ".data must not be null");
  if (v.channels != channels) {
    if (channels_why != nullptr) {
      Fail(fn, name, ".channels must be ", channels, " (", channels_why, "), got ", v.channels);
    }
    Fail(fn, name, ".channels must be ", channels, ", got ", v.channels);
  }
  if (v.width < 1) Fail(fn, name, ".width must be at least 1, got ", v.width);
  if (v.height < 1) Fail(fn, name, ".height must be at least 1, got ", v.height);
  if (v.stride < v.row_values()) {
    Fail(fn, name, ".stride must be at least width * channels (", v.row_values(), "), got ",
         v.stride);
  }
  if (v.stride > INT_MAX) Fail(fn, name, ".stride must be at most INT_MAX, got ", v.stride);
}

// Same width and height as `ref`.
template <class A, class B>
void CheckSameSize(const char* fn, const char* name, const PlaneView<A>& v, const char* ref_name,
                   const PlaneView<B>& ref) {
  const std::string w = std::string(name) + ".width", h = std::string(name) + ".height";
  const std::string rw = std::string(ref_name) + ".width", rh = std::string(ref_name) + ".height";
  CheckEq(fn, w.c_str(), v.width, ref.width, rw.c_str());
  CheckEq(fn, h.c_str(), v.height, ref.height, rh.c_str());
}

// Bytes from a view's first value to one past its last.
template <class T>
std::pair<uintptr_t, uintptr_t> Span(const PlaneView<T>& v) {
  const auto begin = reinterpret_cast<uintptr_t>(v.data);
  const auto values = static_cast<uintptr_t>((v.height - 1) * v.stride + v.row_values());
  return {begin, begin + values * sizeof(T)};
}

template <class A, class B>
void CheckApart(const char* fn, const char* a_name, const PlaneView<A>& a, const char* b_name,
                const PlaneView<B>& b) {
  const auto sa = Span(a), sb = Span(b);
  if (sa.first < sb.second && sb.first < sa.second) {
    Fail(fn, a_name, " and ", b_name, " must not overlap");
  }
}

// ---- Context, scratch and packed rows ------------------------------------------

template <class T>
std::size_t Values(const PlaneView<T>& v) {
  return static_cast<std::size_t>(v.row_values()) * static_cast<std::size_t>(v.height);
}

template <class T>
bool Packed(const PlaneView<T>& v) {
  return v.stride == v.row_values();
}

// An input as the packed rows a raw kernel reads: the view itself when it is
// packed, else a copy. Raw kernels take non-const pointers but only read them.
template <class T>
class PackedIn {
 public:
  explicit PackedIn(const PlaneView<const T>& v) {
    if (Packed(v)) {
      ptr_ = const_cast<T*>(v.data);
      return;
    }
    copy_.reset(new T[Values(v)]);
    const auto n = static_cast<std::size_t>(v.row_values());
    for (int r = 0; r < v.height; ++r) std::memcpy(copy_.get() + r * n, v.row(r), n * sizeof(T));
    ptr_ = copy_.get();
  }
  T* get() const { return ptr_; }

 private:
  std::unique_ptr<T[]> copy_;
  T* ptr_ = nullptr;
};

// An output as packed rows: the view itself when packed, else a buffer whose
// first rows Commit() copies into the view.
template <class T>
class PackedOut {
 public:
  explicit PackedOut(const PlaneView<T>& v) : view_(v) {
    if (Packed(v)) {
      ptr_ = v.data;
    } else {
      buffer_.reset(new T[Values(v)]);
      ptr_ = buffer_.get();
    }
  }
  T* get() const { return ptr_; }
  void Commit(int rows) const {
    if (!buffer_) return;
    const auto n = static_cast<std::size_t>(view_.row_values());
    for (int r = 0; r < rows; ++r) std::memcpy(view_.row(r), ptr_ + r * n, n * sizeof(T));
  }
  void Commit() const { Commit(view_.height); }

 private:
  PlaneView<T> view_;
  std::unique_ptr<T[]> buffer_;
  T* ptr_ = nullptr;
};

// ---- Resamplers ------------------------------------------------------------------

// Output sizes as the raw kernels compute them.
int Floor1p5(int n) { return static_cast<int>(1.5 * n); }
int Floor4d3(int n) { return static_cast<int>(n * 4.0 / 3.0); }

// src and dst of one channel, dst of the given size.
void CheckResize(const char* fn, ConstPlane src, Plane dst, int channels, long long out_w,
                 const char* w_rule, long long out_h, const char* h_rule) {
  CheckView(fn, "src", src, channels);
  CheckView(fn, "dst", dst, channels);
  CheckEq(fn, "dst.width", dst.width, out_w, w_rule);
  CheckEq(fn, "dst.height", dst.height, out_h, h_rule);
  CheckApart(fn, "src", src, "dst", dst);
}

using ByteResampler = void (*)(_StLanczos1p5x*, unsigned char*, unsigned char*, int, int);

// The ring resamplers: workBuf of `ring_ints` int32, `rows` dst rows written.
void RunRing(ByteResampler kernel, ConstPlane src, Plane dst, std::size_t ring_ints, int rows) {
  Context ctx;
  ctx.SetWorkBuf(ring_ints * sizeof(int32_t));
  PackedIn<uint8_t> in(src);
  PackedOut<uint8_t> out(dst);
  kernel(ctx.get(), in.get(), out.get(), src.height, src.width);
  out.Commit(rows);
}

std::mutex& ThreeChannelRing() {
  static std::mutex ring;
  return ring;
}

// Linear_2x .. Linear_4div3x: ring of two rows of dst.width sums in lineBuf.
using LinearKernel = _StLanczos1p5x* (*)(_StLanczos1p5x*, unsigned char*, unsigned char*, int,
                                         int);
void RunLinear(const char* fn, LinearKernel kernel, ConstPlane src, Plane dst) {
  CheckMax(fn, "dst.width", dst.width, kMaxLineValues,
           "two rows of 16-bit sums in the context's line buffer");
  Context ctx;
  PackedIn<uint8_t> in(src);
  PackedOut<uint8_t> out(dst);
  kernel(ctx.get(), in.get(), out.get(), src.height, src.width);
  out.Commit();
}

void LinearInt(const char* fn, LinearKernel kernel, int r, ConstPlane src, Plane dst) {
  const char* w_rule = r == 2 ? "2 * src.width" : r == 3 ? "3 * src.width" : "4 * src.width";
  const char* h_rule = r == 2 ? "2 * src.height" : r == 3 ? "3 * src.height" : "4 * src.height";
  CheckResize(fn, src, dst, 1, static_cast<long long>(r) * src.width, w_rule,
              static_cast<long long>(r) * src.height, h_rule);
  RunLinear(fn, kernel, src, dst);
}

using FloatKernel = void (*)(_StLanczos1p5x*, float*, float*, int, int);
void LinearFloat(const char* fn, FloatKernel kernel, int r, ConstFloatPlane src, FloatPlane dst) {
  CheckView(fn, "src", src, 1);
  CheckView(fn, "dst", dst, 1);
  CheckEq(fn, "dst.width", dst.width, static_cast<long long>(r) * src.width,
          r == 3 ? "3 * src.width" : "4 * src.width");
  CheckEq(fn, "dst.height", dst.height, static_cast<long long>(r) * src.height,
          r == 3 ? "3 * src.height" : "4 * src.height");
  CheckApart(fn, "src", src, "dst", dst);
  Context ctx;
  ctx.SetFloatLineBuf(2 * static_cast<std::size_t>(dst.width));
  PackedIn<float> in(src);
  PackedOut<float> out(dst);
  kernel(ctx.get(), in.get(), out.get(), src.height, src.width);
  out.Commit();
}

using NhwcKernel = void (*)(float*, unsigned char*, int, int);
void Nhwc(const char* fn, NhwcKernel kernel, int r, ConstFloatPlane src, Plane dst) {
  CheckView(fn, "src", src, r, r == 3 ? "3 values a position" : "2 values a position");
  CheckView(fn, "dst", dst, 1);
  const int multiple = r == 3 ? 8 : 4;
  if (src.width % (r * multiple) != 0) {
    Fail(fn, "src.width must be a multiple of ", r * multiple,
         " (whole blocks, so that rows line up), got ", src.width);
  }
  CheckEq(fn, "dst.width", dst.width, src.width, "src.width");
  CheckEq(fn, "dst.height", dst.height, static_cast<long long>(r) * src.height,
          r == 3 ? "3 * src.height" : "2 * src.height");
  CheckApart(fn, "src", src, "dst", dst);
  const int w = src.width / r;
  // One input row gives r dst rows r*w bytes apart: packed if dst is, else
  // through one packed group of rows.
  std::unique_ptr<uint8_t[]> group;
  if (!Packed(dst)) group.reset(new uint8_t[static_cast<std::size_t>(r) * dst.width]);
  for (int h = 0; h < src.height; ++h) {
    uint8_t* out = group ? group.get() : dst.row(r * h);
    kernel(const_cast<float*>(src.row(h)), out, 1, w);
    if (group) {
      for (int k = 0; k < r; ++k) {
        std::memcpy(dst.row(r * h + k), group.get() + static_cast<std::size_t>(k) * dst.width,
                    static_cast<std::size_t>(dst.width));
      }
    }
  }
}

// ---- Filters --------------------------------------------------------------------

void CheckBoxSize(const char* fn, ConstPlane src) {
  CheckEven(fn, "src.width", src.width, "the box filters work on column pairs");
  CheckMin(fn, "src.width", src.width, 4);
  CheckMax(fn, "src.width", src.width, 8192, "five rows of sums in the context's line buffer");
  CheckMin(fn, "src.height", src.height, 4);
}

}  // namespace

void Linear2xNv(ConstPlane src, Plane dst) {
  const char* fn = "Linear2xNv";
  CheckView(fn, "src", src, 2, "Cb/Cr pairs");
  CheckView(fn, "dst", dst, 2, "Cb/Cr pairs");
  CheckEq(fn, "dst.width", dst.width, 2LL * src.width, "2 * src.width");
  CheckEq(fn, "dst.height", dst.height, 2LL * src.height, "2 * src.height");
  CheckMax(fn, "dst.stride", dst.stride, kMaxLineValues,
           "two rows of dst.stride 16-bit values in the context's line buffer");
  CheckApart(fn, "src", src, "dst", dst);
  Context ctx;
  Linear_2x_nv(ctx.get(), const_cast<uint8_t*>(src.data), dst.data, src.height, src.width,
               static_cast<int>(src.stride), static_cast<int>(dst.stride));
}

void Lanczos2x(ConstPlane src, Plane dst) {
  const char* fn = "Lanczos2x";
  if (src.channels != 1 && src.channels != 3) {
    Fail(fn, "src.channels must be 1 or 3, got ", src.channels);
  }
  CheckResize(fn, src, dst, src.channels, 2LL * src.width, "2 * src.width", 2LL * src.height,
              "2 * src.height");
  const auto w = static_cast<std::size_t>(src.width);
  if (src.channels == 1) {
    RunRing(Lanczos2x_SingleChannel, src, dst, 16 * w, dst.height);
    return;
  }
  std::unique_ptr<int[]> ring(new int[48 * w]);
  PackedIn<uint8_t> in(src);
  PackedOut<uint8_t> out(dst);
  {
    const std::lock_guard<std::mutex> lock(ThreeChannelRing());
    ResizeLanczos2x_NEON(in.get(), ring.get(), out.get(), src.height, src.width);
  }
  out.Commit();
}

void Lanczos1p5x(ConstPlane src, Plane dst) {
  CheckResize("Lanczos1p5x", src, dst, 1, Floor1p5(src.width), "floor(1.5 * src.width)",
              Floor1p5(src.height), "floor(1.5 * src.height)");
  const int used = src.height >= 2 ? src.height & ~1 : src.height;
  RunRing(Lanczos_1p5x, src, dst, 8 * static_cast<std::size_t>(dst.width), 3 * used / 2);
}

void Cubic1p5x(ConstPlane src, Plane dst) {
  CheckResize("Cubic1p5x", src, dst, 1, Floor1p5(src.width), "floor(1.5 * src.width)",
              Floor1p5(src.height), "floor(1.5 * src.height)");
  const int used = src.height >= 2 ? src.height & ~1 : src.height;
  RunRing(Cubic1p5x_NEON, src, dst, 4 * static_cast<std::size_t>(dst.width), 3 * used / 2);
}

void Lanczos4d3x(ConstPlane src, Plane dst) {
  CheckResize("Lanczos4d3x", src, dst, 1, Floor4d3(src.width), "floor(4 * src.width / 3)",
              Floor4d3(src.height), "floor(4 * src.height / 3)");
  const int used = src.height >= 3 ? src.height - src.height % 3 : src.height;
  RunRing(Lanczos_4d3x, src, dst, 8 * static_cast<std::size_t>(dst.width), 4 * used / 3);
}

void Cubic2x(ConstPlane src, Plane dst) {
  CheckResize("Cubic2x", src, dst, 1, 2LL * src.width, "2 * src.width", 2LL * src.height,
              "2 * src.height");
  RunRing(Cubic2x_NEON, src, dst, 8 * static_cast<std::size_t>(src.width), dst.height);
}

void Linear2x(ConstPlane src, Plane dst) { LinearInt("Linear2x", Linear_2x, 2, src, dst); }
void Linear3x(ConstPlane src, Plane dst) { LinearInt("Linear3x", Linear_3x, 3, src, dst); }
void Linear4x(ConstPlane src, Plane dst) { LinearInt("Linear4x", Linear_4x, 4, src, dst); }

void Linear1p5x(ConstPlane src, Plane dst) {
  const char* fn = "Linear1p5x";
  CheckView(fn, "src", src, 1);
  CheckMin(fn, "src.width", src.width, 2);
  CheckMin(fn, "src.height", src.height, 2);
  CheckResize(fn, src, dst, 1, Floor1p5(src.width), "floor(1.5 * src.width)",
              3LL * ((src.height - 2) / 2) + 3, "3 * ((src.height - 2) / 2) + 3");
  RunLinear(fn, Linear_1p5x, src, dst);
}

void Linear4d3x(ConstPlane src, Plane dst) {
  const char* fn = "Linear4d3x";
  CheckView(fn, "src", src, 1);
  CheckMin(fn, "src.width", src.width, 3);
  CheckMin(fn, "src.height", src.height, 3);
  CheckResize(fn, src, dst, 1, 4LL * src.width / 3, "4 * src.width / 3",
              4LL * ((src.height - 3) / 3) + 4, "4 * ((src.height - 3) / 3) + 4");
  RunLinear(fn, Linear_4div3x, src, dst);
}

void LinearFloat3x(ConstFloatPlane src, FloatPlane dst) {
  LinearFloat("LinearFloat3x", Linear_float_3x, 3, src, dst);
}
void LinearFloat4x(ConstFloatPlane src, FloatPlane dst) {
  LinearFloat("LinearFloat4x", Linear_float_4x, 4, src, dst);
}

void F32ToU8Nhwc3x3(ConstFloatPlane src, Plane dst) {
  Nhwc("F32ToU8Nhwc3x3", CvtF32ToU8_NHWC_3x3_NEON, 3, src, dst);
}
void F32ToU8Nhwc2x2(ConstFloatPlane src, Plane dst) {
  Nhwc("F32ToU8Nhwc2x2", CvtF32ToU8_NHWC_2x2_NEON, 2, src, dst);
}

void U8ToF32(ConstPlane src, FloatPlane dst) {
  const char* fn = "U8ToF32";
  if (src.channels < 1) Fail(fn, "src.channels must be at least 1, got ", src.channels);
  CheckView(fn, "src", src, src.channels);
  CheckView(fn, "dst", dst, src.channels, "src.channels");
  CheckSameSize(fn, "dst", dst, "src", src);
  CheckApart(fn, "src", src, "dst", dst);
  CvtU8ToF32_STRIDE(const_cast<uint8_t*>(src.data), dst.data, src.height,
                    static_cast<int>(src.row_values()), static_cast<int>(src.stride),
                    static_cast<int>(dst.stride));
}

void F32ToU8(ConstFloatPlane src, Plane dst) {
  const char* fn = "F32ToU8";
  if (src.channels < 1) Fail(fn, "src.channels must be at least 1, got ", src.channels);
  CheckView(fn, "src", src, src.channels);
  CheckView(fn, "dst", dst, src.channels, "src.channels");
  CheckSameSize(fn, "dst", dst, "src", src);
  CheckApart(fn, "src", src, "dst", dst);
  CvtF32ToU8_STRIDE(const_cast<float*>(src.data), dst.data, src.height,
                    static_cast<int>(src.row_values()), static_cast<int>(src.stride),
                    static_cast<int>(dst.stride));
}

void GuidedBoxFilter(ConstPlane src, ConstInt16Plane guide, Plane dst, float a, float b) {
  const char* fn = "GuidedBoxFilter";
  CheckView(fn, "src", src, 1);
  CheckView(fn, "guide", guide, 1);
  CheckView(fn, "dst", dst, 1);
  CheckBoxSize(fn, src);
  CheckSameSize(fn, "guide", guide, "src", src);
  CheckSameSize(fn, "dst", dst, "src", src);
  CheckApart(fn, "src", src, "dst", dst);
  CheckApart(fn, "guide", guide, "dst", dst);
  if (!std::isfinite(a) || !std::isfinite(std::fabs(a) * 2295.0f)) {
    Fail(fn, "a must be finite with |a| * 2295 finite, got ", a);
  }
  if (!std::isfinite(b) || !std::isfinite(std::fabs(b) * 3641.0f)) {
    Fail(fn, "b must be finite with |b| * 3641 finite, got ", b);
  }
  Context ctx;
  ctx.SetWorkBuf(10 * static_cast<std::size_t>(src.width));
  PackedIn<uint8_t> in(src);
  PackedIn<int16_t> g(guide);
  PackedOut<uint8_t> out(dst);
  Boxfilter_AB_NEON(ctx.get(), a, b, in.get(), g.get(), out.get(), src.height, src.width);
  out.Commit(src.height / 4 * 4);
}

void Laplacian(ConstPlane src, Int16Plane dst) {
  const char* fn = "Laplacian";
  CheckView(fn, "src", src, 1);
  CheckView(fn, "dst", dst, 1);
  CheckSameSize(fn, "dst", dst, "src", src);
  CheckApart(fn, "src", src, "dst", dst);
  Context ctx;
  ctx.SetWorkBuf(2 * static_cast<std::size_t>(src.width));
  PackedIn<uint8_t> in(src);
  PackedOut<int16_t> out(dst);
  Laplace_NEON(ctx.get(), in.get(), out.get(), src.height, src.width);
  out.Commit();
}

void BilateralFilter(ConstPlane src, Plane dst) {
  const char* fn = "BilateralFilter";
  CheckView(fn, "src", src, 1);
  CheckView(fn, "dst", dst, 1);
  CheckMin(fn, "src.width", src.width, 2);
  CheckMin(fn, "src.height", src.height, 4);
  CheckSameSize(fn, "dst", dst, "src", src);
  CheckApart(fn, "src", src, "dst", dst);
  Context ctx;
  BilateralAllocRows(ctx.get(), src.width);
  PackedIn<uint8_t> in(src);
  PackedOut<uint8_t> out(dst);
  BL_NEON(ctx.get(), in.get(), out.get(), src.height, src.width);
  out.Commit(src.height / 2 * 2);
}

void BoxDetail(ConstPlane src, FloatPlane detail) {
  const char* fn = "BoxDetail";
  CheckView(fn, "src", src, 1);
  CheckView(fn, "detail", detail, 1);
  CheckBoxSize(fn, src);
  CheckSameSize(fn, "detail", detail, "src", src);
  CheckApart(fn, "src", src, "detail", detail);
  Context ctx;
  PackedIn<uint8_t> in(src);
  PackedOut<float> out(detail);
  Boxfilter_2even_A_NEON(ctx.get(), in.get(), out.get(), src.height, src.width);
  out.Commit(src.height / 4 * 4);
}

void Sharpen(ConstFloatPlane detail, ConstFloatPlane gain, ConstPlane src, Plane dst) {
  const char* fn = "Sharpen";
  CheckView(fn, "detail", detail, 1);
  CheckView(fn, "gain", gain, 1);
  CheckView(fn, "src", src, 1);
  CheckView(fn, "dst", dst, 1);
  CheckSameSize(fn, "gain", gain, "detail", detail);
  CheckSameSize(fn, "src", src, "detail", detail);
  CheckSameSize(fn, "dst", dst, "detail", detail);
  CheckApart(fn, "detail", detail, "dst", dst);
  CheckApart(fn, "gain", gain, "dst", dst);
  CheckApart(fn, "src", src, "dst", dst);
  // One row a call: the raw kernel takes packed detail, src and dst rows.
  for (int y = 0; y < dst.height; ++y) {
    SharpenProduce_Stride_NEON(const_cast<float*>(detail.row(y)), const_cast<float*>(gain.row(y)),
                               const_cast<uint8_t*>(src.row(y)), dst.row(y), dst.width, 1,
                               static_cast<int>(gain.stride));
  }
}

// ---- Colour and layout ----------------------------------------------------------

namespace {

// Y, U, V, A of an even W x H image against the RGBA size.
template <class P>
void CheckI420A(const char* fn, const ConstPlane& rgba, const P& y, const P& u, const P& v,
                const P& a) {
  CheckView(fn, "rgba", rgba, 4, "R, G, B, A");
  CheckEven(fn, "rgba.width", rgba.width, "an odd width shifts every later row pair");
  CheckEven(fn, "rgba.height", rgba.height, "rows are converted in pairs");
  CheckMax(fn, "rgba.width * rgba.height", static_cast<long long>(rgba.width) * rgba.height,
           INT_MAX / 5, "32-bit plane offsets");
  CheckView(fn, "y", y, 1);
  CheckView(fn, "u", u, 1);
  CheckView(fn, "v", v, 1);
  CheckView(fn, "a", a, 1);
  CheckSameSize(fn, "y", y, "rgba", rgba);
  CheckSameSize(fn, "a", a, "rgba", rgba);
  CheckEq(fn, "u.width", u.width, rgba.width / 2, "rgba.width / 2");
  CheckEq(fn, "u.height", u.height, rgba.height / 2, "rgba.height / 2");
  CheckSameSize(fn, "v", v, "u", u);
}

template <class T>
void CopyRows(PlaneView<T> dst, const T* src) {
  const auto n = static_cast<std::size_t>(dst.row_values());
  for (int r = 0; r < dst.height; ++r) std::memcpy(dst.row(r), src + r * n, n * sizeof(T));
}

template <class T>
void CopyRows(T* dst, PlaneView<const T> src) {
  const auto n = static_cast<std::size_t>(src.row_values());
  for (int r = 0; r < src.height; ++r) std::memcpy(dst + r * n, src.row(r), n * sizeof(T));
}

// Checks the 4:2:0 luma and VUYA destination of yuvcpy.
void CheckVuya(const char* fn, ConstPlane y, Plane dst) {
  CheckView(fn, "y", y, 1);
  CheckEven(fn, "y.width", y.width, "an odd width reads one luma byte past the row");
  CheckMin(fn, "y.height", y.height, 2);
  CheckView(fn, "dst", dst, 4, "V, U, Y, 255");
  CheckMin(fn, "dst.width", dst.width, y.width);
  CheckMin(fn, "dst.height", dst.height, y.height);
  CheckApart(fn, "y", y, "dst", dst);
}

void RunVuya(ConstPlane y, const uint8_t* chroma, int c_width, int c_height, int c_stride,
             Plane dst, bool interleaved) {
  // The raw bottom edge copies whole strides; with a gap after the row that
  // would write outside the view, so the wrapper copies the rows itself.
  const bool own_edge = !Packed(dst);
  yuvcpy(const_cast<uint8_t*>(y.data), y.width, y.height, static_cast<int>(y.stride),
         const_cast<uint8_t*>(chroma), c_width, c_height, c_stride, dst.data, dst.width,
         own_edge ? y.height : dst.height, static_cast<int>(dst.stride), interleaved);
  if (own_edge) {
    const int last = y.height / 2 * 2 - 1;
    const int rows = std::min(dst.height - y.height, 3);
    for (int i = 1; i <= rows; ++i) {
      std::memcpy(dst.row(last + i), dst.row(last), static_cast<std::size_t>(dst.row_values()));
    }
  }
}

// CvtColor*ToRGBInterleaved: packed luma and RGB rows; an odd height's extra
// row goes through internal rows.
using RgbKernel = void (*)(unsigned char*, int, unsigned char*, int, unsigned char*, int, int);
void RunRgb(RgbKernel kernel, ConstPlane y, unsigned char* chroma, int c_stride, Plane rgb) {
  const bool odd = (y.height & 1) != 0;
  const auto w = static_cast<std::size_t>(y.width);
  const auto rows = static_cast<std::size_t>(y.height) + (odd ? 1 : 0);
  std::unique_ptr<uint8_t[]> luma_copy, rgb_copy;
  uint8_t* luma = const_cast<uint8_t*>(y.data);
  if (odd || !Packed(y)) {
    luma_copy.reset(new uint8_t[rows * w]);
    CopyRows(luma_copy.get(), y);
    // The raw kernel converts one row past an odd height; give it the last row.
    if (odd) std::memcpy(luma_copy.get() + (rows - 1) * w, y.row(y.height - 1), w);
    luma = luma_copy.get();
  }
  uint8_t* out = rgb.data;
  if (odd || !Packed(rgb)) {
    rgb_copy.reset(new uint8_t[rows * 3 * w]);
    out = rgb_copy.get();
  }
  kernel(luma, y.width, chroma, c_stride, out, y.width, y.height);
  if (rgb_copy) CopyRows(rgb, static_cast<const uint8_t*>(rgb_copy.get()));
}

}  // namespace

void RgbaToI420A(ConstPlane rgba, Plane y, Plane u, Plane v, Plane a) {
  const char* fn = "RgbaToI420A";
  CheckI420A(fn, rgba, y, u, v, a);
  CheckApart(fn, "rgba", rgba, "y", y);
  CheckApart(fn, "rgba", rgba, "u", u);
  CheckApart(fn, "rgba", rgba, "v", v);
  CheckApart(fn, "rgba", rgba, "a", a);
  CheckApart(fn, "y", y, "u", u);
  CheckApart(fn, "y", y, "v", v);
  CheckApart(fn, "y", y, "a", a);
  CheckApart(fn, "u", u, "v", v);
  CheckApart(fn, "u", u, "a", a);
  CheckApart(fn, "v", v, "a", a);
  const std::size_t p = static_cast<std::size_t>(rgba.width) * rgba.height;
  Context ctx;
  PackedIn<uint8_t> in(rgba);
  std::unique_ptr<uint8_t[]> block(new uint8_t[p * 5 / 2]);
  RGBA2I420A_NEON(ctx.get(), in.get(), block.get(), rgba.height, rgba.width);
  CopyRows(y, static_cast<const uint8_t*>(block.get()));
  CopyRows(u, static_cast<const uint8_t*>(block.get() + p));
  CopyRows(v, static_cast<const uint8_t*>(block.get() + p * 5 / 4));
  CopyRows(a, static_cast<const uint8_t*>(block.get() + p * 3 / 2));
}

void I420AToRgba(ConstPlane y, ConstPlane u, ConstPlane v, ConstPlane a, Plane rgba) {
  const char* fn = "I420AToRgba";
  CheckI420A(fn, rgba, y, u, v, a);
  CheckApart(fn, "y", y, "rgba", rgba);
  CheckApart(fn, "u", u, "rgba", rgba);
  CheckApart(fn, "v", v, "rgba", rgba);
  CheckApart(fn, "a", a, "rgba", rgba);
  Context ctx;
  PackedIn<uint8_t> py(y), pu(u), pv(v), pa(a);
  PackedOut<uint8_t> out(rgba);
  I420A2RGBA_NEON(ctx.get(), py.get(), pu.get(), pv.get(), pa.get(), out.get(), rgba.height,
                  rgba.width);
  out.Commit();
}

void LumaRatioSplit(ConstPlane rgba, FloatPlane luma, Int32Plane dr, Int32Plane dg, Int32Plane db,
                    Plane alpha) {
  const char* fn = "LumaRatioSplit";
  CheckView(fn, "rgba", rgba, 4, "R, G, B, A");
  CheckView(fn, "luma", luma, 1);
  CheckSameSize(fn, "luma", luma, "rgba", rgba);
  CheckView(fn, "alpha", alpha, 1);
  CheckEq(fn, "alpha.width", alpha.width, 2LL * rgba.width, "2 * rgba.width");
  CheckEq(fn, "alpha.height", alpha.height, 2LL * rgba.height, "2 * rgba.height");
  const char* names[3] = {"dr", "dg", "db"};
  const Int32Plane diffs[3] = {dr, dg, db};
  for (int c = 0; c < 3; ++c) {
    const std::string n = names[c];
    CheckView(fn, n, diffs[c], 1);
    CheckEq(fn, (n + ".width").c_str(), diffs[c].width, 2LL * rgba.width, "2 * rgba.width");
    CheckEq(fn, (n + ".height").c_str(), diffs[c].height, 2LL * rgba.height, "2 * rgba.height");
    CheckApart(fn, "rgba", rgba, names[c], diffs[c]);
    CheckApart(fn, "luma", luma, names[c], diffs[c]);
    CheckApart(fn, "alpha", alpha, names[c], diffs[c]);
    for (int d = 0; d < c; ++d) CheckApart(fn, names[d], diffs[d], names[c], diffs[c]);
  }
  CheckApart(fn, "rgba", rgba, "luma", luma);
  CheckApart(fn, "rgba", rgba, "alpha", alpha);
  CheckApart(fn, "luma", luma, "alpha", alpha);
  const std::size_t plane = Values(dr);
  Context ctx;
  PackedIn<uint8_t> in(rgba);
  PackedOut<float> pl(luma);
  PackedOut<uint8_t> pa(alpha);
  // The three difference planes lie back to back in one buffer.
  std::unique_ptr<int32_t[]> diff(new int32_t[3 * plane]);
  RGBA2RGBA_Y_RGBR_NEON(ctx.get(), in.get(), pl.get(), diff.get(), pa.get(), rgba.height,
                        rgba.width);
  pl.Commit();
  pa.Commit();
  for (int c = 0; c < 3; ++c) {
    CopyRows(diffs[c], static_cast<const int32_t*>(diff.get() + c * plane));
  }
}

void LumaRatioMerge(ConstFloatPlane luma, ConstInt32Plane dr, ConstInt32Plane dg,
                    ConstInt32Plane db, ConstPlane alpha, Plane rgba) {
  const char* fn = "LumaRatioMerge";
  CheckView(fn, "luma", luma, 1);
  const char* names[3] = {"dr", "dg", "db"};
  const ConstInt32Plane diffs[3] = {dr, dg, db};
  for (int c = 0; c < 3; ++c) {
    CheckView(fn, names[c], diffs[c], 1);
    CheckSameSize(fn, names[c], diffs[c], "luma", luma);
  }
  CheckView(fn, "alpha", alpha, 1);
  CheckSameSize(fn, "alpha", alpha, "luma", luma);
  CheckView(fn, "rgba", rgba, 4, "R, G, B, A");
  CheckSameSize(fn, "rgba", rgba, "luma", luma);
  CheckApart(fn, "luma", luma, "rgba", rgba);
  for (int c = 0; c < 3; ++c) CheckApart(fn, names[c], diffs[c], "rgba", rgba);
  CheckApart(fn, "alpha", alpha, "rgba", rgba);
  const std::size_t plane = Values(luma);
  PackedIn<float> pl(luma);
  PackedIn<uint8_t> pa(alpha);
  std::unique_ptr<int32_t[]> diff(new int32_t[3 * plane]);
  for (int c = 0; c < 3; ++c) CopyRows(diff.get() + c * plane, diffs[c]);
  PackedOut<uint8_t> out(rgba);
  RGBA2RGBA_F_NEON(out.get(), pl.get(), diff.get(), pa.get(), rgba.height, rgba.width);
  out.Commit();
}

void Nv12ToVuya(ConstPlane y, ConstPlane uv, Plane dst) {
  const char* fn = "Nv12ToVuya";
  CheckVuya(fn, y, dst);
  CheckView(fn, "uv", uv, 2, "Cb/Cr pairs");
  CheckEq(fn, "uv.width", uv.width, y.width / 2, "y.width / 2");
  CheckEq(fn, "uv.height", uv.height, (y.height + 1) / 2, "(y.height + 1) / 2");
  CheckApart(fn, "uv", uv, "dst", dst);
  RunVuya(y, uv.data, uv.width, uv.height, static_cast<int>(uv.stride), dst, true);
}

void I420ToVuya(ConstPlane y, ConstPlane u, ConstPlane v, Plane dst) {
  const char* fn = "I420ToVuya";
  CheckVuya(fn, y, dst);
  CheckView(fn, "u", u, 1);
  CheckView(fn, "v", v, 1);
  CheckEq(fn, "u.width", u.width, y.width / 2, "y.width / 2");
  CheckEq(fn, "u.height", u.height, (y.height + 1) / 2, "(y.height + 1) / 2");
  CheckSameSize(fn, "v", v, "u", u);
  CheckApart(fn, "u", u, "dst", dst);
  CheckApart(fn, "v", v, "dst", dst);
  // The raw kernel finds V u.width * u.height bytes after U: pack both so.
  const std::size_t plane = Values(u);
  std::unique_ptr<uint8_t[]> chroma(new uint8_t[2 * plane]);
  CopyRows(chroma.get(), u);
  CopyRows(chroma.get() + plane, v);
  RunVuya(y, chroma.get(), u.width, u.height, u.width, dst, false);
}

void BgraCrop(ConstPlane src, int x, int y, Plane dst) {
  const char* fn = "BgraCrop";
  CheckView(fn, "src", src, 4, "4 bytes a pixel");
  CheckView(fn, "dst", dst, 4, "4 bytes a pixel");
  CheckMax(fn, "dst.width", dst.width, src.width, "the rectangle lies inside src");
  CheckMax(fn, "dst.height", dst.height, src.height, "the rectangle lies inside src");
  if (x < 0 || x > src.width - dst.width) {
    Fail(fn, "x must be 0 .. src.width - dst.width (", src.width - dst.width, "), got ", x);
  }
  if (y < 0 || y > src.height - dst.height) {
    Fail(fn, "y must be 0 .. src.height - dst.height (", src.height - dst.height, "), got ", y);
  }
  CheckApart(fn, "src", src, "dst", dst);
  BGRACrop(const_cast<uint8_t*>(src.row(y)) + 4 * static_cast<std::ptrdiff_t>(x), dst.data, 0, 0,
           static_cast<int>(src.stride), dst.width, dst.height, static_cast<int>(dst.stride));
}

void I420ToRgb(ConstPlane y, ConstPlane u, ConstPlane v, Plane rgb) {
  const char* fn = "I420ToRgb";
  CheckView(fn, "y", y, 1);
  CheckEven(fn, "y.width", y.width, "V lies (height * width) / 4 bytes after U");
  CheckEven(fn, "y.height", y.height, "V lies (height * width) / 4 bytes after U");
  CheckView(fn, "u", u, 1);
  CheckView(fn, "v", v, 1);
  CheckEq(fn, "u.width", u.width, y.width / 2, "y.width / 2");
  CheckEq(fn, "u.height", u.height, y.height / 2, "y.height / 2");
  CheckSameSize(fn, "v", v, "u", u);
  CheckView(fn, "rgb", rgb, 3, "R, G, B");
  CheckSameSize(fn, "rgb", rgb, "y", y);
  CheckApart(fn, "y", y, "rgb", rgb);
  CheckApart(fn, "u", u, "rgb", rgb);
  CheckApart(fn, "v", v, "rgb", rgb);
  const std::size_t plane = Values(u);
  std::unique_ptr<uint8_t[]> chroma(new uint8_t[2 * plane]);
  CopyRows(chroma.get(), u);
  CopyRows(chroma.get() + plane, v);
  RunRgb(CvtColorI420ToRGBInterleaved, y, chroma.get(), u.width, rgb);
}

void Nv12ToRgb(ConstPlane y, ConstPlane uv, Plane rgb) {
  const char* fn = "Nv12ToRgb";
  CheckView(fn, "y", y, 1);
  CheckView(fn, "uv", uv, 2, "Cb/Cr pairs");
  CheckEq(fn, "uv.width", uv.width, (y.width + 1) / 2, "(y.width + 1) / 2");
  CheckEq(fn, "uv.height", uv.height, (y.height + 1) / 2, "(y.height + 1) / 2");
  CheckView(fn, "rgb", rgb, 3, "R, G, B");
  CheckSameSize(fn, "rgb", rgb, "y", y);
  CheckApart(fn, "y", y, "rgb", rgb);
  CheckApart(fn, "uv", uv, "rgb", rgb);
  RunRgb(CvtColorNV12ToRGBInterleaved, y, const_cast<uint8_t*>(uv.data),
         static_cast<int>(uv.stride), rgb);
}

void RgbToRgba(ConstPlane src, Plane dst) {
  const char* fn = "RgbToRgba";
  CheckView(fn, "src", src, 3, "R, G, B");
  CheckView(fn, "dst", dst, 4, "4 bytes a pixel");
  CheckSameSize(fn, "dst", dst, "src", src);
  CheckApart(fn, "src", src, "dst", dst);
  PackedIn<uint8_t> in(src);
  CvtRGBtoRGBA_lanczos(in.get(), dst.data, src.width, src.height, static_cast<int>(dst.stride));
}

}  // namespace vorlith::checked
