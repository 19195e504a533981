// The engine on a GPU through Vulkan compute, for integer networks: every
// operator computed with the CPU engine's arithmetic, so that a frame
// enlarged on the GPU has the CPU's bytes. Float networks stay on the CPU.
#ifndef VORLITH_SRC_MODEL_VULKAN_NETWORK_H_
#define VORLITH_SRC_MODEL_VULKAN_NETWORK_H_

#include <memory>
#include <string>

#include "src/model/network.h"
#include "src/model/onnx_graph.h"

namespace vorlith::model {

// The environment variable that picks the device: an index among the
// devices Vulkan lists, or part of a device's name (any kind of device,
// CPU-emulated ones included); "none" for none. Unset: the first discrete
// GPU, else integrated, else virtual; a CPU-emulated device never.
inline constexpr const char* kVulkanDeviceVariable = "VORLITH_VULKAN_DEVICE";

// Whether the GPU path has every operator of `graph` (an integer network:
// every convolution quantised); otherwise a reason.
bool VulkanCanRun(const Graph& graph, std::string* why);

// The network on the chosen device, with a CPU engine of `cpu_threads` bands
// beside it for what the device cannot do: a failure on the device (out of
// memory, a lost device) logs one error line and runs that call and every
// later one on the CPU, with the same bytes. Null when no device is used:
// *why is then empty when there is simply no GPU and none was named, and
// the reason otherwise. `graph` must pass VulkanCanRun.
std::unique_ptr<Network> CreateVulkanNetwork(const Graph& graph, int cpu_threads, std::string* why);

}  // namespace vorlith::model

#endif  // VORLITH_SRC_MODEL_VULKAN_NETWORK_H_
