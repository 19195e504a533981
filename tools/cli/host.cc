#include "tools/cli/host.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <numeric>

#include "tools/common/host_support.h"

namespace vorlith::cli {

const char* PathName(Path path) {
  switch (path) {
    case Path::kFull: return "full";
    case Path::kLight: return "light";
    case Path::kBilinear: return "bilinear";
  }
  return "?";
}

double HostStats::MeanMs() const {
  return ms.empty() ? 0.0 : std::accumulate(ms.begin(), ms.end(), 0.0) / double(ms.size());
}

double HostStats::PercentileMs(double p) const {
  if (ms.empty()) return 0.0;
  std::vector<double> sorted = ms;
  std::sort(sorted.begin(), sorted.end());
  const size_t rank = static_cast<size_t>(std::ceil(p / 100.0 * double(sorted.size())));
  return sorted[std::clamp<size_t>(rank, 1, sorted.size()) - 1];
}

PluginHost::PluginHost(std::unique_ptr<SuperResolutionInterface> plugin, NetType net)
    : plugin_(std::move(plugin)), net_(net) {
  plugin_->SelectNetType(net_);
  plugin_->Init("");
  on_light_ = net_ == NET_TYPE_LIGHT;
}

PluginHost::PluginHost(std::unique_ptr<Upscaler> offline, NetType net)
    : offline_(std::move(offline)), net_(net), on_light_(net == NET_TYPE_LIGHT) {}

std::unique_ptr<PluginHost> PluginHost::CreateDefault(NetType net) {
  return std::make_unique<PluginHost>(
      std::unique_ptr<SuperResolutionInterface>(SuperResolutionInterface::Create()), net);
}

std::unique_ptr<PluginHost> PluginHost::CreateOffline(NetType net) {
  Upscaler::Options options;
  options.network = net == NET_TYPE_LIGHT ? Upscaler::Network::kLight : Upscaler::Network::kFull;
  // threads 0: one per CPU of this process's set (a Slurm task's
  // --cpus-per-task), so tasks sharing a node do not each take every core.
  try {
    return std::unique_ptr<PluginHost>(new PluginHost(std::make_unique<Upscaler>(options), net));
  } catch (const std::runtime_error& e) {
    throw CliError(kExitNoNetwork, e.what());
  }
}

Enlarged PluginHost::Enlarge(const Frame& in) {
  Enlarged result;
  const auto start = std::chrono::steady_clock::now();
  Frame produced = offline_ ? EnlargeOffline(in, result) : EnlargeWithPlugin(in, result);
  result.ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                  .count();
  if (result.path == Path::kLight && !on_light_) {
    result.fell_back = true;
    ++stats_.fallbacks;
  }
  if (result.path != Path::kBilinear) on_light_ = result.path == Path::kLight;
  result.frame = std::move(produced);
  ++stats_.frames;
  ++stats_.per_path[static_cast<int>(result.path)];
  stats_.ms.push_back(result.ms);
  return result;
}

Frame PluginHost::EnlargeOffline(const Frame& in, Enlarged& result) {
  const int w = in.width(), h = in.height();
  Frame out = Frame::Create(2 * w, 2 * h);
  {
    FrameLock src(in, /*read_only=*/true), dst(out);
    offline_->EnlargeNV12(ConstPlane(in.plane(0), w, h, in.stride(0)),
                          ConstPlane(in.plane(1), (w + 1) / 2, (h + 1) / 2, in.stride(1), 2),
                          Plane(out.plane(0), 2 * w, 2 * h, out.stride(0)),
                          Plane(out.plane(1), w, h, out.stride(1), 2));
  }
  result.status = net_ == NET_TYPE_LIGHT ? SR_OK_LIGHT : SR_OK;
  result.path = net_ == NET_TYPE_LIGHT ? Path::kLight : Path::kFull;
  return out;
}

Frame PluginHost::EnlargeWithPlugin(const Frame& in, Enlarged& result) {
  _tagVideoData src{};
  src.width = static_cast<uint32_t>(in.width());
  src.height = static_cast<uint32_t>(in.height());
  src.pixelBuffer = in.get();
  src.format = 1;
  _tagVideoData dst{};
  dst.pixelBuffer = nullptr;  // left untouched unless a frame comes back

  result.status = plugin_->ProcessData(&src, &dst);
  Frame produced(dst.pixelBuffer);
  switch (result.status) {
    case SR_OK:
    case SR_OK_LIGHT:
      result.path = result.status == SR_OK ? Path::kFull : Path::kLight;
      break;
    case SR_ERR_TOO_SLOW:
      // The frame on which the governor refuses still comes back enlarged;
      // later frames of its size come back with nothing.
      ++stats_.refused;
      result.refused_here = bool(produced);
      result.path = produced ? Path::kLight : Path::kBilinear;
      if (!produced) produced = BilinearEnlarge(in, ctx_);
      break;
    case SR_ERR_TOO_LARGE:
      throw CliError(kExitTooLarge, "the plug-in refused a " + std::to_string(in.width()) + "x" +
                                        std::to_string(in.height()) +
                                        " frame: frames may be at most " +
                                        std::to_string(kMaxSide) + " pixels wide and tall");
    default:
      throw CliError(kExitNoNetwork, "the plug-in could not enlarge frame " +
                                         std::to_string(stats_.frames + 1) + " (ProcessData returned " +
                                         std::to_string(result.status) + "): " + host::NetworkTrouble());
  }
  return produced;
}

}  // namespace vorlith::cli
