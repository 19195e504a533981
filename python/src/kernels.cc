// vorlith.kernels: the checked kernel wrappers on NumPy arrays. Each
// function takes its planes as arrays, makes its outputs (zero-filled, so
// rows a kernel leaves unwritten read as zeros), and calls the checked layer
// with the GIL released; the checked layer's std::invalid_argument arrives
// as ValueError.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstring>
#include <string>

#include "python/src/arrays.h"
#include "vorlith/checked_kernels.hpp"

namespace vorlith::python {
namespace {

namespace ck = vorlith::checked;

template <class T>
py::array_t<T> Zeros(int height, int width, int channels, bool three_d = false) {
  py::array_t<T> a = NewArray<T>(height, width, channels, three_d);
  std::memset(a.mutable_data(), 0, static_cast<size_t>(a.nbytes()));
  return a;
}

// A read-only view of an argument with `channels` (0: any).
template <class T>
struct Input {
  py::array_t<T> array;
  PlaneView<const T> view;
  Input(const py::object& value, const char* fn, const char* name, int channels)
      : array(AsArray<T>(value, fn, name)), view(InView(array, fn, name, channels)) {}
};

// dst = kernel(src) with dst of the size `size` gives for src.
template <class In, class Out, class Size>
py::array_t<Out> Resample(const char* fn, const py::object& src_obj, int channels,
                          void (*kernel)(PlaneView<const In>, PlaneView<Out>), Size size) {
  const Input<In> src(src_obj, fn, "src", channels);
  const auto [w, h] = size(src.view.width, src.view.height);
  if (w < 1 || h < 1) throw py::value_error(std::string(fn) + ": src is too small for this ratio");
  return Written(Zeros<Out>(h, w, src.view.channels, src.array.ndim() == 3),
                 [&](PlaneView<Out> out) { kernel(src.view, out); });
}

template <int kNum, int kDen>
std::pair<int, int> Scaled(int w, int h) {
  return {static_cast<int>(int64_t{w} * kNum / kDen), static_cast<int>(int64_t{h} * kNum / kDen)};
}

void BindResamplers(py::module_& m) {
  const auto def = [&](const char* name, void (*kernel)(ConstPlane, Plane), auto size, int channels,
                       const char* doc) {
    m.def(name, [name, kernel, size, channels](const py::object& src) {
      return Resample<uint8_t, uint8_t>(name, src, channels, kernel, size);
    }, py::arg("src"), doc);
  };
  def("lanczos_2x", &ck::Lanczos2x, Scaled<2, 1>, 0, "Lanczos 2x of a (h, w) or (h, w, 3) uint8 image.");
  def("lanczos_1p5x", &ck::Lanczos1p5x, Scaled<3, 2>, 1, "Lanczos 1.5x of a (h, w) uint8 plane.");
  def("cubic_1p5x", &ck::Cubic1p5x, Scaled<3, 2>, 1, "Bicubic 1.5x of a (h, w) uint8 plane.");
  def("lanczos_4d3x", &ck::Lanczos4d3x, Scaled<4, 3>, 1, "Lanczos 4/3x of a (h, w) uint8 plane.");
  def("cubic_2x", &ck::Cubic2x, Scaled<2, 1>, 1, "Bicubic 2x of a (h, w) uint8 plane.");
  def("linear_2x", &ck::Linear2x, Scaled<2, 1>, 1, "Bilinear 2x of a (h, w) uint8 plane.");
  def("linear_3x", &ck::Linear3x, Scaled<3, 1>, 1, "Bilinear 3x of a (h, w) uint8 plane.");
  def("linear_4x", &ck::Linear4x, Scaled<4, 1>, 1, "Bilinear 4x of a (h, w) uint8 plane.");
  def("linear_1p5x", &ck::Linear1p5x,
      [](int w, int h) { return std::pair(w * 3 / 2, h >= 2 ? 3 * ((h - 2) / 2) + 3 : 0); }, 1,
      "Bilinear 1.5x of a (h, w) uint8 plane, w and h at least 2.");
  def("linear_4d3x", &ck::Linear4d3x,
      [](int w, int h) { return std::pair(w * 4 / 3, h >= 3 ? 4 * ((h - 3) / 3) + 4 : 0); }, 1,
      "Bilinear 4/3x of a (h, w) uint8 plane, w and h at least 3.");
  m.def("linear_2x_nv", [](const py::object& uv) {
    return Resample<uint8_t, uint8_t>("linear_2x_nv", uv, 2, &ck::Linear2xNv, Scaled<2, 1>);
  }, py::arg("uv"), "NV12 chroma 2x: (h, w, 2) Cb/Cr pairs to (2h, 2w, 2).");
  m.def("linear_float_3x", [](const py::object& src) {
    return Resample<float, float>("linear_float_3x", src, 1, &ck::LinearFloat3x, Scaled<3, 1>);
  }, py::arg("src"), "Bilinear 3x of a (h, w) float32 plane.");
  m.def("linear_float_4x", [](const py::object& src) {
    return Resample<float, float>("linear_float_4x", src, 1, &ck::LinearFloat4x, Scaled<4, 1>);
  }, py::arg("src"), "Bilinear 4x of a (h, w) float32 plane.");
  const auto nhwc = [&](const char* name, void (*kernel)(ConstFloatPlane, Plane), int r) {
    m.def(name, [name, kernel, r](const py::object& src_obj) {
      const Input<float> src(src_obj, name, "src", r);
      return Written(Zeros<uint8_t>(r * src.view.height, src.view.width, 1),
                     [&](Plane out) { kernel(src.view, out); });
    }, py::arg("src"), "Pixel shuffle of (h, r*w, r) float32 values to (r*h, r*w) uint8.");
  };
  nhwc("f32_to_u8_nhwc_3x3", &ck::F32ToU8Nhwc3x3, 3);
  nhwc("f32_to_u8_nhwc_2x2", &ck::F32ToU8Nhwc2x2, 2);
  m.def("u8_to_f32", [](const py::object& src) {
    return Resample<uint8_t, float>("u8_to_f32", src, 0, &ck::U8ToF32, Scaled<1, 1>);
  }, py::arg("src"), "uint8 to float32, value for value.");
  m.def("f32_to_u8", [](const py::object& src) {
    return Resample<float, uint8_t>("f32_to_u8", src, 0, &ck::F32ToU8, Scaled<1, 1>);
  }, py::arg("src"), "float32 to uint8 as the library converts (truncation, saturation, the tail's wrap).");
}

void BindFilters(py::module_& m) {
  m.def("guided_box_filter", [](const py::object& src_obj, const py::object& guide_obj, float a, float b) {
    const char* fn = "guided_box_filter";
    const Input<uint8_t> src(src_obj, fn, "src", 1);
    const Input<int16_t> guide(guide_obj, fn, "guide", 1);
    return Written(Zeros<uint8_t>(src.view.height, src.view.width, 1),
                   [&](Plane out) { ck::GuidedBoxFilter(src.view, guide.view, out, a, b); });
  }, py::arg("src"), py::arg("guide"), py::arg("a"), py::arg("b"),
     "Guided box filter of a (h, w) uint8 plane with an int16 guide; rows past 4*(h//4) stay 0.");
  m.def("laplacian", [](const py::object& src_obj) {
    const Input<uint8_t> src(src_obj, "laplacian", "src", 1);
    return Written(Zeros<int16_t>(src.view.height, src.view.width, 1),
                   [&](PlaneView<int16_t> out) { ck::Laplacian(src.view, out); });
  }, py::arg("src"), "Laplacian of a (h, w) uint8 plane, int16.");
  m.def("bilateral_filter", [](const py::object& src) {
    return Resample<uint8_t, uint8_t>("bilateral_filter", src, 1, &ck::BilateralFilter, Scaled<1, 1>);
  }, py::arg("src"), "Bilateral filter of a (h, w) uint8 plane; an odd height's last row stays 0.");
  m.def("box_detail", [](const py::object& src) {
    return Resample<uint8_t, float>("box_detail", src, 1, &ck::BoxDetail, Scaled<1, 1>);
  }, py::arg("src"), "Detail layer of the even box filter, float32; rows past 4*(h//4) stay 0.");
  m.def("sharpen", [](const py::object& detail_obj, const py::object& gain_obj, const py::object& src_obj) {
    const char* fn = "sharpen";
    const Input<float> detail(detail_obj, fn, "detail", 1), gain(gain_obj, fn, "gain", 1);
    const Input<uint8_t> src(src_obj, fn, "src", 1);
    return Written(Zeros<uint8_t>(src.view.height, src.view.width, 1),
                   [&](Plane out) { ck::Sharpen(detail.view, gain.view, src.view, out); });
  }, py::arg("detail"), py::arg("gain"), py::arg("src"), "detail * gain + src, as uint8.");
}

void BindColour(py::module_& m) {
  m.def("rgba_to_i420a", [](const py::object& rgba_obj) {
    const Input<uint8_t> rgba(rgba_obj, "rgba_to_i420a", "rgba", 4);
    const int w = rgba.view.width, h = rgba.view.height;
    py::array_t<uint8_t> y = Zeros<uint8_t>(h, w, 1), u = Zeros<uint8_t>(h / 2, w / 2, 1),
                         v = Zeros<uint8_t>(h / 2, w / 2, 1), a = Zeros<uint8_t>(h, w, 1);
    const Plane py_ = OutView(y), pu = OutView(u), pv = OutView(v), pa = OutView(a);
    {
      py::gil_scoped_release unlocked;
      ck::RgbaToI420A(rgba.view, py_, pu, pv, pa);
    }
    return py::make_tuple(y, u, v, a);
  }, py::arg("rgba"), "(h, w, 4) RGBA, even sizes, to the planes (y, u, v, a).");
  m.def("i420a_to_rgba", [](const py::object& y_obj, const py::object& u_obj, const py::object& v_obj,
                            const py::object& a_obj) {
    const char* fn = "i420a_to_rgba";
    const Input<uint8_t> y(y_obj, fn, "y", 1), u(u_obj, fn, "u", 1), v(v_obj, fn, "v", 1), a(a_obj, fn, "a", 1);
    return Written(Zeros<uint8_t>(y.view.height, y.view.width, 4),
                   [&](Plane out) { ck::I420AToRgba(y.view, u.view, v.view, a.view, out); });
  }, py::arg("y"), py::arg("u"), py::arg("v"), py::arg("a"), "I420 planes with alpha to (h, w, 4) RGBA.");
  m.def("luma_ratio_split", [](const py::object& rgba_obj) {
    const Input<uint8_t> rgba(rgba_obj, "luma_ratio_split", "rgba", 4);
    const int w = rgba.view.width, h = rgba.view.height;
    py::array_t<float> luma = Zeros<float>(h, w, 1);
    py::array_t<int32_t> dr = Zeros<int32_t>(2 * h, 2 * w, 1), dg = Zeros<int32_t>(2 * h, 2 * w, 1),
                         db = Zeros<int32_t>(2 * h, 2 * w, 1);
    py::array_t<uint8_t> alpha = Zeros<uint8_t>(2 * h, 2 * w, 1);
    const FloatPlane pl = OutView(luma);
    const PlaneView<int32_t> pr = OutView(dr), pg = OutView(dg), pb = OutView(db);
    const Plane pa = OutView(alpha);
    {
      py::gil_scoped_release unlocked;
      ck::LumaRatioSplit(rgba.view, pl, pr, pg, pb, pa);
    }
    return py::make_tuple(luma, dr, dg, db, alpha);
  }, py::arg("rgba"), "(h, w, 4) RGBA to (luma, dr, dg, db, alpha), the last four at twice the size.");
  m.def("luma_ratio_merge", [](const py::object& luma_obj, const py::object& dr_obj, const py::object& dg_obj,
                               const py::object& db_obj, const py::object& alpha_obj) {
    const char* fn = "luma_ratio_merge";
    const Input<float> luma(luma_obj, fn, "luma", 1);
    const Input<int32_t> dr(dr_obj, fn, "dr", 1), dg(dg_obj, fn, "dg", 1), db(db_obj, fn, "db", 1);
    const Input<uint8_t> alpha(alpha_obj, fn, "alpha", 1);
    return Written(Zeros<uint8_t>(luma.view.height, luma.view.width, 4),
                   [&](Plane out) { ck::LumaRatioMerge(luma.view, dr.view, dg.view, db.view, alpha.view, out); });
  }, py::arg("luma"), py::arg("dr"), py::arg("dg"), py::arg("db"), py::arg("alpha"),
     "Luma and per-channel ratios back to (h, w, 4) RGBA.");
  m.def("nv12_to_vuya", [](const py::object& y_obj, const py::object& uv_obj) {
    const char* fn = "nv12_to_vuya";
    const Input<uint8_t> y(y_obj, fn, "y", 1), uv(uv_obj, fn, "uv", 2);
    return Written(Zeros<uint8_t>(y.view.height, y.view.width, 4),
                   [&](Plane out) { ck::Nv12ToVuya(y.view, uv.view, out); });
  }, py::arg("y"), py::arg("uv"), "NV12 to (h, w, 4) V, U, Y, 255 pixels.");
  m.def("i420_to_vuya", [](const py::object& y_obj, const py::object& u_obj, const py::object& v_obj) {
    const char* fn = "i420_to_vuya";
    const Input<uint8_t> y(y_obj, fn, "y", 1), u(u_obj, fn, "u", 1), v(v_obj, fn, "v", 1);
    return Written(Zeros<uint8_t>(y.view.height, y.view.width, 4),
                   [&](Plane out) { ck::I420ToVuya(y.view, u.view, v.view, out); });
  }, py::arg("y"), py::arg("u"), py::arg("v"), "I420 to (h, w, 4) V, U, Y, 255 pixels.");
  m.def("bgra_crop", [](const py::object& src_obj, int x, int y, int width, int height) {
    const Input<uint8_t> src(src_obj, "bgra_crop", "src", 4);
    if (width < 1 || height < 1) throw py::value_error("bgra_crop: width and height must be at least 1");
    return Written(Zeros<uint8_t>(height, width, 4),
                   [&](Plane out) { ck::BgraCrop(src.view, x, y, out); });
  }, py::arg("src"), py::arg("x"), py::arg("y"), py::arg("width"), py::arg("height"),
     "The width x height rectangle at (x, y) of a (h, w, 4) image.");
  m.def("i420_to_rgb", [](const py::object& y_obj, const py::object& u_obj, const py::object& v_obj) {
    const char* fn = "i420_to_rgb";
    const Input<uint8_t> y(y_obj, fn, "y", 1), u(u_obj, fn, "u", 1), v(v_obj, fn, "v", 1);
    return Written(Zeros<uint8_t>(y.view.height, y.view.width, 3),
                   [&](Plane out) { ck::I420ToRgb(y.view, u.view, v.view, out); });
  }, py::arg("y"), py::arg("u"), py::arg("v"), "I420 to (h, w, 3) RGB.");
  m.def("nv12_to_rgb", [](const py::object& y_obj, const py::object& uv_obj) {
    const char* fn = "nv12_to_rgb";
    const Input<uint8_t> y(y_obj, fn, "y", 1), uv(uv_obj, fn, "uv", 2);
    return Written(Zeros<uint8_t>(y.view.height, y.view.width, 3),
                   [&](Plane out) { ck::Nv12ToRgb(y.view, uv.view, out); });
  }, py::arg("y"), py::arg("uv"), "NV12 to (h, w, 3) RGB.");
  m.def("rgb_to_rgba", [](const py::object& src) {
    const Input<uint8_t> in(src, "rgb_to_rgba", "src", 3);
    return Written(Zeros<uint8_t>(in.view.height, in.view.width, 4),
                   [&](Plane out) { ck::RgbToRgba(in.view, out); });
  }, py::arg("src"), "(h, w, 3) to (h, w, 4) with alpha 255 (the first 16*(w//16) pixels of a row swap R and B).");
}

}  // namespace

void BindKernels(py::module_& kernels) {
  BindResamplers(kernels);
  BindFilters(kernels);
  BindColour(kernels);
}

}  // namespace vorlith::python
