#!/usr/bin/env bash
# Rewrites the expected `hidsensor inspect` output for the descriptors in
# tests/data from the current build: text and --items for every one, --json
# for those that already have a .json golden. Read the diff before committing.
set -euo pipefail
cd "$(dirname "$0")/.."
tool=build/bin/hidsensor
golden=tests/tools/inspect-golden
for descriptor in tests/data/*.hex; do
  name=$(basename "${descriptor%.hex}")
  "$tool" inspect "$descriptor" > "$golden/$name.txt" 2>/dev/null
  "$tool" inspect --items "$descriptor" > "$golden/$name.items" 2>/dev/null
  if [ -e "$golden/$name.json" ]; then
    "$tool" inspect --json "$descriptor" > "$golden/$name.json" 2>/dev/null
  fi
done
git --no-pager diff --stat -- "$golden"
