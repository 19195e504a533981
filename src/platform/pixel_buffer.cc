#include "vorlith/pixel_buffer.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

struct VLPixelBuffer {
  std::atomic<int64_t> references{1};
  std::atomic<int64_t> locks{0};
  size_t width = 0, height = 0;
  void* base[2] = {nullptr, nullptr};
  size_t bytes_per_row[2] = {0, 0};
  size_t plane_width[2] = {0, 0};
  size_t plane_height[2] = {0, 0};
  void* owned = nullptr;  // the library's own allocation, if any
  VLPixelBufferReleasePlanarBytesCallback release = nullptr;
  void* release_refcon = nullptr;
  VLPixelBufferPool* pool = nullptr;  // where the buffer returns, if anywhere
};

struct VLPixelBufferPool {
  std::mutex mutex;
  size_t width = 0, height = 0;
  // The owner's reference and one per buffer out of the pool; kept buffers
  // hold none, so that giving up the pool can free them.
  int64_t holders = 1;
  bool open = true;
  std::vector<VLPixelBuffer*> kept;
};

namespace {

constexpr size_t kMaxSide = 16384;

size_t RoundUp(size_t v, size_t to) { return (v + to - 1) / to * to; }

VLReturn CheckGeometry(size_t width, size_t height, uint32_t format, const void* out) {
  if (out == nullptr) return kVLReturnInvalidArgument;
  if (format != kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange) return kVLReturnInvalidPixelFormat;
  if (width == 0 || height == 0 || width > kMaxSide || height > kMaxSide) {
    return kVLReturnInvalidSize;
  }
  return kVLReturnSuccess;
}

void SetPlanes(VLPixelBuffer* b, size_t width, size_t height) {
  b->width = width;
  b->height = height;
  b->plane_width[0] = width;
  b->plane_height[0] = height;
  b->plane_width[1] = (width + 1) / 2;
  b->plane_height[1] = (height + 1) / 2;
}

bool ValidPlane(VLPixelBufferRef b, size_t plane) { return b != nullptr && plane < 2; }

}  // namespace

VLReturn VLPixelBufferCreate(size_t width, size_t height, uint32_t pixelFormatType,
                             VLPixelBufferRef* pixelBufferOut) {
  const VLReturn status = CheckGeometry(width, height, pixelFormatType, pixelBufferOut);
  if (status != kVLReturnSuccess) return status;
  auto* b = new (std::nothrow) VLPixelBuffer;
  if (b == nullptr) return kVLReturnAllocationFailed;
  SetPlanes(b, width, height);
  b->bytes_per_row[0] = RoundUp(width, kVLPixelBufferRowAlignment);
  b->bytes_per_row[1] = RoundUp(2 * b->plane_width[1], kVLPixelBufferRowAlignment);
  const size_t luma = b->bytes_per_row[0] * b->plane_height[0];
  // One spare chroma row: the plug-in enlarges the chroma of an odd-height
  // frame, ceil(h/2) rows, to 2*ceil(h/2) rows, one more than the chroma
  // plane of the 2h-high output holds. (Row padding already absorbs the extra
  // pair of an odd width: 2*width is then never a multiple of 64.)
  const size_t chroma = b->bytes_per_row[1] * (b->plane_height[1] + 1);
  b->owned = std::aligned_alloc(kVLPixelBufferRowAlignment, luma + chroma);
  if (b->owned == nullptr) {
    delete b;
    return kVLReturnAllocationFailed;
  }
  std::memset(b->owned, 0, luma + chroma);
  b->base[0] = b->owned;
  b->base[1] = static_cast<unsigned char*>(b->owned) + luma;
  *pixelBufferOut = b;
  return kVLReturnSuccess;
}

VLReturn VLPixelBufferCreateWithPlanarBytes(size_t width, size_t height, uint32_t pixelFormatType,
                                            void* const planeBaseAddress[2],
                                            const size_t planeBytesPerRow[2],
                                            VLPixelBufferReleasePlanarBytesCallback releaseCallback,
                                            void* releaseRefCon, VLPixelBufferRef* pixelBufferOut) {
  const VLReturn status = CheckGeometry(width, height, pixelFormatType, pixelBufferOut);
  if (status != kVLReturnSuccess) return status;
  if (planeBaseAddress == nullptr || planeBytesPerRow == nullptr ||
      planeBaseAddress[0] == nullptr || planeBaseAddress[1] == nullptr ||
      planeBytesPerRow[0] < width || planeBytesPerRow[1] < 2 * ((width + 1) / 2)) {
    return kVLReturnInvalidArgument;
  }
  auto* b = new (std::nothrow) VLPixelBuffer;
  if (b == nullptr) return kVLReturnAllocationFailed;
  SetPlanes(b, width, height);
  for (int p = 0; p < 2; ++p) {
    b->base[p] = planeBaseAddress[p];
    b->bytes_per_row[p] = planeBytesPerRow[p];
  }
  b->release = releaseCallback;
  b->release_refcon = releaseRefCon;
  *pixelBufferOut = b;
  return kVLReturnSuccess;
}

