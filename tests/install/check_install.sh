#!/usr/bin/env bash
# Installs the built library into a temporary prefix, then builds and runs a small program
# against it twice: once through CMake's find_package, once through pkg-config.
set -euo pipefail
build_dir=$1
consumer_dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build_dir" --prefix "$work/prefix" >/dev/null
libdir=$(find "$work/prefix" -name 'libquill-vara-dme.so' -printf '%h\n' | head -n 1)
export LD_LIBRARY_PATH="$libdir${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"

cmake -S "$consumer_dir" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
"$work/cmake-build/consumer"
echo "find_package consumer: ok"

export PKG_CONFIG_PATH="$libdir/pkgconfig"
g++ -o "$work/pc-consumer" "$consumer_dir/main.cpp" $(pkg-config --cflags --libs quill-vara-dme)
"$work/pc-consumer"
echo "pkg-config consumer: ok"
