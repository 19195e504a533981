// The NV12 chroma 2x enlargement by bands of output rows, for callers that
// split a frame across threads (the plug-in). Internal to the library.
#ifndef VORLITH_SRC_KERNELS_RESIZE_LINEAR_2X_NV_H_
#define VORLITH_SRC_KERNELS_RESIZE_LINEAR_2X_NV_H_

#include <algorithm>
#include <cstdint>

namespace vorlith {

// Writes output rows [first, end) of what Linear_2x_nv writes for the same
// arguments, byte for byte, using `scratch` (2 * 4 * width int16 values,
// one per concurrent caller) instead of the context's rows. Bands that
// split [0, 2 * height) at odd rows filter each source row at most twice in
// all.
void Linear2xNvRows(int16_t* scratch, const uint8_t* src, uint8_t* dst, int height, int width,
                    int src_stride, int dst_stride, int first, int end);

// Where band `band` of `bands` starts among the first `rows` output rows of
// a source `height` rows tall: at odd rows, so that bands share as little
// filtering as they can; band `bands` starts at `rows`.
inline int Linear2xNvBandStart(int band, int bands, int height, int rows) {
  if (band == 0) return 0;
  if (band == bands) return rows;
  return std::min(rows, 2 * (height * band / bands) + 1);
}

}  // namespace vorlith

#endif  // VORLITH_SRC_KERNELS_RESIZE_LINEAR_2X_NV_H_
