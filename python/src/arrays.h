// NumPy arrays as the checked layer's plane views: a 2-D array is one
// channel, a 3-D one (height, width, channels). Rows may be strided; the
// pixels of a row must be packed, or the array is copied into a packed one
// (inputs only: outputs are always new packed arrays).
#ifndef VORLITH_PYTHON_SRC_ARRAYS_H_
#define VORLITH_PYTHON_SRC_ARRAYS_H_

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <string>

#include "vorlith/views.hpp"

namespace vorlith::python {

namespace py = pybind11;

// The array `value` as T values, or TypeError naming `name` and the dtype
// wanted; a copy when its pixels are not packed.
template <class T>
py::array_t<T> AsArray(const py::handle& value, const char* fn, const char* name) {
  if (!py::isinstance<py::array>(value)) {
    throw py::type_error(std::string(fn) + ": " + name + " must be a numpy array, got " +
                         std::string(py::str(py::type::handle_of(value).attr("__name__"))));
  }
  const py::array a = py::reinterpret_borrow<py::array>(value);
  if (!a.dtype().is(py::dtype::of<T>())) {
    throw py::type_error(std::string(fn) + ": " + name + " must have dtype " +
                         std::string(py::str(py::dtype::of<T>())) + ", got " + std::string(py::str(a.dtype())));
  }
  if (a.ndim() != 2 && a.ndim() != 3) {
    throw py::value_error(std::string(fn) + ": " + name + " must be 2-D (height, width) or 3-D (height, width, channels), got " +
                          std::to_string(a.ndim()) + "-D");
  }
  const bool packed = a.strides(a.ndim() - 1) == static_cast<py::ssize_t>(sizeof(T)) &&
                      (a.ndim() == 2 || a.strides(1) == static_cast<py::ssize_t>(sizeof(T) * a.shape(2))) &&
                      a.strides(0) > 0 && a.strides(0) % static_cast<py::ssize_t>(sizeof(T)) == 0;
  if (packed) return py::reinterpret_borrow<py::array_t<T>>(a);
  return py::array_t<T, py::array::c_style | py::array::forcecast>::ensure(a);
}

// The view of an array from AsArray; `channels` 0 accepts what it has.
template <class T>
PlaneView<const T> InView(const py::array_t<T>& a, const char* fn, const char* name, int channels) {
  const int have = a.ndim() == 3 ? static_cast<int>(a.shape(2)) : 1;
  if (channels != 0 && have != channels) {
    throw py::value_error(std::string(fn) + ": " + name + " must have " + std::to_string(channels) +
                          " channel(s) (shape (height, width" + (channels > 1 ? ", " + std::to_string(channels) : "") +
                          ")), got " + std::to_string(have));
  }
  if (a.shape(0) > (1 << 30) || a.shape(1) > (1 << 30)) throw py::value_error(std::string(fn) + ": " + name + " is too large");
  return PlaneView<const T>(a.data(), static_cast<int>(a.shape(1)), static_cast<int>(a.shape(0)),
                            a.strides(0) / static_cast<py::ssize_t>(sizeof(T)), have);
}

// A new packed array of height x width pixels of `channels` values (2-D for
// one channel unless `three_d`), and its view.
template <class T>
py::array_t<T> NewArray(int height, int width, int channels, bool three_d = false) {
  if (channels == 1 && !three_d) return py::array_t<T>({height, width});
  return py::array_t<T>({height, width, channels});
}

template <class T>
PlaneView<T> OutView(py::array_t<T>& a) {
  const int channels = a.ndim() == 3 ? static_cast<int>(a.shape(2)) : 1;
  return PlaneView<T>(a.mutable_data(), static_cast<int>(a.shape(1)), static_cast<int>(a.shape(0)),
                      a.strides(0) / static_cast<py::ssize_t>(sizeof(T)), channels);
}

// `a` as `fill` writes it through its view, with the GIL released.
template <class T, class Fill>
py::array_t<T> Written(py::array_t<T> a, Fill fill) {
  const PlaneView<T> out = OutView(a);
  {
    py::gil_scoped_release unlocked;
    fill(out);
  }
  return a;
}

}  // namespace vorlith::python

#endif  // VORLITH_PYTHON_SRC_ARRAYS_H_
