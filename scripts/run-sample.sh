#!/usr/bin/env bash
# The main job: builds faceDet for the host platform and runs it on a sample
# video from ../shared/data/videos, printing the daemon's log. The clip plays
# at its own frame rate; the daemon stops by itself at its end.
# Usage: scripts/run-sample.sh [VIDEO]
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh main
cmake --preset release >/dev/null
cmake --build --preset release --target faceDet

video=${1:-$(cd ../shared/data/videos && pwd)/talking_head_single_person.mp4}
runtime=$(mktemp -d)
trap 'rm -rf "$runtime"' EXIT

echo "faceDet on $video (runtime files in $runtime)"
cd "$runtime"
FACEDET_SOURCE="$video" FACEDET_RUNTIME_DIR="$runtime" FACEDET_SHM_KEY=$((0x46000000 + $$ % 65536)) \
  FACEDET_EXIT_AT_END=1 "$OLDPWD/build/release/faceDet"
