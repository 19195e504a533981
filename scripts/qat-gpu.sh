#!/usr/bin/env bash
# Quantisation-aware fine-tunes on one GPU, side by side: each job quantises a
# float network file and fine-tunes it for SECS seconds of stepping
# (quantize.py --qat-seconds). The 8-bit files, logs and run folders go to
# $OUT/qat (or ./qat). Needs the luma archive: python3 training/pack_data.py.
#
#   DEVICE=cpu runs them here.
#   JOBS="name float-file [quantize.py options];..." SECS=400 scripts/qat-gpu.sh
set -uo pipefail
cd "$(dirname "$0")/.."
archive=training/data/sr-luma.npz
[ -f "$archive" ] || { echo "qat-gpu: $archive missing (python3 training/pack_data.py)" >&2; exit 1; }
[ -n "${JOBS:-}" ] || { echo "qat-gpu: JOBS is empty" >&2; exit 1; }
out=${OUT:-.}/qat
mkdir -p "$out"
IFS=';' read -r -a jobs <<<"$JOBS"
export OMP_NUM_THREADS=2
# Side by side rather than time-sliced (see train-gpu.sh).
nvidia-cuda-mps-control -d 2>/dev/null && echo "MPS on"
# The pairs cache is built once, before the jobs race to write it.
python3 -c "import sys; sys.path.insert(0, 'training'); import data; \
data.training_pairs_cached('$archive', 'training/runs/train-pairs.pkl')"
for job in "${jobs[@]}"; do
  read -r name float extra <<<"$job"
  read -r -a extra <<<"${extra:-}"
  PYTHONUNBUFFERED=1 python3 training/quantize.py --float "$float" --out "$out/$name.onnx" --data "$archive" \
    --device "${DEVICE:-cuda}" --qat-seconds "${SECS:-400}" --eval-every "${EVAL_EVERY:-5000}" --threads 2 \
    --run-dir "$out/$name" "${extra[@]}" >"$out/$name.log" 2>&1 &
done
wait
for job in "${jobs[@]}"; do
  read -r name _ <<<"$job"
  echo "== $name"; tail -n 6 "$out/$name.log"
done
