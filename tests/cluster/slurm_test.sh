#!/usr/bin/env bash
# scripts/cluster/slurm.sh on a private one-node Slurm: the shipped sample as
# 4 segments, one task cancelled (so its join never runs) and resubmitted
# alone, joins to the frames of one offline run; a directory of two clips
# gives one output each, again the frames of an offline run.
#   slurm_test.sh VORLITH SAMPLE
set -euo pipefail
vorlith=$1 sample=$2
root=$(cd "$(dirname "$0")/../.." && pwd)
if [ "$(id -u)" -ne 0 ]; then
  echo "skipped: slurmd runs jobs as root only"
  exit 77
fi
# shellcheck source=local_slurm.sh
source "$root/tests/cluster/local_slurm.sh"
tmp=$(mktemp -d /tmp/vorlith-slurm-XXXXXX)
trap 'slurm_stop; rm -rf "$tmp"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
frames() { (ffmpeg -nostdin -v error -i "$1" -map 0:v -pix_fmt yuv420p -f framemd5 - | grep -v '^#' | cut -d, -f6); }
same_frames() {
  local want got
  want=$(frames "$1") got=$(frames "$2")
  [ -n "$want" ] && [ "$want" = "$got" ] || fail "$2: not the frames of $1"
}

mkdir "$tmp/slurm"
slurm_start "$tmp/slurm"
"$vorlith" upscale -q --offline --codec ffv1 "$sample" "$tmp/single.mkv"

# Held, so that one task is surely cancelled before it runs.
out=$(VORLITH=$vorlith VORLITH_SEGMENTS=4 VORLITH_WORK=$tmp/work VORLITH_JOIN_ARGS="--codec ffv1" \
  "$root/scripts/cluster/slurm.sh" "$sample" "$tmp/joined.mkv" --hold)
echo "$out"
array=$(awk '$1 == "array" {print $2}' <<<"$out")
join=$(awk '$1 == "join" {print $2}' <<<"$out")
plan=$tmp/work/plans/0000.plan
[ "$(grep -c . "$plan")" = 4 ] || fail "not 4 segments: $(cat "$plan")"
scancel "${array}_2"
scontrol release "$array"
scontrol release "$join"
slurm_wait_job "$array" 300
slurm_wait_job "$join" 60
[ ! -e "$tmp/joined.mkv" ] || fail "the join ran without segment 2"
for k in 0 1 3; do [ -s "$tmp/work/pieces/0000/000$k.mkv" ] || fail "segment $k did not run"; done
[ ! -e "$tmp/work/pieces/0000/0002.mkv" ] || fail "segment 2 ran although cancelled"
if message=$("$vorlith" join --plan "$plan" "$tmp/joined.mkv" 2>&1); then fail "joined with a piece missing"; fi
grep -q "segment 2 of 4 is missing" <<<"$message" || fail "join did not name the missing piece: $message"

again=$(sbatch --parsable --array=2 "$tmp/work/piece.sbatch")
join=$(sbatch --parsable --dependency="afterok:$again" --kill-on-invalid-dep=yes \
  "$tmp/work/join.sbatch" "$plan" "$tmp/joined.mkv")
slurm_wait_job "$again" 300
slurm_wait_job "$join" 120
[ -s "$tmp/joined.mkv" ] || fail "no join after the resubmission: $(cat "$tmp"/work/logs/* 2>/dev/null)"
same_frames "$tmp/single.mkv" "$tmp/joined.mkv"
[ ! -e "$tmp/work/pieces/0000" ] || fail "the join left its pieces"
[ "$(frames "$tmp/joined.mkv" | wc -l)" = 50 ] || fail "not 50 frames"

# A directory: one array over both files' segments, one join each.
mkdir "$tmp/clips"
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=96x64:rate=25 -frames:v 20 -g 5 "$tmp/clips/a.mp4"
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=80x48:rate=25 -frames:v 12 -g 4 -c:v ffv1 "$tmp/clips/b.mkv"
out=$(VORLITH=$vorlith VORLITH_SEGMENTS=3 VORLITH_WORK=$tmp/work2 \
  VORLITH_JOIN_ARGS="--crf 0 --preset ultrafast" "$root/scripts/cluster/slurm.sh" "$tmp/clips" "$tmp/out")
echo "$out"
[ "$(wc -l <"$tmp/work2/tasks")" = 6 ] || fail "not 3 segments for each clip"
for job in $(awk '{print $2}' <<<"$out"); do slurm_wait_job "$job" 300; done
for name in a b; do
  "$vorlith" upscale -q --offline --codec ffv1 "$tmp/clips/$name".m* "$tmp/$name.mkv"
  same_frames "$tmp/$name.mkv" "$tmp/out/$name.mp4"
done
echo "slurm: all checks passed"
