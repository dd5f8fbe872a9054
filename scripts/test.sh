#!/usr/bin/env bash
# Sets up the machine, then builds and runs the whole test suite twice: a
# normal build, and a build with AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
for variant in normal sanitize; do
  echo "== $variant build"
  scripts/build.sh "$variant"
  dir=build; [ "$variant" = sanitize ] && dir=build-asan
  (cd "$dir" && ctest --output-on-failure -j "$(nproc)" --timeout 300)
done
echo "== all tests passed"
