#!/usr/bin/env bash
# Enlarges a video, a directory of videos or a list of them on a Slurm
# cluster: plans each file into segments cut at keyframes, submits every
# segment of every file as one job array (one task each), and one join per
# file that waits for its own segments (--dependency=afterok).
#
#   scripts/cluster/slurm.sh INPUT OUTPUT [sbatch options...]
#
# INPUT is a video (OUTPUT: the enlarged file), or a directory or a list
# file (*.txt or *.list, one path per line) of videos (OUTPUT: a directory
# that receives NAME.mp4 for each). The sbatch options (--partition,
# --account, --time, --hold...) go to every job submitted.
#
# Environment:
#   VORLITH                  the program (default: vorlith on the PATH); every
#                            node must run it under this name
#   VORLITH_SEGMENT_SECONDS  length of a segment (default 60), or
#   VORLITH_SEGMENTS         segments per file
#   VORLITH_NET              full (default) or light
#   VORLITH_WORK             plans, pieces and logs (default: OUTPUT.work); on a
#                            filesystem every node sees
#   VORLITH_JOIN_ARGS        options for `vorlith join` (e.g. "--crf 20")
#   VORLITH_KEEP_PIECES      set: keep the pieces after a join (by default a
#                            join that completes deletes them)
#   VORLITH_ARRAY_LIMIT      at most this many segments at once (sbatch --array=...%N)
#
# Prints `array JOBID` and `join JOBID PLAN OUTPUT` lines. A failed or
# cancelled segment is redone alone: sbatch --array=T WORK/piece.sbatch (T is
# its line in WORK/tasks, from 0), then its join again:
# sbatch --dependency=afterok:JOBID WORK/join.sbatch PLAN OUTPUT.
set -euo pipefail

if [ $# -lt 2 ]; then
  sed -n '2,30p' "$0" | sed 's/^# \{0,1\}//' >&2
  exit 2
fi
input=$1 output=$2
shift 2
vorlith=${VORLITH:-vorlith}
command -v "$vorlith" >/dev/null || { echo "slurm.sh: cannot run $vorlith (set VORLITH)" >&2; exit 2; }
vorlith=$(command -v "$vorlith")
case "$vorlith" in /*) ;; *) vorlith=$PWD/$vorlith ;; esac
work=${VORLITH_WORK:-$output.work}
mkdir -p "$work/plans" "$work/logs"
work=$(cd "$work" && pwd)

# The inputs, and where each one's output goes.
inputs=() outputs=()
if [ -d "$input" ] || [[ "$input" == *.txt || "$input" == *.list ]]; then
  if [ -d "$input" ]; then
    while IFS= read -r -d '' f; do inputs+=("$f"); done < <(find "$input" -maxdepth 1 -type f -print0 | sort -z)
  else
    while IFS= read -r f; do [ -n "$f" ] && inputs+=("$f"); done <"$input"
  fi
  mkdir -p "$output"
  for f in "${inputs[@]}"; do
    name=$(basename "$f")
    outputs+=("$(cd "$output" && pwd)/${name%.*}.mp4")
  done
else
  inputs=("$input")
  outputs=("$(cd "$(dirname "$output")" && pwd)/$(basename "$output")")
fi
[ "${#inputs[@]}" -gt 0 ] || { echo "slurm.sh: no input in $input" >&2; exit 2; }

if [ -n "${VORLITH_SEGMENTS:-}" ]; then
  cut=(--segments "$VORLITH_SEGMENTS")
else
  cut=(--segment-seconds "${VORLITH_SEGMENT_SECONDS:-60}")
fi

# One line per array task: "PLAN SEGMENT"; first[i] is file i's first task.
: >"$work/tasks"
plans=() first=() count=()
task=0
for i in "${!inputs[@]}"; do
  plan=$work/plans/$(printf %04d "$i").plan
  "$vorlith" plan "${inputs[$i]}" "${cut[@]}" --net "${VORLITH_NET:-full}" \
    --pieces "$work/pieces/$(printf %04d "$i")" -o "$plan"
  n=$(grep -c . "$plan")
  plans+=("$plan") first+=("$task") count+=("$n")
  for ((k = 0; k < n; k++)); do echo "$plan $k" >>"$work/tasks"; done
  task=$((task + n))
done

remove=--remove-pieces
[ -z "${VORLITH_KEEP_PIECES:-}" ] || remove=""
cat >"$work/piece.sbatch" <<EOF
#!/usr/bin/env bash
#SBATCH --job-name=vorlith-piece
#SBATCH --cpus-per-task=1
#SBATCH --output=$work/logs/piece-%A_%a.log
set -euo pipefail
line=\$(sed -n "\$((SLURM_ARRAY_TASK_ID + 1))p" "$work/tasks")
exec "$vorlith" upscale --quiet --plan "\${line% *}" --segment "\${line##* }"
EOF
cat >"$work/join.sbatch" <<EOF
#!/usr/bin/env bash
#SBATCH --job-name=vorlith-join
#SBATCH --cpus-per-task=1
#SBATCH --output=$work/logs/join-%j.log
set -euo pipefail
exec "$vorlith" join --quiet $remove --plan "\$1" "\$2" ${VORLITH_JOIN_ARGS:-}
EOF

array=0-$((task - 1))${VORLITH_ARRAY_LIMIT:+%$VORLITH_ARRAY_LIMIT}
job=$(sbatch --parsable --array="$array" "$@" "$work/piece.sbatch")
job=${job%%;*}
echo "array $job"
for i in "${!plans[@]}"; do
  deps=""
  for ((t = first[i]; t < first[i] + count[i]; t++)); do deps+=":${job}_$t"; done
  joined=$(sbatch --parsable --dependency="afterok$deps" --kill-on-invalid-dep=yes "$@" \
    "$work/join.sbatch" "${plans[$i]}" "${outputs[$i]}")
  echo "join ${joined%%;*} ${plans[$i]} ${outputs[$i]}"
done
