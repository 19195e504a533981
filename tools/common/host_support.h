// Pieces every host program of the plug-in needs beside ProcessData: the
// bilinear 2x for frames the plug-in declines, and where the library looks
// for its networks, to explain a failure to a user.
#ifndef VORLITH_TOOLS_COMMON_HOST_SUPPORT_H_
#define VORLITH_TOOLS_COMMON_HOST_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "vorlith/kernel_context.h"

namespace vorlith::host {

// A plain bilinear 2x of an NV12 frame (w x h luma, its chroma plane
// ((w+1)/2 pairs) x (h+1)/2 rows) into a 2w x 2h one. Chroma goes through the
// library's Linear_2x_nv; the library exports no luma bilinear, so luma uses
// the same 9/3/3/1 weights on the same half-pixel grid here, which keeps the
// two planes aligned.
void BilinearEnlargeNv12(_StLanczos1p5x* ctx, const uint8_t* y, ptrdiff_t y_stride, const uint8_t* uv,
                         ptrdiff_t uv_stride, int w, int h, uint8_t* y2, ptrdiff_t y2_stride, uint8_t* uv2,
                         ptrdiff_t uv2_stride);

// Where the plug-in looks for its networks, and which of them are missing.
struct NetworkSearch {
  std::vector<std::string> directories;
  std::vector<std::string> missing;  // file names found in none of them
};
// The library looks beside the object it was loaded from (the program, when
// linked statically), in ../share/vorlith from there, and in the installed
// data directory. Only used to explain a failure: whether the networks load
// is the library's business.
NetworkSearch FindNetworks();

// Why the plug-in could not run, in words for a user: which networks are
// missing and where it looked, or that they are there but unusable.
std::string NetworkTrouble();

}  // namespace vorlith::host

#endif  // VORLITH_TOOLS_COMMON_HOST_SUPPORT_H_
