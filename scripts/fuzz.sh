#!/usr/bin/env bash
# Builds the libFuzzer targets with clang in build-fuzz/ and runs one of them.
#
#   scripts/fuzz.sh fuzz_blocktext 600
#
# The corpus lives in build-fuzz/corpus/TARGET and is seeded from the golden
# block-text documents, for fuzz_formula and fuzz_formula_eval from the formula texts of
# tests/data/formula, for fuzz_alg from the algorithms of tests/data/alg, and for fuzz_gdt_tables from the installed tables; crashes are kept in build-fuzz/artifacts/. A crash
# found here becomes a regression test of its module.
set -euo pipefail

usage="usage: scripts/fuzz.sh TARGET SECONDS"
target=${1:?$usage}
seconds=${2:?$usage}
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build-fuzz

cmake -S "$root" -B "$build" -G Ninja -DVORLAN_FUZZ=ON -DVORLAN_TESTS=OFF \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build" --target "$target"

corpus=$build/corpus/$target
artifacts=$build/artifacts
mkdir -p "$corpus" "$artifacts"
case "$target" in
  fuzz_formula|fuzz_formula_eval) seeds=("$root"/tests/data/formula/*) ;;
  fuzz_alg)     seeds=("$root"/tests/data/alg/*) ;;
  fuzz_gdt_tables)
    # A seed is the number of the table it replaces, then the table's text.
    seeds=()
    mkdir -p "$build/seeds/$target"
    i=0
    for table in datum_sp project tranmerc utm datumcha bursawol stereo lambazea cassini regpol \
        winktrip albersea lamcon2 bonne coniced robinson grinten azimuted lamcon1 obmerc_b \
        obmerc_c borneo dutch swiss nzmapgrd lambert1 lambert2 modpol bioconco modstero labordom \
        danish_uts field; do
        seed=$build/seeds/$target/$table
        # No field table is installed: its seed is the fuzzer's own row over a UTM zone.
        if [ "$table" = field ]; then
            { printf "\\$(printf '%03o' $i)"
              printf 'name,ref_proj_name,ref_datum_name,map_x_offset,map_y_offset,map_x_xfact,map_x_yfact\nFLDTEST,NUTM32,WGS84,100,200,0.8,0.6\n'; } > "$seed"
        else
            { printf "\\$(printf '%03o' $i)"; head -c 4000 "$root/share/vorlan/GDT_DATA/$table.dat"; } > "$seed"
        fi
        seeds+=("$seed")
        i=$((i + 1))
    done ;;
  *)            seeds=("$root"/tests/data/blocktext/* "$root"/tests/data/dshdr/*) ;;
esac
for seed in "${seeds[@]}"; do
    [ -f "$seed" ] && cp -n "$seed" "$corpus"/
done

options=(-max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$artifacts/$target-")
dict=$root/tests/fuzz/${target#fuzz_}.dict
[ -f "$dict" ] && options+=(-dict="$dict")
cd "$build"
exec "$build/tests/fuzz/$target" "${options[@]}" "$corpus"
