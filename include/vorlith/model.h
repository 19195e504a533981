// The neural model runner: small types in the roles a machine-learning runtime
// gives them (multi-dimensional arrays, feature values and providers,
// prediction options, batches, configurations, a loaded model), and the
// wrappers of the library's two networks, "RTC" (full) and "RTC_degrade"
// (light). The networks are ONNX files found beside the library; they take one
// float32 tensor "RTC_input" [1, 1, H, W] and give one named "161"
// [1, 1, 2H, 2W].
//
// Errors: operations that can fail take an optional `std::string* error` and
// report there; they never throw except on memory exhaustion.
// Objects are shared through std::shared_ptr.
#ifndef VORLITH_MODEL_H_
#define VORLITH_MODEL_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "vorlith/export.h"

namespace vorlith {

namespace model {
class Network;
}

// Data type codes of MultiArray.
enum class MultiArrayDataType : int32_t {
  Float32 = 0x10020,  // 65568
};

// A dense float32 array, row-major (last dimension contiguous).
class VORLITH_API MultiArray {
 public:
  // Null (with *error) for an empty shape, a dimension below 1, a type other
  // than Float32, or a size beyond 2^31 elements. Contents start at zero.
  static std::shared_ptr<MultiArray> initWithShape(const std::vector<int64_t>& shape,
                                                   MultiArrayDataType dataType,
                                                   std::string* error = nullptr);
  const std::vector<int64_t>& shape() const { return shape_; }
  const std::vector<int64_t>& strides() const { return strides_; }
  MultiArrayDataType dataType() const { return MultiArrayDataType::Float32; }
  int64_t count() const { return static_cast<int64_t>(data_.size()); }
  void* dataPointer() { return data_.data(); }

 private:
  friend class Model;
  // An array of `shape` that takes `data` (one value per element) as its
  // contents, so that a prediction hands over the runner's output uncopied.
  // When the array is released its contents go to `recycle`, if given.
  static std::shared_ptr<MultiArray> adopt(const std::vector<int64_t>& shape, std::vector<float> data,
                                           std::function<void(std::vector<float>)> recycle = nullptr);

  std::vector<int64_t> shape_, strides_;
  std::vector<float> data_;
};

class VORLITH_API FeatureValue {
 public:
  static std::shared_ptr<FeatureValue> featureValueWithMultiArray(std::shared_ptr<MultiArray> array);
  const std::shared_ptr<MultiArray>& multiArrayValue() const { return array_; }

 private:
  std::shared_ptr<MultiArray> array_;
};

class VORLITH_API FeatureProvider {
 public:
  virtual ~FeatureProvider();
  virtual std::set<std::string> featureNames() const = 0;
  // Null for a name the provider does not have.
  virtual std::shared_ptr<FeatureValue> featureValueForName(const std::string& name) const = 0;
};

// A provider backed by a name-to-value map; what Model returns.
class VORLITH_API DictionaryFeatureProvider : public FeatureProvider {
 public:
  void set(const std::string& name, std::shared_ptr<FeatureValue> value);
  std::set<std::string> featureNames() const override;
  std::shared_ptr<FeatureValue> featureValueForName(const std::string& name) const override;

