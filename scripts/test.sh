#!/usr/bin/env bash
# Installs what is needed, then builds and runs the whole test suite twice:
# the default build (GCC), then the address + undefined-behaviour sanitizer
# build (Clang). Both treat warnings as errors.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
jobs=$(nproc)

for preset in default asan; do
  echo "=== ${preset} build ==="
  cmake --preset "${preset}" >/dev/null
  cmake --build --preset "${preset}" -j "${jobs}"
  ctest --preset "${preset}" -j "${jobs}"
done
