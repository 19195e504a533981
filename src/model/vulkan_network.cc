#include "src/model/vulkan_network.h"

#include <vulkan/vulkan.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>

#include "src/platform/platform.h"
#include "vorlith_shaders/activate.h"
#include "vorlith_shaders/binary.h"
#include "vorlith_shaders/depth_to_space.h"
#include "vorlith_shaders/qconv.h"
#include "vorlith_shaders/quantize.h"

namespace vorlith::model {

namespace {

struct VulkanError : std::runtime_error {
  VulkanError(const std::string& what, VkResult result)
      : std::runtime_error(what + " failed (VkResult " + std::to_string(result) + ")"), result(result) {}
  VkResult result;
};

// No GPU at all, and none named: not an error, the CPU is the default.
struct NoDevice : std::runtime_error {
  NoDevice() : std::runtime_error("no Vulkan GPU") {}
};

// A Vulkan info structure, zeroed but for its type.
template <typename T>
T Info(VkStructureType type) {
  T info{};
  info.sType = type;
  return info;
}

void Check(VkResult result, const char* what) {
  if (result != VK_SUCCESS) throw VulkanError(what, result);
}

enum Kernel { kQuantizeKernel, kQConvKernel, kActivateKernel, kBinaryKernel, kDepthToSpaceKernel, kKernels };

struct KernelCode {
  const uint32_t* code;
  size_t bytes;
  uint32_t bindings;
};

const KernelCode kCode[kKernels] = {
    {kquantize, sizeof(kquantize), 2}, {kqconv, sizeof(kqconv), 5},
    {kactivate, sizeof(kactivate), 3}, {kbinary, sizeof(kbinary), 3},
    {kdepth_to_space, sizeof(kdepth_to_space), 2},
};
constexpr uint32_t kPushBytes = 64;
constexpr uint32_t kLocalSize = 64;  // the shaders' local_size_x

struct Buffer {
  VkBuffer buffer = VK_NULL_HANDLE;
  VkDeviceMemory memory = VK_NULL_HANDLE;
  VkDeviceSize bytes = 0;
  void* mapped = nullptr;  // host-visible buffers only
};

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

int Rank(VkPhysicalDeviceType type) {
  switch (type) {
    case VK_PHYSICAL_DEVICE_TYPE_DISCRETE_GPU: return 0;
    case VK_PHYSICAL_DEVICE_TYPE_INTEGRATED_GPU: return 1;
    case VK_PHYSICAL_DEVICE_TYPE_VIRTUAL_GPU: return 2;
    default: return -1;  // CPU-emulated or other: only when named
  }
}

// One instance for the process, made on first use and never destroyed:
// creating one starts the drivers up (tens of milliseconds), and Mesa's
// CPU-emulated driver leaves allocations of its generated code behind a
// destroyed instance.
VkResult SharedInstance(VkInstance* instance) {
  static std::mutex mutex;
  static VkInstance shared = VK_NULL_HANDLE;
  static VkResult result = VK_NOT_READY;
  std::lock_guard<std::mutex> lock(mutex);
  if (result == VK_NOT_READY) {
    auto app = Info<VkApplicationInfo>(VK_STRUCTURE_TYPE_APPLICATION_INFO);
    app.pApplicationName = "vorlith";
    app.apiVersion = VK_API_VERSION_1_1;
    auto info = Info<VkInstanceCreateInfo>(VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO);
    info.pApplicationInfo = &app;
    result = vkCreateInstance(&info, nullptr, &shared);
  }
  *instance = shared;
  return result;
}

// Device, queue and the compute pipelines: what every network on the device
// shares.
class Device {
 public:
  // Throws VulkanError, or std::runtime_error when no device suits, having
  // released what it made.
  Device() {
    try {
      Open();
    } catch (...) {
      Close();
      throw;
    }
  }
  ~Device() { Close(); }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

