#!/usr/bin/env bash
# Builds the command-line tool alone (no tests or benchmarks, in its own build
# directory) and runs the demo device.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh --tool
cmake -S . -B build-tool -G Ninja -DCMAKE_BUILD_TYPE=Release -DHIDSENSOR_BUILD_TESTS=OFF \
  -DHIDSENSOR_BUILD_BENCH=OFF >/dev/null
cmake --build build-tool --target hidsensor
build-tool/bin/hidsensor demo "$@"
