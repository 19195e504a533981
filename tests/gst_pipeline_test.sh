#!/bin/sh
# The shipped sample through the pipeline the README shows; ffprobe must find
# every frame at twice the size.  Usage: gst_pipeline_test.sh PLUGIN_DIR CLIP
set -eu
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
GST_PLUGIN_PATH=$1 GST_REGISTRY=$tmp/registry.bin gst-launch-1.0 -q filesrc location="$2" ! decodebin ! \
  videoconvert ! video/x-raw,format=NV12 ! vorlithsr ! videoconvert ! x264enc ! mp4mux ! \
  filesink location="$tmp/out.mp4"
probe() {
  ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=width,height,nb_read_frames \
    -of default=nw=1 "$1"
}
want=$(probe "$2" | awk -F= '$1 == "width" || $1 == "height" { print $1 "=" 2 * $2; next } { print }')
got=$(probe "$tmp/out.mp4")
[ "$got" = "$want" ] || { printf 'want:\n%s\ngot:\n%s\n' "$want" "$got" >&2; exit 1; }
echo "$got"
