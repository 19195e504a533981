#!/usr/bin/env bash
# Installs the Debian packages the build, tests and benchmarks need; with
# --cross also the aarch64 cross compiler, arm64 libraries and qemu. Installs
# only what is missing, so it is cheap to run again.
set -euo pipefail

packages=(cmake ninja-build g++ pkg-config libhwy-dev libgtest-dev libbenchmark-dev libyuv-dev)
packages+=(libonnx-dev libprotobuf-dev libxnnpack-dev libpthreadpool-dev)
cross=0
for arg in "$@"; do
  case "$arg" in
    --cross) cross=1 ;;
    *) echo "usage: $0 [--cross]" >&2; exit 2 ;;
  esac
done
if [ "$cross" = 1 ]; then
  packages+=(g++-aarch64-linux-gnu qemu-user libc6:arm64 libstdc++6:arm64 libhwy-dev:arm64
             libgtest-dev:arm64)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ "${#missing[@]}" -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
if [ "$cross" = 1 ] && ! dpkg --print-foreign-architectures | grep -qx arm64; then
  $sudo dpkg --add-architecture arm64
fi
echo "setup: installing ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
