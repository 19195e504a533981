// The plug-in object behind SuperResolutionInterface. Internal: hosts only see
// the interface; tests reach the members directly.
#ifndef VORLITH_SRC_PLUGIN_SR_PLUGIN_H_
#define VORLITH_SRC_PLUGIN_SR_PLUGIN_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vorlith/kernel_context.h"
#include "vorlith/model.h"
#include "vorlith/pixel_buffer.h"
#include "vorlith/plugin.h"

namespace vorlith {

// Candidate network input sizes, in the order that breaks ties.
inline constexpr int kCandidateCount = 19;
extern const int32_t kCandidateWidths[kCandidateCount];
extern const int32_t kCandidateHeights[kCandidateCount];

// Per-frame time budgets of the two networks.
inline constexpr double kFullBudgetMs = 30.0;
inline constexpr double kLightBudgetMs = 50.0;
// Frames averaged before the governor may act.
inline constexpr int32_t kGovernorMinFrames = 30;
inline constexpr int32_t kMaxFrameSide = 1280;

inline constexpr size_t kLegacyBufABytes = 6220800;
inline constexpr size_t kLegacyBufBBytes = 327680;

}  // namespace vorlith

class SRPlugin : public SuperResolutionInterface {
 public:
  SRPlugin();
  ~SRPlugin() override;

  int GetSupportFormat() override;
  int SelectNetType(NetType type) override;
  int Init(std::string unused) override;
  int Clear() override;
  int ProcessData(_tagVideoData* in, _tagVideoData* out) override;
  int SetFrameStatus() override;
  int GetDeviceType() override;

  // Picks the smallest candidate that holds a width x height frame into
  // modelWidth/modelHeight (0 x 0 when none does).
  void ChooseModelSize(int32_t width, int32_t height);

  int32_t frameCount;  // set by Init
  std::shared_ptr<vorlith::RTC> fullModel;
  std::shared_ptr<vorlith::RTC_degrade> lightModel;
  std::shared_ptr<vorlith::MultiArray> inputTensor;
  uint8_t* legacyBufA;  // examined only in legacy mode
  uint8_t* legacyBufB;
  int32_t candidateWidths[vorlith::kCandidateCount];
  int32_t candidateHeights[vorlith::kCandidateCount];
  int32_t candidateCount;
  int32_t frameWidth;
  int32_t frameHeight;
  int32_t modelWidth;
  int32_t modelHeight;
  double elapsedMs;
  double budgetMs;
  int32_t periodFrames;
  int32_t deviceType;  // 1 light, 2 full
  NetType netType;
  _StLanczos1p5x kernelCtx;
  int32_t netTypeApplied;
  int32_t refusedWidth;
  int32_t refusedHeight;
  int32_t legacyMode;
  // Output frames of the current size, reused once the host releases them.
  VLPixelBufferPoolRef outputPool;
  uint32_t outputPoolWidth;
  uint32_t outputPoolHeight;
  // Row bands the conversions and the chroma kernel are split into, and the
  // chroma kernel's two-row scratch for each.
  int32_t bands;
  std::vector<std::vector<int16_t>> chromaScratch;

 private:
  std::shared_ptr<vorlith::MultiArray> NewInputTensor() const;
  // Makes the pool and the chroma scratch fit out_width x out_height frames.
  bool PrepareOutput(uint32_t out_width, uint32_t out_height);
};

#endif  // VORLITH_SRC_PLUGIN_SR_PLUGIN_H_
