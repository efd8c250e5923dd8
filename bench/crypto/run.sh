#!/usr/bin/env bash
# Encryption throughput: the library and `qx encrypt` next to OpenSSL's EVP
# loop and `openssl enc -aes-256-cbc`, on a 256 MiB file (or $QX_BENCH_MIB).
set -euo pipefail
build_dir=$(cd "${1:?usage: run.sh BUILD_DIR}" && pwd)
openssl=$(command -v openssl) || { echo "bench crypto: the openssl program is missing" >&2; exit 1; }
work=$(mktemp -d -t qxbench-crypto.XXXXXX)
trap 'rm -rf "$work"' EXIT
echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)"
"$build_dir/bin/bench_crypto" "$build_dir/bin/qx" "$openssl" "$work" "${QX_BENCH_MIB:-256}"
echo "load after:  $(cut -d' ' -f1-3 /proc/loadavg)"
