#!/bin/sh
# vorlan-info prints a layer's formula whole however long its text: the
# bundled true-colour example, its first formula replaced by a 4,000-term sum that prints
# past 16 KB, must come back with that sum as the parser prints it.
#   run_vorlan_info_test.sh VORLAN_INFO EXAMPLES_DIR
set -eu
tool=$1
examples=$2
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

cp "$examples/image.vld" "$dir/"
sum=$(awk 'BEGIN { s = "I1"; for (i = 1; i < 4000; i++) s = s " + I1"; print s }')
sed "0,/Formula\t\t= \"INPUT1\"/s//Formula\t\t= \"$sum\"/" "$examples/truecolour.alg" >"$dir/truecolour.alg"
grep -q "I1 + I1" "$dir/truecolour.alg"

"$tool" "$dir/truecolour.alg" >"$dir/out"
if ! grep -qxF "      formula: $sum" "$dir/out"; then
    echo "the long formula was not printed whole" >&2
    exit 1
fi