 private:
  void Open() {
    const char* wanted = std::getenv(kVulkanDeviceVariable);
    const bool named = wanted != nullptr && *wanted != '\0';
    if (named && Lower(wanted) == "none") throw NoDevice();
    // Without a driver there is no instance: no device either.
    const VkResult created = SharedInstance(&instance_);
    if (created == VK_ERROR_INCOMPATIBLE_DRIVER && !named) throw NoDevice();
    Check(created, "vkCreateInstance");

    uint32_t count = 0;
    Check(vkEnumeratePhysicalDevices(instance_, &count, nullptr), "vkEnumeratePhysicalDevices");
    std::vector<VkPhysicalDevice> devices(count);
    Check(vkEnumeratePhysicalDevices(instance_, &count, devices.data()), "vkEnumeratePhysicalDevices");
    int best = -1, best_rank = 1 << 30;
    std::string seen;
    for (uint32_t i = 0; i < count; ++i) {
      VkPhysicalDeviceProperties props;
      vkGetPhysicalDeviceProperties(devices[i], &props);
      VkPhysicalDeviceFeatures features;
      vkGetPhysicalDeviceFeatures(devices[i], &features);
      seen += std::string(seen.empty() ? "" : ", ") + props.deviceName;
      if (!features.shaderFloat64 || ComputeFamily(devices[i]) < 0) continue;
      int rank = Rank(props.deviceType);
      if (named) {
        const bool match = std::string(wanted).find_first_not_of("0123456789") == std::string::npos
                               ? std::to_string(i) == wanted
                               : Lower(props.deviceName).find(Lower(wanted)) != std::string::npos;
        rank = match ? 0 : -1;
      }
      if (rank >= 0 && rank < best_rank) {
        best = static_cast<int>(i);
        best_rank = rank;
      }
    }
    if (best < 0 && !named) throw NoDevice();
    if (best < 0) {
      throw std::runtime_error("no Vulkan device with 64-bit floats matches " + std::string(kVulkanDeviceVariable) +
                               "=" + wanted + " (devices: " + (seen.empty() ? "none" : seen) + ")");
    }
    physical_ = devices[best];
    VkPhysicalDeviceProperties props;
    vkGetPhysicalDeviceProperties(physical_, &props);
    name_ = props.deviceName;
    max_range_ = props.limits.maxStorageBufferRange;
    vkGetPhysicalDeviceMemoryProperties(physical_, &memory_);
    family_ = static_cast<uint32_t>(ComputeFamily(physical_));

    const float priority = 1.0f;
    auto queue_info = Info<VkDeviceQueueCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO);
    queue_info.queueFamilyIndex = family_;
    queue_info.queueCount = 1;
    queue_info.pQueuePriorities = &priority;
    VkPhysicalDeviceFeatures enabled{};
    enabled.shaderFloat64 = VK_TRUE;  // the requantising division
    auto device_info = Info<VkDeviceCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO);
    device_info.queueCreateInfoCount = 1;
    device_info.pQueueCreateInfos = &queue_info;
    device_info.pEnabledFeatures = &enabled;
    Check(vkCreateDevice(physical_, &device_info, nullptr, &device_), "vkCreateDevice");
    vkGetDeviceQueue(device_, family_, 0, &queue_);

    auto pool_info = Info<VkCommandPoolCreateInfo>(VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO);
    pool_info.flags = VK_COMMAND_POOL_CREATE_RESET_COMMAND_BUFFER_BIT;
    pool_info.queueFamilyIndex = family_;
    Check(vkCreateCommandPool(device_, &pool_info, nullptr, &pool_), "vkCreateCommandPool");
    auto fence_info = Info<VkFenceCreateInfo>(VK_STRUCTURE_TYPE_FENCE_CREATE_INFO);
    Check(vkCreateFence(device_, &fence_info, nullptr, &fence_), "vkCreateFence");

