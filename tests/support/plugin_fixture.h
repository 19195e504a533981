// Helpers for tests that drive the plug-in end to end: NV12 frames in pixel
// buffers, and a resource directory holding chosen ONNX files under the
// networks' names.
#ifndef VORLITH_TESTS_SUPPORT_PLUGIN_FIXTURE_H_
#define VORLITH_TESTS_SUPPORT_PLUGIN_FIXTURE_H_

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "vorlith/pixel_buffer.h"
#include "vorlith/plugin.h"

namespace vorlith::test {

std::string FixturePath(const std::string& name);

// A temporary directory with `full` copied to RTC.onnx and `light` to
// RTC_degrade.onnx (either may be empty to leave it out), made the
// library's resource directory for the object's lifetime.
class ResourceDirectory {
 public:
  ResourceDirectory(const std::string& full, const std::string& light);
  ~ResourceDirectory();
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// A clock that moves by `step` microseconds per reading: ProcessData reads
// it at the start and the end of a frame, so each frame takes `step`.
struct FakeClock {
  FakeClock();
  ~FakeClock();
  int64_t now = 0, step = 1000;
};

// An NV12 input record of the frame (pixelBuffer may be null).
_tagVideoData Record(VLPixelBufferRef buffer, int width, int height);

// A random NV12 frame in a new pixel buffer (one reference, the caller's).
VLPixelBufferRef RandomFrame(int width, int height, std::mt19937& rng);

// Copies plane `plane` of a buffer into a packed vector (rows of
// width bytes, 2*width for the chroma plane).
std::vector<uint8_t> PackedPlane(VLPixelBufferRef buffer, int plane);

// Checks an enlargement by the nearest2x.onnx fixture network, packed NV12
// planes in and out: each luma sample becomes a 2x2 block and the chroma is
// the library's bilinear 2x, cropped by one row and pair for odd sizes.
// Reports at most five differing samples.
void ExpectNearestLumaBilinearChroma(const std::vector<uint8_t>& y, const std::vector<uint8_t>& uv,
                                     const std::vector<uint8_t>& y2,
                                     const std::vector<uint8_t>& uv2, int width, int height);

}  // namespace vorlith::test

#endif  // VORLITH_TESTS_SUPPORT_PLUGIN_FIXTURE_H_
