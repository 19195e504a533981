// Which Highway targets this build carries, and which one runs now. Used by
// the tests to run every kernel on every target and to prove it did.
#ifndef VORLITH_SRC_KERNELS_DISPATCH_H_
#define VORLITH_SRC_KERNELS_DISPATCH_H_

#include <cstdint>
#include <vector>

namespace vorlith {

// Targets compiled into the library that this CPU can run, best first.
std::vector<int64_t> RunnableTargets();

// The target that dynamic dispatch selects at this moment.
int64_t DispatchedTarget();

}  // namespace vorlith

#endif  // VORLITH_SRC_KERNELS_DISPATCH_H_
