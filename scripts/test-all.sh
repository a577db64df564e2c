#!/usr/bin/env bash
# Every test: installs what is missing, then builds and runs the release,
# AddressSanitizer and ThreadSanitizer suites, and the ARM unit tests under qemu.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh test

jobs=$(nproc)
# The camera build's daemon first: the release suite runs it under qemu
# against the PC build on the same clip.
cmake --preset arm >/dev/null
cmake --build --preset arm -j "$jobs" --target faceDet
for preset in release asan tsan arm; do
  echo "=== $preset ==="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
echo "=== all suites passed ==="