    for (int k = 0; k < kKernels; ++k) {
      std::vector<VkDescriptorSetLayoutBinding> bindings(kCode[k].bindings);
      for (uint32_t b = 0; b < kCode[k].bindings; ++b) {
        bindings[b] = {b, VK_DESCRIPTOR_TYPE_STORAGE_BUFFER, 1, VK_SHADER_STAGE_COMPUTE_BIT, nullptr};
      }
      auto set_info = Info<VkDescriptorSetLayoutCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO);
      set_info.bindingCount = kCode[k].bindings;
      set_info.pBindings = bindings.data();
      Check(vkCreateDescriptorSetLayout(device_, &set_info, nullptr, &set_layouts_[k]), "vkCreateDescriptorSetLayout");
      const VkPushConstantRange push{VK_SHADER_STAGE_COMPUTE_BIT, 0, kPushBytes};
      auto layout_info = Info<VkPipelineLayoutCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO);
      layout_info.setLayoutCount = 1;
      layout_info.pSetLayouts = &set_layouts_[k];
      layout_info.pushConstantRangeCount = 1;
      layout_info.pPushConstantRanges = &push;
      Check(vkCreatePipelineLayout(device_, &layout_info, nullptr, &layouts_[k]), "vkCreatePipelineLayout");
      auto module_info = Info<VkShaderModuleCreateInfo>(VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO);
      module_info.codeSize = kCode[k].bytes;
      module_info.pCode = kCode[k].code;
      VkShaderModule module;
      Check(vkCreateShaderModule(device_, &module_info, nullptr, &module), "vkCreateShaderModule");
      auto pipeline_info = Info<VkComputePipelineCreateInfo>(VK_STRUCTURE_TYPE_COMPUTE_PIPELINE_CREATE_INFO);
      pipeline_info.stage = Info<VkPipelineShaderStageCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO);
      pipeline_info.stage.stage = VK_SHADER_STAGE_COMPUTE_BIT;
      pipeline_info.stage.module = module;
      pipeline_info.stage.pName = "main";
      pipeline_info.layout = layouts_[k];
      const VkResult result =
          vkCreateComputePipelines(device_, VK_NULL_HANDLE, 1, &pipeline_info, nullptr, &pipelines_[k]);
      vkDestroyShaderModule(device_, module, nullptr);
      Check(result, "vkCreateComputePipelines");
    }
  }

  void Close() {
    if (device_ != VK_NULL_HANDLE) {
      vkDeviceWaitIdle(device_);
      for (int k = 0; k < kKernels; ++k) {
        vkDestroyPipeline(device_, pipelines_[k], nullptr);
        vkDestroyPipelineLayout(device_, layouts_[k], nullptr);
        vkDestroyDescriptorSetLayout(device_, set_layouts_[k], nullptr);
      }
      vkDestroyFence(device_, fence_, nullptr);
      vkDestroyCommandPool(device_, pool_, nullptr);
      vkDestroyDevice(device_, nullptr);
      device_ = VK_NULL_HANDLE;
    }
  }

 public:
  Buffer Create(VkDeviceSize bytes, bool host_visible) {
    Buffer b;
    b.bytes = std::max<VkDeviceSize>(bytes, 16);
    if (b.bytes > max_range_) {
      throw VulkanError("a " + std::to_string(b.bytes) + "-byte buffer (the device binds at most " +
                            std::to_string(max_range_) + ")",
                        VK_ERROR_OUT_OF_DEVICE_MEMORY);
    }
    auto info = Info<VkBufferCreateInfo>(VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO);
    info.size = b.bytes;
    info.usage = VK_BUFFER_USAGE_STORAGE_BUFFER_BIT | VK_BUFFER_USAGE_TRANSFER_SRC_BIT |
                 VK_BUFFER_USAGE_TRANSFER_DST_BIT;
    Check(vkCreateBuffer(device_, &info, nullptr, &b.buffer), "vkCreateBuffer");
    VkMemoryRequirements needs;
    vkGetBufferMemoryRequirements(device_, b.buffer, &needs);
    const VkMemoryPropertyFlags want = host_visible
                                           ? VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT
                                           : VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT;
    uint32_t type = UINT32_MAX;
    for (uint32_t i = 0; i < memory_.memoryTypeCount && type == UINT32_MAX; ++i) {
      if ((needs.memoryTypeBits & (1u << i)) && (memory_.memoryTypes[i].propertyFlags & want) == want) type = i;
    }
    if (type == UINT32_MAX) {
      vkDestroyBuffer(device_, b.buffer, nullptr);
      throw VulkanError("finding a memory type", VK_ERROR_OUT_OF_DEVICE_MEMORY);
    }
    auto alloc = Info<VkMemoryAllocateInfo>(VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO);
    alloc.allocationSize = needs.size;
    alloc.memoryTypeIndex = type;
    VkResult result = vkAllocateMemory(device_, &alloc, nullptr, &b.memory);
    if (result == VK_SUCCESS) result = vkBindBufferMemory(device_, b.buffer, b.memory, 0);
    if (result == VK_SUCCESS && host_visible) result = vkMapMemory(device_, b.memory, 0, VK_WHOLE_SIZE, 0, &b.mapped);
    if (result != VK_SUCCESS) {
      Destroy(b);
      Check(result, "allocating device memory");
    }
    return b;
  }

  void Destroy(Buffer& b) {
    if (b.buffer != VK_NULL_HANDLE) vkDestroyBuffer(device_, b.buffer, nullptr);
    if (b.memory != VK_NULL_HANDLE) vkFreeMemory(device_, b.memory, nullptr);
    b = Buffer();
  }

  // Submits `commands` and waits for them.
  void Submit(VkCommandBuffer commands) {
    auto submit = Info<VkSubmitInfo>(VK_STRUCTURE_TYPE_SUBMIT_INFO);
    submit.commandBufferCount = 1;
    submit.pCommandBuffers = &commands;
    Check(vkResetFences(device_, 1, &fence_), "vkResetFences");
    Check(vkQueueSubmit(queue_, 1, &submit, fence_), "vkQueueSubmit");
    Check(vkWaitForFences(device_, 1, &fence_, VK_TRUE, UINT64_MAX), "vkWaitForFences");
  }

  VkCommandBuffer NewCommands() {
    auto info = Info<VkCommandBufferAllocateInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO);
    info.commandPool = pool_;
    info.level = VK_COMMAND_BUFFER_LEVEL_PRIMARY;
    info.commandBufferCount = 1;
    VkCommandBuffer commands;
    Check(vkAllocateCommandBuffers(device_, &info, &commands), "vkAllocateCommandBuffers");
    return commands;
  }
  void FreeCommands(VkCommandBuffer& commands) {
    if (commands != VK_NULL_HANDLE) vkFreeCommandBuffers(device_, pool_, 1, &commands);
    commands = VK_NULL_HANDLE;
  }

  // A device-local buffer holding `bytes` of `data`.
  Buffer Upload(const void* data, size_t bytes) {
    Buffer staging = Create(bytes, true);
    Buffer target;
    VkCommandBuffer commands = VK_NULL_HANDLE;
    try {
      std::memcpy(staging.mapped, data, bytes);
      target = Create(bytes, false);
      commands = NewCommands();
      auto begin = Info<VkCommandBufferBeginInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO);
      begin.flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT;
      Check(vkBeginCommandBuffer(commands, &begin), "vkBeginCommandBuffer");
      const VkBufferCopy region{0, 0, staging.bytes};
      vkCmdCopyBuffer(commands, staging.buffer, target.buffer, 1, &region);
      Check(vkEndCommandBuffer(commands), "vkEndCommandBuffer");
      Submit(commands);
    } catch (...) {
      FreeCommands(commands);
      Destroy(staging);
      Destroy(target);
      throw;
    }
    FreeCommands(commands);
    Destroy(staging);
    return target;
  }

  VkDevice device() const { return device_; }
  VkPipeline pipeline(int k) const { return pipelines_[k]; }
  VkPipelineLayout layout(int k) const { return layouts_[k]; }
  VkDescriptorSetLayout set_layout(int k) const { return set_layouts_[k]; }
  const std::string& name() const { return name_; }

 private:
  static int ComputeFamily(VkPhysicalDevice physical) {
    uint32_t count = 0;
    vkGetPhysicalDeviceQueueFamilyProperties(physical, &count, nullptr);
    std::vector<VkQueueFamilyProperties> families(count);
    vkGetPhysicalDeviceQueueFamilyProperties(physical, &count, families.data());
    for (uint32_t i = 0; i < count; ++i) {
      if (families[i].queueFlags & VK_QUEUE_COMPUTE_BIT) return static_cast<int>(i);
    }
    return -1;
  }

  VkInstance instance_ = VK_NULL_HANDLE;
  VkPhysicalDevice physical_ = VK_NULL_HANDLE;
  VkDevice device_ = VK_NULL_HANDLE;
  VkQueue queue_ = VK_NULL_HANDLE;
  uint32_t family_ = 0;
  VkCommandPool pool_ = VK_NULL_HANDLE;
  VkFence fence_ = VK_NULL_HANDLE;
  VkDescriptorSetLayout set_layouts_[kKernels] = {};
  VkPipelineLayout layouts_[kKernels] = {};
  VkPipeline pipelines_[kKernels] = {};
  VkPhysicalDeviceMemoryProperties memory_{};
  VkDeviceSize max_range_ = 0;
  std::string name_;
};

