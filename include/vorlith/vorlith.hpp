// The checked layer: the library for callers who are not plug-in hosts.
// Everything here validates its arguments and throws instead of reading or
// writing outside the views it is given:
//   - std::invalid_argument, naming the function, the argument and the rule,
//     for a view or parameter that breaks a rule;
//   - std::runtime_error when a network cannot be loaded or run.
// The raw plug-in interface (plugin.h) and the raw kernels (kernels.h) keep
// their contracts; the checked kernel wrappers are in checked_kernels.hpp.
#ifndef VORLITH_VORLITH_HPP_
#define VORLITH_VORLITH_HPP_

#include <memory>
#include <string>

#include "vorlith/checked_kernels.hpp"
#include "vorlith/export.h"
#include "vorlith/views.hpp"

namespace vorlith {

// Enlarges frames of any size two times: the luma through a network, the
// chroma through the library's bilinear 2x. Frames up to kTile pixels a side
// run whole; larger ones run in tiles that overlap by the network's
// receptive field, so that the result is the whole frame's, byte for byte.
// Network outputs become bytes by truncation toward zero, saturated to
// 0..255 (every column alike).
//
// One Upscaler serves one thread at a time; several may run at once. All of
// them compute on the process's worker pool.
class VORLITH_API Upscaler {
 public:
  enum class Network {
    kFull,   // the full network always
    kLight,  // the light network always
    // The full network until, after the first 30 frames, frames average
    // more than 30 ms per 1280x720 worth of pixels; the light one from then on.
    kAuto,
  };
  struct Options {
    Network network = Network::kAuto;
    // Threads a frame is split across; 0: one per CPU this process may run
    // on (its affinity mask, which taskset and cpusets narrow). Integer
    // networks run on a Vulkan GPU instead where there is one, with the same
    // bytes (see ComputeUnits in vorlith/model.h).
    int threads = 0;
    // Directory holding RTC.onnx (full) and RTC_degrade.onnx (light); empty:
    // the networks installed with the library.
    std::string models;
  };

  static constexpr int kTile = 1280;

  // Loads the networks the choice needs; std::runtime_error names the file
  // and the reason when one cannot be loaded.
  Upscaler();
  explicit Upscaler(const Options& options);
  ~Upscaler();
  Upscaler(const Upscaler&) = delete;
  Upscaler& operator=(const Upscaler&) = delete;

  // A luma (or any single-channel) plane: dst is 2w x 2h. src and dst must
  // not overlap.
  void Enlarge(ConstPlane src, Plane dst);
  // An NV12 frame: y w x h, uv ceil(w/2) x ceil(h/2) with 2 channels (Cb,
  // Cr); y2 2w x 2h, uv2 w x h with 2 channels.
  void EnlargeNV12(ConstPlane y, ConstPlane uv, Plane y2, Plane uv2);
  // A packed 3-channel image, R, G, B (or B, G, R with `bgr`): through the
  // library's BT.601 limited-range conversions to 4:2:0 (chroma from the
  // top-left pixel of each 2x2 block), enlarged as NV12, and back.
  void EnlargeRGB(ConstPlane src, Plane dst, bool bgr = false);

  // The network the next frame will use (kFull or kLight).
  Network network() const;
  // Input pixels of overlap the tiles of the network in use carry.
  int margin() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vorlith

#endif  // VORLITH_VORLITH_HPP_
