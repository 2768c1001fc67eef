#!/usr/bin/env bash
# Builds everything (tool, tests, benchmarks) and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default
ctest --preset default