// One dispatch: its kernel, buffers in binding order, push constants.
struct Dispatch {
  int kernel = 0;
  std::vector<VkBuffer> buffers;
  uint32_t push[kPushBytes / 4] = {};
  uint32_t push_bytes = 0;
  uint64_t count = 0;
};

template <typename T>
uint32_t Bits(T v) {
  static_assert(sizeof(T) == 4);
  uint32_t u;
  std::memcpy(&u, &v, 4);
  return u;
}

class VulkanNetwork final : public Network {
 public:
  VulkanNetwork(const Graph& graph, int cpu_threads)
      : graph_(graph), cpu_(Network::FromGraph(graph, cpu_threads)) {
    try {
      UploadParameters();
    } catch (...) {
      Release();
      throw;
    }
  }
  ~VulkanNetwork() override { Release(); }

  int64_t InputMargin() const override { return cpu_->InputMargin(); }
  const std::string& InputName() const override { return cpu_->InputName(); }
  const std::string& OutputName() const override { return cpu_->OutputName(); }
  std::vector<int64_t> OutputShape(const std::vector<int64_t>& input_shape) const override {
    return cpu_->OutputShape(input_shape);
  }
  std::string DeviceName() const override {
    std::lock_guard<std::mutex> lock(mutex_);
    return on_cpu_ ? cpu_->DeviceName() : device_.name();
  }

