#!/usr/bin/env bash
# Configures and builds one variant of the library, its tools and its tests.
#   scripts/build.sh [normal|sanitize|tsan]
# normal builds in build/ with the system compiler; sanitize builds in
# build-asan/ with clang, AddressSanitizer and UndefinedBehaviorSanitizer;
# tsan builds in build-tsan/ with clang and ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."

variant=${1:-normal}
case "$variant" in
  normal)   dir=build;      opts=() ;;
  sanitize) dir=build-asan; opts=(-DVORLAN_SANITIZE=ON -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++) ;;
  tsan)     dir=build-tsan; opts=(-DVORLAN_TSAN=ON -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++) ;;
  *) echo "usage: $0 [normal|sanitize|tsan]" >&2; exit 2 ;;
esac

cmake -S . -B "$dir" -G Ninja "${opts[@]}" >/dev/null
cmake --build "$dir" -j "$(nproc)"
