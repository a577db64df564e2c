#!/usr/bin/env bash
# CPU use of the real daemon in steady state: faceDet plays a sample video at
# the camera's 30 fps (realtime pace, looping) with auto framing running and
# camera_sim as the camera, and its user plus system time over the wall time
# of the measurement is printed as a percentage of one core.
#
# Usage: bench/daemon_cpu.sh [SECONDS] [VIDEO]   (defaults: 60, the talking-head sample)
# FACEDET_ENGINE=mnn|opencv picks the daemon's engine (default: the camera's).
# Needs a release build of faceDet, camera_sim, facedet_ctl and scenario_clip:
#   cmake --build --preset release --target faceDet camera_sim facedet_ctl scenario_clip
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${FACEDET_BUILD_DIR:-$root/build/release}
seconds=${1:-60}
video=${2:-$(cd ../shared/data/videos && pwd)/talking_head_single_person.mp4}
models=$(cd ../shared/models && pwd)

run=$(mktemp -d "${TMPDIR:-/tmp}/facedet-cpu-XXXXXX")
daemon=
sim=
cleanup() {
    [ -n "$daemon" ] && kill -TERM "$daemon" 2>/dev/null && wait "$daemon" 2>/dev/null || true
    [ -n "$sim" ] && kill -TERM "$sim" 2>/dev/null && wait "$sim" 2>/dev/null || true
    rm -rf "$run"
}
trap cleanup EXIT

# A raw clip plays at 30 fps; the sample videos themselves run at 12 to 24.
"$build/tools/scenario_clip/scenario_clip" --video "$video" --out "$run/clip.nv12" >/dev/null
ln -s "$models"/* "$run"/

export FACEDET_RUNTIME_DIR=$run
export FACEDET_SHM_KEY=$((0x46430000 + $$ % 65536))

"$build/tools/camera_sim/camera_sim" --log "$run/camera_sim.jsonl" >"$run/camera_sim.out" 2>&1 &
sim=$!
(cd "$run" && FACEDET_SOURCE="$run/clip.nv12" FACEDET_PACE=realtime FACEDET_LOOP=1 \
  FACEDET_FRAME_LOG="$run/frames.log" exec "$build/src/faceDet" >"$run/faceDet.log" 2>&1) &
daemon=$!

# Auto framing on while the frame thread still sleeps its start-up seconds.
for _ in $(seq 50); do
    "$build/tools/facedet_ctl/facedet_ctl" run >/dev/null 2>&1 && break
    sleep 0.1
done
# Measure the steady state only: past the start-up sleep and the detector's first runs.
sleep 4
grep -q 'MsgBuf\[0\]=1 , MsgBuf\[1\]=1 ' "$run/faceDet.log" || { echo "daemon_cpu: auto framing did not start" >&2; exit 1; }

# utime and stime are fields 14 and 15 of /proc/PID/stat, in clock ticks
# (the name in field 2 has no blanks here).
cpu_ticks() { awk '{ print $14 + $15 }' "/proc/$daemon/stat"; }
frames() { grep -c " taken " "$run/frames.log" || true; }
dropped() { grep -c " dropped " "$run/frames.log" || true; }
hz=$(getconf CLK_TCK)

t0=$(date +%s.%N); c0=$(cpu_ticks); f0=$(frames); d0=$(dropped)
sleep "$seconds"
t1=$(date +%s.%N); c1=$(cpu_ticks); f1=$(frames); d1=$(dropped)
# The detector's own timing of the bare inference, averaged over the
# measurement (its lines after the first 20 analysed frames).
inference_ms=$(sed -n 's/.*inference time:\([0-9.e-]*\) s.*/\1/p' "$run/faceDet.log" | tail -n +21 |
    awk '{ s += $1; n++ } END { printf "%.3f", n ? 1000 * s / n : 0 }')
engine=$(grep -m1 "face detector: engine" "$run/faceDet.log" | sed 's/.*face detector: //')

awk -v t0="$t0" -v t1="$t1" -v c0="$c0" -v c1="$c1" -v hz="$hz" -v f="$((f1 - f0))" -v d="$((d1 - d0))" \
    -v inf="$inference_ms" -v engine="$engine" -v model="$(lscpu | sed -n 's/^Model name: *//p')" -v cores="$(nproc)" 'BEGIN {
    wall = t1 - t0; cpu = (c1 - c0) / hz
    printf "machine: %s, %d cores\n", model, cores
    printf "faceDet over %.1f s: %.2f s of CPU = %.1f%% of one core\n", wall, cpu, 100 * cpu / wall
    printf "frames taken %d (%.1f fps), dropped %d; CPU per taken frame %.2f ms (%.2f of the 33.3 ms budget)\n",
           f, f / wall, d, f ? 1000 * cpu / f : 0, f ? 1000 * cpu / f / 33.333 : 0
    # Wall time: on a loaded machine it includes waiting for a core.
    printf "detector: %s; inference %.2f ms a frame (its own timing, wall clock)\n", engine, inf
}'
