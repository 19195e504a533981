#!/usr/bin/env bash
# Times the networks in our engine and, on the same files, sizes and thread
# count, in two peer runtimes (ONNX Runtime and OpenVINO, CPU), and prints
# one table with our speed-up over the faster peer. The peers come from the
# Python package index into build/peers-venv (made once); the library itself
# never needs them.
#
# Usage: scripts/bench-peers.sh [FILE.onnx...]
#   FILEs default to the shipped integer networks and their float versions
#   (models/float/); VORLITH_PEER_FILES (space-separated) adds more. Our
#   engine's column covers those four files, which vorlith_bench_plugin loads.
set -euo pipefail
cd "$(dirname "$0")/.."
threads=2
files=("$@")
[ "${#files[@]}" -eq 0 ] && files=(models/RTC.onnx models/RTC_degrade.onnx models/float/RTC.onnx models/float/RTC_degrade.onnx)
# shellcheck disable=SC2206  # splitting on spaces is the interface
[ -n "${VORLITH_PEER_FILES:-}" ] && files+=(${VORLITH_PEER_FILES})
for f in "${files[@]}"; do
  [ -f "$f" ] || { echo "bench-peers: no file $f" >&2; exit 2; }
done

scripts/setup.sh
venv=build/peers-venv
if [ ! -x "$venv/bin/python" ]; then
  # Debian's python3 makes virtual environments only with python3-venv.
  if ! python3 -c 'import ensurepip' 2>/dev/null; then
    sudo=""
    [ "$(id -u)" -ne 0 ] && sudo="sudo"
    echo "bench-peers: installing python3-venv"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends python3-venv >/dev/null
  fi
  python3 -m venv "$venv"
fi
if ! "$venv/bin/python" -c 'import onnxruntime, openvino' 2>/dev/null; then
  "$venv/bin/pip" install -q --disable-pip-version-check onnxruntime openvino
fi

dir=build/peers
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVORLITH_BUILD_TESTS=OFF >/dev/null
cmake --build "$dir" -j "$(nproc)" --target vorlith_bench_plugin

echo "=== our engine, $threads threads"
"$dir/bench/vorlith_bench_plugin" --benchmark_filter="BM_Network/.*threads:$threads" \
  --benchmark_min_time=1 --benchmark_out="$dir/ours.json" --benchmark_out_format=json
echo "=== peers, $threads threads"
"$venv/bin/python" bench/peers.py --threads "$threads" --sizes 640x360,1280x720 \
  --ours "$dir/ours.json" "${files[@]}"
