#!/bin/sh
# Builds what goes onto a camera and packs it:
#   build/<preset>/package/faceDet-<version>-<arch>.tar.gz
# arm (the default) gives the camera's armhf package, release an x86_64 one.
# The tarball unpacks into the install folder, /opt/faceDet on a camera.
# Usage: scripts/package.sh [arm|release]
set -eu
cd "$(dirname "$0")/.."

preset=${1:-arm}
case $preset in
    arm | release) ;;
    *)
        echo "usage: $0 [arm|release]" >&2
        exit 2
        ;;
esac
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "${JOBS:-$(nproc)}" --target faceDet facedet_ctl shm_track_test facedet_recorder
cpack --config "build/$preset/CPackConfig.cmake" >/dev/null
ls "$PWD/build/$preset/package/"faceDet-*.tar.gz
