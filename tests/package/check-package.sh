#!/usr/bin/env bash
# Checks that the umbrella header lists every public header, then builds
# and runs a small application against the library three ways: with
# find_package() from the build tree, with find_package() from an install
# prefix, and with pkg-config from that prefix.
set -euo pipefail
build_dir=${1:?usage: check-package.sh BUILD_DIR}
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
expected="018d16023be51c8939fc73a793564140 1.0"

# Every public header is reachable through the umbrella header.
include_dir="$here/../../include/QXFoundation"
for header in "$include_dir"/*.h; do
    name=$(basename "$header")
    case "$name" in QXFoundation.h|qxfoundation_export.h) continue ;; esac
    grep -q "#include <QXFoundation/$name>" "$include_dir/QXFoundation.h" ||
        { echo "QXFoundation.h does not include $name" >&2; exit 1; }
done
echo "umbrella header complete: ok"

cmake --install "$build_dir" --prefix "$scratch/prefix" >/dev/null

cmake -S "$here/consumer" -B "$scratch/from-build" -G Ninja -DQXFoundation_DIR="$build_dir" >/dev/null
cmake --build "$scratch/from-build" >/dev/null
[ "$("$scratch/from-build/consumer")" = "$expected" ]
echo "find_package from the build tree: ok"

cmake -S "$here/consumer" -B "$scratch/from-prefix" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
cmake --build "$scratch/from-prefix" >/dev/null
libdir=$(dirname "$(find "$scratch/prefix" -name 'libQXFoundation.so.1' | head -n 1)")
[ "$(LD_LIBRARY_PATH="$libdir" "$scratch/from-prefix/consumer")" = "$expected" ]
echo "find_package from an install prefix: ok"

export PKG_CONFIG_PATH="$libdir/pkgconfig"
g++ -std=c++20 -fPIC "$here/consumer/main.cpp" -o "$scratch/from-pkgconfig" $(pkg-config --cflags --libs QXFoundation)
[ "$(LD_LIBRARY_PATH="$libdir" "$scratch/from-pkgconfig")" = "$expected" ]
echo "pkg-config from an install prefix: ok"
