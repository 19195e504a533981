#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/dispatch.cc"
// Every target some kernel compiles, the opt-in dot-product one included.
#ifndef HWY_WANT_AVX3_DL
#define HWY_WANT_AVX3_DL
#endif
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "src/kernels/dispatch.h"

HWY_BEFORE_NAMESPACE();
namespace vorlith {
namespace HWY_NAMESPACE {

int64_t ThisTarget() { return HWY_TARGET; }

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith {

HWY_EXPORT(ThisTarget);

std::vector<int64_t> RunnableTargets() {
  std::vector<int64_t> targets;
  for (int64_t bits = hwy::SupportedTargets() & HWY_TARGETS; bits != 0; bits &= bits - 1) {
    targets.push_back(bits & -bits);
  }
  return targets;
}

int64_t DispatchedTarget() { return HWY_DYNAMIC_DISPATCH(ThisTarget)(); }

}  // namespace vorlith
#endif  // HWY_ONCE
