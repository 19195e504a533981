// The plug-in as a careless or hostile host drives it: frames of any size,
// records that disagree with their buffers, other formats, sizes changing
// from frame to frame, and SelectNetType, SetFrameStatus and Init between
// frames. The clock is the input's too, so the time governor's paths are
// reached and every run is reproducible.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "src/platform/platform.h"
#include "src/plugin/sr_plugin.h"
#include "vorlith/plugin.h"

namespace {

int64_t g_now = 0, g_step = 1000;

VLPixelBufferRef Frame(FuzzedDataProvider& in, int w, int h) {
  VLPixelBufferRef pb = nullptr;
  if (VLPixelBufferCreate(w, h, kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange, &pb) != kVLReturnSuccess) {
    return nullptr;
  }
  const uint8_t seed = in.ConsumeIntegral<uint8_t>();
  for (size_t p = 0; p < 2; ++p) {
    auto* base = static_cast<uint8_t*>(VLPixelBufferGetBaseAddressOfPlane(pb, p));
    const size_t n = VLPixelBufferGetBytesPerRowOfPlane(pb, p) * VLPixelBufferGetHeightOfPlane(pb, p);
    for (size_t i = 0; i < n; ++i) base[i] = static_cast<uint8_t>(seed + i * 131 + (i >> 7) * 7);
  }
  return pb;
}

int Side(FuzzedDataProvider& in) {
  static const int kSpecial[] = {1, 2, 1279, 1280, 1281, 4096, 0, -3};
  return in.ConsumeIntegralInRange(0, 15) == 0 ? kSpecial[in.ConsumeIntegralInRange(0, 7)]
                                               : in.ConsumeIntegralInRange(1, 70);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  namespace fs = std::filesystem;
  const fs::path dir = fs::temp_directory_path() / ("vorlith-fuzz-" + std::to_string(getpid()));
  fs::create_directories(dir);
  fs::copy_file(VORLITH_FIXTURES_DIR "/tiny_sr.onnx", dir / "RTC.onnx", fs::copy_options::overwrite_existing);
  fs::copy_file(VORLITH_FIXTURES_DIR "/nearest2x.onnx", dir / "RTC_degrade.onnx",
                fs::copy_options::overwrite_existing);
  vorlith::platform::SetResourceDirectoryForTest(dir.string());
  vorlith::platform::SetClockForTest([] { return g_now += g_step; });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  std::unique_ptr<SRPlugin> sr(static_cast<SRPlugin*>(SuperResolutionInterface::Create()));
  if (in.ConsumeBool()) sr->SelectNetType(static_cast<NetType>(in.ConsumeIntegral<int32_t>()));
  sr->Init("");
  for (int op = 0; op < 40 && in.remaining_bytes() > 0; ++op) {
    switch (in.ConsumeIntegralInRange(0, 5)) {
      case 0:
      case 1: {
        const int w = Side(in), h = Side(in);
        // Usually a buffer that matches the record; sometimes none or another size.
        const int pick = in.ConsumeIntegralInRange(0, 9);
        VLPixelBufferRef pb = pick == 0 ? nullptr : pick == 1 ? Frame(in, Side(in), Side(in)) : Frame(in, w, h);
        _tagVideoData frame{}, out{};
        frame.width = static_cast<uint32_t>(w);
        frame.height = static_cast<uint32_t>(h);
        frame.pixelBuffer = pb;
        frame.format = in.ConsumeIntegralInRange(0, 20) == 0 ? in.ConsumeIntegral<int32_t>() : 1;
        const int status = sr->ProcessData(&frame, &out);
        if ((status == SR_OK || status == SR_OK_LIGHT || status == SR_ERR_TOO_SLOW) && out.pixelBuffer != nullptr) {
          if (out.width != 2u * frame.width || out.height != 2u * frame.height) std::abort();
          VLPixelBufferRelease(out.pixelBuffer);
        }
        VLPixelBufferRelease(pb);
        break;
      }
      case 2: sr->SelectNetType(static_cast<NetType>(in.ConsumeIntegral<int32_t>())); break;
      case 3: sr->SetFrameStatus(); break;
      case 4:
        // A second Init leaks the context's row buffer by design; free it
        // so that the leak checker sees only real leaks.
        delete[] sr->kernelCtx.lineBuf;
        sr->kernelCtx.lineBuf = nullptr;
        sr->Init("");
        break;
      case 5: g_step = in.ConsumeIntegralInRange<int64_t>(0, 120000); break;
    }
  }
  return 0;
}
