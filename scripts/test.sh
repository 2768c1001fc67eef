#!/usr/bin/env bash
# Builds everything (tool, tests, benchmarks) and runs every test. An optional
# argument names the preset (default: "default"; CI uses "release").
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
scripts/install-deps.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset"
