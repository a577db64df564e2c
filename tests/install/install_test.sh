#!/bin/sh
# The installed faceDet, run the way a camera runs it.
#   install_test.sh host BUILD_DIR     install, then the start-up script: refusals, start, status, a second
#                                      start, restart after a crash, back-off, stop in order, SIGKILL of a
#                                      hung daemon; the systemd unit's keys
#   install_test.sh busybox BUILD_DIR  the same under BusyBox's shell and tools, as on a camera
#   install_test.sh arm BUILD_DIR SCENARIO_CLIP   the package unpacked, the ARM daemon under qemu through
#                                      the start-up script finds faces on a short clip and stops in order
set -u
mode=$1
build=$2
if [ "$mode" = busybox ]; then
    tools=$(mktemp -d)
    for applet in $(busybox --list); do ln -s "$(command -v busybox)" "$tools/$applet"; done
    PATH=$tools:$PATH busybox sh "$0" host "$build"
    rc=$?
    rm -rf "$tools"
    exit $rc
fi
tmp=$(mktemp -d)
key=$((0x47140000 + $$ % 65536))
stage=$tmp/stage
init=$stage/etc/init.d/S95facedet
log=$tmp/faceDet.log
failures=0
export FACEDET_DEFAULTS="$tmp/env"
trap 'sh "$init" stop >/dev/null 2>&1; ipcrm -M "$key" 2>/dev/null; rm -rf "$tmp"' EXIT

expect() { # what, command...
    what=$1
    shift
    "$@" || { echo "FAIL: $what"; failures=$((failures + 1)); }
}
has() { grep -aq -- "$1" "$log"; }
daemon_pid() { cat "$tmp/run/faceDet.pid" 2>/dev/null; }
alive() { [ -n "$1" ] && kill -0 "$1" 2>/dev/null; }
gone() { ! alive "$1"; }
quietly() { "$@" >/dev/null; }
wait_for() { # seconds, command...
    n=$1
    shift
    until "$@"; do
        n=$((n - 1))
        [ "$n" -ge 0 ] || return 1
        sleep 1
    done
}
new_pid() { p=$(daemon_pid) && [ "$p" != "$1" ] && alive "$p"; }
status_is() { sh "$init" status >/dev/null; [ $? = "$1" ]; }

# Settings as a test gives them: everything private, extra lines appended.
write_env() {
    mkdir -p "$tmp/rt" "$tmp/run"
    printf '%s\n' "FACEDET_RUNTIME_DIR=$tmp/rt" "FACEDET_SHM_KEY=$key" "FACEDET_SOURCE=$tmp/clip.nv12" \
        FACEDET_LOOP=1 "FACEDET_PID_DIR=$tmp/run" "FACEDET_LOG=$log" FACEDET_RESTART_DELAY=1 \
        FACEDET_STOP_TIMEOUT=3 "$@" >"$tmp/env"
}

# start refuses with one line naming the fault; status then answers $2 (default 3: nothing running).
expect_refusal() {
    sh "$init" start >/dev/null 2>"$tmp/err"
    expect "start refuses ($1)" [ $? -ne 0 ]
    expect "one line about $1: $(cat "$tmp/err")" \
        test "$(grep -c -- "$1" "$tmp/err")" = 1 -a "$(wc -l <"$tmp/err")" = 1
    expect "status after refusing ($1)" status_is "${2:-3}"
}

# Moves $1 away while start is refused for want of it.
refused_without() {
    mv "$1" "$tmp/"
    expect_refusal "$2"
    mv "$tmp/${1##*/}" "$1"
}

