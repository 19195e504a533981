#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (coverage, AddressSanitizer,
# UndefinedBehaviorSanitizer) in build/fuzz and runs each for SECONDS
# (default 30): the model importer, the plug-in, the kernels (each vector
# target against the scalar one) and the command line's media input. Seeds:
# fuzz/corpus/<name>, and for the model fuzzer the test fixtures and the
# shipped networks; new inputs collect in build/fuzz/corpus
# (merge the useful ones back with -merge=1). A crash leaves its input in
# build/fuzz/ and fails the run.
# Usage: scripts/fuzz.sh [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-30}
scripts/setup.sh --fuzz
names=(onnx plugin kernel media)
CC=clang CXX=clang++ cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORLITH_FUZZ=ON \
  -DVORLITH_BUILD_TESTS=OFF -DVORLITH_BUILD_BENCH=OFF -DVORLITH_BUILD_TOOLS=ON -DVORLITH_BUILD_GSTREAMER=OFF >/dev/null
cmake --build build/fuzz -j "$(nproc)" --target "${names[@]/%/_fuzzer}"
for name in "${names[@]}"; do
  work=build/fuzz/corpus/$name
  mkdir -p "$work"
  seeds=("fuzz/corpus/$name")
  [ "$name" = onnx ] && seeds+=(tests/fixtures models)
  echo "=== $name: $seconds s"
  (cd build/fuzz && "fuzz/${name}_fuzzer" -max_total_time="$seconds" -rss_limit_mb=4096 -timeout=30 \
     -print_final_stats=1 "../../$work" "${seeds[@]/#/../../}" 2>&1) | grep -E '^(stat::|#.*DONE)|ERROR|SUMMARY'
  [ "${PIPESTATUS[0]}" -eq 0 ] || { echo "fuzz: $name found a crash (input in build/fuzz/)" >&2; exit 1; }
done
