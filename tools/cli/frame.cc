#include "tools/cli/frame.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "tools/common/host_support.h"
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

Frame BilinearEnlarge(const Frame& in, KernelContext& ctx) {
  const int w = in.width(), h = in.height();
  Frame out = Frame::Create(2 * w, 2 * h);
  FrameLock in_lock(in, true);
  FrameLock out_lock(out);
  host::BilinearEnlargeNv12(ctx.get(), in.plane(0), in.stride(0), in.plane(1), in.stride(1), w, h,
                            out.plane(0), out.stride(0), out.plane(1), out.stride(1));
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
