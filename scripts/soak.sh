#!/usr/bin/env bash
# Long run of the realtime daemon against its real peers, watching what a
# process that lives for months must not do: grow, leak descriptors or
# threads, or stop analysing frames.
#
# Usage: scripts/soak.sh DURATION [OUTDIR]
#   DURATION  seconds, or with a suffix: 90s, 3m, 1h
#   OUTDIR    where soak.csv, soak.png, verdict.txt and the logs go
#             (default build/soak-<duration>)
# Environment: FACEDET_BUILD_DIR (default build/release), SOAK_SAMPLE_S (10).
#
# faceDet plays a looping raw clip with faces at the camera's pace, camera_sim
# answers its packets, gamma_peer asks for a curve every 30 polls, and auto
# framing is switched run/stop/run/off every few seconds. Every SOAK_SAMPLE_S
# seconds RSS, open descriptors, threads, CPU and frames analysed are written
# to soak.csv. Exit 0 when the verdict passes, 1 when it fails, 2 bad usage.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
shared=$(cd "$root/../shared" && pwd)
build=${FACEDET_BUILD_DIR:-$root/build/release}
sample_s=${SOAK_SAMPLE_S:-10}

if [[ $# -lt 1 ]]; then
  echo "usage: scripts/soak.sh DURATION [OUTDIR]" >&2
  exit 2
fi
case $1 in
  *h) duration=$(( ${1%h} * 3600 )) ;;
  *m) duration=$(( ${1%m} * 60 )) ;;
  *s) duration=${1%s} ;;
  *) duration=$1 ;;
esac
if ! [[ $duration =~ ^[0-9]+$ ]] || ((duration < 3 * sample_s)); then
  echo "soak: DURATION must be at least $((3 * sample_s)) seconds" >&2
  exit 2
fi
out=${2:-$root/build/soak-$1}
mkdir -p "$out"
out=$(cd "$out" && pwd)

run=$(mktemp -d /tmp/facedet-soak.XXXXXX)
key=$(( 0x53000000 + ($$ & 0x3fffff) ))
export FACEDET_RUNTIME_DIR=$run FACEDET_SHM_KEY=$key
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill -TERM "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  ipcrm -M "$key" 2>/dev/null || true
  rm -rf "$run"
}
trap cleanup EXIT

"$build/tools/scenario_clip/scenario_clip" --scenario walk_across --out "$run/clip.nv12" >/dev/null
for m in slim-320-quant-ADMM-50.mnn slim-320.onnx; do ln -sf "$shared/models/$m" "$run/$m"; done

"$build/tools/camera_sim/camera_sim" --runtime-dir "$run" >"$out/camera_sim.log" 2>&1 &
pids+=($!)
# The daemon prints several lines per frame; only the count of analysed
# frames is kept, written every 30 frames, through a rename so that the
# sampler never reads a file that is being rewritten.
mkfifo "$run/out.fifo"
awk -v f="$run/frames" '/frameNumber = /{n++; if (n % 30 == 0) {t = f ".tmp"; print n > t; close(t); system("mv -f \"" t "\" \"" f "\"")}}' <"$run/out.fifo" &
pids+=($!)
(cd "$run" && FACEDET_SOURCE=$run/clip.nv12 FACEDET_LOOP=1 exec "$build/src/faceDet" >"$run/out.fifo" 2>"$out/faceDet.err") &
daemon=$!
pids+=("$daemon")
"$build/tools/gamma_peer/gamma_peer" --every 30 --seconds $((duration + 30)) >"$out/gamma_peer.log" 2>&1 &
pids+=($!)
(
  ctl=$build/tools/facedet_ctl/facedet_ctl
  while true; do
    for step in run:6 stop:2 run:6 off:2; do
      "$ctl" "${step%:*}" >/dev/null 2>&1 || true
      sleep "${step#*:}"
    done
  done
) &
pids+=($!)

hz=$(getconf CLK_TCK)
echo "t_s,rss_kb,fds,threads,cpu_pct,frames" >"$out/soak.csv"
start=$(date +%s)
prev_ticks=0
prev_t=0
while true; do
  sleep "$sample_s"
  t=$(( $(date +%s) - start ))
  [[ -d /proc/$daemon ]] || { echo "soak: faceDet ended early" >&2; break; }
  rss=$(awk '/^VmRSS:/{print $2}' "/proc/$daemon/status")
  threads=$(awk '/^Threads:/{print $2}' "/proc/$daemon/status")
  fds=$(ls "/proc/$daemon/fd" | wc -l)
  ticks=$(awk '{print $14 + $15}' "/proc/$daemon/stat")
  cpu=$(awk -v d=$((ticks - prev_ticks)) -v s=$((t - prev_t)) -v hz="$hz" 'BEGIN{printf "%.1f", 100 * d / hz / s}')
  # awk rewrites the file in place: an empty read keeps the last count.
  frames=$(cat "$run/frames" 2>/dev/null || true)
  frames=${frames:-${prev_frames:-0}}
  prev_frames=$frames
  prev_ticks=$ticks
  prev_t=$t
  echo "$t,$rss,$fds,$threads,$cpu,$frames" >>"$out/soak.csv"
  ((t < duration)) || break
done

# An orderly end within 2 s is part of the verdict, measured on the clock
# from the signal to the daemon's end (a zombie has ended; reaping it is this
# shell's business). A daemon still there at 2 s leaves what each of its
# threads waits in, and their stacks, in stop-threads.txt.
signalled=$(date +%s%N)
kill -TERM "$daemon" 2>/dev/null || true
stopped=0
while :; do
  state=$(awk '{print $3}' "/proc/$daemon/stat" 2>/dev/null || echo gone)
  stop_ms=$((($(date +%s%N) - signalled) / 1000000))
  [[ $state == gone || $state == Z ]] && { stopped=1; break; }
  if ((stop_ms > 2000)); then
    for task in /proc/"$daemon"/task/*; do
      echo "$(cat "$task/comm") state $(awk '{print $3}' "$task/stat") wchan $(cat "$task/wchan")"
      cat "$task/stack" 2>/dev/null
    done >"$out/stop-threads.txt" 2>&1
    timeout 30 gdb -p "$daemon" -batch -ex "thread apply all bt" >>"$out/stop-threads.txt" 2>&1 || true
    break
  fi
  sleep 0.02
done
printf 'stopped_within_2s=%d\nstop_ms=%d\n' "$stopped" "$stop_ms" >"$out/stop.txt"

/usr/bin/python3 "$root/scripts/soak_verdict.py" "$out/soak.csv" "$out/soak.png" "$stopped" "$stop_ms" | tee "$out/verdict.txt"
grep -q '^verdict: pass' "$out/verdict.txt"
