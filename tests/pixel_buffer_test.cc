#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <tuple>
#include <utility>
#include <vector>

#include "vorlith/pixel_buffer.h"

namespace {

constexpr uint32_t k420v = kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange;

TEST(PixelBuffer, GeometryOfEvenAndOddFrames) {
  const struct {
    size_t w, h, cw, ch;
  } cases[] = {{640, 360, 320, 180}, {641, 361, 321, 181}, {1, 1, 1, 1}, {2, 3, 1, 2}};
  for (const auto& c : cases) {
    VLPixelBufferRef b = nullptr;
    ASSERT_EQ(VLPixelBufferCreate(c.w, c.h, k420v, &b), kVLReturnSuccess);
    EXPECT_EQ(std::pair(VLPixelBufferGetPixelFormatType(b), VLPixelBufferGetPlaneCount(b)),
              std::pair(k420v, size_t{2}));
    EXPECT_EQ(std::tuple(VLPixelBufferGetWidthOfPlane(b, 0), VLPixelBufferGetHeightOfPlane(b, 0),
                         VLPixelBufferGetWidthOfPlane(b, 1), VLPixelBufferGetHeightOfPlane(b, 1)),
              std::tuple(c.w, c.h, c.cw, c.ch));
    for (size_t plane = 0; plane < 2; ++plane) {
      const size_t stride = VLPixelBufferGetBytesPerRowOfPlane(b, plane);
      EXPECT_EQ(stride % 64, 0u);
      EXPECT_GE(stride, plane == 0 ? c.w : 2 * c.cw);
      const auto base = reinterpret_cast<uintptr_t>(VLPixelBufferGetBaseAddressOfPlane(b, plane));
      EXPECT_EQ(base % 64, 0u);
      // Whole plane writable (ASan checks the extent).
      std::fill_n(static_cast<uint8_t*>(VLPixelBufferGetBaseAddressOfPlane(b, plane)),
                  stride * VLPixelBufferGetHeightOfPlane(b, plane), 0xEE);
    }
    EXPECT_EQ(VLPixelBufferGetBaseAddressOfPlane(b, 2), nullptr);
    VLPixelBufferRelease(b);
  }
}

TEST(PixelBuffer, RejectsBadArguments) {
  VLPixelBufferRef b = nullptr;
  EXPECT_EQ(VLPixelBufferCreate(16, 16, 0x34323066 /* '420f' */, &b), kVLReturnInvalidPixelFormat);
  EXPECT_EQ(VLPixelBufferCreate(0, 16, k420v, &b), kVLReturnInvalidSize);
  EXPECT_EQ(VLPixelBufferCreate(16, 16385, k420v, &b), kVLReturnInvalidSize);
  EXPECT_EQ(VLPixelBufferCreate(16, 16, k420v, nullptr), kVLReturnInvalidArgument);
  EXPECT_EQ(b, nullptr);
  std::vector<uint8_t> y(16 * 16), uv(16 * 8);
  void* planes[2] = {y.data(), uv.data()};
  const size_t short_rows[2] = {16, 14};
  EXPECT_EQ(VLPixelBufferCreateWithPlanarBytes(16, 16, k420v, planes, short_rows, nullptr, nullptr,
                                               &b),
            kVLReturnInvalidArgument);
  EXPECT_EQ(VLPixelBufferLockBaseAddress(nullptr, 0), kVLReturnInvalidArgument);
  VLPixelBufferRelease(nullptr);
  EXPECT_EQ(VLPixelBufferRetain(nullptr), nullptr);
}

TEST(PixelBuffer, WrappedPlanesAreNotCopiedAndReleasedOnceWithTheLastReference) {
  std::vector<uint8_t> y(100 * 7), uv(100 * 4);
  void* planes[2] = {y.data(), uv.data()};
  const size_t rows[2] = {100, 100};
  struct Released {
    int calls = 0;
    void* first = nullptr;
  } released;
  auto callback = [](void* refcon, void* const bases[2]) {
    auto* r = static_cast<Released*>(refcon);
    ++r->calls;
    r->first = bases[0];
  };
  VLPixelBufferRef b = nullptr;
  ASSERT_EQ(VLPixelBufferCreateWithPlanarBytes(13, 7, k420v, planes, rows, callback, &released, &b),
            kVLReturnSuccess);
  EXPECT_EQ(std::pair(VLPixelBufferGetBaseAddressOfPlane(b, 0), VLPixelBufferGetBaseAddressOfPlane(b, 1)),
            std::pair(static_cast<void*>(y.data()), static_cast<void*>(uv.data())));
  EXPECT_EQ(std::tuple(VLPixelBufferGetBytesPerRowOfPlane(b, 1), VLPixelBufferGetWidthOfPlane(b, 1),
                       VLPixelBufferGetHeightOfPlane(b, 1)),
            std::tuple(size_t{100}, size_t{7}, size_t{4}));

  EXPECT_EQ(VLPixelBufferRetain(b), b);
  VLPixelBufferRelease(b);
  EXPECT_EQ(released.calls, 0);
  VLPixelBufferRelease(b);
  EXPECT_EQ(released.calls, 1);
  EXPECT_EQ(released.first, y.data());
}

TEST(PixelBuffer, LocksNestAndAnUnbalancedUnlockIsReported) {
  VLPixelBufferRef b = nullptr;
  ASSERT_EQ(VLPixelBufferCreate(8, 8, k420v, &b), kVLReturnSuccess);
  EXPECT_EQ(VLPixelBufferUnlockBaseAddress(b, 0), kVLReturnUnlockWithoutLock);
  EXPECT_EQ(VLPixelBufferLockBaseAddress(b, 0), kVLReturnSuccess);
  EXPECT_EQ(VLPixelBufferLockBaseAddress(b, kVLPixelBufferLock_ReadOnly), kVLReturnSuccess);
  EXPECT_EQ(VLPixelBufferUnlockBaseAddress(b, kVLPixelBufferLock_ReadOnly), kVLReturnSuccess);
  EXPECT_EQ(VLPixelBufferUnlockBaseAddress(b, 0), kVLReturnSuccess);
  EXPECT_EQ(VLPixelBufferUnlockBaseAddress(b, 0), kVLReturnUnlockWithoutLock);
  VLPixelBufferRelease(b);
}

}  // namespace

