#!/usr/bin/env bash
# Installs the library into a scratch prefix, builds each C program in this
# folder against it through pkg-config alone, and runs it.
#   run_capi_test.sh BUILD_DIR C_COMPILER SANITIZE(ON|OFF)
set -euo pipefail
build=$1 cc=$2 sanitize=${3:-OFF}
here=$(cd "$(dirname "$0")" && pwd)
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --prefix "$prefix" >/dev/null
pcdir=$(dirname "$(find "$prefix" -name vorlan.pc | head -n 1)")
export PKG_CONFIG_PATH=$pcdir

extra=()
case "$sanitize" in
  ON|on|1|TRUE|true)
    extra=(-fsanitize=address,undefined)
    "$cc" --version | grep -q clang && extra+=(-fsanitize-link-c++-runtime -lstdc++)
    ;;
esac

# Every installed header stands alone in C: none needs C++ or a header that
# isn't installed.
for header in "$prefix"/include/vorlan/*.h; do
  # shellcheck disable=SC2046
  echo "#include \"$(basename "$header")\"" |
    "$cc" -std=c11 -Wall -Werror -fsyntax-only -x c $(pkg-config --cflags vorlan) - ||
    { echo "installed header $(basename "$header") does not compile as C" >&2; exit 1; }
done

export LD_LIBRARY_PATH="$(pkg-config --variable=libdir vorlan)"
export VORLAN="$(pkg-config --variable=datadir vorlan)"
for program in capi_test vds_capi_test; do
  # shellcheck disable=SC2046
  "$cc" -std=c11 -Wall -Wextra -Werror -pedantic "$here/$program.c" \
    $(pkg-config --cflags --libs vorlan) -lm "${extra[@]}" -o "$prefix/$program"
  "$prefix/$program"
done
