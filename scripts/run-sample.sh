#!/usr/bin/env bash
# The main job: builds faceDet for the host platform and runs it on a sample
# video from ../shared/data/videos against the camera simulator, with auto
# framing switched on, printing the daemon's log and then what the camera did.
# Usage: scripts/run-sample.sh [VIDEO]
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

scripts/install-deps.sh main
cmake --preset release >/dev/null
cmake --build --preset release --target faceDet camera_sim facedet_ctl

build=$root/build/release
video=${1:-$(cd ../shared/data/videos && pwd)/talking_head_single_person.mp4}
models=$(cd ../shared/models && pwd)
run=$(mktemp -d "${TMPDIR:-/tmp}/facedet-sample-XXXXXX")
ln -s "$models"/* "$run"/

export FACEDET_RUNTIME_DIR=$run
export FACEDET_SHM_KEY=$((0x46000000 + $$ % 65536))

"$build/tools/camera_sim/camera_sim" --log "$run/camera_sim.jsonl" >"$run/camera_sim.out" 2>&1 &
sim=$!
trap 'kill $sim 2>/dev/null || true' EXIT
sleep 0.3

echo "faceDet on $video (runtime files and logs in $run)"
# The daemon starts with auto framing stopped, as on the camera; switch it on
# while its frame thread is still starting.
(sleep 1 && "$build/tools/facedet_ctl/facedet_ctl" run >/dev/null) &
(cd "$run" && FACEDET_SOURCE="$video" FACEDET_EXIT_AT_END=1 FACEDET_FRAME_LOG="$run/frames.log" \
  "$build/src/faceDet" | tee "$run/faceDet.log")
kill $sim 2>/dev/null || true
wait $sim 2>/dev/null || true

echo
echo "=== what the camera received ==="
grep '"event":"rx"' "$run/camera_sim.jsonl" | sed -e 's/.*"bytes":"\([^"]*\)".*"name":"\([^"]*\)".*/\2: \1/' | uniq -c
echo "=== where the simulated camera ended up (1920x1080 space) ==="
grep '"event":"state"' "$run/camera_sim.jsonl" | tail -n 1
echo "Logs: $run"
