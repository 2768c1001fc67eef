#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
set -euo pipefail

packages=(cmake ninja-build g++ clang libclang-rt-14-dev libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev libcli11-dev)

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