 private:
  std::vector<std::pair<std::string, std::shared_ptr<FeatureValue>>> values_;
};

class VORLITH_API PredictionOptions {
 public:
  // Reserved: the CPU runtime has nothing to choose per prediction yet.
  bool usesCPUOnly = false;
  // The part of the output that will be read: its top `outputRows` rows and
  // left `outputColumns` columns (0, or more than the output has, means the
  // whole dimension). Only those values are computed, from only the inputs
  // they depend on, and they equal a whole prediction's. The array keeps its
  // full shape; outside the part it holds zeros when newly allocated, or
  // whatever an earlier prediction of the same model left in the storage it
  // recycles: read only the part asked for.
  int64_t outputRows = 0;
  int64_t outputColumns = 0;
  // Called during the prediction, on the runtime's threads (several at once,
  // for different rows), each time rows [firstRow, endRow) of the output
  // (every channel, within outputColumns) are final in `output`, the storage
  // the returned array will hold; each row asked for is reported once. Lets
  // a caller use rows while they are in the caches. Must not throw.
  std::function<void(const float* output, int64_t firstRow, int64_t endRow)> outputRowsReady;
};

class VORLITH_API BatchProvider {
 public:
  virtual ~BatchProvider();
  virtual int64_t count() const = 0;
  virtual std::shared_ptr<FeatureProvider> featuresAtIndex(int64_t index) const = 0;
};

class VORLITH_API ArrayBatchProvider : public BatchProvider {
 public:
  static std::shared_ptr<ArrayBatchProvider> initWithFeatureProviderArray(
      std::vector<std::shared_ptr<FeatureProvider>> providers);
  int64_t count() const override { return static_cast<int64_t>(providers_.size()); }
  // Null outside 0 .. count-1.
  std::shared_ptr<FeatureProvider> featuresAtIndex(int64_t index) const override;

 private:
  std::vector<std::shared_ptr<FeatureProvider>> providers_;
};

// All and CPUAndGPU run an integer network on a Vulkan GPU where the
// library was built with its GPU path and the machine has a device (the
// environment variable VORLITH_VULKAN_DEVICE names one, or "none"), with the
// CPU's bytes; otherwise, and for float networks, on every CPU core.
enum class ComputeUnits : int32_t {
  CPUOnly = 0,    // one thread: the caller's; never a GPU
  CPUAndGPU = 1,  // as All
  All = 2,        // a GPU, or every CPU core through the process's worker pool
};

class VORLITH_API ModelConfiguration {
 public:
  ComputeUnits computeUnits = ComputeUnits::All;
  // Threads a prediction is split across for All / CPUAndGPU; 0 means one
  // per CPU in the process's affinity mask. Every model of the process
  // shares one worker pool, which grows to the largest count asked for:
  // models never start threads of their own.
  int threads = 0;
};

// A loaded network.
class VORLITH_API Model {
 public:
  ~Model();
  static std::shared_ptr<Model> modelWithContentsOfURL(const std::string& path,
                                                       std::string* error = nullptr);
  static std::shared_ptr<Model> modelWithContentsOfURL(const std::string& path,
                                                       const ModelConfiguration& configuration,
                                                       std::string* error = nullptr);
  // Loads on a thread of its own and calls `handler` there with the model or
  // with null and the reason.
  static void loadContentsOfURL(
      const std::string& path, const ModelConfiguration& configuration,
      std::function<void(std::shared_ptr<Model>, const std::string& error)> handler);

  const std::string& inputName() const;
  const std::string& outputName() const;
  // The shape of outputName() for an input of `input_shape` ([1, 1, H, W]),
  // worked out from the graph without running it; empty for a shape that
  // does not have four dimensions.
  std::vector<int64_t> outputShapeForInputShape(const std::vector<int64_t>& input_shape) const;

  // Runs the network on the input feature named by inputName(), a [1, 1, H, W]
  // float32 array; returns a provider holding outputName(), a new array per
  // call. Predictions from several threads on one model are safe and take
  // turns. Null with *error when the input is missing, has the wrong shape,
  // the options ask for a negative region or the run fails.
  std::shared_ptr<FeatureProvider> predictionFromFeatures(const FeatureProvider& input,
                                                          const PredictionOptions& options,
                                                          std::string* error = nullptr);
  // One prediction per provider, in order; null if any fails.
  std::shared_ptr<BatchProvider> predictionsFromBatch(const BatchProvider& inputs,
                                                      const PredictionOptions& options,
                                                      std::string* error = nullptr);

