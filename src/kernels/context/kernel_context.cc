#include "vorlith/kernel_context.h"

#include <cstddef>
#include <cstring>

#include "src/kernels/convert/colour_coefficients.h"

// The record's layout is part of the ABI: hosts compiled against one release
// must keep working with the next.
static_assert(offsetof(_StLanczos1p5x, rowIndex) == 0);
static_assert(offsetof(_StLanczos1p5x, yCoefR) == 32);
static_assert(offsetof(_StLanczos1p5x, yOffset) == 80);
static_assert(offsetof(_StLanczos1p5x, uvBias) == 320);
static_assert(offsetof(_StLanczos1p5x, yCoefR20) == 336);
static_assert(offsetof(_StLanczos1p5x, dBOffset) == 576);
static_assert(offsetof(_StLanczos1p5x, halfVec) == 592);
static_assert(offsetof(_StLanczos1p5x, q16Vec) == 608);
static_assert(offsetof(_StLanczos1p5x, tapsLanczos2x) == 624);
static_assert(offsetof(_StLanczos1p5x, tapsCubic1p5xA) == 1264);
static_assert(offsetof(_StLanczos1p5x, tapsCubic2x) == 1392);
static_assert(offsetof(_StLanczos1p5x, hblBuf) == 1456);
static_assert(offsetof(_StLanczos1p5x, spareBuf0) == 1512);
static_assert(offsetof(_StLanczos1p5x, lineBuf) == 1528);
static_assert(offsetof(_StLanczos1p5x, spareBuf4) == 1568);
static_assert(sizeof(_StLanczos1p5x) == 1584 && alignof(_StLanczos1p5x) == 16);

namespace {

// Lane types are register types on aarch64 and structs elsewhere; memcpy
// fills either without caring which.
template <class Vec, class T>
void Splat(Vec* field, T value) {
  constexpr std::size_t kLanes = sizeof(Vec) / sizeof(T);
  T lanes[kLanes];
  for (T& lane : lanes) lane = value;
  std::memcpy(static_cast<void*>(field), lanes, sizeof(Vec));
}

template <std::size_t N>
void SplatTaps(int32x4 (&field)[N], const int32_t (&taps)[N]) {
  for (std::size_t i = 0; i < N; ++i) Splat(&field[i], taps[i]);
}

constexpr int32_t kLanczos2x[8] = {-8, 64, -188, 579, 1830, -312, 114, -31};
constexpr int32_t kLanczos1p5xA[8] = {-4, 41, -122, 364, 1949, -242, 88, -25};
constexpr int32_t kLanczos1p5xB[8] = {-26, 122, -340, 1267, 1267, -340, 122, -26};
constexpr int32_t kLanczos4d3xA[8] = {-2, 30, -90, 263, 1992, -194, 70, -21};
constexpr int32_t kLanczos4d3xB[8] = {-17, 98, -277, 923, 1580, -357, 130, -32};
constexpr int32_t kCubic1p5xA[4] = {-36, 329, 1932, -178};
constexpr int32_t kCubic1p5xB[4] = {-192, 1216, 1216, -192};
constexpr int32_t kCubic2x[4] = {-72, 536, 1800, -216};

void FreeIfSet(unsigned char* p) {
  if (p != nullptr) delete[] p;
}

}  // namespace

void InitLanczos1p5x(_StLanczos1p5x* ctx) {
  namespace c = vorlith::colour;
  Splat(&ctx->yCoefR, c::kYR);
  Splat(&ctx->yCoefG, c::kYG);
  Splat(&ctx->yCoefB, c::kYB);
  Splat(&ctx->yOffset, int16_t{c::kYOffset});
  Splat(&ctx->uCoefR, c::kUR);
  Splat(&ctx->uCoefG, c::kUG);
  Splat(&ctx->uCoefB, c::kUB);
  Splat(&ctx->uOffset, int16_t{c::kUOffset});
  Splat(&ctx->vCoefR, c::kVR);
  Splat(&ctx->vCoefG, c::kVG);
  Splat(&ctx->vCoefB, c::kVB);
  Splat(&ctx->vOffset, int16_t{c::kVOffset});

  Splat(&ctx->yGain, c::kYGain);
  Splat(&ctx->rCoefV, c::kRV);
  Splat(&ctx->gCoefU, c::kGU);
  Splat(&ctx->gCoefV, c::kGV);
  Splat(&ctx->bCoefU, c::kBU);
  Splat(&ctx->yBias, int16_t{c::kYBias});
  Splat(&ctx->uvBias, uint8_t{c::kUVBias});

  Splat(&ctx->yCoefR20, c::kYR20);
  Splat(&ctx->yCoefG20, c::kYG20);
  Splat(&ctx->yCoefB20, c::kYB20);
  Splat(&ctx->yOffset20, c::kYOffset20);
  Splat(&ctx->dRCoefR, c::kDR[0]);
  Splat(&ctx->dRCoefG, c::kDR[1]);
  Splat(&ctx->dRCoefB, c::kDR[2]);
  Splat(&ctx->dROffset, c::kDR[3]);
  Splat(&ctx->dGCoefR, c::kDG[0]);
  Splat(&ctx->dGCoefG, c::kDG[1]);
  Splat(&ctx->dGCoefB, c::kDG[2]);
  Splat(&ctx->dGOffset, c::kDG[3]);
  Splat(&ctx->dBCoefR, c::kDB[0]);
  Splat(&ctx->dBCoefG, c::kDB[1]);
  Splat(&ctx->dBCoefB, c::kDB[2]);
  Splat(&ctx->dBOffset, c::kDB[3]);

  SplatTaps(ctx->tapsLanczos2x, kLanczos2x);
  SplatTaps(ctx->tapsLanczos1p5xA, kLanczos1p5xA);
  SplatTaps(ctx->tapsLanczos1p5xB, kLanczos1p5xB);
  SplatTaps(ctx->tapsLanczos4d3xA, kLanczos4d3xA);
  SplatTaps(ctx->tapsLanczos4d3xB, kLanczos4d3xB);
  SplatTaps(ctx->tapsCubic1p5xA, kCubic1p5xA);
  SplatTaps(ctx->tapsCubic1p5xB, kCubic1p5xB);
  SplatTaps(ctx->tapsCubic2x, kCubic2x);

  ctx->lineBuf = new unsigned char[kVorlithLineBufBytes];
}

void UInitLanczos1p5x(_StLanczos1p5x* ctx) {
  FreeIfSet(ctx->spareBuf0);
  FreeIfSet(ctx->workBuf);
  FreeIfSet(ctx->lineBuf);
  FreeIfSet(ctx->floatLineBuf);
  FreeIfSet(ctx->spareBuf1);
  FreeIfSet(ctx->spareBuf2);
  FreeIfSet(ctx->spareBuf3);
  FreeIfSet(ctx->spareBuf4);
  for (unsigned char* row : ctx->hblBuf) FreeIfSet(row);
}
