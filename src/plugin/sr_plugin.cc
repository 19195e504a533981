#include "src/plugin/sr_plugin.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "src/kernels/resize/linear_2x_nv.h"
#include "src/platform/platform.h"
#include "src/platform/worker_pool.h"
#include "vorlith/convert.h"
#include "vorlith/resize.h"

namespace vorlith {

const int32_t kCandidateWidths[kCandidateCount] = {320, 180, 320, 240, 360, 480, 270,
                                                   480, 360, 640, 540, 960, 720, 1280,
                                                   1280, 768, 1024, 480, 640};
const int32_t kCandidateHeights[kCandidateCount] = {180, 320, 240, 320, 480, 360, 480,
                                                    270, 640, 360, 960, 540, 1280, 720,
                                                    1280, 1024, 768, 640, 480};

}  // namespace vorlith

extern "C" {
const unsigned char libVorlithVersionString[] = "@(#)PROGRAM:libVorlith  PROJECT:libVorlith-1\n";
const double libVorlithVersionNumber = 1.0;
}

SuperResolutionInterface::~SuperResolutionInterface() = default;

SuperResolutionInterface* SuperResolutionInterface::Create() { return new SRPlugin(); }

// frameCount, legacyBufA/B and most of kernelCtx are left unset here: Init
// sets what it needs, and the destructor reads the legacy pointers only in
// legacy mode.
SRPlugin::SRPlugin()
    : candidateCount(vorlith::kCandidateCount),
      frameWidth(640),
      frameHeight(360),
      modelWidth(-1),
      modelHeight(-1),
      elapsedMs(0.0),
      budgetMs(0.0),
      periodFrames(0),
      deviceType(2),
      netType(static_cast<NetType>(0)),
      netTypeApplied(0),
      refusedWidth(-1),
      refusedHeight(-1),
      legacyMode(0),
      outputPool(nullptr),
      outputPoolWidth(0),
      outputPoolHeight(0),
      bands(static_cast<int32_t>(std::min(vorlith::platform::UsableCpus(), 16))),
      chromaScratch(static_cast<size_t>(bands)) {
  std::memcpy(candidateWidths, vorlith::kCandidateWidths, sizeof(candidateWidths));
  std::memcpy(candidateHeights, vorlith::kCandidateHeights, sizeof(candidateHeights));
  const float half[4] = {0.5f, 0.5f, 0.5f, 0.5f};
  const float q16[4] = {1.0f / 65536, 1.0f / 65536, 1.0f / 65536, 1.0f / 65536};
  std::memcpy(static_cast<void*>(&kernelCtx.halfVec), half, sizeof(half));
  std::memcpy(static_cast<void*>(&kernelCtx.q16Vec), q16, sizeof(q16));
  for (unsigned char*& p : kernelCtx.hblBuf) p = nullptr;
  kernelCtx.spareBuf0 = kernelCtx.workBuf = kernelCtx.lineBuf = nullptr;
  kernelCtx.spareBuf1 = kernelCtx.spareBuf2 = kernelCtx.floatLineBuf = nullptr;
  kernelCtx.spareBuf3 = kernelCtx.spareBuf4 = nullptr;
}

SRPlugin::~SRPlugin() {
  if (legacyMode == 1) {
    if (legacyBufA != nullptr) delete[] legacyBufA;
    if (legacyBufB != nullptr) delete[] legacyBufB;
  }
  UInitLanczos1p5x(&kernelCtx);
  VLPixelBufferPoolRelease(outputPool);
  inputTensor.reset();
  lightModel.reset();
  fullModel.reset();
}

int SRPlugin::GetSupportFormat() { return 1; }

int SRPlugin::SelectNetType(NetType type) {
  deviceType = type == 1 ? 1 : 2;
  netType = type;
  return 0;
}

int SRPlugin::Clear() { return 0; }

int SRPlugin::SetFrameStatus() {
  netTypeApplied = 0;
  return 0;
}

int SRPlugin::GetDeviceType() { return deviceType < 1 ? deviceType : 1; }

void SRPlugin::ChooseModelSize(int32_t width, int32_t height) {
  modelWidth = 0;
  modelHeight = 0;
  int32_t best = 100000000;
  for (int i = 0; i < candidateCount; ++i) {
    const int32_t cw = candidateWidths[i];
    const int32_t ch = candidateHeights[i];
    const int32_t cost = (cw - width) + (ch - height);
    if (ch >= height && cw >= width && cost < best) {
      modelWidth = cw;
      modelHeight = ch;
      best = cost;
    }
  }
}

std::shared_ptr<vorlith::MultiArray> SRPlugin::NewInputTensor() const {
  return vorlith::MultiArray::initWithShape({1, 1, modelHeight, modelWidth},
                                            vorlith::MultiArrayDataType::Float32);
}

