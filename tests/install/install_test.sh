#!/bin/sh
# Installs a build into a temporary prefix, checks that every piece is there,
# and builds and runs a small consumer through the CMake package and through
# pkg-config.  Usage: install_test.sh BUILD_DIR SOURCE_DIR LIBDIR
set -eu
build=$1 src=$2 libdir=$3
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
prefix=$tmp/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null

for f in include/vorlith/plugin.h include/vorlith/kernels.h "$libdir/libVorlith.so" "$libdir/libVorlith.so.1" \
         "$libdir/libVorlith.a" share/vorlith/RTC.onnx share/vorlith/RTC_degrade.onnx bin/vorlith \
         "$libdir/gstreamer-1.0/libgstvorlith.so" "$libdir/cmake/Vorlith/VorlithConfig.cmake" \
         "$libdir/pkgconfig/vorlith.pc"; do
  [ -e "$prefix/$f" ] || { echo "missing from the install: $f" >&2; exit 1; }
done

cmake -S "$src/tests/install" -B "$tmp/cmake" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$tmp/cmake" >/dev/null
"$tmp/cmake/consumer"
"$tmp/cmake/consumer_static" --kernels-only

export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
# shellcheck disable=SC2046
c++ -std=c++20 "$src/tests/install/consumer.cc" -o "$tmp/consumer_pc" $(pkg-config --cflags --libs vorlith) \
    -Wl,-rpath,"$prefix/$libdir"
"$tmp/consumer_pc"

GST_PLUGIN_PATH="$prefix/$libdir/gstreamer-1.0" GST_REGISTRY="$tmp/registry.bin" gst-inspect-1.0 vorlithsr >/dev/null
echo "install test: ok"
