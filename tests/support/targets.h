// Runs a test body once on every SIMD target the library carries and this CPU
// runs, checking that dispatch really selected each one.
#ifndef VORLITH_TESTS_SUPPORT_TARGETS_H_
#define VORLITH_TESTS_SUPPORT_TARGETS_H_

#include <cstdint>
#include <functional>
#include <string>

namespace vorlith::test {

std::string TargetName(int64_t target);

// Calls body(target) with dispatch forced to each runnable target in turn,
// under a SCOPED_TRACE naming it (with the targets below it, which code
// that lacks it falls back to); restores normal dispatch afterwards.
void ForEachTarget(const std::function<void(int64_t)>& body);

}  // namespace vorlith::test

#endif  // VORLITH_TESTS_SUPPORT_TARGETS_H_
