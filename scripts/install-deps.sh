#!/usr/bin/env bash
# Installs the Debian packages that building and testing faceDet need.
# Usage: scripts/install-deps.sh [main|test]
#   main  what the daemon, its host platform and the tools need (default)
#   test  that, plus the cross compiler and emulator of the camera build,
#         clang and libFuzzer for the fuzz targets, matplotlib for the soak
#         plot, Chromium and its WebDriver for the live view's browser test,
#         ccache for the mutation check, and what checks the camera's
#         start-up files: systemd-analyze (the package only, it does not
#         become the init) and BusyBox's shell and tools
set -euo pipefail

what=${1:-main}
packages=(cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev googletest libbenchmark-dev
          libopencv-dev libcli11-dev nlohmann-json3-dev libcpp-httplib-dev libkainjow-mustache-dev libavformat-dev libavcodec-dev libswscale-dev libavutil-dev
          clang-format binutils)
if [[ $what == test ]]; then
  packages+=(g++-arm-linux-gnueabihf qemu-user systemd busybox clang-14 libfuzzer-14-dev python3-matplotlib
             chromium chromium-driver ccache ffmpeg)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q '^install ok installed$'; then
    missing+=("$p")
  fi
done
if ((${#missing[@]} == 0)); then
  exit 0
fi

sudo=()
if [[ $(id -u) -ne 0 ]]; then
  sudo=(sudo)
fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -q
"${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
