// A kernel context initialised for the duration of a test and released after.
#ifndef VORLITH_TESTS_SUPPORT_CONTEXT_H_
#define VORLITH_TESTS_SUPPORT_CONTEXT_H_

#include "vorlith/kernel_context.h"

namespace vorlith::test {

class Context {
 public:
  Context() { InitLanczos1p5x(&ctx_); }
  ~Context() { UInitLanczos1p5x(&ctx_); }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  _StLanczos1p5x* get() { return &ctx_; }

 private:
  _StLanczos1p5x ctx_{};
};

}  // namespace vorlith::test

#endif  // VORLITH_TESTS_SUPPORT_CONTEXT_H_
