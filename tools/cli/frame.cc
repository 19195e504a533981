#include "tools/cli/frame.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "vorlith/resize.h"

namespace vorlith::cli {

Frame Frame::Create(int width, int height) {
  VLPixelBufferRef buffer = nullptr;
  const VLReturn status =
      VLPixelBufferCreate(static_cast<size_t>(width), static_cast<size_t>(height),
                          kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange, &buffer);
  if (status != kVLReturnSuccess) {
    throw CliError(kExitFailure, "cannot create a " + std::to_string(width) + "x" +
                                     std::to_string(height) + " pixel buffer (status " +
                                     std::to_string(status) + ")");
  }
  return Frame(buffer);
}

Frame& Frame::operator=(Frame&& other) noexcept {
  if (this != &other) {
    VLPixelBufferRelease(buffer_);
    buffer_ = other.buffer_;
    other.buffer_ = nullptr;
  }
  return *this;
}

namespace {

// out(2i) = (3 x[i] + x[i-1]), out(2i+1) = (3 x[i] + x[i+1]), edges
// replicated: the horizontal half of the 9/3/3/1 kernel, times 4.
void HorizontalRow(const uint8_t* src, int width, int* dst) {
  for (int i = 0; i < width; ++i) {
    const int left = src[std::max(i - 1, 0)];
    const int right = src[std::min(i + 1, width - 1)];
    dst[2 * i] = 3 * src[i] + left;
    dst[2 * i + 1] = 3 * src[i] + right;
  }
}

}  // namespace

Frame BilinearEnlarge(const Frame& in, KernelContext& ctx) {
  const int w = in.width(), h = in.height();
  Frame out = Frame::Create(2 * w, 2 * h);
  FrameLock in_lock(in, true);
  FrameLock out_lock(out);

  std::vector<int> rows(size_t(3) * 2 * w);  // rows above, at and below
  int* row[3] = {&rows[0], &rows[size_t(2) * w], &rows[size_t(4) * w]};
  for (int y = 0; y < h; ++y) {
    for (int k = 0; k < 3; ++k) {
      const int sy = std::clamp(y + k - 1, 0, h - 1);
      HorizontalRow(in.plane(0) + size_t(sy) * in.stride(0), w, row[k]);
    }
    uint8_t* top = out.plane(0) + size_t(2 * y) * out.stride(0);
    uint8_t* bottom = top + out.stride(0);
    for (int x = 0; x < 2 * w; ++x) {
      top[x] = static_cast<uint8_t>((3 * row[1][x] + row[0][x] + 8) >> 4);
      bottom[x] = static_cast<uint8_t>((3 * row[1][x] + row[2][x] + 8) >> 4);
    }
  }

  const int cw = static_cast<int>(VLPixelBufferGetWidthOfPlane(in.get(), 1));
  const int ch = static_cast<int>(VLPixelBufferGetHeightOfPlane(in.get(), 1));
  Linear_2x_nv(ctx.get(), in.plane(1), out.plane(1), ch, cw, in.stride(1), out.stride(1));
  return out;
}

void BicubicEnlargeLuma(const Frame& in, Frame& out, KernelContext& ctx) {
  const int w = in.width(), h = in.height();
  std::vector<uint8_t> src(size_t(w) * h), dst(size_t(4) * w * h);
  {
    FrameLock lock(in, true);
    for (int y = 0; y < h; ++y) std::memcpy(&src[size_t(y) * w], in.plane(0) + size_t(y) * in.stride(0), w);
  }
  // The context owns its ring and frees it with delete[].
  delete[] ctx.get()->workBuf;
  ctx.get()->workBuf = new unsigned char[size_t(8) * w * sizeof(int32_t)];
  Cubic2x_NEON(ctx.get(), src.data(), dst.data(), h, w);
  FrameLock lock(out);
  for (int y = 0; y < 2 * h; ++y) {
    std::memcpy(out.plane(0) + size_t(y) * out.stride(0), &dst[size_t(y) * 2 * w], size_t(2) * w);
  }
}

void FitSize(int width, int height, int* fit_width, int* fit_height) {
  if (width <= kMaxSide && height <= kMaxSide) {
    *fit_width = width;
    *fit_height = height;
    return;
  }
  const double scale = std::min(double(kMaxSide) / width, double(kMaxSide) / height);
  *fit_width = std::clamp(static_cast<int>(std::lround(width * scale)), 1, kMaxSide);
  *fit_height = std::clamp(static_cast<int>(std::lround(height * scale)), 1, kMaxSide);
}

}  // namespace vorlith::cli