  bool Run(const float* input, const std::vector<int64_t>& input_shape, const Region& region,
           std::vector<float>* output, std::vector<int64_t>* output_shape, std::string* error) override {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!on_cpu_) {
      const std::vector<int64_t> shape = cpu_->OutputShape(input_shape);
      const Activation& in = graph_.activations[graph_.input];
      const auto empty = [&](const Activation& a) {
        return a.height.At(input_shape[2]) <= 0 || a.width.At(input_shape[3]) <= 0;
      };
      if (shape.empty() || input_shape[0] != 1 || input_shape[1] != in.channels ||
          std::any_of(graph_.activations.begin(), graph_.activations.end(), empty)) {
        // The CPU engine words the refusal.
        lock.unlock();
        return cpu_->Run(input, input_shape, region, output, output_shape, error);
      }
      try {
        RunOnDevice(input, input_shape, shape, region, output);
        *output_shape = shape;
        return true;
      } catch (const std::exception& e) {
        platform::LogError("Vulkan (" + device_.name() + "): " + e.what() +
                           "; the network runs on the CPU from now on");
        ReleasePlan();
        on_cpu_ = true;
      }
    }
    lock.unlock();
    return cpu_->Run(input, input_shape, region, output, output_shape, error);
  }

 private:
  void UploadParameters() {
    params_.resize(graph_.ops.size());
    for (size_t i = 0; i < graph_.ops.size(); ++i) {
      const Op& op = graph_.ops[i];
      std::vector<Buffer>& p = params_[i];
      switch (op.kind) {
        case OpKind::kQConv: {
          // [out / 4][kh][kw][in][4]: the four output channels an invocation
          // computes side by side; missing ones weigh zero.
          const int64_t out_c = graph_.activations[op.output].channels;
          const int64_t taps = op.kernel_h * op.kernel_w * graph_.activations[op.inputs[0]].channels;
          std::vector<int32_t> weights(static_cast<size_t>((out_c + 3) / 4 * taps * 4), 0);
          for (int64_t o = 0; o < out_c; ++o) {
            for (int64_t t = 0; t < taps; ++t) weights[size_t(((o / 4) * taps + t) * 4 + o % 4)] = op.qfilter[size_t(o * taps + t)];
          }
          p.push_back(device_.Upload(weights.data(), weights.size() * 4));
          p.push_back(device_.Upload(op.qbias.data(), op.qbias.size() * 4));
          p.push_back(device_.Upload(op.scales.data(), op.scales.size() * 4));
          break;
        }
        case OpKind::kPRelu: {
          const int64_t channels = graph_.activations[op.output].channels;
          std::vector<float> slope(static_cast<size_t>(channels), op.constant.at(0));
          if (op.constant.size() > 1) slope.assign(op.constant.begin(), op.constant.end());
          p.push_back(device_.Upload(slope.data(), slope.size() * 4));
          break;
        }
        case OpKind::kAdd:
        case OpKind::kMul:
          if (op.inputs.size() == 1) p.push_back(device_.Upload(op.constant.data(), op.constant.size() * 4));
          break;
        default: break;
      }
    }
    static const uint32_t zeros[4] = {};
    unused_ = device_.Upload(zeros, sizeof(zeros));
  }

  // Buffers and recorded commands for one input size.
  void Plan(int64_t in_h, int64_t in_w) {
    ReleasePlan();
    plan_h_ = in_h;
    plan_w_ = in_w;
    const auto elements = [&](int a) {
      const Activation& act = graph_.activations[a];
      return static_cast<uint64_t>(act.channels * act.height.At(in_h) * act.width.At(in_w));
    };
    acts_.resize(graph_.activations.size());
    for (size_t a = 0; a < graph_.activations.size(); ++a) acts_[a] = device_.Create(elements(int(a)) * 4, false);
    staging_in_ = device_.Create(elements(graph_.input) * 4, true);
    staging_out_ = device_.Create(elements(graph_.output) * 4, true);

    std::vector<Dispatch> dispatches;
    for (size_t i = 0; i < graph_.ops.size(); ++i) dispatches.push_back(Describe(i, in_h, in_w));

    VkDescriptorPoolSize size{VK_DESCRIPTOR_TYPE_STORAGE_BUFFER, 0};
    for (const Dispatch& d : dispatches) size.descriptorCount += static_cast<uint32_t>(d.buffers.size());
    auto pool_info = Info<VkDescriptorPoolCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO);
    pool_info.maxSets = static_cast<uint32_t>(dispatches.size());
    pool_info.poolSizeCount = 1;
    pool_info.pPoolSizes = &size;
    Check(vkCreateDescriptorPool(device_.device(), &pool_info, nullptr, &descriptors_), "vkCreateDescriptorPool");

    commands_ = device_.NewCommands();
    auto begin = Info<VkCommandBufferBeginInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO);
    Check(vkBeginCommandBuffer(commands_, &begin), "vkBeginCommandBuffer");
    const VkBufferCopy upload{0, 0, elements(graph_.input) * 4};
    vkCmdCopyBuffer(commands_, staging_in_.buffer, acts_[graph_.input].buffer, 1, &upload);
    Barrier(VK_PIPELINE_STAGE_TRANSFER_BIT, VK_ACCESS_TRANSFER_WRITE_BIT, VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT,
            VK_ACCESS_SHADER_READ_BIT);
    for (const Dispatch& d : dispatches) {
      VkDescriptorSetLayout layout = device_.set_layout(d.kernel);
      auto alloc = Info<VkDescriptorSetAllocateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_ALLOCATE_INFO);
      alloc.descriptorPool = descriptors_;
      alloc.descriptorSetCount = 1;
      alloc.pSetLayouts = &layout;
      VkDescriptorSet set;
      Check(vkAllocateDescriptorSets(device_.device(), &alloc, &set), "vkAllocateDescriptorSets");
      std::vector<VkDescriptorBufferInfo> infos;
      for (VkBuffer b : d.buffers) infos.push_back({b, 0, VK_WHOLE_SIZE});
      std::vector<VkWriteDescriptorSet> writes;
      for (uint32_t b = 0; b < infos.size(); ++b) {
        auto w = Info<VkWriteDescriptorSet>(VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET);
        w.dstSet = set;
        w.dstBinding = b;
        w.descriptorCount = 1;
        w.descriptorType = VK_DESCRIPTOR_TYPE_STORAGE_BUFFER;
        w.pBufferInfo = &infos[b];
        writes.push_back(w);
      }
      vkUpdateDescriptorSets(device_.device(), static_cast<uint32_t>(writes.size()), writes.data(), 0, nullptr);
      vkCmdBindPipeline(commands_, VK_PIPELINE_BIND_POINT_COMPUTE, device_.pipeline(d.kernel));
      vkCmdBindDescriptorSets(commands_, VK_PIPELINE_BIND_POINT_COMPUTE, device_.layout(d.kernel), 0, 1, &set, 0,
                              nullptr);
      vkCmdPushConstants(commands_, device_.layout(d.kernel), VK_SHADER_STAGE_COMPUTE_BIT, 0, d.push_bytes, d.push);
      const uint64_t groups = (d.count + kLocalSize - 1) / kLocalSize;
      const uint64_t x = std::min<uint64_t>(groups, 65535);
      vkCmdDispatch(commands_, static_cast<uint32_t>(x), static_cast<uint32_t>((groups + x - 1) / x), 1);
      Barrier(VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT, VK_ACCESS_SHADER_WRITE_BIT, VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT |
              VK_PIPELINE_STAGE_TRANSFER_BIT, VK_ACCESS_SHADER_READ_BIT | VK_ACCESS_TRANSFER_READ_BIT);
    }
    const VkBufferCopy download{0, 0, elements(graph_.output) * 4};
    vkCmdCopyBuffer(commands_, acts_[graph_.output].buffer, staging_out_.buffer, 1, &download);
    Barrier(VK_PIPELINE_STAGE_TRANSFER_BIT, VK_ACCESS_TRANSFER_WRITE_BIT, VK_PIPELINE_STAGE_HOST_BIT,
            VK_ACCESS_HOST_READ_BIT);
    Check(vkEndCommandBuffer(commands_), "vkEndCommandBuffer");
  }

  void Barrier(VkPipelineStageFlags from, VkAccessFlags written, VkPipelineStageFlags to, VkAccessFlags read) {
    auto barrier = Info<VkMemoryBarrier>(VK_STRUCTURE_TYPE_MEMORY_BARRIER);
    barrier.srcAccessMask = written;
    barrier.dstAccessMask = read;
    vkCmdPipelineBarrier(commands_, from, to, 0, 1, &barrier, 0, nullptr, 0, nullptr);
  }

  Dispatch Describe(size_t i, int64_t in_h, int64_t in_w) {
    const Op& op = graph_.ops[i];
    const Activation& out = graph_.activations[op.output];
    const Activation& in = graph_.activations[op.inputs[0]];
    const int64_t oh = out.height.At(in_h), ow = out.width.At(in_w);
    const int64_t ih = in.height.At(in_h), iw = in.width.At(in_w);
    Dispatch d;
    d.count = static_cast<uint64_t>(out.channels * oh * ow);
    std::vector<uint32_t> push = {static_cast<uint32_t>(d.count)};
    const auto act = [&](int a) { return acts_[a].buffer; };
    switch (op.kind) {
      case OpKind::kQuantize:
        d.kernel = kQuantizeKernel;
        d.buffers = {act(op.inputs[0]), act(op.output)};
        push.insert(push.end(), {Bits(op.scale), Bits(out.zero_point)});
        break;
      case OpKind::kQConv:
        d.kernel = kQConvKernel;
        d.count = static_cast<uint64_t>((out.channels + 3) / 4 * oh * ow);
        push[0] = static_cast<uint32_t>(d.count);
        d.buffers = {act(op.inputs[0]), params_[i][0].buffer, params_[i][1].buffer, params_[i][2].buffer,
                     act(op.output)};
        for (int64_t v : {in.channels, ih, iw, oh, ow, op.kernel_h, op.kernel_w, op.pad_top, op.pad_left,
                          static_cast<int64_t>(in.zero_point), out.channels}) {
          push.push_back(static_cast<uint32_t>(v));
        }
        break;
      case OpKind::kPRelu:
      case OpKind::kClamp:
        d.kernel = kActivateKernel;
        d.buffers = {act(op.inputs[0]), op.kind == OpKind::kPRelu ? params_[i][0].buffer : unused_.buffer,
                     act(op.output)};
        push.insert(push.end(), {static_cast<uint32_t>(oh * ow), op.kind == OpKind::kPRelu ? 0u : 1u,
                                 Bits(op.min), Bits(op.max)});
        break;
      case OpKind::kAdd:
      case OpKind::kMul: {
        d.kernel = kBinaryKernel;
        const bool constant = op.inputs.size() == 1;
        const VkBuffer b = constant ? params_[i][0].buffer : act(op.inputs[1]);
        const bool b_broadcast = constant ? op.constant.size() == 1
                                          : graph_.activations[op.inputs[1]].channels == 1 && out.channels > 1;
        d.buffers = {act(op.inputs[0]), b, act(op.output)};
        push.insert(push.end(), {static_cast<uint32_t>(oh * ow), op.kind == OpKind::kAdd ? 0u : 1u,
                                 in.channels == 1 && out.channels > 1 ? 1u : 0u, b_broadcast ? 1u : 0u,
                                 constant ? 1u : 0u});
        break;
      }
      case OpKind::kDepthToSpace:
        d.kernel = kDepthToSpaceKernel;
        d.buffers = {act(op.inputs[0]), act(op.output)};
        push.insert(push.end(), {static_cast<uint32_t>(out.channels), static_cast<uint32_t>(oh),
                                 static_cast<uint32_t>(ow), static_cast<uint32_t>(op.block)});
        break;
      default: throw std::runtime_error("operator without a GPU kernel at " + op.node);
    }
    d.push_bytes = static_cast<uint32_t>(push.size() * 4);
    std::copy(push.begin(), push.end(), d.push);
    return d;
  }

  void RunOnDevice(const float* input, const std::vector<int64_t>& input_shape, const std::vector<int64_t>& shape,
                   const Region& region, std::vector<float>* output) {
    if (commands_ == VK_NULL_HANDLE || plan_h_ != input_shape[2] || plan_w_ != input_shape[3]) {
      Plan(input_shape[2], input_shape[3]);
    }
    std::memcpy(staging_in_.mapped, input, static_cast<size_t>(input_shape[1] * input_shape[2] * input_shape[3]) * 4);
    device_.Submit(commands_);
    const int64_t channels = shape[1], h = shape[2], w = shape[3];
    output->resize(static_cast<size_t>(channels * h * w));
    const int64_t rows = region.rows > 0 ? std::min(region.rows, h) : h;
    const int64_t columns = region.columns > 0 ? std::min(region.columns, w) : w;
    const float* from = static_cast<const float*>(staging_out_.mapped);
    for (int64_t c = 0; c < channels; ++c) {
      for (int64_t y = 0; y < rows; ++y) {
        std::memcpy(output->data() + (c * h + y) * w, from + (c * h + y) * w, static_cast<size_t>(columns) * 4);
      }
    }
    if (region.on_rows) region.on_rows(output->data(), 0, rows);
  }

  void ReleasePlan() {
    if (commands_ != VK_NULL_HANDLE) device_.FreeCommands(commands_);
    if (descriptors_ != VK_NULL_HANDLE) vkDestroyDescriptorPool(device_.device(), descriptors_, nullptr);
    descriptors_ = VK_NULL_HANDLE;
    for (Buffer& b : acts_) device_.Destroy(b);
    acts_.clear();
    device_.Destroy(staging_in_);
    device_.Destroy(staging_out_);
    plan_h_ = plan_w_ = -1;
  }

  void Release() {
    ReleasePlan();
    for (std::vector<Buffer>& p : params_) {
      for (Buffer& b : p) device_.Destroy(b);
    }
    params_.clear();
    device_.Destroy(unused_);
  }

  Graph graph_;
  std::unique_ptr<Network> cpu_;
  Device device_;
  mutable std::mutex mutex_;
  bool on_cpu_ = false;
  std::vector<std::vector<Buffer>> params_;  // per op
  Buffer unused_;                             // bound where a kernel's binding has no use
  std::vector<Buffer> acts_;                  // per activation, for the planned size
  Buffer staging_in_, staging_out_;
  VkDescriptorPool descriptors_ = VK_NULL_HANDLE;
  VkCommandBuffer commands_ = VK_NULL_HANDLE;
  int64_t plan_h_ = -1, plan_w_ = -1;
};

}  // namespace

