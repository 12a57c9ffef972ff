#!/usr/bin/env bash
# Installs, from Debian's packages, whatever the build, the tests and the benchmarks need and the
# machine lacks. Does nothing when everything is there.
set -euo pipefail

# OpenCV is for the benchmarks only, as the peer they measure against; xclip and Xvfb are for the
# system-clipboard backend and its tests.
packages=(cmake ninja-build g++ pkg-config libgtest-dev libbenchmark-dev libpng-dev libfreetype-dev
          libfontconfig-dev fonts-dejavu-core libopencv-dev xclip xvfb xauth)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
