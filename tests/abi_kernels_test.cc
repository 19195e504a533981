// The colour conversions and the filters are exported under their C++
// names, as a host built against the public headers links them.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "vorlith/convert.h"
#include "vorlith/filter.h"

namespace {

TEST(Abi, ExportsTheColourConversionsAndFilters) {
  void* self = dlopen(nullptr, RTLD_NOW);
  ASSERT_NE(self, nullptr);
  // Lane types mangle as the Arm vector types on aarch64 (a const one as
  // GCC's generic vector type) and as the lane structs elsewhere.
#if defined(__aarch64__)
#define VORLITH_I32 "11__Int32x4_t"
#define VORLITH_CI32 "Dv4_i"
#define VORLITH_I16 "11__Int16x8_t"
#define VORLITH_F32 "13__Float32x4_t"
#define VORLITH_DIFF_OUT "R11__Int32x4_t"
#else
#define VORLITH_I32 "7int32x4"
#define VORLITH_CI32 "7int32x4"
#define VORLITH_I16 "7int16x8"
#define VORLITH_F32 "9float32x4"
#define VORLITH_DIFF_OUT "RS1_"
#endif
  for (const char* name : {
           "_Z15RGBA2I420A_NEONP14_StLanczos1p5xPhS1_ii",
           "_Z15I420A2RGBA_NEONP14_StLanczos1p5xPhS1_S1_S1_S1_ii",
           "_Z22u8_4x_to_s32_NEON_8LENPhP" VORLITH_I32 "S_",
           "_Z21RGBA2I420A_NEON_CAL_YP14_StLanczos1p5xPK" VORLITH_CI32 "Ph",
           "_Z22RGBA2I420A_NEON_CAL_UVP14_StLanczos1p5xPK" VORLITH_CI32 "R" VORLITH_I16,
           "_Z6To_s16RK" VORLITH_CI32 "S1_R" VORLITH_I16,
           "_Z21Y_u8_to_s32_NEON_8LENP14_StLanczos1p5xPhR" VORLITH_I32 "S3_",
           "_Z22UV_u8_to_s32_NEON_8LENP14_StLanczos1p5xPhR" VORLITH_I32 "S3_",
           "_Z19I420A2RGBA_NEON_CALP14_StLanczos1p5xRK" VORLITH_CI32 "S3_S3_Ps",
           "_Z21RGBA2RGBA_Y_RGBR_NEONP14_StLanczos1p5xPhPfPiS1_ii",
           "_Z16RGBA2RGBA_F_NEONPhPfPiS_ii",
           "_Z29u8_4x_to_RGBs32_Au8_NEON_8LENPhP" VORLITH_I32 "S_",
           "_Z21RGBA2RGBA_CAL_dY_NEONP14_StLanczos1p5xPK" VORLITH_CI32 "R" VORLITH_F32,
           "_Z21RGBA2RGBA_CAL_dR_NEONP14_StLanczos1p5xPK" VORLITH_CI32 VORLITH_DIFF_OUT,
           "_Z21RGBA2RGBA_CAL_dG_NEONP14_StLanczos1p5xPK" VORLITH_CI32 VORLITH_DIFF_OUT,
           "_Z21RGBA2RGBA_CAL_dB_NEONP14_StLanczos1p5xPK" VORLITH_CI32 VORLITH_DIFF_OUT,
           "_Z6yuvcpyPhiiiS_iiiS_iiib", "_Z8BGRACropPhS_iiiiii",
           "_Z28CvtColorI420ToRGBInterleavedPhiS_iS_ii",
           "_Z28CvtColorNV12ToRGBInterleavedPhiS_iS_ii", "_Z20CvtRGBtoRGBA_lanczosPhS_iii"}) {
    EXPECT_NE(dlsym(self, name), nullptr) << name;
  }
  for (const char* name : {
           "_Z17Boxfilter_AB_NEONP14_StLanczos1p5xffPhPsS1_ii", "_Z18HBoxfilter_AB_NEONPhPsS0_S0_ii",
           "_Z18VBoxfilter_AB_NEONPsS_S_S_S_S_ii", "_Z24VBoxfilter_final_AB_NEONffPsS_S_S_PhS0_ii",
           "_Z6ExpCalf", "_Z11Result_NEON" VORLITH_F32 "S_S_S_S_S_Ph",
           "_Z21u8_to_float_NEON_8LENPhR" VORLITH_F32 "S1_", "_Z14float_to_ucharf", "expTableBuffer",
           "_Z12Laplace_NEONP14_StLanczos1p5xPhPsii", "_Z13HLaplace_NEONPhPsii", "_Z13VLaplace_NEONPhS_S_PsS0_ii",
           "_Z7GET_s16PhR" VORLITH_I16 "S1_", "_Z7BL_NEONP14_StLanczos1p5xPhS1_ii",
           "_Z13HBL_NEON_BASEP14_StLanczos1p5xPhS1_S1_S1_i", "_Z10HBL_NEON_1P14_StLanczos1p5xPhS1_S1_S1_i",
           "_Z10HBL_NEON_2P14_StLanczos1p5xPhS1_S1_S1_i", "_Z15HBL_RESULT_NEONP14_StLanczos1p5xPhS1_S1_S1_i",
           "_Z11HBL_GET_s16Ph", "_Z16short8_to_float4" VORLITH_I16 "R" VORLITH_F32 "S1_", "BLBuffer",
           "_Z22Boxfilter_2even_A_NEONP14_StLanczos1p5xPhPfii", "_Z15HBoxfilter_NEONPhPsii",
           "_Z15VBoxfilter_NEONPsS_S_ii", "_Z23VBoxfilter_final_A_NEONPsS_PhPfii",
           "_Z19SharpenProduce_NEONPfS_PhS0_ii", "_Z26SharpenProduce_Stride_NEONPfS_PhS0_iii"}) {
    EXPECT_NE(dlsym(self, name), nullptr) << name;
  }
#undef VORLITH_I32
#undef VORLITH_CI32
#undef VORLITH_I16
#undef VORLITH_F32
#undef VORLITH_DIFF_OUT
  dlclose(self);
}

}  // namespace
