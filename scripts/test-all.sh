#!/usr/bin/env bash
# Every test: installs what is missing, then builds and runs the release,
# AddressSanitizer and ThreadSanitizer suites, the ARM unit tests under qemu and
# the ARM package started under qemu by its start-up script; then each fuzz
# target for a short regression run from its seeds, and a 3-minute soak of the
# realtime daemon with its peers.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh test

jobs=$(nproc)
# The camera build's daemon first, and the camera's own configuration against
# the arm preset's emulated SDK with the flight recorder: the release suite
# runs them under qemu against the PC build on the same clip.
cmake --preset arm >/dev/null
cmake --build --preset arm -j "$jobs" --target faceDet mi_sdk
cmake --preset camera-qemu >/dev/null
cmake --build --preset camera-qemu -j "$jobs" --target faceDet facedet_recorder
for preset in release asan tsan arm; do
  echo "=== $preset ==="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  # The exhaustive conversion check is plain arithmetic, run in release and on
  # ARM; under the sanitizers the random frames cover its memory use.
  skip=()
  [[ $preset == [at]san ]] && skip=(-E 'ForEveryCombination')
  ctest --preset "$preset" -j "$jobs" "${skip[@]}"
done
echo "=== arm package under qemu ==="
ctest --test-dir build/arm -L install --output-on-failure
echo "=== fuzz (regression) ==="
scripts/fuzz.sh --seconds 25
echo "=== soak (3 minutes) ==="
scripts/soak.sh 3m
echo "=== all suites passed ==="