int SRPlugin::Init(std::string /*unused*/) {
  frameCount = 0;
  InitLanczos1p5x(&kernelCtx);
  refusedWidth = -1;
  refusedHeight = -1;
  ChooseModelSize(frameWidth, frameHeight);
  if (!vorlith::platform::NeuralPathSupported()) {
    legacyBufA = new uint8_t[vorlith::kLegacyBufABytes];
    legacyBufB = new uint8_t[vorlith::kLegacyBufBBytes];
    legacyMode = 1;
    return 0;
  }
  vorlith::ModelConfiguration configuration;
  configuration.computeUnits = vorlith::ComputeUnits::All;
  fullModel = vorlith::RTC::initWithConfiguration(configuration);
  lightModel = vorlith::RTC_degrade::initWithConfiguration(configuration);
  inputTensor = NewInputTensor();
  return 0;
}

bool SRPlugin::PrepareOutput(uint32_t out_width, uint32_t out_height) {
  if (outputPool != nullptr && outputPoolWidth == out_width && outputPoolHeight == out_height) return true;
  // Frames of the old size still held by the host are freed when released.
  VLPixelBufferPoolRelease(outputPool);
  outputPool = nullptr;
  if (VLPixelBufferPoolCreate(out_width, out_height, kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange,
                              &outputPool) != kVLReturnSuccess) {
    return false;
  }
  outputPoolWidth = out_width;
  outputPoolHeight = out_height;
  return true;
}

namespace {

// Fewer rows than this a band are not worth a worker's wake-up.
constexpr int kMinBandRows = 32;

int BandsFor(int bands, int rows) { return std::clamp(rows / kMinBandRows, 1, bands); }

// Locks a buffer for the rest of a scope.
class PlaneLock {
 public:
  explicit PlaneLock(VLPixelBufferRef buffer) : buffer_(buffer) {
    VLPixelBufferLockBaseAddress(buffer_, 0);
  }
  ~PlaneLock() { VLPixelBufferUnlockBaseAddress(buffer_, 0); }
  PlaneLock(const PlaneLock&) = delete;
  PlaneLock& operator=(const PlaneLock&) = delete;

 private:
  VLPixelBufferRef buffer_;
};

}  // namespace