namespace {

void Free(VLPixelBufferRef buffer) {
  if (buffer->release != nullptr) buffer->release(buffer->release_refcon, buffer->base);
  std::free(buffer->owned);
  delete buffer;
}

// A pooled buffer whose last reference went: kept for reuse while the pool
// is open and has room, freed otherwise.
void ReturnToPool(VLPixelBufferRef buffer) {
  VLPixelBufferPool* pool = buffer->pool;
  bool kept = false, last = false;
  {
    std::lock_guard<std::mutex> lock(pool->mutex);
    if (pool->open && pool->kept.size() < kVLPixelBufferPoolKeep) {
      pool->kept.push_back(buffer);
      kept = true;
    }
    last = --pool->holders == 0;
  }
  if (!kept) Free(buffer);
  if (last) delete pool;
}

}  // namespace

VLReturn VLPixelBufferPoolCreate(size_t width, size_t height, uint32_t pixelFormatType,
                                 VLPixelBufferPoolRef* poolOut) {
  const VLReturn status = CheckGeometry(width, height, pixelFormatType, poolOut);
  if (status != kVLReturnSuccess) return status;
  auto* pool = new (std::nothrow) VLPixelBufferPool;
  if (pool == nullptr) return kVLReturnAllocationFailed;
  pool->width = width;
  pool->height = height;
  pool->kept.reserve(kVLPixelBufferPoolKeep);  // a release never allocates
  *poolOut = pool;
  return kVLReturnSuccess;
}

VLReturn VLPixelBufferPoolCreatePixelBuffer(VLPixelBufferPoolRef pool, VLPixelBufferRef* pixelBufferOut) {
  if (pool == nullptr || pixelBufferOut == nullptr) return kVLReturnInvalidArgument;
  {
    std::lock_guard<std::mutex> lock(pool->mutex);
    if (!pool->kept.empty()) {
      VLPixelBufferRef b = pool->kept.back();
      pool->kept.pop_back();
      b->references.store(1, std::memory_order_relaxed);
      b->locks.store(0, std::memory_order_relaxed);
      ++pool->holders;
      *pixelBufferOut = b;
      return kVLReturnSuccess;
    }
  }
  VLPixelBufferRef b = nullptr;
  const VLReturn status =
      VLPixelBufferCreate(pool->width, pool->height, kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange, &b);
  if (status != kVLReturnSuccess) return status;
  b->pool = pool;
  std::lock_guard<std::mutex> lock(pool->mutex);
  ++pool->holders;
  *pixelBufferOut = b;
  return kVLReturnSuccess;
}

void VLPixelBufferPoolRelease(VLPixelBufferPoolRef pool) {
  if (pool == nullptr) return;
  std::vector<VLPixelBuffer*> kept;
  bool last = false;
  {
    std::lock_guard<std::mutex> lock(pool->mutex);
    pool->open = false;
    kept.swap(pool->kept);
    last = --pool->holders == 0;
  }
  for (VLPixelBufferRef b : kept) Free(b);
  if (last) delete pool;
}

VLPixelBufferRef VLPixelBufferRetain(VLPixelBufferRef buffer) {
  if (buffer != nullptr) buffer->references.fetch_add(1, std::memory_order_relaxed);
  return buffer;
}

void VLPixelBufferRelease(VLPixelBufferRef buffer) {
  if (buffer == nullptr) return;
  if (buffer->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  if (buffer->pool != nullptr) {
    ReturnToPool(buffer);
  } else {
    Free(buffer);
  }
}

VLReturn VLPixelBufferLockBaseAddress(VLPixelBufferRef buffer, uint64_t /*lockFlags*/) {
  if (buffer == nullptr) return kVLReturnInvalidArgument;
  buffer->locks.fetch_add(1, std::memory_order_acquire);
  return kVLReturnSuccess;
}

VLReturn VLPixelBufferUnlockBaseAddress(VLPixelBufferRef buffer, uint64_t /*unlockFlags*/) {
  if (buffer == nullptr) return kVLReturnInvalidArgument;
  int64_t locks = buffer->locks.load(std::memory_order_relaxed);
  do {
    if (locks <= 0) return kVLReturnUnlockWithoutLock;
  } while (!buffer->locks.compare_exchange_weak(locks, locks - 1, std::memory_order_release));
  return kVLReturnSuccess;
}

void* VLPixelBufferGetBaseAddressOfPlane(VLPixelBufferRef buffer, size_t plane) {
  return ValidPlane(buffer, plane) ? buffer->base[plane] : nullptr;
}

size_t VLPixelBufferGetBytesPerRowOfPlane(VLPixelBufferRef buffer, size_t plane) {
  return ValidPlane(buffer, plane) ? buffer->bytes_per_row[plane] : 0;
}

size_t VLPixelBufferGetWidthOfPlane(VLPixelBufferRef buffer, size_t plane) {
  return ValidPlane(buffer, plane) ? buffer->plane_width[plane] : 0;
}

size_t VLPixelBufferGetHeightOfPlane(VLPixelBufferRef buffer, size_t plane) {
  return ValidPlane(buffer, plane) ? buffer->plane_height[plane] : 0;
}

size_t VLPixelBufferGetPlaneCount(VLPixelBufferRef buffer) { return buffer != nullptr ? 2 : 0; }
size_t VLPixelBufferGetWidth(VLPixelBufferRef buffer) { return buffer ? buffer->width : 0; }
size_t VLPixelBufferGetHeight(VLPixelBufferRef buffer) { return buffer ? buffer->height : 0; }

uint32_t VLPixelBufferGetPixelFormatType(VLPixelBufferRef buffer) {
  return buffer != nullptr ? kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange : 0;
}
