#!/usr/bin/env bash
# Replay speed: each step of a replay timed against the decoder's floor for the
# same file, measured in the same run: FFmpeg decoding the file and scaling it
# to 416x234 with nothing else (ffmpeg -i FILE -vf scale=416:234 -f null -).
#
# Steps, for a 1080p30 clip and a 480x270 one of 62 s each, made from the
# sample videos in ../shared/data/videos:
#   - the daemon at the camera's pace (the daemon's part of a camera-paced
#     replay, summary.json "wall_seconds");
#   - the daemon in lockstep (the same, of a lockstep replay), beside the pure
#     inference time of its analysed frames (the sum of its "invoke time" lines);
#   - the whole camera-paced replay with its report and video;
#   - facedet_live on the file for 30 s: CPU seconds per second of video, of
#     the tool, the daemon and camera_sim together, against the floor's;
#   - the replay's peak resident memory (the largest of its processes), and
#     that of a 10-minute 1080p clip against the 1-minute one.
# Prints the table and writes it into docs/BENCHMARKS.md between its markers.
#
# Usage: bench/replay_speed.sh
#   FACEDET_BUILD_DIR  the build to use (default build/release); builds nothing
#   REPLAY_SPEED_WORK  where clips and replays go (default BUILD/replay_speed)
#   REPLAY_SPEED_LONG  0: leave out the 10-minute clip (default 1)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
shared=$(cd "$root/../shared" && pwd)
build=${FACEDET_BUILD_DIR:-$root/build/release}
replay=$build/tools/facedet_replay/facedet_replay live=$build/tools/facedet_live/facedet_live
work=${REPLAY_SPEED_WORK:-$build/replay_speed}
for tool in "$replay" "$live" ffmpeg; do
  if ! command -v "$tool" >/dev/null; then
    echo "replay_speed: no $tool (build it, or install ffmpeg)" >&2
    exit 2
  fi
done
mkdir -p "$work"

# The clips: the talking head looped to 62 s at 30 fps, scaled; the long one
# is the 1080p clip ten times over, copied without encoding again.
sample=$shared/data/videos/talking_head_single_person.mp4
make_clip() { # SIZE OUT
  [[ -s $2 ]] || ffmpeg -loglevel error -y -stream_loop -1 -i "$sample" -t 62 \
    -vf "scale=$1,fps=30" -c:v libx264 -preset veryfast -pix_fmt yuv420p -an "$2"
}
make_clip 1920:1080 "$work/clip1080.mp4"
make_clip 480:270 "$work/clip270.mp4"
if [[ ${REPLAY_SPEED_LONG:-1} == 1 && ! -s $work/clip1080_10min.mp4 ]]; then
  for _ in $(seq 10); do echo "file '$work/clip1080.mp4'"; done >"$work/ten.txt"
  ffmpeg -loglevel error -y -f concat -safe 0 -i "$work/ten.txt" -c copy "$work/clip1080_10min.mp4"
fi

seconds_of() { ffprobe -v error -show_entries format=duration -of csv=p=0 "$1"; }
now() { date +%s.%N; }
json() { python3 -c "import json,sys; d=json.load(open(sys.argv[1])); print(eval(sys.argv[2]))" "$@"; }

# CPU seconds (user + system) of a process and its descendants, now.
tree_cpu() {
  local pids=$1 all=$1 tick
  tick=$(getconf CLK_TCK)
  while [[ -n $pids ]]; do
    pids=$(for p in $pids; do cat "/proc/$p/task/"*/children 2>/dev/null; done | tr '\n' ' ')
    all+=" $pids"
  done
  for p in $all; do awk '{print $14 + $15}' "/proc/$p/stat" 2>/dev/null; done |
    awk -v t="$tick" '{s += $1} END {printf "%.2f", s / t}'
}

rows=()
row() { rows+=("$(printf '| %s | %s | %s | %s | %s | %s |' "$@")"); }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN {printf "%.2f", a / b}'; }
met() { awk -v x="$1" -v t="$2" 'BEGIN {print (x <= t ? "yes" : "**no**")}'; }

