#!/usr/bin/env bash
# Sets up, builds and runs the demo: enlarges the chroma of a synthetic
# 1280x720 NV12 test frame and writes the planes as PGM images.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DVORLITH_BUILD_TESTS=OFF \
  -DVORLITH_BUILD_BENCH=OFF >/dev/null
cmake --build build/release -j "$(nproc)" --target vorlith-demo
mkdir -p build/demo
build/release/tools/vorlith-demo build/demo "$@"