bool VulkanCanRun(const Graph& graph, std::string* why) {
  bool quantized = false;
  for (const Op& op : graph.ops) {
    switch (op.kind) {
      case OpKind::kQConv: quantized = true; break;
      case OpKind::kQuantize:
      case OpKind::kPRelu:
      case OpKind::kClamp:
      case OpKind::kDepthToSpace: break;
      case OpKind::kAdd:
      case OpKind::kMul: {
        // Operands of one shape, or one channel broadcast.
        const Activation& out = graph.activations[op.output];
        for (int a : op.inputs) {
          const Activation& in = graph.activations[a];
          if (in.height != out.height || in.width != out.width ||
              (in.channels != out.channels && in.channels != 1)) {
            *why = "operands of different sizes at " + op.node;
            return false;
          }
        }
        break;
      }
      default:
        *why = "a float convolution or resize at " + op.node + " (the GPU runs integer networks)";
        return false;
    }
  }
  if (!quantized) *why = "not an integer network";
  return quantized;
}

std::unique_ptr<Network> CreateVulkanNetwork(const Graph& graph, int cpu_threads, std::string* why) {
  why->clear();
  // Looking for a device costs tens of milliseconds (a CPU-emulated driver
  // starts up to be asked); a machine without one is asked once per setting
  // of the variable.
  static std::mutex mutex;
  static std::string no_device_for;
  static bool no_device = false;
  const char* wanted = std::getenv(kVulkanDeviceVariable);
  const std::string setting = wanted != nullptr ? wanted : "";
  {
    std::lock_guard<std::mutex> lock(mutex);
    if (no_device && no_device_for == setting) return nullptr;
  }
  try {
    return std::make_unique<VulkanNetwork>(graph, cpu_threads);
  } catch (const NoDevice&) {
    std::lock_guard<std::mutex> lock(mutex);
    no_device = true;
    no_device_for = setting;
    return nullptr;
  } catch (const std::exception& e) {
    *why = e.what();
    return nullptr;
  }
}

}  // namespace vorlith::model
