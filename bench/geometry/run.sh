#!/usr/bin/env bash
# Arc length of cubic segments: the library against QPainterPath::length() and
# an adaptive Gauss-Legendre reference.
set -euo pipefail
build_dir=${1:?usage: run.sh BUILD_DIR}
"$build_dir/bin/bench_geometry"
