# Cross-compiles for aarch64 with Debian's cross compiler against the arm64
# multiarch packages (libhwy-dev:arm64, libgtest-dev:arm64); the tests run
# under qemu-aarch64 through CTest's emulator hook.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# Multiarch: headers are shared in /usr/include, libraries live in
# /usr/lib/aarch64-linux-gnu, and the arm64 loader in /lib.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)

# Packages that cannot be co-installed as :arm64 (ONNX's development files)
# are unpacked here by scripts/setup.sh --cross.
get_filename_component(VORLITH_ARM64_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-arm64" ABSOLUTE)
list(APPEND CMAKE_PREFIX_PATH "${VORLITH_ARM64_SYSROOT}/usr")
