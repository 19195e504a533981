#!/usr/bin/env bash
# One piece of the networks' GPU training: the networks below train side by
# side on one GPU for at most PIECE seconds each, every one resuming from its
# checkpoint under training/runs/gpu/ when there is one; then that folder is
# packed into $OUT/runs.tar (or ./runs.tar). A run's learning rate follows its
# whole length (TOTAL training seconds), so pieces of ten minutes or less add
# up to one run; with REMAIN instead, each run ends REMAIN training seconds
# after its checkpoint (the last piece). Needs the luma archive:
# python3 training/pack_data.py.
#
#   PIECE=520 TOTAL=1000 scripts/train-gpu.sh      # then unpack runs.tar, again
set -uo pipefail
cd "$(dirname "$0")/.."
piece=${PIECE:-520}
total=${TOTAL:-1000}
runs=training/runs/gpu
archive=training/data/sr-luma.npz
[ -f "$archive" ] || { echo "train-gpu: $archive missing (python3 training/pack_data.py)" >&2; exit 1; }
# name, configuration, channels, body blocks, then any further train.py
# options; NETS="entry;entry" replaces the list.
nets=("full20x4 full 20 4" "full16x6 full 16 6" "light12x3 light 12 3")
[ -n "${NETS:-}" ] && IFS=';' read -r -a nets <<<"$NETS"
# ONLY="full20x4 light12x3" trains only those.
if [ -n "${ONLY:-}" ]; then
  kept=()
  for entry in "${nets[@]}"; do [[ " $ONLY " == *" ${entry%% *} "* ]] && kept+=("$entry"); done
  nets=("${kept[@]}")
fi
nvidia-smi --query-gpu=name,memory.total,driver_version --format=csv,noheader
python3 -c 'import torch; print("torch", torch.__version__)'
# The host side of these small networks is one core each; many threads per
# process only get in each other's way.
export OMP_NUM_THREADS=1 OPENBLAS_NUM_THREADS=1 MKL_NUM_THREADS=1
# Without the multi-process service the GPU time-slices between the
# processes; with it their kernels run side by side.
if nvidia-cuda-mps-control -d 2>/dev/null; then
  if python3 -c 'import torch; torch.zeros(1, device="cuda").sum().item()' 2>/dev/null; then
    echo "MPS on"
  else
    echo quit | nvidia-cuda-mps-control; echo "MPS off (clients failed)"
  fi
fi
python3 - <<PY
import sys, time; sys.path.insert(0, "training"); import data
t = time.time(); data.training_pairs_cached("$archive", "training/runs/train-pairs.pkl")
print(f"pairs: {time.time() - t:.1f} s")
PY
for entry in "${nets[@]}"; do
  read -r name net channels body extra <<<"$entry"
  read -r -a extra <<<"${extra:-}"
  mkdir -p "$runs/$name"
  start=()
  # INIT=float: a new run starts from the shipped float network of its kind.
  if [ "${INIT:-}" = float ]; then
    [ "$net" = full ] && start=(--init-onnx models/float/RTC.onnx) || start=(--init-onnx models/float/RTC_degrade.onnx)
  fi
  seconds=$total
  ckpt=$runs/$name/checkpoint.pt
  if [ -f "$ckpt" ]; then
    start=(--resume "$ckpt")
    [ -n "${REMAIN:-}" ] &&
      seconds=$(python3 -c "import torch; print(torch.load('$ckpt', weights_only=False)['seconds'] + $REMAIN)")
  fi
  PYTHONUNBUFFERED=1 python3 training/train.py --net "$net" --channels "$channels" --body "$body" \
    --device cuda --data "$archive" --seconds "$seconds" --stop-after "$piece" --batch "${BATCH:-64}" --patch 64 \
    --lr "${LR:-1e-3}" --eval-every "${EVAL_EVERY:-5000}" --edge-zero 0.5 --edge-from 0.85 --out "$runs/$name" \
    "${start[@]}" "${extra[@]}" \
    >>"$runs/$name/train.log" 2>&1 &
done
wait
for entry in "${nets[@]}"; do
  read -r name _ <<<"$entry"
  echo "== $name"; tail -n 8 "$runs/$name/train.log"
done
tar -cf "${OUT:-.}/runs.tar" -C training/runs gpu
