#!/usr/bin/env bash
# Base64 and digest throughput on one 64 MiB buffer, against Qt's codec,
# OpenSSL's EVP block codec and the openssl command-line digests.
set -euo pipefail
build_dir=${1:?usage: run.sh BUILD_DIR}
"$build_dir/bin/bench_data" "$build_dir/bin/qx"