for clip in clip1080 clip270; do
  file=$work/$clip.mp4
  video=$(seconds_of "$file")
  name=$(ffprobe -v error -select_streams v:0 -show_entries stream=width,height -of csv=s=x:p=0 "$file")
  echo "replay_speed: $name, $video s" >&2

  t0=$(now)
  ffmpeg -loglevel error -i "$file" -vf scale=416:234 -f null - 2>/dev/null
  floor=$(awk -v a="$t0" -v b="$(now)" 'BEGIN {printf "%.2f", b - a}')
  /usr/bin/time -o "$work/$clip.floor" -f '%U %S' ffmpeg -loglevel error -i "$file" -vf scale=416:234 -f null -
  floor_cpu=$(awk '{printf "%.2f", $1 + $2}' "$work/$clip.floor")

  rm -rf "$work/$clip.camera" "$work/$clip.lockstep"
  /usr/bin/time -o "$work/$clip.time" -f '%e %M' "$replay" "$file" --out "$work/$clip.camera" >/dev/null 2>&1
  read -r whole peak <"$work/$clip.time"
  daemon=$(json "$work/$clip.camera/summary.json" 'd["wall_seconds"]')
  "$replay" "$file" --lockstep --out "$work/$clip.lockstep" >/dev/null 2>&1
  lockstep=$(json "$work/$clip.lockstep/summary.json" 'd["wall_seconds"]')
  analysed=$(json "$work/$clip.lockstep/summary.json" 'd["frames"]["analysed"]')
  inference=$(grep -o 'invoke time =\[[0-9]*\]' "$work/$clip.lockstep/logs/daemon.out" |
    tr -dc '0-9\n' | awk '{s += $1} END {printf "%.2f", s / 1000}')

  # facedet_live: 30 s of the file in realtime, from 5 s after its start.
  "$live" "$file" --port 0 >/dev/null 2>&1 &
  live_pid=$!
  sleep 5
  cpu0=$(tree_cpu "$live_pid")
  sleep 30
  cpu1=$(tree_cpu "$live_pid")
  kill -INT "$live_pid"
  wait "$live_pid" 2>/dev/null || true
  live_cpu=$(awk -v a="$cpu0" -v b="$cpu1" 'BEGIN {printf "%.3f", (b - a) / 30}')
  floor_rate=$(awk -v c="$floor_cpu" -v v="$video" 'BEGIN {printf "%.3f", c / v}')

  lock_target=$(awk -v f="$floor" -v i="$inference" 'BEGIN {a = 1.5 * f; b = 1.2 * i; printf "%.2f", (a > b ? a : b)}')
  rt() { awk -v v="$video" -v w="$1" 'BEGIN {printf "%.1fx", v / w}'; }
  row "$name" "decoder's floor" "$floor s" "1.00" "$(rt "$floor")" "-"
  row "$name" "daemon, camera pace" "$daemon s" "$(ratio "$daemon" "$floor")" "$(rt "$daemon")" \
    "≤ 1.5: $(met "$(ratio "$daemon" "$floor")" 1.5)"
  row "$name" "daemon, lockstep ($analysed analysed, $inference s of inference)" "$lockstep s" \
    "$(ratio "$lockstep" "$floor")" "$(rt "$lockstep")" "≤ $lock_target s: $(met "$lockstep" "$lock_target")"
  row "$name" "whole replay, camera pace, with report and video" "$whole s" "$(ratio "$whole" "$floor")" \
    "$(rt "$whole")" "≤ 3: $(met "$(ratio "$whole" "$floor")" 3)"
  row "$name" "facedet_live, CPU s per s of video (floor $floor_rate)" "$live_cpu" \
    "$(ratio "$live_cpu" "$floor_rate")" "-" "-"
  row "$name" "replay's peak resident memory" "$((peak / 1024)) MiB" "-" "-" "-"
  [[ $clip == clip1080 ]] && peak1080=$peak
done

# Ten minutes: the memory against the minute's, and the daemon's pace once
# its fixed start-up (2.2 s of the daemon's own pauses, on the wall clock at
# every pace) no longer counts.
if [[ ${REPLAY_SPEED_LONG:-1} == 1 ]]; then
  file=$work/clip1080_10min.mp4
  video=$(seconds_of "$file")
  t0=$(now)
  ffmpeg -loglevel error -i "$file" -vf scale=416:234 -f null - 2>/dev/null
  floor=$(awk -v a="$t0" -v b="$(now)" 'BEGIN {printf "%.2f", b - a}')
  rm -rf "$work/long.camera"
  /usr/bin/time -o "$work/long.time" -f '%e %M' "$replay" "$file" --out "$work/long.camera" >/dev/null 2>&1
  read -r whole long <"$work/long.time"
  daemon=$(json "$work/long.camera/summary.json" 'd["wall_seconds"]')
  rt() { awk -v v="$video" -v w="$1" 'BEGIN {printf "%.1fx", v / w}'; }
  row "1920x1080, 10 min" "decoder's floor" "$floor s" "1.00" "$(rt "$floor")" "-"
  row "1920x1080, 10 min" "daemon, camera pace" "$daemon s" "$(ratio "$daemon" "$floor")" "$(rt "$daemon")" \
    "≤ 1.5: $(met "$(ratio "$daemon" "$floor")" 1.5)"
  row "1920x1080, 10 min" "whole replay, camera pace, with report and video" "$whole s" \
    "$(ratio "$whole" "$floor")" "$(rt "$whole")" "≤ 3: $(met "$(ratio "$whole" "$floor")" 3)"
  row "1920x1080, 10 min" "replay's peak resident memory (x the 1-minute clip's)" "$((long / 1024)) MiB" \
    "$(ratio "$long" "$peak1080")" "-" "≤ 1.10: $(met "$(ratio "$long" "$peak1080")" 1.10)"
fi

table=$(
  echo "| clip | step | wall | x floor | x realtime | target |"
  echo "|---|---|---:|---:|---:|---|"
  printf '%s\n' "${rows[@]}"
)
echo "$table"
python3 - "$root/docs/BENCHMARKS.md" "$table" <<'EOF'
import re, sys
path, table = sys.argv[1], sys.argv[2]
text = open(path).read()
begin = "<!-- replay speed table: made by bench/replay_speed.sh, do not edit by hand -->"
end = "<!-- end of replay speed table -->"
block = begin + "\n" + table + "\n" + end
if begin in text:
    text = re.sub(re.escape(begin) + ".*?" + re.escape(end), lambda _: block, text, flags=re.S)
else:
    text += "\n" + block + "\n"
open(path, "w").write(text)
EOF
