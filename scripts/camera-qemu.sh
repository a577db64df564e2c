#!/usr/bin/env bash
# Runs the camera's own configuration: faceDet as the camera build makes it
# (preset camera-qemu), its MI libraries loaded at run time from the arm
# preset's emulated SDK (build/arm/mi-sdk/lib), under qemu-arm, from the folder
# of its model. Every FACEDET_* variable reaches the daemon (FACEDET_SOURCE,
# FACEDET_PACE, FACEDET_RUNTIME_DIR, FACEDET_SHM_KEY, FACEDET_EXIT_AT_END, ...);
# with FACEDET_RECORD set, the flight recorder is preloaded as on a camera.
# The script becomes the daemon (exec), so a signal to it reaches faceDet, and
# the exit status is faceDet's.
#
# Usage: scripts/camera-qemu.sh [ARGS...]   (ARGS go to faceDet)
# Environment: CAMERA_QEMU_ARGS, more qemu-arm options (e.g. -plugin ...);
# QEMU_ARM (default qemu-arm). A missing build is made first (the arm
# preset's mi_sdk target, then the camera-qemu preset), its output on stderr.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
sdk=$root/build/arm/mi-sdk
build=$root/build/camera-qemu
daemon=$build/src/faceDet
recorder=$build/platform/recorder/libfacedet_recorder.so
qemu=${QEMU_ARM:-qemu-arm}

if [ ! -e "$sdk/lib/libmi_sys.so" ] || [ ! -x "$daemon" ] || [ ! -e "$recorder" ]; then
    echo "camera-qemu: building the arm preset's SDK and the camera-qemu preset" >&2
    (
        cd "$root"
        cmake --preset arm >/dev/null
        cmake --build --preset arm -j "${JOBS:-2}" --target mi_sdk
        cmake --preset camera-qemu >/dev/null
        cmake --build --preset camera-qemu -j "${JOBS:-2}" --target faceDet facedet_recorder
    ) >&2
fi

# Variables for the ARM program go through -E: in qemu-arm's own environment
# LD_LIBRARY_PATH and LD_PRELOAD would apply to the x86 emulator itself.
guest=(-E "LD_LIBRARY_PATH=$sdk/lib")
if [ -n "${FACEDET_RECORD:-}" ]; then
    guest+=(-E "LD_PRELOAD=$recorder")
fi
# shellcheck disable=SC2206 # CAMERA_QEMU_ARGS is a list of options
extra=(${CAMERA_QEMU_ARGS:-})
# The daemon reads ./slim-320-quant-ADMM-50.mnn; the build links the models here.
cd "$build"
exec "$qemu" -L /usr/arm-linux-gnueabihf "${guest[@]}" "${extra[@]}" "$daemon" "$@"
