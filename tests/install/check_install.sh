#!/usr/bin/env bash
# Installs the built library into a temporary prefix, then builds small programs against it
# twice: once through CMake's find_package, once through pkg-config. Each program runs in an
# empty environment (env -i, keeping only ASAN_OPTIONS), so it starts only if the installed
# libraries find each other and the program finds them without LD_LIBRARY_PATH.
set -euo pipefail
build_dir=$1
consumer_dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Runs program $1 in an empty environment but for the sanitizer options of a sanitizer build.
run_clean() {
    env -i ${ASAN_OPTIONS:+"ASAN_OPTIONS=$ASAN_OPTIONS"} "$1"
    echo "$2: ok"
}

cmake --install "$build_dir" --prefix "$work/prefix" >/dev/null
libdir=$(find "$work/prefix" -name 'libquill-vara-dme.so' -printf '%h\n' | head -n 1)

cmake -S "$consumer_dir" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
run_clean "$work/cmake-build/consumer" "find_package consumer"
if [ -e "$libdir/libquill-vara-dme-http.so" ]; then
    run_clean "$work/cmake-build/http-consumer" "find_package HTTP consumer"
fi
if [ -e "$libdir/libquill-vara-dme-mqtt.so" ]; then
    run_clean "$work/cmake-build/mqtt-consumer" "find_package MQTT consumer"
fi

export PKG_CONFIG_PATH="$libdir/pkgconfig"
g++ -o "$work/pc-consumer" "$consumer_dir/main.cpp" $(pkg-config --cflags --libs quill-vara-dme)
run_clean "$work/pc-consumer" "pkg-config consumer"
if [ -e "$libdir/libquill-vara-dme-http.so" ]; then
    g++ -o "$work/pc-http-consumer" "$consumer_dir/http_main.cpp" \
        $(pkg-config --cflags --libs quill-vara-dme-http)
    run_clean "$work/pc-http-consumer" "pkg-config HTTP consumer"
fi
if [ -e "$libdir/libquill-vara-dme-mqtt.so" ]; then
    g++ -o "$work/pc-mqtt-consumer" "$consumer_dir/mqtt_main.cpp" \
        $(pkg-config --cflags --libs quill-vara-dme-mqtt)
    run_clean "$work/pc-mqtt-consumer" "pkg-config MQTT consumer"
fi

# DESTDIR stages the same install under another root, as a package build does.
DESTDIR="$work/stage" cmake --install "$build_dir" --prefix /opt/dme >/dev/null
test -e "$work/stage/opt/dme/include/dme/dme.h"
echo "DESTDIR install: ok"
