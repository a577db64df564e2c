#!/usr/bin/env bash
# What one frame costs the camera's CPU, counted in ARMv7 instructions: the
# arm preset's faceDet runs whole under qemu-arm with an instruction-counting
# plugin (bench/qemu_insn_count.c), on a raw clip in lockstep, with camera_sim
# as the camera. Every figure is the difference of two runs on two lengths of
# the same clip, divided by the difference of their frames taken, so start-up
# and shutdown cancel out. Prints:
#   - instructions per analysed frame (auto framing running) and per frame
#     taken but not analysed (auto framing stopped), and their ratio;
#   - the network's share: the same daemon with FACEDET_ENGINE=none runs
#     everything but the network;
#   - the daemon's resident memory inside the guest's address space;
#   - the flight recorder's cost: the camera's own configuration (preset
#     camera-qemu, scripts/camera-qemu.sh, where the recorder sees the frames)
#     per analysed frame and its resident memory, with FACEDET_RECORD and
#     without, as a ratio;
#   - the network alone on 1, 2 and 4 MNN threads (bench/engine_runs.cpp),
#     repeated, as ratios against 1 thread of the same repetition.
#
# Usage: bench/camera_cost.sh
# Settings (environment): CAMERA_COST_SHORT, CAMERA_COST_LONG (clip lengths in
# frames, default 20 and 50), CAMERA_COST_REPEATS (thread runs, default 3),
# CAMERA_COST_VIDEO (default the talking-head sample), CAMERA_COST_IPC
# (instructions per cycle for the time estimates, default 0.5; see
# docs/BENCHMARKS.md, "On the camera"), QEMU_ARM (default qemu-arm). Builds what it needs first: release (camera_sim, facedet_ctl,
# scenario_clip, the plugin), arm (faceDet, engine_runs, the SDK mi_sdk) and
# camera-qemu (faceDet, the recorder); build logs go to
# build/<preset>/camera_cost-build.log.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
short=${CAMERA_COST_SHORT:-20}
long=${CAMERA_COST_LONG:-50}
repeats=${CAMERA_COST_REPEATS:-3}
ipc=${CAMERA_COST_IPC:-0.5}
qemu=${QEMU_ARM:-qemu-arm}
sysroot=/usr/arm-linux-gnueabihf
frame_bytes=146016  # one 416x234 NV12 frame
warmup=9            # frames after start that are never analysed

say() { echo "camera_cost: $*"; }
fail() {
    echo "camera_cost: $*" >&2
    exit 1
}

