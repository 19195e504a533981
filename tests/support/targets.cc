#include "tests/support/targets.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include "src/kernels/dispatch.h"

namespace vorlith::test {

std::string TargetName(int64_t target) { return hwy::TargetName(target); }

void ForEachTarget(const std::function<void(int64_t)>& body) {
  const std::vector<int64_t> targets = RunnableTargets();
  ASSERT_GE(targets.size(), 2u) << "expected a vector target beside the scalar one";
  for (int64_t target : targets) {
    // The forced CPU runs this target and every one below it (larger bits),
    // as a real one does: code without this target takes the next below.
    int64_t below = 0;
    for (int64_t t : targets) below |= t >= target ? t : 0;
    hwy::SetSupportedTargetsForTest(below);
    SCOPED_TRACE("target " + TargetName(target));
    ASSERT_EQ(DispatchedTarget(), target) << "dispatch did not select the forced target";
    body(target);
  }
  hwy::SetSupportedTargetsForTest(0);
}

}  // namespace vorlith::test
