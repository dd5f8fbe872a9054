#!/usr/bin/env bash
# Builds the benchmarks in build-bench/ (optimised, no sanitizers) and runs them.
#   scripts/bench.sh [BENCHMARK_NAME]    e.g. scripts/bench.sh bench_blocktext
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build-bench
"$root/scripts/setup.sh"
# The peers some benchmarks run beside the library, on raw data only.
# gdal-bin: gdal_translate, gdaldem, gdalinfo; python3-gdal: gdal_calc.py;
# python3-numexpr runs with Debian's own interpreter, /usr/bin/python3.
peers=(gdal-bin python3-gdal python3-numpy python3-numexpr)
missing=()
for p in "${peers[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo_cmd=(); [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -q
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVORLAN_BENCH=ON -DVORLAN_TESTS=OFF >/dev/null
cmake --build "$build" -j "$(nproc)"
for b in "$build"/bench/bench_*; do
  name=$(basename "$b")
  [ -n "${1:-}" ] && [ "$name" != "$1" ] && continue
  echo "== $name"
  "$b"
done
