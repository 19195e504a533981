#!/usr/bin/env bash
# The plug-in's end-to-end tests under valgrind's memcheck, the long run of
# changing frame sizes shortened to FRAMES (default 2000; the sanitizer suite
# runs 10,000): no invalid access, no use of uninitialised memory, and no
# leak but the deliberate one the tests free. Not part of scripts/test.sh:
# memcheck runs the networks some 50 times slower.
# Usage: scripts/valgrind.sh [FRAMES]
set -euo pipefail
cd "$(dirname "$0")/.."
frames=${1:-2000}
scripts/setup.sh --valgrind
dir=build/valgrind
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORLITH_BUILD_BENCH=OFF \
  -DVORLITH_BUILD_TOOLS=OFF >/dev/null
cmake --build "$dir" -j "$(nproc)" --target vorlith_plugin_tests
# Debian's libhwy times its clock with RDTSCP in a static initializer, which
# memcheck 3.19 stops on as an illegal instruction; the kernels never use
# that clock, so a preloaded stand-in answers for it.
printf '#include <cstdint>\nnamespace hwy::platform { uint64_t TimerResolution() { return 1; } }\n' \
  > "$dir/hwy_timer.cc"
c++ -std=c++17 -shared -fPIC -o "$dir/hwy_timer.so" "$dir/hwy_timer.cc"
start=$(date +%s)
VORLITH_LONG_RUN_FRAMES=$frames LD_PRELOAD="$PWD/$dir/hwy_timer.so" \
  valgrind --error-exitcode=1 --leak-check=full --errors-for-leak-kinds=definite,indirect \
  --show-leak-kinds=definite,indirect "$dir/tests/vorlith_plugin_tests" --gtest_filter='PluginEndToEnd.*'
echo "memcheck: $frames frames, $(($(date +%s) - start)) s"
