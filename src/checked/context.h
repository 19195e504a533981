// The kernel context the checked layer sets up for one call.
#ifndef VORLITH_SRC_CHECKED_CONTEXT_H_
#define VORLITH_SRC_CHECKED_CONTEXT_H_

#include <cstddef>

#include "vorlith/kernel_context.h"

namespace vorlith::checked {

// A context set up by InitLanczos1p5x for one call; every buffer stored in it
// is released with it, on every path.
class Context {
 public:
  Context() { InitLanczos1p5x(&ctx_); }
  ~Context() { UInitLanczos1p5x(&ctx_); }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  _StLanczos1p5x* get() { return &ctx_; }
  // UInitLanczos1p5x releases these with delete[], so they come from new[].
  void SetWorkBuf(std::size_t bytes) { ctx_.workBuf = new unsigned char[bytes]; }
  void SetFloatLineBuf(std::size_t floats) {
    ctx_.floatLineBuf = new unsigned char[floats * sizeof(float)];
  }

 private:
  _StLanczos1p5x ctx_{};
};

}  // namespace vorlith::checked

#endif  // VORLITH_SRC_CHECKED_CONTEXT_H_
