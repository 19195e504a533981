#!/usr/bin/env bash
# Reproduces the quality and speed tables of models/README.md from the
# shipped ONNX files, through the library: builds vorlith-eval and the plug-in
# benchmark, then runs
#   1. vorlith-eval: PSNR/SSIM on Set5 and Set14 (needs ../shared/data/sr);
#   2. the plug-in benchmark with the shipped networks at 640x360 and 1280x720;
#   3. training/video_check.py: panning sequences through the Python package
#      (needs python3-pil; the model card's Video table).
# Usage: scripts/eval-networks.sh [--data DIR]   (extra arguments go to vorlith-eval)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
dir=build/eval
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVORLITH_BUILD_TESTS=OFF \
  -DPython3_EXECUTABLE=/usr/bin/python3 >/dev/null
cmake --build "$dir" -j "$(nproc)" --target vorlith-eval vorlith_bench_plugin _vorlith
data=()
[ "${1:-}" = --data ] && data=(--data "$2")
echo "=== quality (Y channel, 2 pixels trimmed; LR by MATLAB-style bicubic)"
"$dir/tools/vorlith-eval" --runner "$@"
echo "=== ProcessData milliseconds per frame, $(nproc) threads"
"$dir/bench/vorlith_bench_plugin" --benchmark_filter=BM_ProcessDataShipped --benchmark_min_time=2
echo "=== video check (PSNR per frame and temporal error)"
if /usr/bin/python3 -c 'import PIL' 2>/dev/null; then
  PYTHONPATH="$dir/python" /usr/bin/python3 training/video_check.py "${data[@]}"
else
  echo "skipped: needs python3-pil"
fi
