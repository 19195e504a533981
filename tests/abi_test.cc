// Built against the public headers and libVorlith.so only, as a host would
// be: every name in abi/exports.txt must link, and internals stay hidden.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "vorlith/kernels.h"

namespace {

// The line with each {aarch64|other} choice resolved for this architecture.
std::string ForThisArchitecture(std::string line) {
  for (size_t open; (open = line.find('{')) != std::string::npos;) {
    const size_t bar = line.find('|', open), close = line.find('}', open);
#if defined(__aarch64__)
    line.replace(open, close - open + 1, line.substr(open + 1, bar - open - 1));
#else
    line.replace(open, close - open + 1, line.substr(bar + 1, close - bar - 1));
#endif
  }
  return line;
}

TEST(Abi, ExportsEveryListedNameAndHidesInternals) {
  void* self = dlopen(nullptr, RTLD_NOW);
  ASSERT_NE(self, nullptr);
  // One call, so that the library is linked whatever the linker's --as-needed.
  _StLanczos1p5x ctx{};
  InitLanczos1p5x(&ctx);
  UInitLanczos1p5x(&ctx);
  std::ifstream list(VORLITH_ABI_EXPORTS);
  ASSERT_TRUE(list) << VORLITH_ABI_EXPORTS;
  int exported = 0, hidden = 0;
  for (std::string line; std::getline(list, line);) {
    if (line.empty() || line[0] == '#') continue;
    const bool internal = line[0] == '!';
    const std::string name = ForThisArchitecture(line.substr(internal));
    EXPECT_EQ(dlsym(self, name.c_str()) != nullptr, !internal) << name;
    ++(internal ? hidden : exported);
  }
  EXPECT_GE(exported, 100);
  EXPECT_GE(hidden, 2);
  dlclose(self);
}

}  // namespace
