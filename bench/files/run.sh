#!/usr/bin/env bash
# Directory size against du -sb on a tree of 100,000 files, and the file
# monitor's latency from the last write to its report (minus the settle second).
set -euo pipefail
build_dir=$(cd "${1:?usage: run.sh BUILD_DIR}" && pwd)
work=$(mktemp -d -t qxbench-files.XXXXXX)
trap 'rm -rf "$work"' EXIT
echo "machine load (1, 5, 15 min): $(cut -d' ' -f1-3 /proc/loadavg), $(nproc) cores"
"$build_dir/bin/bench_files_dirsize" "$work/tree" 100000
"$build_dir/bin/bench_files_monitor" "$work" 20
