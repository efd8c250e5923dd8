#!/usr/bin/env bash
# Runs the imaging benchmark of a Release build and prints its figures.
set -euo pipefail
build_dir=${1:?usage: run.sh BUILD_DIR}
export QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen}
echo "machine load: $(cut -d' ' -f1-3 /proc/loadavg) on $(nproc) cores"
"$build_dir/bin/bench_imaging" "${@:2}"
