#!/usr/bin/env bash
# Sets up the machine, builds the library, its tool and the bundled examples
# (the build generates their datasets), and runs the main job: `vorlan demo`
# draws every example as a PNG into ./vorlan-demo and says where.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh normal
export VORLAN="$PWD/share/vorlan"
build/tools/vorlan demo -o vorlan-demo
