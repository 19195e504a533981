// The Python module vorlith._vorlith: the checked layer on NumPy arrays.
// Every call checks its arrays here (dtype, dimensions, layout) and in the
// checked layer (sizes, channels, strides), and releases the GIL while the
// library works.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <memory>
#include <string>
#include <utility>

#include "python/src/arrays.h"
#include "vorlith/vorlith.hpp"

namespace vorlith::python {

void BindKernels(py::module_& kernels);

namespace {

Upscaler::Network NetworkNamed(const std::string& name) {
  if (name == "full") return Upscaler::Network::kFull;
  if (name == "light") return Upscaler::Network::kLight;
  if (name == "auto") return Upscaler::Network::kAuto;
  throw py::value_error("Upscaler: network must be 'full', 'light' or 'auto', got '" + name + "'");
}

std::unique_ptr<Upscaler> MakeUpscaler(const std::string& network, int threads, const py::object& models) {
  Upscaler::Options options;
  options.network = NetworkNamed(network);
  options.threads = threads;
  if (!models.is_none()) options.models = py::str(models);
  py::gil_scoped_release unlocked;
  return std::make_unique<Upscaler>(options);
}

py::array_t<uint8_t> Enlarge(Upscaler& up, const py::object& y_in) {
  const char* fn = "Upscaler.enlarge";
  const py::array_t<uint8_t> y = AsArray<uint8_t>(y_in, fn, "y");
  if (y.ndim() != 2) throw py::value_error(std::string(fn) + ": y must be 2-D (height, width), got " + std::to_string(y.ndim()) + "-D");
  const ConstPlane src = InView(y, fn, "y", 1);
  return Written(NewArray<uint8_t>(2 * src.height, 2 * src.width, 1), [&](Plane dst) { up.Enlarge(src, dst); });
}

py::tuple EnlargeNV12(Upscaler& up, const py::object& y_in, const py::object& uv_in) {
  const char* fn = "Upscaler.enlarge_nv12";
  const py::array_t<uint8_t> y = AsArray<uint8_t>(y_in, fn, "y");
  const py::array_t<uint8_t> uv = AsArray<uint8_t>(uv_in, fn, "uv");
  if (y.ndim() != 2) throw py::value_error(std::string(fn) + ": y must be 2-D (height, width), got " + std::to_string(y.ndim()) + "-D");
  const ConstPlane luma = InView(y, fn, "y", 1);
  // Cb/Cr pairs as (h, w, 2), or as rows of interleaved bytes (h, 2 * w).
  ConstPlane chroma;
  if (uv.ndim() == 3) {
    chroma = InView(uv, fn, "uv", 2);
  } else {
    const ConstPlane bytes = InView(uv, fn, "uv", 1);
    if (bytes.width % 2 != 0) throw py::value_error(std::string(fn) + ": a 2-D uv must hold Cb/Cr pairs: an even width, got " + std::to_string(bytes.width));
    chroma = ConstPlane(bytes.data, bytes.width / 2, bytes.height, bytes.stride, 2);
  }
  py::array_t<uint8_t> y2 = NewArray<uint8_t>(2 * luma.height, 2 * luma.width, 1);
  py::array_t<uint8_t> uv2 = uv.ndim() == 3 ? NewArray<uint8_t>(luma.height, luma.width, 2)
                                            : NewArray<uint8_t>(luma.height, 2 * luma.width, 1);
  const Plane out_y = OutView(y2);
  Plane out_uv = OutView(uv2);
  if (uv.ndim() == 2) out_uv = Plane(out_uv.data, luma.width, luma.height, out_uv.stride, 2);
  {
    py::gil_scoped_release unlocked;
    up.EnlargeNV12(luma, chroma, out_y, out_uv);
  }
  return py::make_tuple(y2, uv2);
}

py::array_t<uint8_t> EnlargeRGB(Upscaler& up, const py::object& image, bool bgr) {
  const char* fn = "Upscaler.enlarge_rgb";
  const py::array_t<uint8_t> a = AsArray<uint8_t>(image, fn, "image");
  if (a.ndim() != 3) throw py::value_error(std::string(fn) + ": image must be 3-D (height, width, 3), got " + std::to_string(a.ndim()) + "-D");
  const ConstPlane src = InView(a, fn, "image", 3);
  return Written(NewArray<uint8_t>(2 * src.height, 2 * src.width, 3),
                 [&](Plane dst) { up.EnlargeRGB(src, dst, bgr); });
}

}  // namespace
}  // namespace vorlith::python

PYBIND11_MODULE(_vorlith, m) {
  namespace py = pybind11;
  using namespace vorlith::python;
  m.doc() = "Vorlith: two-times video frame enlargement and exactly defined SIMD image kernels.";
  m.attr("__version__") = "1.0.0";
  py::class_<vorlith::Upscaler>(m, "Upscaler", R"doc(
Enlarges frames two times: the luma through a neural network, the chroma
through the library's bilinear 2x. Frames of any size: those wider or taller
than 1280 run in overlapping tiles whose result equals the whole frame's.

network: "full", "light", or "auto" (the full network until frames average
more than 30 ms per 1280x720 worth of pixels, then the light one).
threads: threads a frame is split across (0: one per CPU this process may run on).
models: a directory holding RTC.onnx and RTC_degrade.onnx (None: the
networks installed with the package).

One Upscaler serves one thread at a time; the GIL is released while it
works, so Upscalers on several Python threads run at once.)doc")
      .def(py::init(&MakeUpscaler), py::arg("network") = "auto", py::arg("threads") = 0,
           py::arg("models") = py::none())
      .def("enlarge", &Enlarge, py::arg("y"),
           "Enlarges a 2-D uint8 plane (height, width) to (2*height, 2*width).")
      .def("enlarge_nv12", &EnlargeNV12, py::arg("y"), py::arg("uv"),
           "Enlarges an NV12 frame: y (h, w) uint8, uv (ceil(h/2), ceil(w/2), 2) or (ceil(h/2), 2*ceil(w/2)).\n"
           "Returns (y2, uv2): (2h, 2w) and (h, w, 2) or (h, 2w), as uv was given.")
      .def("enlarge_rgb", &EnlargeRGB, py::arg("image"), py::arg("bgr") = false,
           "Enlarges a (height, width, 3) uint8 image, RGB (or BGR with bgr=True), through\n"
           "BT.601 limited-range 4:2:0 and back.")
      .def_property_readonly("network", [](const vorlith::Upscaler& up) {
        return up.network() == vorlith::Upscaler::Network::kLight ? "light" : "full";
      }, "The network the next frame will use: 'full' or 'light'.")
      .def_property_readonly("margin", &vorlith::Upscaler::margin,
                             "Input pixels of overlap between tiles for the network in use.");
  py::module_ kernels = m.def_submodule("kernels", "The library's image kernels, checked, on NumPy arrays.");
  BindKernels(kernels);
}
