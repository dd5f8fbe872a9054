#!/usr/bin/env bash
# Sets up the machine, builds the library and runs the main job on the bundled
# example: vorlan-info describes the algorithm share/vorlan/examples/coast.alg.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh normal
export VORLAN="$PWD/share/vorlan"
build/tools/vorlan-info "$VORLAN/examples/coast.alg"