int SRPlugin::ProcessData(_tagVideoData* in, _tagVideoData* out) {
  if (in->width > uint32_t{vorlith::kMaxFrameSide} ||
      in->height > uint32_t{vorlith::kMaxFrameSide}) {
    return SR_ERR_TOO_LARGE;
  }
  const int32_t width = static_cast<int32_t>(in->width);
  const int32_t height = static_cast<int32_t>(in->height);
  if (width == refusedWidth && height == refusedHeight) return SR_ERR_TOO_SLOW;
  if (netTypeApplied == 0) {
    SelectNetType(netType);
    netTypeApplied = 1;
  }
  const int result = deviceType == 1 ? SR_OK_LIGHT : SR_OK;
  if (legacyMode == 1) return SR_ERR_UNSUPPORTED;

  const int64_t start = vorlith::platform::NowMicroseconds();
  if (width != frameWidth || height != frameHeight) {
    frameWidth = width;
    frameHeight = height;
    ChooseModelSize(width, height);
    inputTensor = NewInputTensor();
  }
  if (in->format != 1) return SR_ERR_UNSUPPORTED;

  // A frame whose buffer does not match its record, or that has no tensor to
  // go into, is refused before anything is created, rather than overrunning
  // the tensor.
  VLPixelBufferRef source = in->pixelBuffer;
  const size_t w = VLPixelBufferGetWidthOfPlane(source, 0);
  const size_t h = VLPixelBufferGetHeightOfPlane(source, 0);
  if (source == nullptr || inputTensor == nullptr || w != in->width || h != in->height ||
      VLPixelBufferGetPixelFormatType(source) != kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange) {
    return SR_ERR_UNSUPPORTED;
  }

  const uint32_t out_width = 2 * in->width;
  const uint32_t out_height = 2 * in->height;
  VLPixelBufferRef target = nullptr;
  if (!PrepareOutput(out_width, out_height) ||
      VLPixelBufferPoolCreatePixelBuffer(outputPool, &target) != kVLReturnSuccess) {
    return SR_ERR_UNSUPPORTED;
  }
  std::shared_ptr<vorlith::MultiArray> output;
  {
    PlaneLock target_lock(target);
    PlaneLock source_lock(source);
    auto* target_y = static_cast<unsigned char*>(VLPixelBufferGetBaseAddressOfPlane(target, 0));
    auto* target_uv = static_cast<unsigned char*>(VLPixelBufferGetBaseAddressOfPlane(target, 1));
    const int target_y_stride = static_cast<int>(VLPixelBufferGetBytesPerRowOfPlane(target, 0));
    const int target_uv_stride = static_cast<int>(VLPixelBufferGetBytesPerRowOfPlane(target, 1));
    auto* source_y = static_cast<unsigned char*>(VLPixelBufferGetBaseAddressOfPlane(source, 0));
    auto* source_uv = static_cast<unsigned char*>(VLPixelBufferGetBaseAddressOfPlane(source, 1));
    const int source_y_stride = static_cast<int>(VLPixelBufferGetBytesPerRowOfPlane(source, 0));
    const int source_uv_stride = static_cast<int>(VLPixelBufferGetBytesPerRowOfPlane(source, 1));
    const int uv_width = static_cast<int>(VLPixelBufferGetWidthOfPlane(source, 1));
    const int uv_height = static_cast<int>(VLPixelBufferGetHeightOfPlane(source, 1));
    auto* tensor = static_cast<float*>(inputTensor->dataPointer());
    vorlith::platform::WorkerPool& pool = vorlith::platform::WorkerPool::Shared();

    // The conversions work on bands of rows, each band's bytes the same as
    // the whole plane's, on the process's worker pool. The chroma goes with
    // the luma into the tensor; its bands split the 2 * uv_height output rows
    // at odd rows, where each band's first source row is the previous band's
    // last.
    const int in_rows = static_cast<int>(h), uv_rows = 2 * uv_height;
    const int in_bands = BandsFor(bands, in_rows);
    if (chromaScratch.size() < static_cast<size_t>(in_bands)) chromaScratch.resize(static_cast<size_t>(in_bands));
    for (int band = 0; band < in_bands; ++band) {
      std::vector<int16_t>& scratch = chromaScratch[static_cast<size_t>(band)];
      scratch.resize(std::max(scratch.size(), 8 * static_cast<size_t>(uv_width)));
    }
    pool.Run(in_bands, [&](int band) {
      const int first = in_rows * band / in_bands, end = in_rows * (band + 1) / in_bands;
      CvtU8ToF32_STRIDE(source_y + static_cast<ptrdiff_t>(first) * source_y_stride,
                        tensor + static_cast<ptrdiff_t>(first) * modelWidth, end - first, static_cast<int>(w),
                        source_y_stride, modelWidth);
      vorlith::Linear2xNvRows(chromaScratch[static_cast<size_t>(band)].data(), source_uv, target_uv, uv_height,
                              uv_width, source_uv_stride, target_uv_stride,
                              vorlith::Linear2xNvBandStart(band, in_bands, uv_height, uv_rows),
                              vorlith::Linear2xNvBandStart(band + 1, in_bands, uv_height, uv_rows));
    });
    // Only the output's top-left 2w x 2h is read, so only it is computed;
    // its rows become bytes as the network's threads finish them, while
    // they are still in the caches.
    vorlith::PredictionOptions options;
    options.outputRows = out_height;
    options.outputColumns = out_width;
    const int out_stride = 2 * modelWidth;
    const std::vector<int64_t> want = {1, 1, 2 * int64_t{modelHeight}, 2 * int64_t{modelWidth}};
    const std::shared_ptr<vorlith::Model> model =
        deviceType == 1 ? (lightModel ? lightModel->model() : nullptr) : (fullModel ? fullModel->model() : nullptr);
    // Rows are read in the layout the frame expects only from a network that
    // gives that shape; any other output is refused below.
    if (model != nullptr && model->outputShapeForInputShape({1, 1, modelHeight, modelWidth}) == want) {
      options.outputRowsReady = [&](const float* luma, int64_t first, int64_t end) {
        CvtF32ToU8_STRIDE(const_cast<float*>(luma) + first * out_stride, target_y + first * target_y_stride,
                          static_cast<int>(end - first), static_cast<int>(out_width), out_stride, target_y_stride);
      };
    }
    if (deviceType == 1) {
      budgetMs = vorlith::kLightBudgetMs;
      if (lightModel) {
        output = lightModel->predictionFromFeatures(*vorlith::RTC_degradeInput::initWithRTC_input(inputTensor),
                                                    options)->_161;
      }
    } else if (deviceType == 2) {
      budgetMs = vorlith::kFullBudgetMs;
      if (fullModel) {
        output = fullModel->predictionFromFeatures(*vorlith::RTCInput::initWithRTC_input(inputTensor), options)->_161;
      }
    }
    // A failed prediction is reported instead of read through.
    if (output == nullptr || output->shape() != want || !options.outputRowsReady) {
      output.reset();
    } else {
      out->pixelBuffer = target;
      out->width = out_width;
      out->height = out_height;
      out->strideY = target_y_stride;
      out->strideUV = target_uv_stride;
      out->format = 1;
    }
  }
  if (output == nullptr) {
    VLPixelBufferRelease(target);
    return SR_ERR_UNSUPPORTED;
  }

  elapsedMs += static_cast<double>(vorlith::platform::NowMicroseconds() - start) / 1000.0;
  const int32_t n = periodFrames;
  periodFrames = n + 1;
  if (n >= vorlith::kGovernorMinFrames && elapsedMs / (n + 1) > budgetMs) {
    if (deviceType == 2) {
      periodFrames = 0;
      deviceType = 1;
      elapsedMs = 0.0;
    } else {
      refusedWidth = width;
      refusedHeight = height;
      return SR_ERR_TOO_SLOW;
    }
  }
  ++frameCount;
  return result;
}
