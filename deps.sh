#!/usr/bin/env bash
# Installs the Debian packages the build needs, when they are missing.
set -eu
need=()
for p in g++ cmake make pkg-config liblapack-dev libgtest-dev libbenchmark-dev; do
  dpkg -s "$p" > /dev/null 2>&1 || need+=("$p")
done
if [ ${#need[@]} -gt 0 ]; then
  echo "installing: ${need[*]}"
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${need[@]}" > /dev/null
fi
