#!/usr/bin/env bash
# Installs the build into a scratch prefix, builds a small program against the installed package
# with CMake and with pkg-config, runs it, and checks the public signatures when the pinned
# checks are present beside the project.
# Usage: check.sh BUILD_DIR SOURCE_DIR [API_GROUP ...]
set -eu
build=$1; src=$2; shift 2
work="$build/packaging-check"
rm -rf "$work"; mkdir -p "$work"
prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" > "$work/install.log"

# CMake consumer
cmake -S "$src/tests/packaging/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" > "$work/consumer.log"
cmake --build "$work/consumer" >> "$work/consumer.log"
expected="gridkit 4.4.1: 2254 nodes, 4512 triangles, 0 open edges"
out=$(LD_LIBRARY_PATH="$prefix/lib" "$work/consumer/quality_report" "$src/samples/part.stl" | head -1)
[ "$out" = "$expected" ] || { echo "CMake consumer printed: $out"; exit 1; }
echo "find_package(gridkit CONFIG): ok"

# pkg-config consumer
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
${CXX:-g++} $(pkg-config --cflags gridkit) "$src/tests/packaging/consumer/consumer.cpp" -o "$work/pc-consumer" \
  $(pkg-config --libs gridkit)
out=$(LD_LIBRARY_PATH="$prefix/lib" "$work/pc-consumer" "$src/samples/part.stl" | head -1)
[ "$out" = "$expected" ] || { echo "pkg-config consumer printed: $out"; exit 1; }
echo "pkg-config gridkit: ok"

# Pinned public signatures
check="$src/../shared/api-check/run.sh"
if [ $# -gt 0 ]; then
  if [ -f "$check" ]; then
    bash "$check" "$prefix" "$@"
  else
    echo "api-check not found beside the project: signature check skipped"
  fi
fi
