#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
# With --tool: only what building the hidsensor tool needs (no tests,
# benchmarks or sanitizer toolchain).
set -euo pipefail

packages=(cmake ninja-build g++ nlohmann-json3-dev libcli11-dev)
if [ "${1:-}" != "--tool" ]; then
  packages+=(clang libclang-rt-14-dev libgtest-dev libgmock-dev libbenchmark-dev)
fi

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update
  apt-get install -y --no-install-recommends "${missing[@]}"
fi
