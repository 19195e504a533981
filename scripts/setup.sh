#!/usr/bin/env bash
# Installs the Debian packages the build, tests and benchmarks need; with
# --cross also the aarch64 cross compiler, arm64 libraries and qemu; with --fuzz
# clang and its libFuzzer runtime; with --valgrind valgrind. Installs
# only what is missing, so it is cheap to run again.
set -euo pipefail

packages=(cmake ninja-build g++ pkg-config libhwy-dev libgtest-dev libbenchmark-dev libyuv-dev libopencv-dev
          libopencv-contrib-dev)
packages+=(libonnx-dev libprotobuf-dev)
# The Python package and its tests: pybind11 over the checked layer, NumPy, pytest.
packages+=(pybind11-dev python3-dev python3-numpy python3-pytest)
# The command-line host: FFmpeg's libraries, its parser, and ffmpeg/ffprobe for
# its tests.
packages+=(libavformat-dev libavcodec-dev libswscale-dev libavutil-dev libcli11-dev nlohmann-json3-dev ffmpeg)
# The GPU path: the Vulkan loader, the shader compiler, and Mesa's CPU-emulated
# device that its tests run on.
packages+=(libvulkan-dev glslang-tools mesa-vulkan-drivers)
# The cluster test: a one-node Slurm on this machine.
packages+=(slurm-wlm munge)
# The GStreamer element, its GstHarness tests and the pipeline test (decoders,
# videoconvert, x264enc, mp4mux).
packages+=(libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-tools gstreamer1.0-plugins-base
           gstreamer1.0-plugins-good gstreamer1.0-plugins-ugly gstreamer1.0-libav)
fuzz=0
cross=0
valgrind=0
for arg in "$@"; do
  case "$arg" in
    --cross) cross=1 ;;
    --fuzz) fuzz=1 ;;
    --valgrind) valgrind=1 ;;
    *) echo "usage: $0 [--cross] [--fuzz] [--valgrind]" >&2; exit 2 ;;
  esac
done
# libFuzzer and clang's sanitizer runtimes.
[ "$fuzz" = 1 ] && packages+=(clang libclang-rt-14-dev)
[ "$valgrind" = 1 ] && packages+=(valgrind)
if [ "$cross" = 1 ]; then
  packages+=(g++-aarch64-linux-gnu qemu-user libc6:arm64 libstdc++6:arm64 libhwy-dev:arm64
             libgtest-dev:arm64)
  packages+=(libprotobuf-dev:arm64)
fi

# ONNX's development files clash with the native ones, so the cross build
# reads its arm64 build from a folder it is unpacked into (delete it to
# refresh).
arm64_sysroot_packages=(libonnx1 libonnx-dev libonnxifi)
unpack_arm64_sysroot() {
  local dir tmp opts=()
  dir="$(cd "$(dirname "$0")/.." && pwd)/build/sysroot-arm64"
  [ "$(cat "$dir/.packages" 2>/dev/null)" = "${arm64_sysroot_packages[*]}" ] && return 0
  [ "$(id -u)" -eq 0 ] && opts=(-o APT::Sandbox::User=root)
  tmp=$(mktemp -d)
  if ! (cd "$tmp" && apt-get download -qq "${opts[@]}" "${arm64_sysroot_packages[@]/%/:arm64}"); then
    echo "setup: cannot download ${arm64_sysroot_packages[*]} for arm64" >&2
    rm -rf "$tmp"
    return 1
  fi
  rm -rf "$dir"
  mkdir -p "$dir"
  for deb in "$tmp"/*.deb; do dpkg-deb -x "$deb" "$dir"; done
  echo "${arm64_sysroot_packages[*]}" >"$dir/.packages"
  rm -rf "$tmp"
  echo "setup: unpacked ${arm64_sysroot_packages[*]} (arm64) into $dir"
}

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
if [ "${#missing[@]}" -eq 0 ]; then
  [ "$cross" = 0 ] || unpack_arm64_sysroot
  exit 0
fi

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
if [ "$cross" = 1 ] && ! dpkg --print-foreign-architectures | grep -qx arm64; then
  $sudo dpkg --add-architecture arm64
fi
echo "setup: installing ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
[ "$cross" = 0 ] || unpack_arm64_sysroot
