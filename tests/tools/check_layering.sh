#!/bin/sh
# The parts include only the headers of the parts below them (see "Where
# things go" in the README). Each part is listed with its rank; a header
# belongs to the part whose folder holds it. The named exceptions are the
# ones the README names: the dataset header and dataset coordinates form one
# layer, and the dataset header reaches up to world files and algorithms.
#   check_layering.sh SOURCE_DIR
set -eu
top=$1
cd "$top"

parts="core:0 platform:0 VLDlib/blocktext:1 VLDlib/records:2 VLDlib/dshdr:3 VLDlib/dscoords:3
VLDlib/raster:4 VLDlib/regions:4 coords:4 VLDlib/alg:5 rectify:5 VLNpelib/formula:6
VLNpelib/transform:6 VLNpelib/stats:6 VLNpelib/engine:7 VLNpelib/nodes:7"
exceptions="VLDlib/dshdr>vld_worldfile.h VLDlib/dshdr>vld_alg.h"

rank_of_header() {
    for entry in $parts; do
        folder=${entry%:*}
        if [ -f "$folder/$1" ]; then
            echo "${entry#*:}"
            return
        fi
    done
    echo -1
}

status=0
for entry in $parts; do
    folder=${entry%:*}
    rank=${entry#*:}
    for header in $(grep -ho '#include "[^"]*"' "$folder"/*.cpp "$folder"/*.h 2>/dev/null |
        sed 's/#include "\(.*\)"/\1/' | sort -u); do
        theirs=$(rank_of_header "$header")
        if [ "$theirs" -gt "$rank" ]; then
            case " $exceptions " in
                *" $folder>$header "*) ;;
                *)
                    echo "$folder includes $header of a higher part" >&2
                    status=1
                    ;;
            esac
        fi
    done
done
exit $status
