#!/usr/bin/env bash
# Phrases per second of the time-interval formatter for one million random
# intervals (one second to ten years, past and future, Europe/Berlin).
set -euo pipefail
build_dir=${1:?usage: run.sh BUILD_DIR [COUNT]}
"$build_dir/bin/bench_interval" "${2:-1000000}"
