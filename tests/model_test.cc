#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/plugin_fixture.h"
#include "vorlith/model.h"

namespace {

using vorlith::MultiArray;
using vorlith::MultiArrayDataType;
using vorlith::test::FixturePath;

std::shared_ptr<MultiArray> Luma(int h, int w) {
  auto a = MultiArray::initWithShape({1, 1, h, w}, MultiArrayDataType::Float32);
  auto* p = static_cast<float*>(a->dataPointer());
  for (int i = 0; i < h * w; ++i) p[i] = float(i % 251);
  return a;
}

TEST(MultiArray, ShapeStridesAndRejections) {
  auto a = MultiArray::initWithShape({1, 1, 3, 5}, MultiArrayDataType::Float32);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->count(), 15);
  EXPECT_EQ(a->strides(), (std::vector<int64_t>{15, 15, 5, 1}));
  EXPECT_EQ(static_cast<float*>(a->dataPointer())[14], 0.0f);
  std::string error;
  EXPECT_EQ(MultiArray::initWithShape({1, 0, 3}, MultiArrayDataType::Float32, &error), nullptr);
  EXPECT_FALSE(error.empty());
  EXPECT_EQ(MultiArray::initWithShape({}, MultiArrayDataType::Float32), nullptr);
  EXPECT_EQ(MultiArray::initWithShape({1 << 16, 1 << 16}, MultiArrayDataType::Float32), nullptr);
}

TEST(NetworkWrappers, SingleBatchAndAsynchronousPrediction) {
  vorlith::ModelConfiguration config;
  config.threads = 2;
  auto rtc = vorlith::RTC::initWithContentsOfURL(FixturePath("nearest2x.onnx"), config);
  ASSERT_NE(rtc, nullptr);
  EXPECT_EQ(rtc->model()->inputName(), "RTC_input");
  // Shapes come from the graph alone and agree with what a run gives.
  EXPECT_EQ(rtc->model()->outputShapeForInputShape({1, 1, 3, 4}), (std::vector<int64_t>{1, 1, 6, 8}));
  EXPECT_TRUE(rtc->model()->outputShapeForInputShape({3, 4}).empty());

  auto out = rtc->predictionFromRTC_input(Luma(3, 4));
  ASSERT_NE(out->_161, nullptr);
  // The feature keeps the network's tensor name; only the member has the underscore.
  EXPECT_EQ(out->featureNames(), std::set<std::string>{"161"});
  EXPECT_EQ(out->featureValueForName("161")->multiArrayValue(), out->_161);
  EXPECT_EQ(out->featureValueForName("_161"), nullptr);
  EXPECT_EQ(out->_161->shape(), (std::vector<int64_t>{1, 1, 6, 8}));
  const auto* y = static_cast<const float*>(out->_161->dataPointer());
  EXPECT_EQ(y[0], 0.0f);
  EXPECT_EQ(y[8 * 5 + 7], float(2 * 4 + 3));  // bottom-right comes from source (2, 3)

  // Output memory is reused only once the caller has released the array.
  auto other = Luma(3, 4);
  static_cast<float*>(other->dataPointer())[11] = 100.0f;
  const void* first = out->_161->dataPointer();
  auto second = rtc->predictionFromRTC_input(other);
  EXPECT_NE(second->_161->dataPointer(), first);
  EXPECT_EQ(y[8 * 5 + 7], float(2 * 4 + 3));
  EXPECT_EQ(static_cast<const float*>(second->_161->dataPointer())[8 * 5 + 7], 100.0f);
  const void* reused = second->_161->dataPointer();
  second.reset();
  auto third = rtc->predictionFromRTC_input(Luma(3, 4));
  EXPECT_EQ(third->_161->dataPointer(), reused);
  EXPECT_EQ(static_cast<const float*>(third->_161->dataPointer())[8 * 5 + 7], float(2 * 4 + 3));

  // A batch of two sizes, then a batch holding a malformed input: empty.
  std::vector<std::shared_ptr<vorlith::RTCInput>> batch = {
      vorlith::RTCInput::initWithRTC_input(Luma(2, 2)),
      vorlith::RTCInput::initWithRTC_input(Luma(5, 3))};
  auto outs = rtc->predictionsFromInputs(batch, vorlith::PredictionOptions());
  ASSERT_EQ(outs.size(), 2u);
  EXPECT_EQ(outs[1]->_161->shape(), (std::vector<int64_t>{1, 1, 10, 6}));
  batch.push_back(vorlith::RTCInput::initWithRTC_input(
      MultiArray::initWithShape({2, 2}, MultiArrayDataType::Float32)));
  std::string error;
  EXPECT_TRUE(rtc->predictionsFromInputs(batch, vorlith::PredictionOptions(), &error).empty());
  EXPECT_FALSE(error.empty());

  // A prediction that fails still gives an output object, with a null array.
  auto bad = rtc->predictionFromRTC_input(nullptr, &error);
  ASSERT_NE(bad, nullptr);
  EXPECT_EQ(bad->_161, nullptr);
  EXPECT_EQ(vorlith::RTC::initWithMLModel(nullptr), nullptr);

  std::promise<std::shared_ptr<vorlith::RTC_degrade>> loaded;
  vorlith::RTC_degrade::loadContentsOfURL(
      FixturePath("nearest2x.onnx"), config,
      [&](std::shared_ptr<vorlith::RTC_degrade> model, const std::string&) {
        loaded.set_value(std::move(model));
      });
  auto future = loaded.get_future();
  ASSERT_EQ(future.wait_for(std::chrono::seconds(30)), std::future_status::ready);
  EXPECT_NE(future.get(), nullptr);

  std::promise<std::string> failed;
  vorlith::RTC::loadContentsOfURL(FixturePath("unsupported_op.onnx"), config,
                                  [&](std::shared_ptr<vorlith::RTC> model, const std::string& e) {
                                    failed.set_value(model ? "" : e);
                                  });
  auto reason = failed.get_future();
  ASSERT_EQ(reason.wait_for(std::chrono::seconds(30)), std::future_status::ready);
  EXPECT_NE(reason.get().find("unsupported operator"), std::string::npos);
}

}  // namespace
