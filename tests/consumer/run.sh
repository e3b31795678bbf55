#!/usr/bin/env bash
# Installs the built library into a scratch prefix and builds a consumer project
# against it with find_package(kelp), then runs the consumer.
set -euo pipefail
build=$1
src=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$src" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/build" >/dev/null
libdir=$(dirname "$(find "$work/prefix" -name 'libkelpu.so' | head -n 1)")
LD_LIBRARY_PATH="$libdir:${LD_LIBRARY_PATH:-}" "$work/build/consumer"
PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --libs kelp | grep -q -- -lkelpu
