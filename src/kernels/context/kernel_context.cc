#include "vorlith/kernel_context.h"

#include <cstddef>
#include <cstring>

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
  Splat(&ctx->yCoefR, int32_t{16843});
  Splat(&ctx->yCoefG, int32_t{33030});
  Splat(&ctx->yCoefB, int32_t{6423});
  Splat(&ctx->yOffset, int16_t{16});
  Splat(&ctx->uCoefR, int32_t{-9699});
  Splat(&ctx->uCoefG, int32_t{-19071});
  Splat(&ctx->uCoefB, int32_t{28770});
  Splat(&ctx->uOffset, int16_t{128});
  Splat(&ctx->vCoefR, int32_t{28770});
  Splat(&ctx->vCoefG, int32_t{-24117});
  Splat(&ctx->vCoefB, int32_t{-4653});
  Splat(&ctx->vOffset, int16_t{128});

  Splat(&ctx->yGain, int32_t{76284});
  Splat(&ctx->rCoefV, int32_t{104595});
  Splat(&ctx->gCoefU, int32_t{-25625});
  Splat(&ctx->gCoefV, int32_t{-53281});
  Splat(&ctx->bCoefU, int32_t{132252});
  Splat(&ctx->yBias, int16_t{16});
  Splat(&ctx->uvBias, uint8_t{128});

  Splat(&ctx->yCoefR20, int32_t{269484});
  Splat(&ctx->yCoefG20, int32_t{528482});
  Splat(&ctx->yCoefB20, int32_t{102760});
  Splat(&ctx->yOffset20, int32_t{16 << 20});
  Splat(&ctx->dRCoefR, int32_t{734678});
  Splat(&ctx->dRCoefG, int32_t{-615858});
  Splat(&ctx->dRCoefB, int32_t{-118820});
  Splat(&ctx->dROffset, int32_t{-(76284 * 256) + 16});
  Splat(&ctx->dGCoefR, int32_t{-313565});
  Splat(&ctx->dGCoefG, int32_t{433025});
  Splat(&ctx->dGCoefB, int32_t{-119460});
  Splat(&ctx->dGOffset, int32_t{-(76284 * 256) + 32});
  Splat(&ctx->dBCoefR, int32_t{-313172});
  Splat(&ctx->dBCoefG, int32_t{-615764});
  Splat(&ctx->dBCoefB, int32_t{928936});
  Splat(&ctx->dBOffset, int32_t{-(76284 * 256)});

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
