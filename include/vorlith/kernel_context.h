// The kernel context: one record passed first to almost every image kernel.
// It holds the row-ring indices, constant vectors (colour coefficients and
// filter taps, each value repeated in every lane) and the scratch pointers.
//
// Ownership: every pointer field is owned by the context. Whatever is stored
// there must come from `new unsigned char[...]`, because UInitLanczos1p5x
// releases each non-null pointer with `delete[]`. InitLanczos1p5x allocates
// only `lineBuf` (81920 bytes); `workBuf`, `floatLineBuf` and `hblBuf[]` are
// set by the caller to the sizes the kernels that use them document.
//
// Threading: kernels write `rowIndex` and the scratch buffers, so one context
// serves one thread at a time.
#ifndef VORLITH_KERNEL_CONTEXT_H_
#define VORLITH_KERNEL_CONTEXT_H_

#include <cstddef>
#include <cstdint>

#include "vorlith/export.h"
#include "vorlith/lanes.h"

// Bytes InitLanczos1p5x allocates for `lineBuf`.
inline constexpr std::size_t kVorlithLineBufBytes = 81920;

struct alignas(16) _StLanczos1p5x {
  // Working indices of a kernel's row ring; rewritten by each kernel call.
  int32_t rowIndex[8];

  // RGB to YCbCr, BT.601 limited range, Q16.
  int32x4 yCoefR;  // 16843
  int32x4 yCoefG;  // 33030
  int32x4 yCoefB;  // 6423
  int16x8 yOffset;  // 16
  int32x4 uCoefR;  // -9699
  int32x4 uCoefG;  // -19071
  int32x4 uCoefB;  // 28770
  int16x8 uOffset;  // 128
  int32x4 vCoefR;  // 28770
  int32x4 vCoefG;  // -24117
  int32x4 vCoefB;  // -4653
  int16x8 vOffset;  // 128

  // YCbCr to RGB, Q16.
  int32x4 yGain;   // 76284
  int32x4 rCoefV;  // 104595
  int32x4 gCoefU;  // -25625
  int32x4 gCoefV;  // -53281
  int32x4 bCoefU;  // 132252
  int16x8 yBias;   // 16
  uint8x16 uvBias;  // 128

  // Luma and per-channel colour differences from RGB, Q20.
  int32x4 yCoefR20;   // 269484
  int32x4 yCoefG20;   // 528482
  int32x4 yCoefB20;   // 102760
  int32x4 yOffset20;  // 16 << 20
  int32x4 dRCoefR;    // 734678
  int32x4 dRCoefG;    // -615858
  int32x4 dRCoefB;    // -118820
  int32x4 dROffset;   // -(76284 * 256) + 16
  int32x4 dGCoefR;    // -313565
  int32x4 dGCoefG;    // 433025
  int32x4 dGCoefB;    // -119460
  int32x4 dGOffset;   // -(76284 * 256) + 32
  int32x4 dBCoefR;    // -313172
  int32x4 dBCoefG;    // -615764
  int32x4 dBCoefB;    // 928936
  int32x4 dBOffset;   // -(76284 * 256)

  // Not set by InitLanczos1p5x and read by no kernel.
  float32x4 halfVec;
  float32x4 q16Vec;

  // Resampling taps, Q11, one phase per array, applied in table order.
  int32x4 tapsLanczos2x[8];
  int32x4 tapsLanczos1p5xA[8];
  int32x4 tapsLanczos1p5xB[8];
  int32x4 tapsLanczos4d3xA[8];
  int32x4 tapsLanczos4d3xB[8];
  int32x4 tapsCubic1p5xA[4];
  int32x4 tapsCubic1p5xB[4];
  int32x4 tapsCubic2x[4];

  // Scratch, owned by the context (see above).
  unsigned char* hblBuf[7];
  unsigned char* spareBuf0;
  unsigned char* workBuf;
  unsigned char* lineBuf;
  unsigned char* spareBuf1;
  unsigned char* spareBuf2;
  unsigned char* floatLineBuf;
  unsigned char* spareBuf3;
  unsigned char* spareBuf4;
};

// Stores every table value (all lanes) and sets `lineBuf` to a new
// 81920-byte array. Touches nothing else: not `rowIndex`, `halfVec`,
// `q16Vec` or any other pointer, and it does not free an earlier `lineBuf`,
// so calling it twice on one context leaks the first buffer.
VORLITH_API void InitLanczos1p5x(_StLanczos1p5x* ctx);

// `delete[]`s every non-null pointer, in the order spareBuf0, workBuf,
// lineBuf, floatLineBuf, spareBuf1..4, hblBuf[0..6]. The pointers are not
// reset to null: call it once per context.
VORLITH_API void UInitLanczos1p5x(_StLanczos1p5x* ctx);

#endif  // VORLITH_KERNEL_CONTEXT_H_
