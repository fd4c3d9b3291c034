#!/usr/bin/env bash
# Installs the Debian 12 packages the build, the tests and the Windows cross
# build need, skipping those already there. Runs as root (or through sudo).
set -euo pipefail

PACKAGES=(
  cmake ninja-build g++ python3 pkg-config time
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  clang libclang-rt-14-dev
  libavformat-dev libavcodec-dev libswscale-dev libswresample-dev libavutil-dev ffmpeg
  g++-mingw-w64-x86-64-posix mingw-w64-tools libwine-dev wine64
)

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