# ---- children and temporary files, all gone on any exit ----
tmp=
daemon=
sim=
sampler=
keys=()
stop_pid() {  # stop_pid PID: SIGTERM, then SIGKILL after 3 s
    local pid=$1
    [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null || return 0
    kill -TERM "$pid" 2>/dev/null || true
    for _ in $(seq 30); do
        kill -0 "$pid" 2>/dev/null || break
        sleep 0.1
    done
    kill -KILL "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
}
cleanup() {
    stop_pid "$sampler"
    stop_pid "$daemon"
    stop_pid "$sim"
    for key in "${keys[@]}"; do
        ipcrm -M "$key" 2>/dev/null || true
    done
    [ -n "$tmp" ] && rm -rf "$tmp"
    sampler='' daemon='' sim='' tmp=''
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# ---- what it needs ----
[ -d ../shared/models ] || fail "no ../shared/models beside the checkout"
shared=$(cd ../shared && pwd)
video=${CAMERA_COST_VIDEO:-$shared/data/videos/talking_head_single_person.mp4}
[ -r "$shared/models/slim-320-quant-ADMM-50.mnn" ] || fail "no model $shared/models/slim-320-quant-ADMM-50.mnn"
[ -r "$video" ] || fail "cannot read the video $video"
command -v "$qemu" >/dev/null || fail "$qemu is missing (Debian package qemu-user)"
"$qemu" -h 2>/dev/null | grep -q '^-plugin' || fail "$qemu has no plugin support (no -plugin option)"
command -v arm-linux-gnueabihf-g++ >/dev/null ||
    fail "the ARM cross compiler arm-linux-gnueabihf-g++ is missing (Debian package g++-arm-linux-gnueabihf)"
[ -d "$sysroot/lib" ] || fail "no ARM libraries in $sysroot (Debian package libc6-armhf-cross)"
((short > warmup && long > short)) || fail "need $warmup < CAMERA_COST_SHORT < CAMERA_COST_LONG"

build() {  # build PRESET TARGET...
    local preset=$1 log=$root/build/$1/camera_cost-build.log
    shift
    mkdir -p "$root/build/$preset"
    say "building the $preset preset: $*"
    { cmake --preset "$preset" && cmake --build --preset "$preset" -j 2 --target "$@"; } >"$log" 2>&1 ||
        fail "the $preset build failed (log: ${log#"$root"/})"
}
build release camera_sim facedet_ctl scenario_clip qemu_insn_count
build arm faceDet engine_runs mi_sdk
build camera-qemu faceDet facedet_recorder
host=$root/build/release
arm=$root/build/arm
plugin=$host/bench/libqemu_insn_count.so

tmp=$(mktemp -d "${TMPDIR:-/tmp}/camera-cost-XXXXXX")
# mode=vcpu: one counter per guest thread. The shared inline counter loses
# adds when guest threads run at once on two host cores (measured: 4 MNN
# threads came out below 1), and costs no less time here.
count_args() { echo "$plugin,out=$1,mode=vcpu"; }
"$qemu" -L "$sysroot" -plugin "$(count_args "$tmp/probe")" "$arm/bench/engine_runs" --help \
    >/dev/null 2>"$tmp/probe.err" || true
grep -q '^insns [0-9]' "$tmp/probe" 2>/dev/null ||
    fail "$qemu did not load the counting plugin: $(head -n 1 "$tmp/probe.err")"

# ---- the clips: the long one and its first frames ----
say "clips of $short and $long frames from ${video#"$shared"/}"
"$host/tools/scenario_clip/scenario_clip" --video "$video" --frames "$long" --out "$tmp/long.nv12" >/dev/null
head -c $((short * frame_bytes)) "$tmp/long.nv12" >"$tmp/short.nv12"
[ "$(stat -c %s "$tmp/long.nv12")" -eq $((long * frame_bytes)) ] ||
    fail "the video gave fewer than $long frames"

# ---- resident memory of the guest ----
# qemu-user keeps a 32-bit guest in one reservation of the host's address
# space: guest address A lives at host address guest_base + A, and qemu's own
# code, translation cache and heap lie outside it. With -d page qemu logs
# where it put that reservation ("pgb_reserved_va: base @ B for N bytes",
# "Locating guest address space @ B"); the mappings of /proc/<qemu>/smaps
# inside [B, B + N) are the guest's, and their Rss is what the daemon would
# hold on the camera.
guest_range() {  # guest_range PAGELOG: prints "LOW HIGH" in decimal, or nothing yet
    local base size
    base=$(sed -n 's/^Locating guest address space @ \(0x[0-9a-f]*\).*/\1/p' "$1" 2>/dev/null | head -n 1)
    [ -n "$base" ] || return 0
    size=$(sed -n 's/^pgb_reserved_va: base @ 0x[0-9a-f]* for \([0-9]*\) bytes.*/\1/p' "$1" | head -n 1)
    echo "$((base)) $((base + ${size:-4294967296}))"
}
guest_rss_kib() {  # guest_rss_kib PID LOW HIGH
    awk -v lo="$2" -v hi="$3" '
        function hex(s,   i, v) { v = 0; for (i = 1; i <= length(s); i++) v = v * 16 + index("0123456789abcdef", substr(s, i, 1)) - 1; return v }
        /^[0-9a-f]+-[0-9a-f]+ / { split($1, r, "-"); inside = hex(r[1]) >= lo && hex(r[2]) <= hi; next }
        /^Rss:/ { if (inside) kib += $2 }
        END { print kib + 0 }' "/proc/$1/smaps" 2>/dev/null || echo 0
}
sample_rss() {  # sample_rss PID PAGELOG OUT: the largest sample, every 0.5 s
    local range=
    while kill -0 "$1" 2>/dev/null; do
        [ -n "$range" ] || range=$(guest_range "$2")
        if [ -n "$range" ]; then
            # shellcheck disable=SC2086
            guest_rss_kib "$1" $range >>"$3.all"
            sort -n "$3.all" | tail -n 1 >"$3"
        fi
        sleep 0.5
    done
}

# ---- one daemon run ----
run_index=0
# run_daemon NAME CLIP run|stop ENGINE [arm|camera|recorded]: sets result to
# "INSTRUCTIONS FRAMES_TAKEN". arm (the default) is the arm preset's faceDet,
# camera the camera's own configuration, recorded the same with the flight
# recorder. Not called in a subshell: the pids it starts must stay known to cleanup.
result=
run_daemon() {
    local name=$1 clip=$2 control=$3 engine=$4 program=${5:-arm} dir=$tmp/$1 key status analysed
    run_index=$((run_index + 1))
    key=$((0x43430000 + ($$ % 4096) * 16 + run_index))
    keys+=("$key")
    mkdir "$dir"
    ln -s "$shared/models"/* "$dir"/
    "$host/tools/camera_sim/camera_sim" --runtime-dir "$dir" --log "$dir/camera_sim.jsonl" \
        >"$dir/camera_sim.out" 2>&1 &
    sim=$!
    local qemu_args=(-d page -D "$dir/page.log" -plugin "$(count_args "$dir/insns")") record=
    [ "$program" = recorded ] && record=$dir/recordings
    (
        cd "$dir"
        export FACEDET_RUNTIME_DIR=$dir FACEDET_SHM_KEY=$key FACEDET_SOURCE=$clip FACEDET_PACE=lockstep \
            FACEDET_EXIT_AT_END=1 FACEDET_FRAME_LOG=$dir/frames.log FACEDET_ENGINE=$engine
        if [ "$program" = arm ]; then
            exec "$qemu" -L "$sysroot" "${qemu_args[@]}" "$arm/src/faceDet"
        fi
        [ -n "$record" ] && export FACEDET_RECORD=$record
        QEMU_ARM=$qemu CAMERA_QEMU_ARGS="${qemu_args[*]}" exec "$root/scripts/camera-qemu.sh"
    ) >"$dir/faceDet.log" 2>&1 &
    daemon=$!
    sample_rss "$daemon" "$dir/page.log" "$dir/rss" &
    sampler=$!
    if [ "$control" = run ]; then
        # Before the frame thread's start-up sleep of 2 s is over.
        for _ in $(seq 100); do
            "$host/tools/facedet_ctl/facedet_ctl" --runtime-dir "$dir" run >/dev/null 2>&1 && break
            sleep 0.1
        done
    fi
    # Lockstep takes every frame; under qemu a frame costs at most about a second.
    local limit=$((60 + 3 * $(stat -c %s "$clip") / frame_bytes))
    local deadline=$((SECONDS + limit))
    while kill -0 "$daemon" 2>/dev/null && ((SECONDS < deadline)); do
        sleep 0.2
    done
    kill -0 "$daemon" 2>/dev/null && fail "$name: faceDet still running after $limit s"
    status=0
    wait "$daemon" || status=$?
    daemon=
    wait "$sampler" || true
    sampler=
    stop_pid "$sim"
    sim=
    ipcrm -M "$key" 2>/dev/null || true
    [ "$status" -eq 0 ] || fail "$name: faceDet ended with status $status (log: $(tail -n 1 "$dir/faceDet.log"))"
    [ -s "$dir/insns" ] || fail "$name: the plugin wrote no count"
    local frames
    frames=$(grep -c ' taken ' "$dir/frames.log" || true)
    if [ -n "$record" ]; then
        # Every frame recorded, none dropped: the count holds the whole recording's work.
        grep -q "^faceDet recorder: recording into $record/" "$dir/faceDet.log" || fail "$name: nothing recorded"
        ! grep -q '^faceDet recorder: dropping' "$dir/faceDet.log" || fail "$name: the recorder dropped records"
    fi
    if [ "$control" = run ]; then
        grep -q 'MsgBuf\[0\]=1 , MsgBuf\[1\]=1 ' "$dir/faceDet.log" || fail "$name: auto framing did not start"
        # One "invoke time" line per analysed frame, with or without a network:
        # a late start in either run of a pair would skew the difference.
        analysed=$(grep -c ' invoke time =' "$dir/faceDet.log" || true)
        [ "$analysed" -eq $((frames - warmup)) ] ||
            fail "$name: $analysed frames analysed of $frames taken, expected $((frames - warmup))"
    fi
    result="$(awk '{ print $2 }' "$dir/insns") $frames"
}

# per_frame "INSNS_SHORT FRAMES_SHORT" "INSNS_LONG FRAMES_LONG": instructions per frame
per_frame() {
    # shellcheck disable=SC2086
    set -- $1 $2
    awk -v a="$1" -v fa="$2" -v b="$3" -v fb="$4" 'BEGIN { printf "%.0f", (b - a) / (fb - fa) }'
}

load_before=$(cut -d' ' -f1-3 /proc/loadavg)
declare -A count
for mode in analysed:run:mnn:arm none:run:none:arm stopped:stop:mnn:arm camera:run:mnn:camera \
    recorded:run:mnn:recorded; do
    IFS=: read -r name control engine program <<<"$mode"
    for len in short long; do
        say "faceDet under qemu: $name ($control, engine $engine, $program), ${!len} frames"
        run_daemon "$name-$len" "$tmp/$len.nv12" "$control" "$engine" "$program"
        count[$name.$len]=$result
    done
done
rss_kib=$(cat "$tmp/analysed-long/rss" 2>/dev/null || true)
analysed=$(per_frame "${count[analysed.short]}" "${count[analysed.long]}")
no_network=$(per_frame "${count[none.short]}" "${count[none.long]}")
stopped=$(per_frame "${count[stopped.short]}" "${count[stopped.long]}")
camera=$(per_frame "${count[camera.short]}" "${count[camera.long]}")
recorded=$(per_frame "${count[recorded.short]}" "${count[recorded.long]}")
camera_rss_kib=$(cat "$tmp/camera-long/rss" 2>/dev/null || true)
recorded_rss_kib=$(cat "$tmp/recorded-long/rss" 2>/dev/null || true)

# ---- the network alone on 1, 2 and 4 threads ----
# qemu-user runs each guest thread as a host thread, so MNN's workers really
# run side by side on the host's cores, and what they execute while waiting
# for each other (they spin, yielding, between layers) depends on how the host
# schedules them. Each thread count is therefore run on all host cores and,
# for 2 and 4 threads, once more pinned to one core, as on a one-core camera.
runs_short=2
runs_long=6
one_core=$(taskset -pc $$ | sed 's/.*: *//; s/[,-].*//')
engine_count() {  # engine_count THREADS RUNS [all|one]: sets result to the instructions of one process
    local out=$tmp/engine-$1-$2 pin=()
    [ "${3:-all}" = one ] && pin=(taskset -c "$one_core")
    "${pin[@]}" "$qemu" -L "$sysroot" -plugin "$(count_args "$out")" "$arm/bench/engine_runs" --threads "$1" \
        --runs "$2" --frame "$tmp/long.nv12" >"$out.log" 2>&1 ||
        fail "engine_runs --threads $1 failed: $(tail -n 1 "$out.log")"
    result=$(awk '{ print $2 }' "$out")
}
declare -A per_inference
for r in $(seq "$repeats"); do
    for run in 1:all 2:all 4:all 2:one 4:one; do
        IFS=: read -r t cores <<<"$run"
        where="all host cores"
        [ "$cores" = one ] && where="one host core"
        say "engine_runs under qemu: $t threads on $where, $runs_short and $runs_long runs (repetition $r of $repeats)"
        engine_count "$t" "$runs_short" "$cores"
        a=$result
        engine_count "$t" "$runs_long" "$cores"
        per_inference[$r.$t.$cores]=$(per_frame "$a $runs_short" "$result $runs_long")
    done
done

# ---- report ----
mega() { awk -v n="$1" 'BEGIN { printf "%.2f M", n / 1e6 }'; }
echo
echo "=== on the camera: ARMv7 instructions ($("$qemu" --version | head -n 1 | sed 's/ version / /'), user space of all guest threads) ==="
echo "machine: $(lscpu | sed -n 's/^Model name: *//p'), $(nproc) cores, load average $load_before before," \
    "$(cut -d' ' -f1-3 /proc/loadavg) after; clips: frames $short and $long of ${video##*/}"
printf '%-58s %s\n' "per analysed frame (auto framing running, mnn):" "$(mega "$analysed")"
printf '%-58s %s\n' "per analysed frame without the network (engine none):" "$(mega "$no_network")"
awk -v a="$analysed" -v n="$no_network" -v s="$stopped" 'BEGIN {
    printf "%-58s %.2f M = %.1f %%\n", "  the network (mnn run and image converter):", (a - n) / 1e6, 100 * (a - n) / a
    printf "%-58s %.2f M = %.1f %%\n", "  the rest:", n / 1e6, 100 * n / a
    printf "%-58s %.2f M\n", "per frame taken, not analysed (auto framing stopped):", s / 1e6
    printf "%-58s %.4f\n", "rest ratio (taken, not analysed / analysed):", s / a
}'
awk -v k="$rss_kib" 'BEGIN {
    printf "%-58s ", "daemon RSS in the guest address space (peak, analysing):"
    if (k == "") print "not measured (qemu -d page logged no guest address space)"
    else printf "%.1f MiB (%d KiB)\n", k / 1024, k }'
awk -v c="$camera" -v r="$recorded" -v a="$analysed" -v ck="$camera_rss_kib" -v rk="$recorded_rss_kib" 'BEGIN {
    printf "%-58s %.2f M (x %.4f the arm build)\n", "camera configuration (camera-qemu), per analysed frame:", c / 1e6, c / a
    printf "%-58s %.2f M, x %.4f: %+.2f %% (%+.0f instructions)\n", "  with the flight recorder:", r / 1e6, r / c,
           100 * (r - c) / c, r - c
    if (ck == "" || rk == "") print "  resident memory: not measured"
    else printf "  resident memory (peak, analysing): %.1f MiB (%d KiB) without, %.1f MiB (%d KiB) with: %+.2f MiB (%+d KiB)\n",
                ck / 1024, ck, rk / 1024, rk, (rk - ck) / 1024, rk - ck }'
