// Register blocking of the convolution rows, float and quantised: per SIMD
// target, included once per target by the files foreach_target.h compiles.
#if defined(VORLITH_SRC_MODEL_ENGINE_BLOCK_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef VORLITH_SRC_MODEL_ENGINE_BLOCK_INL_H_
#undef VORLITH_SRC_MODEL_ENGINE_BLOCK_INL_H_
#else
#define VORLITH_SRC_MODEL_ENGINE_BLOCK_INL_H_
#endif

#include <hwy/highway.h>

#include "src/model/engine_rows.h"

HWY_BEFORE_NAMESPACE();
namespace vorlith::model::rows {
namespace HWY_NAMESPACE {

// Accumulators one convolution block keeps in registers: half the register
// file, so that the inputs and a broadcast weight fit beside them.
#if HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_SSE4 || HWY_TARGET == HWY_SSSE3 || \
    HWY_TARGET == HWY_EMU128 || HWY_TARGET == HWY_SCALAR
constexpr int kAccumulators = 12;  // 16 vector registers
#else
constexpr int kAccumulators = 16;  // 32 vector registers
#endif
// Vectors of pixels per block: every group of output channels of a block
// shares them, so each loaded input feeds kGroup multiply-adds.
constexpr int kBlock = kAccumulators / kGroup;

// The accumulators are named variables, not an array, because scalable
// vectors (SVE) cannot be array elements. Each macro below expands to every
// (group lane g, vector b) or vector b; `if constexpr` keeps the used ones.
#ifndef VL_FOR_B
#define VL_FOR_B(M, g) M(g, 0) M(g, 1) M(g, 2) M(g, 3)
#define VL_FOR_GB(M) VL_FOR_B(M, 0) VL_FOR_B(M, 1) VL_FOR_B(M, 2) VL_FOR_B(M, 3)
#define VL_FOR_V(M) M(0) M(1) M(2) M(3)
#endif
static_assert(kBlock <= 4 && kGroup == 4, "the macros above name 4 x 4 accumulators");

}  // namespace HWY_NAMESPACE
}  // namespace vorlith::model::rows
HWY_AFTER_NAMESPACE();

#endif  // VORLITH_SRC_MODEL_ENGINE_BLOCK_INL_H_