 private:
  explicit Model(std::unique_ptr<model::Network> network);
  std::unique_ptr<model::Network> network_;
};

// ---- The two network wrappers -------------------------------------------------

namespace detail {
struct FullNetworkNames {
  static constexpr const char* kResource = "RTC";
};
struct LightNetworkNames {
  static constexpr const char* kResource = "RTC_degrade";
};
}  // namespace detail

// Input provider: one feature, "RTC_input".
template <class Names>
class VORLITH_API NetworkInput : public FeatureProvider {
 public:
  static std::shared_ptr<NetworkInput> initWithRTC_input(std::shared_ptr<MultiArray> RTC_input);
  std::set<std::string> featureNames() const override;
  std::shared_ptr<FeatureValue> featureValueForName(const std::string& name) const override;
  std::shared_ptr<MultiArray> RTC_input;
};

// Output provider: one feature, "161", carried by the `_161` member.
template <class Names>
class VORLITH_API NetworkOutput : public FeatureProvider {
 public:
  static std::shared_ptr<NetworkOutput> initWith_161(std::shared_ptr<MultiArray> _161);
  std::set<std::string> featureNames() const override;
  std::shared_ptr<FeatureValue> featureValueForName(const std::string& name) const override;
  std::shared_ptr<MultiArray> _161;
};

template <class Names>
class VORLITH_API NetworkModel {
 public:
  using Input = NetworkInput<Names>;
  using Output = NetworkOutput<Names>;

  // Path of "<resource>.onnx" beside the library, or empty after logging
  // "Could not load <resource>.onnx in the bundle resource" at error level.
  static std::string URLOfModelInThisBundle();

  // Null when `model` is null.
  static std::shared_ptr<NetworkModel> initWithMLModel(std::shared_ptr<Model> model);
  static std::shared_ptr<NetworkModel> init();
  static std::shared_ptr<NetworkModel> initWithConfiguration(const ModelConfiguration& configuration,
                                                            std::string* error = nullptr);
  static std::shared_ptr<NetworkModel> initWithContentsOfURL(const std::string& url,
                                                            std::string* error = nullptr);
  static std::shared_ptr<NetworkModel> initWithContentsOfURL(const std::string& url,
                                                            const ModelConfiguration& configuration,
                                                            std::string* error = nullptr);
  using LoadHandler = std::function<void(std::shared_ptr<NetworkModel>, const std::string& error)>;
  static void loadWithConfiguration(const ModelConfiguration& configuration, LoadHandler handler);
  static void loadContentsOfURL(const std::string& url, const ModelConfiguration& configuration,
                                LoadHandler handler);

  // Always returns an output object; its `_161` is null when the prediction
  // failed (the reason goes to *error).
  std::shared_ptr<Output> predictionFromFeatures(const Input& input, std::string* error = nullptr);
  std::shared_ptr<Output> predictionFromFeatures(const Input& input,
                                                 const PredictionOptions& options,
                                                 std::string* error = nullptr);
  std::shared_ptr<Output> predictionFromRTC_input(std::shared_ptr<MultiArray> RTC_input,
                                                  std::string* error = nullptr);
  // One output per input; empty (not null) when the batch fails.
  std::vector<std::shared_ptr<Output>> predictionsFromInputs(
      const std::vector<std::shared_ptr<Input>>& inputs, const PredictionOptions& options,
      std::string* error = nullptr);

  const std::shared_ptr<Model>& model() const { return model_; }

 private:
  std::shared_ptr<Model> model_;
};

using RTC = NetworkModel<detail::FullNetworkNames>;
using RTCInput = NetworkInput<detail::FullNetworkNames>;
using RTCOutput = NetworkOutput<detail::FullNetworkNames>;
using RTC_degrade = NetworkModel<detail::LightNetworkNames>;
using RTC_degradeInput = NetworkInput<detail::LightNetworkNames>;
using RTC_degradeOutput = NetworkOutput<detail::LightNetworkNames>;

extern template class VORLITH_API NetworkInput<detail::FullNetworkNames>;
extern template class VORLITH_API NetworkOutput<detail::FullNetworkNames>;
extern template class VORLITH_API NetworkModel<detail::FullNetworkNames>;
extern template class VORLITH_API NetworkInput<detail::LightNetworkNames>;
extern template class VORLITH_API NetworkOutput<detail::LightNetworkNames>;
extern template class VORLITH_API NetworkModel<detail::LightNetworkNames>;

}  // namespace vorlith

#endif  // VORLITH_MODEL_H_
