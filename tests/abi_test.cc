// Built against the public headers and libVorlith.so only, as a host would
// be: every exported kernel must link, and internals must stay hidden.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

#include "vorlith/kernels.h"
#include "vorlith/plugin.h"

namespace {

TEST(Abi, ExportsTheKernelApiAndHidesInternals) {
  void* self = dlopen(nullptr, RTLD_NOW);
  ASSERT_NE(self, nullptr);
  for (const char* exported :
       {"_Z15InitLanczos1p5xP14_StLanczos1p5x", "_Z16UInitLanczos1p5xP14_StLanczos1p5x",
        "_Z12Linear_2x_nvP14_StLanczos1p5xPhS1_iiii", "_Z24HResizeLinear_2x_nv_NEONPhPsii",
        "_Z18VResizeLinear_NEONP14_StLanczos1p5xPPsPhPKsiif", "_Z17CvtU8ToF32_STRIDEPhPfiiii",
        "_Z17CvtF32ToU8_STRIDEPfPhiiii",
        // Lanczos and bicubic resamplers.
        "_Z23Lanczos2x_SingleChannelP14_StLanczos1p5xPhS1_ii",
        "_Z21HResizeLanczos2x_NEONP14_StLanczos1p5xPhPiii",
        "_Z21VResizeLanczos2x_NEONP14_StLanczos1p5xPPiPhPKsii",
        "_Z20ResizeLanczos2x_NEONPhPiS_ii",
        "_Z21HResizeLanczos2x_NEONPhPiiii",
        "_Z21VResizeLanczos2x_NEONPPiPhPKsii",
        "_Z12Lanczos_1p5xP14_StLanczos1p5xPhS1_ii",
        "_Z24HResizeLanczos_1p5x_NEONP14_StLanczos1p5xPhPiii",
        "_Z24VResizeLanczos_1p5x_NEONP14_StLanczos1p5xPPiPhPKsii",
        "_Z12Lanczos_4d3xP14_StLanczos1p5xPhS1_ii",
        "_Z24HResizeLanczos_4d3x_NEONP14_StLanczos1p5xPhPiii",
        "_Z14Cubic1p5x_NEONP14_StLanczos1p5xPhS1_ii",
        "_Z12Cubic2x_NEONP14_StLanczos1p5xPhS1_ii",
        "_Z15HCubic1p5x_NEONP14_StLanczos1p5xPhPiii",
        "_Z13HCubic2x_NEONP14_StLanczos1p5xPhPiii",
        "_Z11VCubic_NEONP14_StLanczos1p5xPPiPhPKsii",
        "lanczos2xRowRing",
        // Bilinear 2x, 3x and 4x.
        "_Z9Linear_2xP14_StLanczos1p5xPhS1_ii", "_Z9Linear_3xP14_StLanczos1p5xPhS1_ii",
        "_Z9Linear_4xP14_StLanczos1p5xPhS1_ii", "_Z21HResizeLinear_2x_NEONPhPsii",
        "_Z21HResizeLinear_3x_NEONPhPtii", "_Z21HResizeLinear_4x_NEONPhPsii",
        "_Z23VResizeLinear_3x_NEON_1P14_StLanczos1p5xPPtPhii",
        "_Z23VResizeLinear_3x_NEON_2P14_StLanczos1p5xPPtPhii", "_Z19Linear_3x_give_NEONPhPtii",
        "_Z11Linear_1p5xP14_StLanczos1p5xPhS1_ii", "_Z13Linear_4div3xP14_StLanczos1p5xPhS1_ii",
        "_Z23HResizeLinear_1p5x_NEONPhPsii", "_Z25HResizeLinear_4div3x_NEONPhPsii",
        // Float bilinear 3x and 4x, NHWC converters.
        "_Z15Linear_float_3xP14_StLanczos1p5xPfS1_ii",
        "_Z15Linear_float_4xP14_StLanczos1p5xPfS1_ii", "_Z27HResizeLinear_float_3x_NEONPfS_ii",
        "_Z27HResizeLinear_float_4x_NEONPfS_ii",
        "_Z24VResizeLinear_float_NEONP14_StLanczos1p5xPPfS1_PKfii",
        "_Z24CvtF32ToU8_NHWC_3x3_NEONPfPhii", "_Z24CvtF32ToU8_NHWC_2x2_NEONPfPhii"}) {
    EXPECT_NE(dlsym(self, exported), nullptr) << exported;
  }
  // The vector steps: their lane types mangle as the Arm vector types on
  // aarch64 (a const one as GCC's generic vector type) and as the lane
  // structs elsewhere.
#if defined(__aarch64__)
#define VORLITH_I32X4 "11__Int32x4_t"
#define VORLITH_I16X8 "11__Int16x8_t"
#define VORLITH_CI32X4 "Dv4_i"
#define VORLITH_CALCULATION_ARGS "PKDv4_iR11__Int32x4_t"
#else
#define VORLITH_I32X4 "7int32x4"
#define VORLITH_I16X8 "7int16x8"
#define VORLITH_CI32X4 "7int32x4"
#define VORLITH_CALCULATION_ARGS "PK7int32x4RS_"
#endif
  for (const char* exported :
       {"_Z9NEON_LOADPhP" VORLITH_I32X4, "_Z8NEON_CALP14_StLanczos1p5xPK" VORLITH_CI32X4 "Pi",
        "_Z13H_NEON_LOAD_SPhP" VORLITH_I32X4, "_Z17NEON_CALCULATION1" VORLITH_CALCULATION_ARGS,
        "_Z17NEON_CALCULATION2" VORLITH_CALCULATION_ARGS,
        "_Z22u8_2x_to_s32_NEON_8LENPhR" VORLITH_I32X4 "S1_S1_S1_",
        "_Z15H_1p5x_NEON_CALP14_StLanczos1p5xPK" VORLITH_CI32X4 "Pi",
        "_Z22u8_3x_to_s32_NEON_8LENPhP" VORLITH_I32X4,
        "_Z24u8_3x_0_to_s32_NEON_8LENPhR" VORLITH_I32X4 "S1_",
        "_Z15H_4d3x_NEON_CALP14_StLanczos1p5xPK" VORLITH_CI32X4 "Pi",
        "_Z19u8_to_s32_NEON_8LENPhR" VORLITH_I32X4 "S1_",
        "_Z31u8_2x_to_s32_NEON_8LEN_FirstRowPhR" VORLITH_I32X4 "S1_",
        "_Z19HCubic1p5x_NEON_CALP14_StLanczos1p5xPK" VORLITH_CI32X4 "Pi",
        "_Z17HCubic2x_NEON_CALP14_StLanczos1p5xPK" VORLITH_CI32X4 "Pi",
        "_Z22u8_2x_to_s16_NEON_8LENPhR" VORLITH_I16X8 "S1_",
        "_Z21HLinear_1p5x_NEON_CALPsR" VORLITH_I16X8 "S1_S1_"}) {
    EXPECT_NE(dlsym(self, exported), nullptr) << exported;
  }
#undef VORLITH_I32X4
#undef VORLITH_I16X8
#undef VORLITH_CI32X4
#undef VORLITH_CALCULATION_ARGS
  for (const char* hidden : {"_ZN7vorlith15RunnableTargetsEv", "_ZN7vorlith16DispatchedTargetEv"}) {
    EXPECT_EQ(dlsym(self, hidden), nullptr) << hidden;
  }
  dlclose(self);
}


// A host that knows only the public headers: it finds the shipped networks
// where the build puts them, in the installed-tree location beside the
// library (../share/vorlith), and enlarges a frame.

TEST(Abi, HostRunsThePluginWithNetworksFromTheShareDirectory) {
  Dl_info info{};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(&InitLanczos1p5x), &info), 0);
  namespace fs = std::filesystem;
  const fs::path share = fs::canonical(info.dli_fname).parent_path() / ".." / "share" / "vorlith";
  ASSERT_TRUE(fs::exists(share / "RTC.onnx")) << share;
  ASSERT_TRUE(fs::exists(share / "RTC_degrade.onnx")) << share;
  std::unique_ptr<SuperResolutionInterface> sr(SuperResolutionInterface::Create());
  ASSERT_EQ(sr->Init(""), 0);
  constexpr int kW = 24, kH = 16;
  VLPixelBufferRef frame = nullptr;
  ASSERT_EQ(VLPixelBufferCreate(kW, kH, kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange, &frame),
            kVLReturnSuccess);
  VLPixelBufferLockBaseAddress(frame, 0);
  auto* y = static_cast<unsigned char*>(VLPixelBufferGetBaseAddressOfPlane(frame, 0));
  std::memset(y, 100, VLPixelBufferGetBytesPerRowOfPlane(frame, 0) * kH);
  VLPixelBufferUnlockBaseAddress(frame, 0);
  _tagVideoData in{}, out{};
  in.width = kW;
  in.height = kH;
  in.pixelBuffer = frame;
  in.format = 1;
  ASSERT_EQ(sr->ProcessData(&in, &out), SR_OK);
  ASSERT_EQ(out.width, 2u * kW);
  ASSERT_EQ(out.height, 2u * kH);
  // A flat frame stays flat away from the borders.
  const auto* y2 = static_cast<const unsigned char*>(VLPixelBufferGetBaseAddressOfPlane(out.pixelBuffer, 0));
  for (int r = 12; r < 2 * kH - 12; ++r) {
    for (int c = 12; c < 2 * kW - 12; ++c) EXPECT_NEAR(y2[r * out.strideY + c], 100, 3) << r << "," << c;
  }
  VLPixelBufferRelease(out.pixelBuffer);
  VLPixelBufferRelease(frame);
}

}  // namespace
