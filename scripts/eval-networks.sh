#!/usr/bin/env bash
# Reproduces the quality and speed tables of models/README.md from the
# shipped ONNX files, through the library: builds vorlith-eval and the plug-in
# benchmark, then runs
#   1. vorlith-eval: PSNR/SSIM on Set5 and Set14 (needs ../shared/data/sr);
#   2. the plug-in benchmark with the shipped networks at 640x360 and 1280x720.
# Usage: scripts/eval-networks.sh [--data DIR]   (extra arguments go to vorlith-eval)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
dir=build/eval
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVORLITH_BUILD_TESTS=OFF >/dev/null
cmake --build "$dir" -j "$(nproc)" --target vorlith-eval vorlith_bench_plugin
echo "=== quality (Y channel, 2 pixels trimmed; LR by MATLAB-style bicubic)"
"$dir/tools/vorlith-eval" --runner "$@"
echo "=== ProcessData milliseconds per frame, $(nproc) threads"
"$dir/bench/vorlith_bench_plugin" --benchmark_filter=BM_ProcessDataShipped --benchmark_min_time=2
