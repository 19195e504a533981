// NV12 frames of the command-line host: one owned reference to a "420v"
// pixel buffer, and the small pieces of arithmetic the host does itself.
#ifndef VORLITH_TOOLS_CLI_FRAME_H_
#define VORLITH_TOOLS_CLI_FRAME_H_

#include <cstdint>
#include <stdexcept>
#include <string>

#include "src/checked/context.h"
#include "vorlith/pixel_buffer.h"

namespace vorlith::cli {

// Exit statuses of the `vorlith` command (also listed in its --help).
enum ExitCode : int {
  kExitOk = 0,
  kExitFailure = 1,    // unreadable, damaged or truncated input; unwritable output
  kExitUsage = 2,      // bad command line
  kExitTooLarge = 3,   // a frame above the plug-in's 1280 limit, without --fit
  kExitNoNetwork = 4,  // networks missing or unusable
  kExitInterrupted = 130,
};

// The error every command reports: a message for the user and an exit status.
class CliError : public std::runtime_error {
 public:
  CliError(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

// The plug-in's frame-side limit, in pixels.
inline constexpr int kMaxSide = 1280;

// Holds one reference to a "420v" pixel buffer.
class Frame {
 public:
  Frame() = default;
  // Takes over the caller's reference.
  explicit Frame(VLPixelBufferRef adopted) : buffer_(adopted) {}
  // A new zero-filled buffer; throws CliError when it cannot be made.
  static Frame Create(int width, int height);
  Frame(Frame&& other) noexcept : buffer_(other.buffer_) { other.buffer_ = nullptr; }
  Frame& operator=(Frame&& other) noexcept;
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;
  ~Frame() { VLPixelBufferRelease(buffer_); }

  explicit operator bool() const { return buffer_ != nullptr; }
  VLPixelBufferRef get() const { return buffer_; }
  int width() const { return static_cast<int>(VLPixelBufferGetWidth(buffer_)); }
  int height() const { return static_cast<int>(VLPixelBufferGetHeight(buffer_)); }
  // Plane 0 is luma, plane 1 interleaved CbCr. The buffer's memory never
  // moves; callers lock it (FrameLock) around reading or writing.
  uint8_t* plane(int i) const {
    return static_cast<uint8_t*>(VLPixelBufferGetBaseAddressOfPlane(buffer_, i));
  }
  int stride(int i) const { return static_cast<int>(VLPixelBufferGetBytesPerRowOfPlane(buffer_, i)); }

 private:
  VLPixelBufferRef buffer_ = nullptr;
};

// Locks a frame's pixels for a scope.
class FrameLock {
 public:
  explicit FrameLock(const Frame& frame, bool read_only = false)
      : buffer_(frame.get()), flags_(read_only ? kVLPixelBufferLock_ReadOnly : 0) {
    VLPixelBufferLockBaseAddress(buffer_, flags_);
  }
  ~FrameLock() { VLPixelBufferUnlockBaseAddress(buffer_, flags_); }
  FrameLock(const FrameLock&) = delete;
  FrameLock& operator=(const FrameLock&) = delete;

 private:
  VLPixelBufferRef buffer_;
  uint64_t flags_;
};

// A kernel context for the library's resamplers, released at the end.
using KernelContext = checked::Context;

// A plain bilinear 2x of a whole frame, for frames the plug-in will not
// enlarge (host::BilinearEnlargeNv12).
Frame BilinearEnlarge(const Frame& in, KernelContext& ctx);

// Bicubic 2x of the luma plane with the library's Cubic2x_NEON, into the
// luma plane of `out` (2W x 2H); chroma is left as it is.
void BicubicEnlargeLuma(const Frame& in, Frame& out, KernelContext& ctx);

// The largest size within kMaxSide x kMaxSide with the aspect ratio of
// width x height (unchanged when it fits already).
void FitSize(int width, int height, int* fit_width, int* fit_height);

}  // namespace vorlith::cli

#endif  // VORLITH_TOOLS_CLI_FRAME_H_
