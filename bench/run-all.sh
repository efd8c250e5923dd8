#!/usr/bin/env bash
# Runs every area's benchmark script against one Release build directory.
set -euo pipefail
build_dir=$(cd "${1:?usage: run-all.sh BUILD_DIR}" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
export QT_QPA_PLATFORM=offscreen
export XDG_RUNTIME_DIR=${XDG_RUNTIME_DIR:-$(mktemp -d)}
chmod 700 "$XDG_RUNTIME_DIR"
status=0
for script in "$here"/*/run.sh; do
    [ -e "$script" ] || continue
    area=$(basename "$(dirname "$script")")
    echo "== $area"
    bash "$script" "$build_dir" || { echo "bench $area failed" >&2; status=1; }
    echo
done
exit $status
