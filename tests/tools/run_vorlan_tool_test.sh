#!/bin/sh
# The vorlan program driven as a user drives it, over datasets and algorithms
# that the fixture program writes into a scratch folder: each subcommand's
# output checked against values worked out here, bad arguments, missing
# inputs, outputs that cannot be written, and an interrupted run.
#   run_vorlan_tool_test.sh VORLAN_PROGRAM FIXTURE_PROGRAM
set -u
tool=$1
fixture=$2
. "$(dirname "$0")/tool_test_lib.sh"
"$fixture" . || { echo "the fixture failed" >&2; exit 1; }

# Nothing but the names given (and the fixture's files) in a folder: no
# output, no temporary file left behind.
only_fixture_files() {
    extra=$(ls -A "$1" | grep -v -x -e grey.alg -e one -e one.vld -e small -e small.alg \
        -e small.vld -e out -e err -e ro -e plain -e big -e big.vld -e big.alg)
    [ -z "$extra" ] || fail "$2: left behind: $extra"
}

# ---------------------------------------------------------------- help and version
run 0 --help && grep -q "^  calc " out || fail "--help lists no subcommands"
run 0 --version && grep -q "^vorlan [0-9]" out || fail "--version"
for sub in info process calc stats render cs; do
    run 0 "$sub" --help && grep -q "^usage: vorlan $sub" out || fail "$sub --help"
done

# ---------------------------------------------------------------- bad arguments
# Each line: the subcommand, then its arguments; every one must give exit 2,
# one line "vorlan SUB: ..." and then the usage.
while IFS='|' read -r sub args; do
    # shellcheck disable=SC2086
    run 2 $sub $args || continue
    head -n 1 err | grep -q "^vorlan $sub: " || fail "$sub $args: first line: $(head -n 1 err)"
    sed -n 2p err | grep -q "^usage: vorlan $sub" || fail "$sub $args: no usage after the error"
    [ -s out ] && fail "$sub $args: wrote to stdout"
done <<'CASES'
info|
info|--bogus small.vld
info|small.vld one.vld
process|small.alg
process|-o x.vld
process|small.alg -o x.vld --type Unsigned12Bit
process|small.alg -o
calc|-e INPUT1 -o x.vld
calc|-i small.vld -o x.vld
calc|-i small.vld -e INPUT1
calc|-i small.vld:0 -e INPUT1 -o x.vld
calc|-i small.vld -e INPUT1 -o x.vld stray
stats|
stats|--force small.vld
render|grey.alg -o x.gif
render|grey.alg -o x.ppm --size 10
render|grey.alg -o x.ppm --size 0x5
render|-o x.ppm
render|grey.alg -o x.ppm --threads 0
cs|--from WGS84 --to WGS84,NUTM31
cs|--from WGS84,GEODETIC
cs|--to WGS84,NUTM31
cs|--from WGS84,GEODETIC,degrees,extra --to WGS84,NUTM31
process|small.alg -o x.vld --threads many
calc|-i small.vld -e INPUT1 -o x.vld -j 999
CASES
run 2 nosuch && grep -q "unknown subcommand" err || fail "an unknown subcommand"
run 2 || fail "no subcommand"
only_fixture_files . "bad arguments"

# ---------------------------------------------------------------- info
run 0 info small.vld
grep -qx "Cells: 20" out && grep -qx "Lines: 12" out && grep -qx '  Band 2: band "2"' out ||
    fail "info small.vld: $(cat out)"
for name in small.vld small.alg grey.alg; do
    run 0 info --json "$name" && $py -c 'import json,sys; json.load(sys.stdin)' <out ||
        fail "info --json $name is not JSON"
done
run 0 info --json small.alg
$py - <<'PY' || fail "info --json small.alg says: $(cat out)"
import json
d = json.load(open("out"))
assert d["kind"] == "algorithm" and d["cells"] == 20 and d["lines"] == 12, d
assert d["bands"] == ["first", "second"], d["bands"]
assert d["algorithm"]["description"] == 'tool "fixture"'
layers = d["algorithm"]["surfaces"][0]["layers"]
assert [l["description"] for l in layers] == ["first", "second"], layers
PY

