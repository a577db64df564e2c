#!/usr/bin/env bash
# Remakes the pictures of the README from the sample, so that they stay true:
# the main job's poster (a frame of the sample's replay above its timeline) and
# the live view's page as the browser test photographs it.
# Usage: scripts/readme-pictures.sh
set -euo pipefail
cd "$(dirname "$0")/.."
out=$PWD/build/readme-sample
scripts/run-sample.sh "" "$out"
cp "$out/poster.png" docs/img/sample-replay.png
cmake --build --preset release --target live_test facedet_live >/dev/null
# Without a browser the test skips: an old picture must not pass for a new one.
rm -f build/release/live-view.png
ctest --preset release -R 'LiveView.Browser' --output-on-failure
cp build/release/live-view.png docs/img/live-view.png
echo "docs/img/sample-replay.png and docs/img/live-view.png remade"
