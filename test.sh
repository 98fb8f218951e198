#!/usr/bin/env bash
# Builds and runs every test twice: a normal build, then an AddressSanitizer + UBSan build.
set -eu
cd "$(dirname "$0")"
bash deps.sh
jobs=$(nproc)
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release > /dev/null
cmake --build build -j"$jobs"
ctest --test-dir build --output-on-failure -j"$jobs"
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DGRIDKIT_SANITIZE=ON -DGRIDKIT_BUILD_BENCH=OFF > /dev/null
cmake --build build-asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-asan --output-on-failure -j"$jobs"