# ---------------------------------------------------------------- process
run 0 process small.alg -o out1.vld && cmp -s out1 small || fail "process: cells differ from the source"
run 0 info --json out1.vld
$py - <<'PY' || fail "process: header: $(cat out)"
import json
d = json.load(open("out"))
assert d["cell_type"] == "Unsigned16BitInteger" and d["cells"] == 20 and d["lines"] == 12, d
assert d["bands"] == ["first", "second"], d["bands"]
assert d["cell_width"] == 2 and d["registration"]["x"] == 10 and d["registration"]["y"] == 20, d
names = [r["name"] for r in d["regions"]]
assert "out1" in names and not any(n.startswith(".") for n in names), names
PY
grep -q DataFile out1.vld && fail "process: the header names a data file"
run 0 process small.alg -o out2 --type f64
$py - <<'PY' || fail "process --type f64: the cells"
import struct
source = open("small", "rb").read()
reals = open("out2", "rb").read()
assert len(reals) == 4 * len(source)
for i in range(len(source) // 2):
    assert struct.unpack_from("<d", reals, 8 * i)[0] == struct.unpack_from("<H", source, 2 * i)[0]
PY
rm -f out1 out1.vld out2 out2.vld

# ---------------------------------------------------------------- calc
run 0 calc -i small.vld -i small.vld:2 -i one.vld -e "INPUT1 + 2 * INPUT2 - INPUT3 / 4" -o c1.vld
run 0 calc --input=small.vld:2 --expression="IF INPUT1 > 1500 THEN INPUT1 ELSE 7" \
    --output=c2.vld --type s32
$py - <<'PY' || fail "calc: the cells"
import struct
def v(b, l, c):
    return (b * 1009 + l * (131 + 17 * b) + c * (7 + 3 * b)) % 65521
c1 = open("c1", "rb").read()
c2 = open("c2", "rb").read()
assert len(c1) == 20 * 12 * 4 and len(c2) == 20 * 12 * 4, (len(c1), len(c2))
for l, c in [(0, 0), (0, 19), (5, 7), (11, 0), (11, 19), (6, 13)]:
    got = struct.unpack_from("<f", c1, 4 * (20 * l + c))[0]
    want = v(0, l, c) + 2 * v(1, l, c) - v(2, l, c) / 4
    assert abs(got - want) < 1e-3, (l, c, got, want)
    got = struct.unpack_from("<i", c2, 4 * (20 * l + c))[0]
    want = v(1, l, c) if v(1, l, c) > 1500 else 7
    assert got == want, (l, c, got, want)
PY
grep -q "IEEE4ByteReal" c1.vld && grep -q "Signed32BitInteger" c2.vld || fail "calc: cell types"
rm -f c1 c1.vld c2 c2.vld

# ---------------------------------------------------------------- stats
cp small.vld small.vld.orig
run 0 stats small.vld && grep -q "REGION: All" out && grep -q "^Mean " out ||
    fail "stats: the report: $(head -c 300 out)"
run 0 info --json small.vld
$py - <<'PY' || fail "stats: what the header keeps: $(cat out)"
import json
def v(b, l, c):
    return (b * 1009 + l * (131 + 17 * b) + c * (7 + 3 * b)) % 65521
d = json.load(open("out"))
stats = d["regions"][0]["statistics"]
for b in range(2):
    cells = [v(b, l, c) for l in range(12) for c in range(20)]
    assert stats[b]["minimum"] == min(cells) and stats[b]["maximum"] == max(cells), stats[b]
    assert abs(stats[b]["mean"] - sum(cells) / len(cells)) < 1e-9, stats[b]
PY
mv small.vld.orig small.vld

# ---------------------------------------------------------------- render
run 0 render grey.alg -o p1.ppm
run 0 render grey.alg -o p2.ppm --size 40x24
run 0 render grey.alg -o p3.png -s 40x24
$py - <<'PY' || fail "render: the pictures"
import struct
for name, w, h in [("p1.ppm", 20, 12), ("p2.ppm", 40, 24)]:
    data = open(name, "rb").read()
    head = b"P6\n%d %d\n255\n" % (w, h)
    assert data.startswith(head) and len(data) == len(head) + 3 * w * h, (name, data[:20], len(data))
    pixels = data[len(head):]
    assert all(pixels[i] == pixels[i + 1] == pixels[i + 2] for i in range(0, len(pixels), 3)), name
    assert len(set(pixels)) > 10, name  # not one flat colour
# Twice the size is each pixel twice across and down, to the far corner.
p1 = open("p1.ppm", "rb").read()[len(b"P6\n20 12\n255\n"):]
p2 = open("p2.ppm", "rb").read()[len(b"P6\n40 24\n255\n"):]
for y in range(24):
    for x in range(40):
        assert p2[3 * (40 * y + x)] == p1[3 * (20 * (y // 2) + x // 2)], (x, y)
png = open("p3.png", "rb").read()
assert png[:8] == b"\x89PNG\r\n\x1a\n" and png[12:16] == b"IHDR", png[:16]
assert struct.unpack(">II", png[16:24]) == (40, 24)
PY
rm -f p1.ppm p2.ppm p3.png

# ---------------------------------------------------------------- cs
# Points through the coordinate engine: the zone's central meridian on the
# equator, London on the British grid (the figures PROJ gives for the same
# seven-parameter change: 530043.195 180358.209), the rest of each line kept,
# comments and blank lines passed, a point past the pole refused, and each
# point back where it started.
printf '%s\n' "3 0" "# a comment" "" "2.35,48.85 Paris" "3 91 beyond" | "$tool" cs --from WGS84,GEODETIC --to WGS84,NUTM31 >out 2>err ||
    fail "cs exited $?: $(cat err)"
$py - <<'PY' || fail "cs: the points"
lines = open("out").read().split("\n")
assert lines[0] == "500000.0000 0.0000", lines
assert lines[1:3] == ["# a comment", ""], lines
e, n, name = lines[3].split()
assert name == "Paris" and abs(float(e) - 452314.891) < 0.01 and abs(float(n) - 5410984.888) < 0.01, lines
assert lines[4] == "* * beyond", lines
PY
printf '%s\n' "-0.1276 51.5072" | "$tool" cs -f WGS84,GEODETIC -t OSGB36,BNG,metres >out 2>err || fail "cs to BNG: $(cat err)"
read e n rest <out
$py -c "import sys; sys.exit(not (abs($e - 530043.195) < 0.01 and abs($n - 180358.209) < 0.01))" ||
    fail "cs: London on the British grid: $e $n"
printf '%s\n' "452314.8912 5410984.8880" "-2000 100 9" | "$tool" cs --from WGS84,NUTM31 --to WGS84,GEODETIC,radians >out 2>err ||
    fail "cs back: $(cat err)"
read x y <out
$py -c "import math, sys; sys.exit(not (abs($x - math.radians(2.35)) < 1e-10 and abs($y - math.radians(48.85)) < 1e-10))" ||
    fail "cs: back to radians: $x $y"
printf '1 2\n' | run 1 cs --from NODATUM,GEODETIC --to WGS84,NUTM31 && grep -q 'Datum "NODATUM" not found' err ||
    fail "cs: an unknown datum"
printf 'abc\n' | run 1 cs --from WGS84,GEODETIC --to WGS84,NUTM31 && grep -q "not a point" err ||
    fail "cs: a line without a point"
run 1 cs --from WGS84,GEODETIC --to WGS84,NUTM31 nosuch.txt || fail "cs: a missing input"

# ---------------------------------------------------------------- threads
# Row stripes on several threads make the very bytes of one thread.
for j in 1 3 7; do
    run 0 process small.alg -o t$j.vld --threads $j
    run 0 calc -i small.vld -i small.vld:2 -e "INPUT1 * 3 - INPUT2" -o u$j.vld -j $j
    run 0 render grey.alg -o t$j.ppm --size 41x37 --threads $j
    run 0 render grey.alg -o t$j.png --size 41x37 --threads $j
done
for j in 3 7; do
    for f in t$j t$j.ppm t$j.png u$j; do
        cmp -s "$f" "$(echo "$f" | sed "s/$j/1/")" || fail "threads: $f differs from one thread's"
    done
done
rm -f t[137] t[137].vld t[137].ppm t[137].png u[137] u[137].vld

# ---------------------------------------------------------------- failures
run 1 info nosuch.vld && grep -q "^vorlan info: .*nosuch" err || fail "info of a missing dataset"
run 1 process nosuch.alg -o x.vld && grep -q "^vorlan process: " err || fail "process: missing input"
run 1 calc -i small.vld -i nosuch.vld -e "INPUT1 + INPUT2" -o x.vld &&
    grep -q "nosuch" err || fail "calc: missing input"
run 1 calc -i small.vld:3 -e INPUT1 -o x.vld && grep -q "band 3" err || fail "calc: a missing band"
run 1 calc -i small.vld -e "INPUT1 +" -o x.vld || fail "calc: a bad formula"
[ "$(wc -l <err)" -eq 1 ] || fail "calc: a bad formula: more than one line: $(cat err)"
run 1 render grey.alg -o nosuchdir/x.ppm
run 1 process small.alg -o nosuchdir/x.vld
touch plain
run 1 process small.alg -o plain/x.vld && grep -q "cannot create" err || fail "a file as folder"
if [ "$(id -u)" -ne 0 ]; then
    mkdir ro && chmod 555 ro
    run 1 process small.alg -o ro/x.vld
    run 1 calc -i small.vld -e INPUT1 -o ro/x.vld
    run 1 render grey.alg -o ro/x.png
    [ -z "$(ls -A ro)" ] || fail "the read-only folder holds $(ls -A ro)"
fi
only_fixture_files . "failures"

# ---------------------------------------------------------------- no room
# Outputs larger than the file size limit fail as on a full disk: exit 1, a
# message, and nothing left behind.
[ -f big.vld ] || "$fixture" . big || fail "the big fixture"
for args in "render grey.alg -o room.ppm --size 900x900" "render grey.alg -o room.png --size 900x900" \
    "process big.alg -o room.vld"; do
    (ulimit -f 2; "$tool" $args >out 2>err)
    status=$?
    [ $status -eq 1 ] || fail "$args with no room exited $status: $(head -c 300 err)"
    grep -q "^vorlan .*: " err || fail "$args with no room said nothing"
    [ -z "$(ls -A | grep room)" ] || fail "$args with no room left $(ls -A | grep room)"
done

# ---------------------------------------------------------------- an interrupt
# A run of several seconds, stopped once its temporary file exists: it ends
# with 130 and leaves neither the output nor a temporary file.
"$fixture" . big || fail "the big fixture"
"$tool" process big.alg -o big_out.vld >out 2>err &
pid=$!
tries=0
while [ -z "$(ls -A | grep '^\.big_out\.')" ] && [ $tries -lt 300 ]; do
    sleep 0.05
    tries=$((tries + 1))
done
sleep 0.3
kill -INT $pid
wait $pid
status=$?
[ $status -eq 130 ] || fail "interrupted process exited $status: $(cat err)"
grep -q "interrupted" err || fail "the interrupt said nothing"
only_fixture_files . "an interrupt"

# The same for calc and SIGTERM; its documents in the temporary folder go too.
mkdir tmp
long=$(awk 'BEGIN { s = "INPUT1"; for (i = 0; i < 400; i++) s = s " + INPUT1 * 3"; print s }')
TMPDIR=$dir/tmp "$tool" calc -i big.vld -e "$long" -o big_calc.vld >out 2>err &
pid=$!
tries=0
while [ -z "$(ls -A | grep '^\.big_calc\.')" ] && [ $tries -lt 300 ]; do
    sleep 0.05
    tries=$((tries + 1))
done
sleep 0.3
kill -TERM $pid
wait $pid
status=$?
[ $status -eq 130 ] || fail "terminated calc exited $status: $(cat err)"
[ -z "$(ls -A tmp)" ] || fail "terminated calc left $(ls -A tmp) in the temporary folder"
rmdir tmp
only_fixture_files . "a termination"

finish tool
