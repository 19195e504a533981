// A kernel context initialised for the duration of a test and released after.
#ifndef VORLITH_TESTS_SUPPORT_CONTEXT_H_
#define VORLITH_TESTS_SUPPORT_CONTEXT_H_

#include "src/checked/context.h"

namespace vorlith::test {

using checked::Context;

}  // namespace vorlith::test

#endif  // VORLITH_TESTS_SUPPORT_CONTEXT_H_