echo "the network alone (engine_runs), instructions per inference, x 1 thread of the same repetition:"
for r in $(seq "$repeats"); do
    awk -v r="$r" -v one="${per_inference[$r.1.all]}" -v two="${per_inference[$r.2.all]}" \
        -v four="${per_inference[$r.4.all]}" -v two1="${per_inference[$r.2.one]}" \
        -v four1="${per_inference[$r.4.one]}" 'BEGIN {
        printf "  repetition %d: 1 thread %.2f M; all cores: 2 threads %.2f M (%.3f), 4 threads %.2f M (%.3f);" \
               " one core: 2 threads %.2f M (%.3f), 4 threads %.2f M (%.3f)\n", r, one / 1e6,
               two / 1e6, two / one, four / 1e6, four / one, two1 / 1e6, two1 / one, four1 / 1e6, four1 / one }'
done
echo "estimated on a Cortex-A7 at $ipc instructions per cycle, the network on one thread (as the daemon runs it there):"
for cpu in "one at 800 MHz:800" "one at 1.0 GHz:1000" "two at 1.2 GHz:1200"; do
    IFS=: read -r label mhz <<<"$cpu"
    awk -v label="$label" -v mhz="$mhz" -v ipc="$ipc" -v a="$analysed" -v s="$stopped" 'BEGIN {
        ms = a / (ipc * mhz * 1e3)
        printf "  %-16s %6.1f ms per analysed frame (%.2f analysed frames/s), %.2f ms per frame taken, not analysed\n",
               label, ms, 1000 / ms, s / (ipc * mhz * 1e3) }'
done
