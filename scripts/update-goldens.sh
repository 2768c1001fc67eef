#!/usr/bin/env bash
# Rewrites the expected output of every example scenario from the current
# build. Read the diff before committing it: a golden file is a promise.
set -euo pipefail
cd "$(dirname "$0")/.."
tool=build/bin/hidsensor
for scenario in examples/*.json; do
  "$tool" run "$scenario" > "${scenario%.json}.out" || { echo "$scenario: exit status $?" >&2; exit 1; }
done
git --no-pager diff --stat -- examples
