#!/usr/bin/env bash
# Sets up, builds and runs the command-line host on the shipped sample:
# enlarges samples/city.mp4 (720x404, 2 s) to 1440x808 and prints where the
# result is. Extra arguments go to `vorlith upscale` (e.g. --stats, --net light).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DVORLITH_BUILD_TESTS=OFF \
  -DVORLITH_BUILD_BENCH=OFF >/dev/null
cmake --build build/release -j "$(nproc)"
mkdir -p build/demo
out=build/demo/city_2x.mp4
build/release/tools/vorlith upscale samples/city.mp4 "$out" "$@"
echo "demo: the enlarged sample is $PWD/$out"
