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
    hwy::SetSupportedTargetsForTest(target);
    SCOPED_TRACE("target " + TargetName(target));
    ASSERT_EQ(DispatchedTarget(), target) << "dispatch did not select the forced target";
    body(target);
  }
  hwy::SetSupportedTargetsForTest(0);
}

}  // namespace vorlith::test
