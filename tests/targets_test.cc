#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <string>

#include "src/kernels/dispatch.h"
#include "tests/support/targets.h"

namespace {

// The conformance tests are only as good as the targets they reach: the
// vector target of each architecture must be among them, beside the scalar.
TEST(Targets, EveryArchitectureRunsItsVectorAndScalarPaths) {
  std::string names;
  bool scalar = false, vector = false;
  for (int64_t target : vorlith::RunnableTargets()) {
    names += vorlith::test::TargetName(target) + " ";
    scalar |= target == HWY_SCALAR;
#if HWY_ARCH_X86
    vector |= target == HWY_SSE4;
#elif HWY_ARCH_ARM_A64
    vector |= target == HWY_NEON;
#endif
  }
  std::printf("targets compiled and runnable here: %s\n", names.c_str());
  EXPECT_TRUE(scalar) << names;
  EXPECT_TRUE(vector) << names;
}

}  // namespace
