#!/usr/bin/env bash
# Installs what is missing, builds the library and the gridkit program, and runs it on a sample.
set -eu
cd "$(dirname "$0")"
bash deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release > /dev/null
cmake --build build -j"$(nproc)"
./build/gridkit --version
./build/gridkit info samples/block.mesh
./build/gridkit convert samples/part.stl /tmp/gridkit-part.mesh
