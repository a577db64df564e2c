#!/usr/bin/env bash
# Every test: installs what is missing, then builds and runs the release,
# AddressSanitizer and ThreadSanitizer suites, and the ARM unit tests under qemu;
# then each fuzz target for a short regression run from its seeds, and a
# 3-minute soak of the realtime daemon with its peers.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh test

jobs=$(nproc)
for preset in release asan tsan arm; do
  echo "=== $preset ==="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
echo "=== fuzz (regression) ==="
scripts/fuzz.sh --seconds 25
echo "=== soak (3 minutes) ==="
scripts/soak.sh 3m
echo "=== all suites passed ==="
