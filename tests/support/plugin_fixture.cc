#include "tests/support/plugin_fixture.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <gtest/gtest.h>

#include "src/platform/platform.h"
#include "tests/oracle/oracle.h"

namespace vorlith::test {

std::string FixturePath(const std::string& name) {
  return std::string(VORLITH_FIXTURES_DIR) + "/" + name;
}

ResourceDirectory::ResourceDirectory(const std::string& full, const std::string& light) {
  char pattern[] = "/tmp/vorlith-resources-XXXXXX";
  if (mkdtemp(pattern) == nullptr) std::abort();
  path_ = pattern;
  namespace fs = std::filesystem;
  if (!full.empty()) fs::copy_file(FixturePath(full), fs::path(path_) / "RTC.onnx");
  if (!light.empty()) fs::copy_file(FixturePath(light), fs::path(path_) / "RTC_degrade.onnx");
  platform::SetResourceDirectoryForTest(path_);
}

ResourceDirectory::~ResourceDirectory() {
  platform::SetResourceDirectoryForTest("");
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

FakeClock::FakeClock() { platform::SetClockForTest([this] { return now += step; }); }
FakeClock::~FakeClock() { platform::SetClockForTest(nullptr); }

_tagVideoData Record(VLPixelBufferRef buffer, int width, int height) {
  _tagVideoData d{};
  d.width = width;
  d.height = height;
  d.pixelBuffer = buffer;
  d.format = 1;
  return d;
}

VLPixelBufferRef RandomFrame(int width, int height, std::mt19937& rng) {
  VLPixelBufferRef buffer = nullptr;
  if (VLPixelBufferCreate(width, height, kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange,
                          &buffer) != kVLReturnSuccess) {
    std::abort();
  }
  VLPixelBufferLockBaseAddress(buffer, 0);
  for (int plane = 0; plane < 2; ++plane) {
    auto* base = static_cast<uint8_t*>(VLPixelBufferGetBaseAddressOfPlane(buffer, plane));
    const size_t rows = VLPixelBufferGetHeightOfPlane(buffer, plane);
    const size_t stride = VLPixelBufferGetBytesPerRowOfPlane(buffer, plane);
    for (size_t i = 0; i < rows * stride; ++i) base[i] = static_cast<uint8_t>(rng());
  }
  VLPixelBufferUnlockBaseAddress(buffer, 0);
  return buffer;
}

std::vector<uint8_t> PackedPlane(VLPixelBufferRef buffer, int plane) {
  const size_t row_bytes = VLPixelBufferGetWidthOfPlane(buffer, plane) * (plane == 0 ? 1 : 2);
  const size_t rows = VLPixelBufferGetHeightOfPlane(buffer, plane);
  const size_t stride = VLPixelBufferGetBytesPerRowOfPlane(buffer, plane);
  const auto* base = static_cast<const uint8_t*>(VLPixelBufferGetBaseAddressOfPlane(buffer, plane));
  std::vector<uint8_t> packed(row_bytes * rows);
  for (size_t y = 0; y < rows; ++y) std::memcpy(&packed[y * row_bytes], base + y * stride, row_bytes);
  return packed;
}

void ExpectNearestLumaBilinearChroma(const std::vector<uint8_t>& y, const std::vector<uint8_t>& uv,
                                     const std::vector<uint8_t>& y2,
                                     const std::vector<uint8_t>& uv2, int width, int height) {
  ASSERT_EQ(y2.size(), size_t(4) * width * height);
  ASSERT_EQ(uv2.size(), size_t(2) * width * height);
  int bad = 0;
  for (int r = 0; r < 2 * height && bad < 5; ++r) {
    for (int c = 0; c < 2 * width; ++c) {
      if (y2[size_t(r) * 2 * width + c] != y[size_t(r / 2) * width + c / 2] && ++bad <= 5) {
        ADD_FAILURE() << "luma " << r << "," << c;
      }
    }
  }
  // The output chroma plane (width x height pairs) is the enlarged input
  // chroma of ((width + 1) / 2) x ((height + 1) / 2) pairs.
  const int cw = (width + 1) / 2, ch = (height + 1) / 2;
  for (int r = 0; r < height && bad < 5; ++r) {
    for (int c = 0; c < width; ++c) {
      for (int k = 0; k < 2; ++k) {
        const uint8_t want = oracle::Linear2xNvSample(uv.data(), 2 * cw, ch, cw, r, c, k);
        if (uv2[size_t(r) * 2 * width + 2 * c + k] != want && ++bad <= 5) {
          ADD_FAILURE() << "chroma " << r << "," << c << "," << k;
        }
      }
    }
  }
}

}  // namespace vorlith::test
