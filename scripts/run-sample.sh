#!/usr/bin/env bash
# The main job: builds faceDet and its PC tools, then replays a sample video
# from ../shared/data/videos through the daemon with the camera simulator and
# renders what the camera would have done into a report folder.
# Usage: scripts/run-sample.sh [VIDEO [OUTDIR]]
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

scripts/install-deps.sh main
cmake --preset release >/dev/null
cmake --build --preset release --target faceDet camera_sim facedet_ctl gamma_peer facedet_replay

video=${1:-$(cd ../shared/data/videos && pwd)/talking_head_single_person.mp4}
out=${2:-$root/build/replay-$(basename "${video%.*}")}
"$root/build/release/tools/facedet_replay/facedet_replay" "$video" --out "$out" --gamma --force
echo
echo "Open $out/report.html in a browser (replay.mp4, timeline.png and summary.json are beside it)."
