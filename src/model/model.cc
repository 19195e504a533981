#include "vorlith/model.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "src/model/network.h"
#include "src/platform/platform.h"

namespace vorlith {

std::shared_ptr<MultiArray> MultiArray::initWithShape(const std::vector<int64_t>& shape,
                                                      MultiArrayDataType dataType,
                                                      std::string* error) {
  auto fail = [&](const char* why) {
    if (error != nullptr) *error = why;
    return std::shared_ptr<MultiArray>();
  };
  if (dataType != MultiArrayDataType::Float32) return fail("only float32 arrays are supported");
  if (shape.empty()) return fail("an array needs at least one dimension");
  int64_t count = 1;
  for (int64_t d : shape) {
    if (d < 1) return fail("array dimensions must be at least 1");
    if (count > (int64_t{1} << 31) / d) return fail("array too large");
    count *= d;
  }
  return adopt(shape, std::vector<float>(static_cast<size_t>(count), 0.0f));
}

std::shared_ptr<MultiArray> MultiArray::adopt(const std::vector<int64_t>& shape, std::vector<float> data,
                                              std::function<void(std::vector<float>)> recycle) {
  std::shared_ptr<MultiArray> array;
  if (recycle) {
    array.reset(new MultiArray(), [recycle = std::move(recycle)](MultiArray* a) {
      recycle(std::move(a->data_));
      delete a;
    });
  } else {
    array = std::make_shared<MultiArray>();
  }
  array->shape_ = shape;
  array->strides_.assign(shape.size(), 1);
  for (size_t i = shape.size() - 1; i > 0; --i) {
    array->strides_[i - 1] = array->strides_[i] * shape[i];
  }
  array->data_ = std::move(data);
  return array;
}

std::shared_ptr<FeatureValue> FeatureValue::featureValueWithMultiArray(
    std::shared_ptr<MultiArray> array) {
  auto value = std::make_shared<FeatureValue>();
  value->array_ = std::move(array);
  return value;
}

FeatureProvider::~FeatureProvider() = default;
BatchProvider::~BatchProvider() = default;

void DictionaryFeatureProvider::set(const std::string& name, std::shared_ptr<FeatureValue> value) {
  for (auto& entry : values_) {
    if (entry.first == name) {
      entry.second = std::move(value);
      return;
    }
  }
  values_.emplace_back(name, std::move(value));
}

std::set<std::string> DictionaryFeatureProvider::featureNames() const {
  std::set<std::string> names;
  for (const auto& entry : values_) names.insert(entry.first);
  return names;
}

std::shared_ptr<FeatureValue> DictionaryFeatureProvider::featureValueForName(
    const std::string& name) const {
  for (const auto& entry : values_) {
    if (entry.first == name) return entry.second;
  }
  return nullptr;
}

std::shared_ptr<ArrayBatchProvider> ArrayBatchProvider::initWithFeatureProviderArray(
    std::vector<std::shared_ptr<FeatureProvider>> providers) {
  auto batch = std::make_shared<ArrayBatchProvider>();
  batch->providers_ = std::move(providers);
  return batch;
}

std::shared_ptr<FeatureProvider> ArrayBatchProvider::featuresAtIndex(int64_t index) const {
  if (index < 0 || index >= count()) return nullptr;
  return providers_[static_cast<size_t>(index)];
}

Model::Model(std::unique_ptr<model::Network> network) : network_(std::move(network)) {}
Model::~Model() = default;

namespace {

int ThreadsFor(const ModelConfiguration& configuration) {
  if (configuration.computeUnits == ComputeUnits::CPUOnly) return 1;
  if (configuration.threads > 0) return configuration.threads;
  return platform::UsableCpus();
}

}  // namespace

std::shared_ptr<Model> Model::modelWithContentsOfURL(const std::string& path, std::string* error) {
  return modelWithContentsOfURL(path, ModelConfiguration(), error);
}

std::shared_ptr<Model> Model::modelWithContentsOfURL(const std::string& path,
                                                     const ModelConfiguration& configuration,
                                                     std::string* error) {
  if (path.empty()) {
    if (error != nullptr) *error = "no model file given";
    return nullptr;
  }
  std::string why;
  std::unique_ptr<model::Network> network =
      model::Network::Load(path, ThreadsFor(configuration), configuration.computeUnits != ComputeUnits::CPUOnly, &why);
  if (network == nullptr) {
    platform::LogError("Could not load the network " + path + ": " + why);
    if (error != nullptr) *error = why;
    return nullptr;
  }
  return std::shared_ptr<Model>(new Model(std::move(network)));
}

void Model::loadContentsOfURL(
    const std::string& path, const ModelConfiguration& configuration,
    std::function<void(std::shared_ptr<Model>, const std::string& error)> handler) {
  std::thread([path, configuration, handler = std::move(handler)] {
    std::string error;
    std::shared_ptr<Model> model = modelWithContentsOfURL(path, configuration, &error);
    handler(std::move(model), model ? std::string() : error);
  }).detach();
}

const std::string& Model::inputName() const { return network_->InputName(); }
const std::string& Model::outputName() const { return network_->OutputName(); }
std::vector<int64_t> Model::outputShapeForInputShape(const std::vector<int64_t>& input_shape) const {
  return network_->OutputShape(input_shape);
}

std::shared_ptr<FeatureProvider> Model::predictionFromFeatures(const FeatureProvider& input,
                                                               const PredictionOptions& options,
                                                               std::string* error) {
  auto fail = [&](const std::string& why) {
    if (error != nullptr) *error = why;
    return std::shared_ptr<FeatureProvider>();
  };
  const std::shared_ptr<FeatureValue> value = input.featureValueForName(inputName());
  if (value == nullptr || value->multiArrayValue() == nullptr) {
    return fail("input feature '" + inputName() + "' is missing");
  }
  MultiArray& array = *value->multiArrayValue();
  const std::vector<int64_t>& shape = array.shape();
  if (shape.size() != 4 || shape[0] != 1 || shape[1] != 1) {
    return fail("input feature '" + inputName() + "' must have shape [1, 1, H, W]");
  }
  // Outputs of earlier predictions that the caller has released are written
  // again: they are mapped and sized already, which a new buffer would not be.
  std::vector<float> out = network_->outputs()->Take();
  std::vector<int64_t> out_shape;
  std::string why;
  model::Network::Region region;
  region.rows = options.outputRows;
  region.columns = options.outputColumns;
  region.on_rows = options.outputRowsReady;
  if (!network_->Run(static_cast<const float*>(array.dataPointer()), shape, region, &out, &out_shape,
                     &why)) {
    return fail(why);
  }
  std::shared_ptr<MultiArray> result = MultiArray::adopt(
      out_shape, std::move(out),
      [outputs = std::weak_ptr<model::OutputBuffers>(network_->outputs())](std::vector<float> data) {
        if (const auto o = outputs.lock()) o->Give(std::move(data));
      });
  auto provider = std::make_shared<DictionaryFeatureProvider>();
  provider->set(outputName(), FeatureValue::featureValueWithMultiArray(std::move(result)));
  return provider;
}

std::shared_ptr<BatchProvider> Model::predictionsFromBatch(const BatchProvider& inputs,
                                                           const PredictionOptions& options,
                                                           std::string* error) {
  std::vector<std::shared_ptr<FeatureProvider>> outputs;
  for (int64_t i = 0; i < inputs.count(); ++i) {
    const std::shared_ptr<FeatureProvider> in = inputs.featuresAtIndex(i);
    std::shared_ptr<FeatureProvider> out =
        in ? predictionFromFeatures(*in, options, error) : nullptr;
    if (out == nullptr) {
      if (in == nullptr && error != nullptr) *error = "batch entry is null";
      return nullptr;
    }
    outputs.push_back(std::move(out));
  }
  return ArrayBatchProvider::initWithFeatureProviderArray(std::move(outputs));
}

}  // namespace vorlith
