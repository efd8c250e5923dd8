#!/usr/bin/env bash
# Image cache figures: memory hits, store and query of 64 KiB JPEG files, and
# the expiry pass and getSize() over 100,000 small files next to find and du.
#   bench/imagecache/run.sh BUILD_DIR [FILES]
# The files go to a tmpfs (/dev/shm) unless QX_BENCH_DIR names another
# place: on a disk mounted with online discard every unlink waits for the
# device, which swamps what the tools themselves cost (for both sides alike).
set -euo pipefail
build_dir=$(cd "${1:?usage: run.sh BUILD_DIR [FILES]}" && pwd)
base=${QX_BENCH_DIR:-}
if [[ -z "$base" ]]; then
    if [[ -d /dev/shm && -w /dev/shm ]]; then base=/dev/shm; else base=${TMPDIR:-/tmp}; fi
fi
scratch=$(mktemp -d "$base/qxbench-imagecache.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
echo "machine: $(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg); files on $(df --output=fstype "$scratch" | tail -1) ($base)"
"$build_dir/bin/bench_imagecache" "$scratch" "${2:-100000}"
