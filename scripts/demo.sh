#!/usr/bin/env bash
# Builds the command-line tool and runs the demo device.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target hidsensor
build/bin/hidsensor demo "$@"
