#!/usr/bin/env bash
# Installs a build into a scratch prefix, checks what the library exports,
# builds the embedding example against the installed tree twice (pkg-config,
# then CMake's find_package) and runs both builds.
# Arguments: build dir, source dir, C++ compiler, sanitizer (empty, address
# or thread), scratch dir.
set -euo pipefail
build=$1 src=$2 cxx=$3 sanitize=$4 work=$5
fail() { echo "install test: $*" >&2; exit 1; }

rm -rf "$work"
mkdir -p "$work"
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
pc=$(find "$prefix" -name panoview.pc)
[ -n "$pc" ] || fail "no panoview.pc installed"
lib=$(dirname "$(dirname "$pc")")

soname=$(readelf -d "$lib/libPanoview.so" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')
[ "$soname" = "libPanoview.so.1" ] || fail "soname is '$soname'"
exported=$(nm -D --defined-only "$lib/libPanoview.so" | awk '{print $3}' | sort | tr '\n' ' ')
[ "$exported" = "ZT_GetPlugin ZT_ReleasePlugin " ] || fail "exports: $exported"

# A library built with a sanitizer needs its runtime in the host too.
flags=""
case "$sanitize" in
  address) flags="-fsanitize=address,undefined" ;;
  thread) flags="-fsanitize=thread" ;;
esac
# The driver's few bytes at exit are not the example's to report.
export ASAN_OPTIONS="${ASAN_OPTIONS:-}:detect_leaks=0"

example=$src/examples/embed
PKG_CONFIG_PATH=$lib/pkgconfig "$cxx" -std=c++17 $flags "$example/embed_host.cpp" \
  $(PKG_CONFIG_PATH=$lib/pkgconfig pkg-config --cflags --libs panoview x11) -lpthread -o "$work/embed-pkgconfig"
cmake -S "$example" -B "$work/embed-cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" \
  -DCMAKE_CXX_FLAGS="$flags" >/dev/null
cmake --build "$work/embed-cmake" >/dev/null

LD_LIBRARY_PATH=$lib "$work/embed-pkgconfig" || fail "the pkg-config build failed to draw"
"$work/embed-cmake/embed_host" || fail "the CMake build failed to draw"
echo "install test: both builds ran"
