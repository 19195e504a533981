// Reference-counted two-plane 8-bit pixel buffers: the frames a host hands to
// the plug-in (in _tagVideoData::pixelBuffer) and the frames it gets back.
//
// Format "420v" (kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange): NV12, video
// range. Plane 0 is luma, width x height bytes; plane 1 is interleaved Cb/Cr,
// ceil(width/2) x ceil(height/2) pairs (plane width counts pairs, so a plane-1
// row holds 2 * plane width bytes).
//
// A buffer starts with one reference, held by its creator; VLPixelBufferRetain
// adds one, VLPixelBufferRelease drops one and frees the buffer (or calls the
// release callback of a wrapped buffer) with the last. Reference counting is
// thread-safe; the pixels themselves are not synchronised.
//
// Lock before touching the pixels and unlock after; lock calls nest. The memory
// does not move, so the addresses stay valid while a reference is held, but the
// lock records the intent and an unbalanced unlock is reported.
#ifndef VORLITH_PIXEL_BUFFER_H_
#define VORLITH_PIXEL_BUFFER_H_

#include <cstddef>
#include <cstdint>

#include "vorlith/export.h"

typedef struct VLPixelBuffer* VLPixelBufferRef;
typedef int32_t VLReturn;

// '420v'
inline constexpr uint32_t kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange = 0x34323076;

inline constexpr VLReturn kVLReturnSuccess = 0;
inline constexpr VLReturn kVLReturnInvalidArgument = -6661;  // null pointer, bad plane, ...
inline constexpr VLReturn kVLReturnAllocationFailed = -6662;
inline constexpr VLReturn kVLReturnInvalidPixelFormat = -6680;  // only "420v" is supported
inline constexpr VLReturn kVLReturnInvalidSize = -6681;  // zero, or beyond 16384 per side
inline constexpr VLReturn kVLReturnUnlockWithoutLock = -6690;

// Rows of buffers created by the library start 64 bytes apart at least.
inline constexpr size_t kVLPixelBufferRowAlignment = 64;

// Creates a buffer of width x height pixels (1..16384 each) with its own
// zero-filled memory: 64-byte aligned planes and rows.
VORLITH_API VLReturn VLPixelBufferCreate(size_t width, size_t height, uint32_t pixelFormatType,
                                        VLPixelBufferRef* pixelBufferOut);

// Called once when the last reference to a wrapped buffer goes, with the
// refcon and plane addresses given at creation.
typedef void (*VLPixelBufferReleasePlanarBytesCallback)(void* releaseRefCon,
                                                       void* const planeBaseAddress[2]);

// Wraps a host's own two planes without copying. planeBytesPerRow[0] must be at
// least width, planeBytesPerRow[1] at least 2 * ceil(width / 2); the planes must
// stay valid until the callback runs (which may be null).
VORLITH_API VLReturn VLPixelBufferCreateWithPlanarBytes(
    size_t width, size_t height, uint32_t pixelFormatType, void* const planeBaseAddress[2],
    const size_t planeBytesPerRow[2], VLPixelBufferReleasePlanarBytesCallback releaseCallback,
    void* releaseRefCon, VLPixelBufferRef* pixelBufferOut);

// Pools of buffers of one size, for a producer that hands out a frame after
// frame: a buffer created from a pool returns to it when its last reference
// is released, and a later request takes it again instead of allocating and
// clearing new memory. A buffer is reused only after every reference to it
// is gone. New buffers are zero-filled like VLPixelBufferCreate's; reused
// ones keep the pixels they last held. A pool keeps a few released buffers
// (kVLPixelBufferPoolKeep); what it cannot keep is freed.
typedef struct VLPixelBufferPool* VLPixelBufferPoolRef;
inline constexpr size_t kVLPixelBufferPoolKeep = 3;

// A pool of width x height buffers (limits as VLPixelBufferCreate).
VORLITH_API VLReturn VLPixelBufferPoolCreate(size_t width, size_t height, uint32_t pixelFormatType,
                                            VLPixelBufferPoolRef* poolOut);
// A buffer of the pool's size with one reference, held by the caller.
VORLITH_API VLReturn VLPixelBufferPoolCreatePixelBuffer(VLPixelBufferPoolRef pool,
                                                       VLPixelBufferRef* pixelBufferOut);
// Gives up the pool: its kept buffers are freed now, and buffers still held
// elsewhere are freed when their last reference goes. Null is ignored.
VORLITH_API void VLPixelBufferPoolRelease(VLPixelBufferPoolRef pool);

// Adds a reference; returns its argument (null stays null).
VORLITH_API VLPixelBufferRef VLPixelBufferRetain(VLPixelBufferRef buffer);
// Drops a reference; null is ignored.
VORLITH_API void VLPixelBufferRelease(VLPixelBufferRef buffer);

// lockFlags: 0, or kVLPixelBufferLock_ReadOnly. Unlock takes the same flags.
inline constexpr uint64_t kVLPixelBufferLock_ReadOnly = 1;
VORLITH_API VLReturn VLPixelBufferLockBaseAddress(VLPixelBufferRef buffer, uint64_t lockFlags);
VORLITH_API VLReturn VLPixelBufferUnlockBaseAddress(VLPixelBufferRef buffer, uint64_t unlockFlags);

// Plane queries; a null buffer or a plane index other than 0 or 1 gives 0/null.
VORLITH_API void* VLPixelBufferGetBaseAddressOfPlane(VLPixelBufferRef buffer, size_t plane);
VORLITH_API size_t VLPixelBufferGetBytesPerRowOfPlane(VLPixelBufferRef buffer, size_t plane);
VORLITH_API size_t VLPixelBufferGetWidthOfPlane(VLPixelBufferRef buffer, size_t plane);
VORLITH_API size_t VLPixelBufferGetHeightOfPlane(VLPixelBufferRef buffer, size_t plane);
VORLITH_API size_t VLPixelBufferGetPlaneCount(VLPixelBufferRef buffer);
VORLITH_API size_t VLPixelBufferGetWidth(VLPixelBufferRef buffer);
VORLITH_API size_t VLPixelBufferGetHeight(VLPixelBufferRef buffer);
VORLITH_API uint32_t VLPixelBufferGetPixelFormatType(VLPixelBufferRef buffer);

#endif  // VORLITH_PIXEL_BUFFER_H_
