#!/usr/bin/env bash
# Installs, with apt-get, whatever the build, the tests and the tools need and
# this machine lacks. Safe to run again: installed packages are skipped.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config make
  libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev
  libgctp-dev libtiff-dev libgeotiff-dev libnetpbm-dev ghostscript libpng-dev
  libproj-dev
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -q
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
