// Views of pixels someone else owns, for the checked layer (vorlith.hpp):
// every plane a checked function takes carries its width, height, row
// stride and channels, so the function can check them before anything is
// read or written.
#ifndef VORLITH_VIEWS_HPP_
#define VORLITH_VIEWS_HPP_

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace vorlith {

// `height` rows of `width` pixels, each `channels` interleaved values of T;
// rows start `stride` values of T apart (stride >= width * channels).
template <class T>
struct PlaneView {
  T* data = nullptr;
  int width = 0;
  int height = 0;
  std::ptrdiff_t stride = 0;
  int channels = 1;

  constexpr PlaneView() = default;
  constexpr PlaneView(T* data_, int width_, int height_, std::ptrdiff_t stride_, int channels_ = 1)
      : data(data_), width(width_), height(height_), stride(stride_), channels(channels_) {}
  // A read-only view of a writable plane.
  template <class U, class = std::enable_if_t<std::is_same_v<const U, T> && !std::is_same_v<U, T>>>
  constexpr PlaneView(const PlaneView<U>& other)  // NOLINT: converting on purpose
      : data(other.data), width(other.width), height(other.height), stride(other.stride),
        channels(other.channels) {}

  T* row(int y) const { return data + static_cast<std::ptrdiff_t>(y) * stride; }
  // Values a row holds: width * channels.
  std::ptrdiff_t row_values() const { return static_cast<std::ptrdiff_t>(width) * channels; }
};

using Plane = PlaneView<uint8_t>;
using ConstPlane = PlaneView<const uint8_t>;
using FloatPlane = PlaneView<float>;
using ConstFloatPlane = PlaneView<const float>;

}  // namespace vorlith

#endif  // VORLITH_VIEWS_HPP_
