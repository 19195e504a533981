// The wrappers of the two shipped networks. Both families are one template;
// they differ only in the resource name and hence the log line.
#include <utility>

#include "src/platform/platform.h"
#include "vorlith/model.h"

namespace vorlith {
namespace {

constexpr const char* kInputFeature = "RTC_input";
constexpr const char* kOutputFeature = "161";
constexpr const char* kModelType = "onnx";

}  // namespace

template <class Names>
std::shared_ptr<NetworkInput<Names>> NetworkInput<Names>::initWithRTC_input(
    std::shared_ptr<MultiArray> RTC_input) {
  auto input = std::make_shared<NetworkInput>();
  input->RTC_input = std::move(RTC_input);
  return input;
}

template <class Names>
std::set<std::string> NetworkInput<Names>::featureNames() const {
  return {kInputFeature};
}

template <class Names>
std::shared_ptr<FeatureValue> NetworkInput<Names>::featureValueForName(
    const std::string& name) const {
  if (name != kInputFeature) return nullptr;
  return FeatureValue::featureValueWithMultiArray(RTC_input);
}

template <class Names>
std::shared_ptr<NetworkOutput<Names>> NetworkOutput<Names>::initWith_161(
    std::shared_ptr<MultiArray> _161) {
  auto output = std::make_shared<NetworkOutput>();
  output->_161 = std::move(_161);
  return output;
}

template <class Names>
std::set<std::string> NetworkOutput<Names>::featureNames() const {
  return {kOutputFeature};
}

template <class Names>
std::shared_ptr<FeatureValue> NetworkOutput<Names>::featureValueForName(
    const std::string& name) const {
  if (name != kOutputFeature) return nullptr;
  return FeatureValue::featureValueWithMultiArray(_161);
}

template <class Names>
std::string NetworkModel<Names>::URLOfModelInThisBundle() {
  std::string path = platform::PathForResource(Names::kResource, kModelType);
  if (path.empty()) {
    platform::LogError(std::string("Could not load ") + Names::kResource + "." + kModelType +
                       " in the bundle resource");
  }
  return path;
}

template <class Names>
std::shared_ptr<NetworkModel<Names>> NetworkModel<Names>::initWithMLModel(
    std::shared_ptr<Model> model) {
  if (model == nullptr) return nullptr;
  auto wrapper = std::make_shared<NetworkModel>();
  wrapper->model_ = std::move(model);
  return wrapper;
}

template <class Names>
std::shared_ptr<NetworkModel<Names>> NetworkModel<Names>::init() {
  return initWithContentsOfURL(URLOfModelInThisBundle());
}

template <class Names>
std::shared_ptr<NetworkModel<Names>> NetworkModel<Names>::initWithConfiguration(
    const ModelConfiguration& configuration, std::string* error) {
  return initWithContentsOfURL(URLOfModelInThisBundle(), configuration, error);
}

template <class Names>
std::shared_ptr<NetworkModel<Names>> NetworkModel<Names>::initWithContentsOfURL(
    const std::string& url, std::string* error) {
  return initWithMLModel(Model::modelWithContentsOfURL(url, error));
}

template <class Names>
std::shared_ptr<NetworkModel<Names>> NetworkModel<Names>::initWithContentsOfURL(
    const std::string& url, const ModelConfiguration& configuration, std::string* error) {
  return initWithMLModel(Model::modelWithContentsOfURL(url, configuration, error));
}

template <class Names>
void NetworkModel<Names>::loadWithConfiguration(const ModelConfiguration& configuration,
                                                LoadHandler handler) {
  loadContentsOfURL(URLOfModelInThisBundle(), configuration, std::move(handler));
}

template <class Names>
void NetworkModel<Names>::loadContentsOfURL(const std::string& url,
                                            const ModelConfiguration& configuration,
                                            LoadHandler handler) {
  Model::loadContentsOfURL(
      url, configuration,
      [handler = std::move(handler)](std::shared_ptr<Model> model, const std::string& error) {
        if (model != nullptr) {
          handler(initWithMLModel(std::move(model)), std::string());
        } else {
          handler(nullptr, error);
        }
      });
}

template <class Names>
std::shared_ptr<NetworkOutput<Names>> NetworkModel<Names>::predictionFromFeatures(
    const Input& input, std::string* error) {
  return predictionFromFeatures(input, PredictionOptions(), error);
}

template <class Names>
std::shared_ptr<NetworkOutput<Names>> NetworkModel<Names>::predictionFromFeatures(
    const Input& input, const PredictionOptions& options, std::string* error) {
  std::shared_ptr<MultiArray> result;
  if (const std::shared_ptr<FeatureProvider> features =
          model_->predictionFromFeatures(input, options, error)) {
    if (const std::shared_ptr<FeatureValue> value = features->featureValueForName(kOutputFeature)) {
      result = value->multiArrayValue();
    } else if (error != nullptr) {
      *error = std::string("the network has no output named ") + kOutputFeature;
    }
  }
  return Output::initWith_161(std::move(result));
}

template <class Names>
std::shared_ptr<NetworkOutput<Names>> NetworkModel<Names>::predictionFromRTC_input(
    std::shared_ptr<MultiArray> RTC_input, std::string* error) {
  return predictionFromFeatures(*Input::initWithRTC_input(std::move(RTC_input)), error);
}

template <class Names>
std::vector<std::shared_ptr<NetworkOutput<Names>>> NetworkModel<Names>::predictionsFromInputs(
    const std::vector<std::shared_ptr<Input>>& inputs, const PredictionOptions& options,
    std::string* error) {
  std::vector<std::shared_ptr<FeatureProvider>> providers(inputs.begin(), inputs.end());
  const std::shared_ptr<BatchProvider> results = model_->predictionsFromBatch(
      *ArrayBatchProvider::initWithFeatureProviderArray(std::move(providers)), options, error);
  std::vector<std::shared_ptr<Output>> outputs;
  if (results == nullptr) return outputs;
  outputs.reserve(static_cast<size_t>(results->count()));
  for (int64_t i = 0; i < results->count(); ++i) {
    std::shared_ptr<MultiArray> array;
    if (const auto features = results->featuresAtIndex(i)) {
      if (const auto value = features->featureValueForName(kOutputFeature)) {
        array = value->multiArrayValue();
      }
    }
    outputs.push_back(Output::initWith_161(std::move(array)));
  }
  return outputs;
}

template class NetworkInput<detail::FullNetworkNames>;
template class NetworkOutput<detail::FullNetworkNames>;
template class NetworkModel<detail::FullNetworkNames>;
template class NetworkInput<detail::LightNetworkNames>;
template class NetworkOutput<detail::LightNetworkNames>;
template class NetworkModel<detail::LightNetworkNames>;

}  // namespace vorlith
