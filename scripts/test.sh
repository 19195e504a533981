#!/usr/bin/env bash
# Sets up, builds and runs every test suite:
#   1. native (x86-64 here), every SIMD target the CPU runs, and the Python
#      package's pytest suite;
#   2. native again under AddressSanitizer and UndefinedBehaviorSanitizer;
#   3. aarch64, cross-compiled and run under qemu-aarch64 (NEON, SVE, scalar);
#   4. the concurrency tests under ThreadSanitizer;
#   5. each libFuzzer target for a few seconds (scripts/fuzz.sh), so that a
#      regression on the fuzzers' corpus surfaces.
# Usage: scripts/test.sh [native|sanitize|aarch64|tsan|fuzz]...   (default: all five)
set -euo pipefail
cd "$(dirname "$0")/.."

suites=("$@")
[ "${#suites[@]}" -eq 0 ] && suites=(native sanitize aarch64 tsan fuzz)
jobs=$(nproc)

need_cross=""
for s in "${suites[@]}"; do [ "$s" = aarch64 ] && need_cross="--cross"; done
scripts/setup.sh $need_cross

run_suite() {
  local name=$1; shift
  local dir=build/test-$name
  echo "=== $name: configure and build in $dir"
  cmake -S . -B "$dir" -G Ninja -DVORLITH_BUILD_BENCH=OFF "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  echo "=== $name: tests"
  ctest --test-dir "$dir" -j "$jobs" --output-on-failure
}

for s in "${suites[@]}"; do
  case "$s" in
    # Debian's interpreter: the one with python3-numpy and python3-pytest.
    native) run_suite native -DCMAKE_BUILD_TYPE=Release -DPython3_EXECUTABLE=/usr/bin/python3 ;;
    sanitize) run_suite sanitize -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORLITH_SANITIZE=ON ;;
    aarch64)
      run_suite aarch64 -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/aarch64-linux-gnu.cmake" -DVORLITH_BUILD_TOOLS=OFF ;;
    tsan)
      cmake -S . -B build/test-tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORLITH_TSAN=ON \
        -DVORLITH_BUILD_BENCH=OFF -DVORLITH_BUILD_TOOLS=OFF >/dev/null
      cmake --build build/test-tsan -j "$jobs" --target vorlith_thread_tests
      ctest --test-dir build/test-tsan -R '^Threads\.' --output-on-failure ;;
    fuzz) scripts/fuzz.sh 15 ;;
    *) echo "unknown suite: $s" >&2; exit 2 ;;
  esac
done
