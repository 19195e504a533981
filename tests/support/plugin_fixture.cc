#include "tests/support/plugin_fixture.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "src/platform/platform.h"

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

}  // namespace vorlith::test