host_tests() {
    cmake --install "$build" --prefix "$stage" >/dev/null || exit 1
    head -c $((416 * 234 * 3 * 30 / 2)) /dev/zero >"$tmp/clip.nv12"
    write_env
    refused_without "$stage/share/faceDet/slim-320-quant-ADMM-50.mnn" "no model slim-320-quant-ADMM-50.mnn"
    [ -e "$stage/lib/libMNN.so" ] && refused_without "$stage/lib/libMNN.so" "libMNN.so: cannot open shared object file"
    write_env "FACEDET_RUNTIME_DIR=$tmp/missing"
    expect_refusal "runtime directory $tmp/missing is not a writable directory"

    write_env
    expect "started" quietly sh "$init" start
    first=$(daemon_pid)
    expect "status: running" status_is 0
    expect_refusal "already running (pid $first)" 0
    expect "the first daemon survives a second start" alive "$first"

    kill -KILL "$first"
    expect "restarted after a crash" wait_for 10 new_pid "$first"
    expect "the crash is logged" has "pid $first) ended with status 137; restarting in 1 s"
    second=$(daemon_pid)
    wait_for 10 has "QMT_Stream_Stauts_t u32Enable=1"
    sh "$init" stop >/dev/null
    expect "stop waits for the orderly exit" has "QMT_Video_Stream_Stop succeed!"
    expect "exit status 0 after SIGTERM" has "pid $second) stopped, status 0"
    expect "daemon gone after stop" gone "$second"
    expect "status: stopped" status_is 3

    # A daemon that does not answer SIGTERM is killed after the stop time-out.
    sh "$init" start >/dev/null
    hung=$(daemon_pid)
    kill -STOP "$hung"
    sh "$init" stop >/dev/null
    expect "a hung daemon gets SIGKILL" has "pid $hung) did not stop within 3 s: SIGKILL"
    expect "the hung daemon is gone" gone "$hung"

    # With FACEDET_RECORD the script preloads the flight recorder, which makes
    # its recording in a folder of its own.
    write_env "FACEDET_RECORD=$tmp/rec"
    sh "$init" start >/dev/null
    expect "the recorder rides in the daemon" wait_for 10 has "faceDet recorder: recording into $tmp/rec/"
    sh "$init" stop >/dev/null
    expect "a recording was made" eval "test -s $tmp/rec/*/recording.fdr"

    # Status 255 (the stream cannot start) is retried after 1, 2, 4 s.
    : >"$log"
    write_env "FACEDET_SOURCE=$tmp/missing.nv12"
    sh "$init" start >/dev/null
    expect "the delay doubles" wait_for 20 has "ended with status 255; restarting in 4 s"
    runs=$(grep -ac "QMT_Video_Stream_Start failed" "$log")
    sh "$init" stop >/dev/null
    expect "three runs before the 4 s delay, not $runs" [ "$runs" = 3 ]

    # The unit, pointed at the staged install: the keys its behaviour rests on, and systemd's own check.
    unit=$tmp/facedet.service
    sed "s#/opt/faceDet#$stage#g" "$stage/lib/systemd/system/facedet.service" >"$unit"
    for k in "WorkingDirectory=$stage/share/faceDet" Restart=on-failure \
        KillSignal=SIGTERM TimeoutStopSec=15 RestartSec=20 StartLimitBurst=10; do
        expect "unit has $k" grep -qx -- "$k" "$unit"
    done
    expect "the unit's ExecStart ends in faceDet" grep -q "^ExecStart=.*; exec $stage/bin/faceDet'$" "$unit"
    expect "the unit's working directory holds the model" [ -r "$stage/share/faceDet/slim-320-quant-ADMM-50.mnn" ]
    if command -v systemd-analyze >/dev/null; then
        out=$(systemd-analyze verify "$unit" 2>&1)
        expect "systemd-analyze verify: $out" test $? = 0 -a -z "$out"
    fi
}

arm_tests() {
    [ -x "$3" ] || { echo "no host scenario_clip at $3 (build the release preset first)"; exit 77; }
    cpack --config "$build/CPackConfig.cmake" -B "$tmp/pkg" >/dev/null || exit 1
    mkdir -p "$stage"
    tar -xzf "$tmp"/pkg/faceDet-*-armhf.tar.gz -C "$stage" || exit 1
    expect "the installed daemon loads MNN from lib/" \
        eval "readelf -d $stage/bin/faceDet | grep -q 'RUNPATH.*\[\$ORIGIN/../lib\]'"
    "$3" --scenario enter --frames 90 --out "$tmp/clip.nv12" >/dev/null || exit 1
    qemu="qemu-arm -L /usr/arm-linux-gnueabihf"
    write_env "FACEDET_WRAPPER=\"$qemu\""
    expect "started under qemu" quietly sh "$init" start
    expect "auto framing switched on" \
        wait_for 20 eval "$qemu $stage/bin/facedet_ctl --runtime-dir $tmp/rt run >/dev/null 2>&1"
    expect "faces found" wait_for 60 has "faceNum=[1-9]"
    sh "$init" stop >/dev/null
    expect "stopped in order" has "QMT_Video_Stream_Stop succeed!"
    expect "exit status 0" has ") stopped, status 0"
}

case $mode in
    host) host_tests ;;
    arm) arm_tests "$@" ;;
    *) exit 2 ;;
esac
[ "$failures" = 0 ] || { echo "--- log"; tail -n 30 "$log"; exit 1; }
echo "all passed"
