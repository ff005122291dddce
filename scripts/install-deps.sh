#!/usr/bin/env bash
# Installs the system packages the build, the tests and the demo need.
# Idempotent: apt-get runs only when a package is missing.
set -euo pipefail

PKGS=(
  build-essential cmake pkg-config
  libegl-dev libgles-dev libx11-dev libxcb1-dev libgl1-mesa-dri libegl-mesa0
  libfreetype-dev fonts-dejavu-core libpng-dev
  libgtest-dev libbenchmark-dev
  xvfb xauth x11-utils binutils
  libavcodec-dev libavformat-dev libswscale-dev libavutil-dev ffmpeg
  clang libclang-rt-dev valgrind
)

missing=()
for p in "${PKGS[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all packages present"
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
