// Drives the plug-in as an application does: Create, SelectNetType, Init,
// then ProcessData once per frame. What the plug-in declines, the host does
// itself: frames whose size the time governor refused are enlarged with a
// plain bilinear 2x, so that a video keeps every frame. Offline, the
// library's Upscaler runs one network on every frame instead.
#ifndef VORLITH_TOOLS_CLI_HOST_H_
#define VORLITH_TOOLS_CLI_HOST_H_

#include <memory>
#include <string>
#include <vector>

#include "tools/cli/frame.h"
#include "vorlith/plugin.h"
#include "vorlith/vorlith.hpp"

namespace vorlith::cli {

// What enlarged a frame.
enum class Path { kFull, kLight, kBilinear };
const char* PathName(Path path);

// What happened to one frame.
struct Enlarged {
  Frame frame;                // 2W x 2H
  Path path = Path::kFull;
  int status = 0;             // ProcessData's return
  double ms = 0;              // wall time of ProcessData plus any host fallback
  bool fell_back = false;     // first frame on the light network after the governor left the full
  bool refused_here = false;  // the governor refused this frame's size on this frame
};

// Totals over a run.
struct HostStats {
  long frames = 0;
  long per_path[3] = {0, 0, 0};  // indexed by Path
  long refused = 0;              // ProcessData returned 41 (with or without a frame)
  long fallbacks = 0;            // full -> light switches made by the governor
  std::vector<double> ms;        // per frame
  double MeanMs() const;
  double PercentileMs(double p) const;  // nearest rank, p in (0, 100]
};

class PluginHost {
 public:
  // Takes ownership of `plugin` and initialises it with the given network.
  PluginHost(std::unique_ptr<SuperResolutionInterface> plugin, NetType net);
  // The library's plug-in.
  static std::unique_ptr<PluginHost> CreateDefault(NetType net);
  // One network for every frame and no time governor: the Upscaler on the
  // same networks, so that the output depends on the input alone, never on
  // how busy the machine was. Throws CliError (kExitNoNetwork) when a
  // network cannot be loaded.
  static std::unique_ptr<PluginHost> CreateOffline(NetType net);

  // Enlarges one NV12 frame 2x. Throws CliError for frames above the size
  // limit (kExitTooLarge) and when the plug-in cannot run its networks
  // (-1, kExitNoNetwork).
  Enlarged Enlarge(const Frame& in);

  const HostStats& stats() const { return stats_; }

 private:
  PluginHost(std::unique_ptr<Upscaler> offline, NetType net);
  Frame EnlargeWithPlugin(const Frame& in, Enlarged& result);
  Frame EnlargeOffline(const Frame& in, Enlarged& result);

  std::unique_ptr<SuperResolutionInterface> plugin_;
  std::unique_ptr<Upscaler> offline_;
  NetType net_;
  KernelContext ctx_;
  HostStats stats_;
  bool on_light_ = false;
};

}  // namespace vorlith::cli

#endif  // VORLITH_TOOLS_CLI_HOST_H_
