#!/usr/bin/env bash
# How long the realtime daemon takes to end after SIGTERM, in the soak's own
# set-up (output through a FIFO to awk, camera_sim, gamma_peer, run/stop/off
# toggles), at random moments of its run, optionally with both cores loaded.
# Each trial prints one CSV line: trial, seconds run, toggle state, seconds
# until the process was a zombie (it had ended), seconds until it was gone.
#
# Usage: scripts/exit-latency.sh TRIALS [--load] [OUT.csv]
# Environment: FACEDET_BUILD_DIR (default build/release).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
shared=$(cd "$root/../shared" && pwd)
build=${FACEDET_BUILD_DIR:-$root/build/release}
trials=${1:?usage: scripts/exit-latency.sh TRIALS [--load] [OUT.csv]}
load=0
out=/dev/stdout
for a in "${@:2}"; do
  case $a in
    --load) load=1 ;;
    *) out=$a ;;
  esac
done

run=$(mktemp -d /tmp/facedet-exit.XXXXXX)
key=$((0x45000000 + ($$ & 0x3fffff)))
export FACEDET_RUNTIME_DIR=$run FACEDET_SHM_KEY=$key
loaders=()
cleanup() {
  for p in "${loaders[@]}"; do kill "$p" 2>/dev/null || true; done
  ipcrm -M "$key" 2>/dev/null || true
  rm -rf "$run"
}
trap cleanup EXIT
"$build/tools/scenario_clip/scenario_clip" --scenario walk_across --out "$run/clip.nv12" >/dev/null
for m in slim-320-quant-ADMM-50.mnn slim-320.onnx; do ln -sf "$shared/models/$m" "$run/$m"; done
if ((load)); then
  for _ in 1 2; do (while :; do :; done) & loaders+=($!); done
fi

# Microseconds of CLOCK_MONOTONIC.
now_us() { echo $(($(date +%s%N) / 1000)); }
state_of() { awk '{print $3}' "/proc/$1/stat" 2>/dev/null || echo gone; }

echo "trial,run_s,toggle,ended_s,gone_s" >"$out"
for trial in $(seq "$trials"); do
  pids=()
  "$build/tools/camera_sim/camera_sim" --runtime-dir "$run" >/dev/null 2>&1 &
  pids+=($!)
  rm -f "$run/out.fifo"
  mkfifo "$run/out.fifo"
  awk -v f="$run/frames" '/frameNumber = /{n++; if (n % 30 == 0) {t = f ".tmp"; print n > t; close(t); system("mv -f \"" t "\" \"" f "\"")}}' <"$run/out.fifo" &
  pids+=($!)
  (cd "$run" && FACEDET_SOURCE=$run/clip.nv12 FACEDET_LOOP=1 exec "$build/src/faceDet" >"$run/out.fifo" 2>/dev/null) &
  daemon=$!
  "$build/tools/gamma_peer/gamma_peer" --every 30 --seconds 60 >/dev/null 2>&1 &
  pids+=($!)
  # The soak's toggles, started at a random point of their cycle.
  steps=(run:6 stop:2 run:6 off:2)
  first=$((RANDOM % 4))
  (
    i=$first
    while :; do
      s=${steps[$i]}
      echo "${s%:*}" >"$run/toggle"
      "$build/tools/facedet_ctl/facedet_ctl" "${s%:*}" >/dev/null 2>&1 || true
      sleep "${s#*:}"
      i=$(((i + 1) % 4))
    done
  ) &
  pids+=($!)
  runs=$(awk -v r=$RANDOM 'BEGIN{printf "%.2f", 0.5 + (r % 1200) / 100}')
  sleep "$runs"
  toggle=$(cat "$run/toggle" 2>/dev/null || echo none)
  t0=$(now_us)
  kill -TERM "$daemon" 2>/dev/null || true
  ended=""
  gone=""
  for _ in $(seq 1000); do
    st=$(state_of "$daemon")
    t=$(now_us)
    [[ -z $ended && ($st == Z || $st == gone) ]] && ended=$t
    if [[ $st == gone ]]; then gone=$t; break; fi
    [[ $st == Z ]] && wait "$daemon" 2>/dev/null || true
    sleep 0.01
  done
  if [[ -z $gone ]]; then
    # Still there after 10 s: keep what its threads wait in, then end it.
    for task in /proc/"$daemon"/task/*; do echo "$(cat "$task/comm") $(cat "$task/wchan")"; done >"$run/stuck-$trial.txt" || true
    kill -KILL "$daemon" 2>/dev/null || true
  fi
  wait "$daemon" 2>/dev/null || true
  for p in "${pids[@]}"; do kill -TERM "$p" 2>/dev/null || true; done
  wait "${pids[@]}" 2>/dev/null || true
  awk -v n="$trial" -v r="$runs" -v tg="$toggle" -v t0="$t0" -v e="${ended:-}" -v g="${gone:-}" \
    'BEGIN{printf "%d,%s,%s,%s,%s\n", n, r, tg, e == "" ? "" : sprintf("%.3f", (e - t0) / 1e6), g == "" ? "" : sprintf("%.3f", (g - t0) / 1e6)}' >>"$out"
done
