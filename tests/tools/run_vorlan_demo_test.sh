#!/bin/sh
# The bundled examples and `vorlan demo`, driven as a user drives them: the
# demo's pictures, a few of their pixels against values worked out here from
# the generated bands, each subcommand on the examples, bad arguments, a
# folder that cannot be written and an interrupted demo.
#   run_vorlan_demo_test.sh VORLAN_PROGRAM EXAMPLES_DIR
set -u
tool=$1
examples=$2
. "$(dirname "$0")/tool_test_lib.sh"

# Nothing in the folder but the test's own files.
clean() {
    extra=$(ls -A "$1" | grep -v -x -e out -e err -e plain -e pictures.py)
    [ -z "$extra" ] || fail "$2: left behind: $extra"
}

# A small reader of the tool's pictures and of the examples' data, shared by
# the checks below.
cat >pictures.py <<'PY'
import array, struct, sys, zlib

def png(path):
    """(width, height, rows of RGB bytes) of an 8-bit RGB PNG."""
    data = open(path, "rb").read()
    assert data[:8] == b"\x89PNG\r\n\x1a\n", path
    at, idat = 8, b""
    while at < len(data):
        n, kind = struct.unpack(">I4s", data[at:at + 8])
        body = data[at + 8:at + 8 + n]
        at += 12 + n
        if kind == b"IHDR":
            width, height, depth, colour = struct.unpack(">IIBB", body[:10])
            assert depth == 8 and colour == 2, (path, depth, colour)
        elif kind == b"IDAT":
            idat += body
    raw, stride, rows = zlib.decompress(idat), 3 * width + 1, []
    prev = bytearray(3 * width)
    for y in range(height):
        kind, line = raw[y * stride], bytearray(raw[y * stride + 1:(y + 1) * stride])
        for x in range(len(line)):
            a = line[x - 3] if x >= 3 else 0
            b = prev[x]
            c = prev[x - 3] if x >= 3 else 0
            if kind == 1:
                line[x] = (line[x] + a) & 255
            elif kind == 2:
                line[x] = (line[x] + b) & 255
            elif kind == 3:
                line[x] = (line[x] + (a + b) // 2) & 255
            elif kind == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                line[x] = (line[x] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
        rows.append(line)
        prev = line
    return width, height, rows

def pixel(rows, x, y):
    return tuple(rows[y][3 * x:3 * x + 3])

SIZE = 2048

def bands(examples):
    """The four bands of the example image, interleaved by line."""
    cells = array.array("H")
    cells.frombytes(open(examples + "/image", "rb").read())
    return cells

def band_cell(cells, band, line, cell):
    return cells[(4 * line + band) * SIZE + cell]

def lut(path):
    """A colour table's 256 colours in 8 bits, from its text."""
    rows = [l.split() for l in open(path) if l.strip()[:1].isdigit()]
    return [tuple(int(v) >> 8 for v in r[1:4]) for r in rows]
PY

# ---------------------------------------------------------------- arguments
run 0 demo --help && grep -q "^usage: vorlan demo" out || fail "demo --help"
run 0 --help && grep -q "^  demo " out || fail "--help lists no demo"
while IFS='|' read -r args; do
    # shellcheck disable=SC2086
    run 2 demo $args || continue
    head -n 1 err | grep -q "^vorlan demo: " || fail "demo $args: first line: $(head -n 1 err)"
    sed -n 2p err | grep -q "^usage: vorlan demo" || fail "demo $args: no usage after the error"
    [ -s out ] && fail "demo $args: wrote to stdout"
done <<'CASES'
--bogus
stray
-o
--size 10
--size 0x5
--size 20x
-o a -o b extra
--threads 0
CASES
run 2 demo -o "" || fail "demo with an empty folder name"
clean . "bad arguments"

# ---------------------------------------------------------------- the demo
run 0 demo -o one --size 256x256 --threads 1
run 0 demo -o pictures --size 256x256 --threads 2
for picture in pictures/*.png; do
    cmp -s "$picture" "one/${picture#pictures/}" || fail "$picture differs between 1 and 2 threads"
done
rm -rf one
ls "$examples" | sed -n 's/\.alg$/.png/p' | sort >want
ls -A pictures | sort >got
cmp -s want got || fail "demo made $(tr '\n' ' ' <got), not $(tr '\n' ' ' <want)"
[ "$(wc -l <want)" -ge 6 ] || fail "fewer than six examples: $(tr '\n' ' ' <want)"
tail -n 1 out | grep -q "drawn in $dir/pictures\$" || fail "demo did not say where: $(tail -n 1 out)"

# Every picture is 256 by 256 and shows something: no flat picture.
$py - "$examples" <<'PY' || fail "the demo's pictures"
import os, sys
sys.path.insert(0, ".")
from pictures import png
for name in sorted(os.listdir("pictures")):
    w, h, rows = png("pictures/" + name)
    assert (w, h) == (256, 256), (name, w, h)
    colours = {bytes(r[i:i + 3]) for r in rows[::8] for i in range(0, len(r), 24)}
    assert len(colours) > 20, (name, len(colours))
PY

# Pixels against the bands, in pictures drawn cell for cell: the index
# (NIR - Red) / (NIR + Red) over -0.5 to 0.8 picks a colour of the greenness
# table; the true-colour picture stretches each band between its clip limits.
# Cells whose value falls within 0.02 of a rounding edge are skipped.
run 0 render "$examples/ndvi.alg" -o ndvi.ppm
run 0 render "$examples/truecolour.alg" -o true.ppm
$py - "$examples" <<'PY' || fail "pixels of the vegetation index and the true colour"
import math, sys
sys.path.insert(0, ".")
from pictures import bands, band_cell, lut, SIZE
examples = sys.argv[1]
cells = bands(examples)
colours = lut(examples + "/../lut/greenness.lut")
head = b"P6\n%d %d\n255\n" % (SIZE, SIZE)
ndvi, true = open("ndvi.ppm", "rb").read(), open("true.ppm", "rb").read()
assert ndvi.startswith(head) and true.startswith(head), (ndvi[:20], true[:20])
limits = [(2, 450, 2100), (1, 500, 1750), (0, 350, 1450)]  # red, green, blue

def pixel(picture, line, cell):
    at = len(head) + 3 * (line * SIZE + cell)
    return tuple(picture[at:at + 3])

def stretch(v, lo, hi):
    """The 8-bit value, or None within 0.02 of a rounding edge."""
    t = min(max((v - lo) / (hi - lo), 0.0), 1.0) * 255.0
    return None if abs(t - math.floor(t) - 0.5) <= 0.02 else math.floor(t + 0.5)

checked = 0
for line in range(5, SIZE, 97):
    for cell in range(3, SIZE, 89):
        nir, red = band_cell(cells, 3, line, cell), band_cell(cells, 2, line, cell)
        index = stretch((nir - red) / (nir + red), -0.5, 0.8)
        if index is not None:
            assert pixel(ndvi, line, cell) == colours[index], (line, cell, pixel(ndvi, line, cell), index)
            checked += 1
        want = [stretch(band_cell(cells, b, line, cell), lo, hi) for b, lo, hi in limits]
        got = pixel(true, line, cell)
        assert all(w is None or w == g for w, g in zip(want, got)), (line, cell, got, want)
assert checked > 400, checked
PY
rm -f ndvi.ppm true.ppm

# ---------------------------------------------------------------- subcommands
run 0 info "$examples/terrain.vld"
grep -qx "Cells: 2048" out && grep -qx "  Band 1: Height" out && grep -q "Lake" out &&
    grep -q "Study area" out || fail "info terrain.vld: $(cat out)"
run 0 info --json "$examples/ndvi.vld"
$py - <<'PY' || fail "info --json of the virtual dataset: $(cat out)"
import json
d = json.load(open("out"))
assert d["kind"] == "algorithm" and d["bands"] == ["NDVI"], d
PY
run 0 info "$examples/image.vld" && grep -q "Band 4: NIR" out || fail "info image.vld"

# calc of the index into a dataset: its cells against the bands.
run 0 calc -i "$examples/image.vld:4" -i "$examples/image.vld:3" \
    -e "(INPUT1 - INPUT2) / (INPUT1 + INPUT2)" -o nd.vld
$py - "$examples" <<'PY' || fail "calc of the index"
import array, sys
sys.path.insert(0, ".")
from pictures import bands, band_cell
cells = bands(sys.argv[1])
got = array.array("f")
got.frombytes(open("nd", "rb").read())
assert len(got) == 2048 * 2048, len(got)
for line, cell in [(0, 0), (100, 1900), (1024, 1024), (2047, 2047), (700, 1210), (1500, 300)]:
    nir, red = band_cell(cells, 3, line, cell), band_cell(cells, 2, line, cell)
    want = (nir - red) / (nir + red)
    assert abs(got[line * 2048 + cell] - want) < 1e-6, (line, cell, got[line * 2048 + cell], want)
PY
rm -f nd nd.vld

# process of the virtual dataset's algorithm, read back through info.
sed -n '/^\tAlgorithm Begin/,/^\tAlgorithm End/p' "$examples/ndvi.vld" |
    sed "s|\"image.vld\"|\"$examples/image.vld\"|" >band.alg
run 0 process band.alg -o band.vld --type f32 && [ -s band ] || fail "process of the index"
run 0 info --json band.vld
$py - <<'PY' || fail "process: the header: $(cat out)"
import json
d = json.load(open("out"))
assert d["cell_type"] == "IEEE4ByteReal" and d["cells"] > 0, d
PY
rm -f band band.vld band.alg

# stats of a copy of the heights: the lake is flat, and "All" spans the data.
cp "$examples/terrain.vld" . && ln -s "$examples/terrain" terrain
run 0 stats terrain.vld && grep -q "REGION: Lake" out || fail "stats: $(head -c 300 out)"
run 0 info --json terrain.vld
$py - "$examples" <<'PY' || fail "stats: what the header keeps"
import array, json, sys
heights = array.array("f")
heights.frombytes(open(sys.argv[1] + "/terrain", "rb").read())
regions = {r["name"]: r["statistics"][0] for r in json.load(open("out"))["regions"]}
every = regions["All"]
assert abs(every["minimum"] - min(heights)) < 1e-6 and abs(every["maximum"] - max(heights)) < 1e-6
assert abs(every["mean"] - sum(heights) / len(heights)) < 1e-3, every
lake = regions["Lake"]  # the flat water, and a few cells of its bank
assert lake["median"] == lake["minimum"] and lake["maximum"] - lake["minimum"] < 2.5, lake
assert regions["Study area"]["maximum"] > 1500, regions["Study area"]
PY
rm -f terrain terrain.vld

# ---------------------------------------------------------------- failures
touch plain
run 1 demo -o plain/pictures --size 64x64 && grep -q "^vorlan demo: " err ||
    fail "demo into a folder under a file"
run 1 demo -o plain --size 64x64 || fail "demo into a file"
if [ "$(id -u)" -ne 0 ]; then
    mkdir ro && chmod 555 ro
    run 1 demo -o ro --size 64x64
    [ -z "$(ls -A ro)" ] || fail "the read-only folder holds $(ls -A ro)"
    rmdir ro
fi
saved=$VORLAN
export VORLAN="$dir/nowhere"
run 1 demo -o p2 --size 64x64 && grep -q "no example" err || fail "demo without examples"
VORLAN=$saved
[ -e p2 ] && fail "demo without examples made its folder"
rm -rf pictures want got pictures.py __pycache__
clean . "failures"

# ---------------------------------------------------------------- an interrupt
# A demo at full size, stopped once its first picture is under way: it ends
# with 130 and leaves no temporary file.
"$tool" demo -o slow >out 2>err &
pid=$!
tries=0
while [ -z "$(ls -A slow 2>/dev/null | grep '^\.')" ] && [ $tries -lt 400 ]; do
    sleep 0.02
    tries=$((tries + 1))
done
kill -INT $pid
wait $pid
status=$?
[ $status -eq 130 ] || fail "interrupted demo exited $status: $(cat err)"
[ -z "$(ls -A slow 2>/dev/null | grep '^\.')" ] || fail "the interrupt left $(ls -A slow)"
rm -rf slow
clean . "an interrupt"

finish demo
