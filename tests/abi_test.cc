// Built against the public headers and libVorlith.so only, as a host would
// be: every exported kernel must link, and internals must stay hidden.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "vorlith/kernels.h"

namespace {

TEST(Abi, ExportsTheKernelApiAndHidesInternals) {
  void* self = dlopen(nullptr, RTLD_NOW);
  ASSERT_NE(self, nullptr);
  for (const char* exported :
       {"_Z15InitLanczos1p5xP14_StLanczos1p5x", "_Z16UInitLanczos1p5xP14_StLanczos1p5x",
        "_Z12Linear_2x_nvP14_StLanczos1p5xPhS1_iiii", "_Z24HResizeLinear_2x_nv_NEONPhPsii",
        "_Z18VResizeLinear_NEONP14_StLanczos1p5xPPsPhPKsiif", "_Z17CvtU8ToF32_STRIDEPhPfiiii",
        "_Z17CvtF32ToU8_STRIDEPfPhiiii"}) {
    EXPECT_NE(dlsym(self, exported), nullptr) << exported;
  }
  for (const char* hidden : {"_ZN7vorlith15RunnableTargetsEv", "_ZN7vorlith16DispatchedTargetEv"}) {
    EXPECT_EQ(dlsym(self, hidden), nullptr) << hidden;
  }
  dlclose(self);
}

TEST(Abi, HostUsesTheKernelsThroughTheSharedLibrary) {
  _StLanczos1p5x ctx{};
  InitLanczos1p5x(&ctx);
  // A 3x2 chroma plane of constant pairs enlarges to the same pairs.
  std::vector<unsigned char> src(12);
  for (int i = 0; i < 12; i += 2) {
    src[i] = 90;
    src[i + 1] = 200;
  }
  std::vector<unsigned char> dst(48);
  Linear_2x_nv(&ctx, src.data(), dst.data(), 2, 3, 6, 12);
  for (int i = 0; i < 48; i += 2) {
    EXPECT_EQ(dst[i], 90);
    EXPECT_EQ(dst[i + 1], 200);
  }
  std::vector<float> plane(48);
  CvtU8ToF32_STRIDE(dst.data(), plane.data(), 4, 12, 12, 12);
  EXPECT_EQ(plane[1], 200.0f);
  UInitLanczos1p5x(&ctx);
}

}  // namespace