namespace {

// A pool hands a buffer out again only when its last reference is gone,
// keeps at most kVLPixelBufferPoolKeep, and may be given up while its
// buffers are still held (they are freed with their last reference, as the
// sanitizers check).
TEST(PixelBufferPool, ReusesOnlyReleasedBuffersAndOutlivesNothing) {
  VLPixelBufferPoolRef pool = nullptr;
  EXPECT_EQ(VLPixelBufferPoolCreate(0, 4, k420v, &pool), kVLReturnInvalidSize);
  EXPECT_EQ(VLPixelBufferPoolCreatePixelBuffer(nullptr, nullptr), kVLReturnInvalidArgument);
  ASSERT_EQ(VLPixelBufferPoolCreate(33, 17, k420v, &pool), kVLReturnSuccess);
  std::vector<VLPixelBufferRef> held(kVLPixelBufferPoolKeep + 2);
  for (VLPixelBufferRef& b : held) {
    ASSERT_EQ(VLPixelBufferPoolCreatePixelBuffer(pool, &b), kVLReturnSuccess);
    EXPECT_EQ(std::pair(VLPixelBufferGetWidth(b), VLPixelBufferGetHeight(b)), std::pair(size_t{33}, size_t{17}));
    static_cast<uint8_t*>(VLPixelBufferGetBaseAddressOfPlane(b, 0))[0] = 0xAB;
  }
  VLPixelBufferRetain(held[0]);
  VLPixelBufferRelease(held[0]);  // still referenced: not back in the pool
  VLPixelBufferRef next = nullptr;
  ASSERT_EQ(VLPixelBufferPoolCreatePixelBuffer(pool, &next), kVLReturnSuccess);
  for (VLPixelBufferRef b : held) EXPECT_NE(next, b);
  for (VLPixelBufferRef b : held) VLPixelBufferRelease(b);
  // The last ones released are kept; the next requests take them back, pixels and all.
  std::vector<VLPixelBufferRef> again(kVLPixelBufferPoolKeep);
  for (VLPixelBufferRef& b : again) {
    ASSERT_EQ(VLPixelBufferPoolCreatePixelBuffer(pool, &b), kVLReturnSuccess);
    EXPECT_NE(std::find(held.begin(), held.end(), b), held.end());
    EXPECT_EQ(static_cast<uint8_t*>(VLPixelBufferGetBaseAddressOfPlane(b, 0))[0], 0xAB);
  }
  VLPixelBufferPoolRelease(pool);
  for (VLPixelBufferRef b : again) VLPixelBufferRelease(b);
  VLPixelBufferRelease(next);
  VLPixelBufferPoolRelease(nullptr);
}

}  // namespace
