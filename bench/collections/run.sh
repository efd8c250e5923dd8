#!/usr/bin/env bash
# qx json strip-nulls against jq on a generated 100 MiB document (with a
# check that both give the same value), and QXSortedList against
# std::multiset. Usage: run.sh BUILD_DIR
set -euo pipefail
bin=$(cd "${1:?usage: run.sh BUILD_DIR}" && pwd)/bin
repeats=${QX_BENCH_REPEATS:-2}
scratch=$(mktemp -d -t qxbench-collections.XXXXXX)
trap 'rm -rf "$scratch"' EXIT

command -v jq >/dev/null || { echo "jq is missing: run scripts/bootstrap.sh --bench" >&2; exit 1; }

# Best wall-clock time of $repeats runs of a command whose output goes to $out.
best_of() {
    local out=$1 best= start end
    shift
    for ((i = 0; i < repeats; ++i)); do
        start=$(date +%s.%N)
        "$@" >"$out"
        end=$(date +%s.%N)
        best=$(awk -v s="$start" -v e="$end" -v b="$best" 'BEGIN { t = e - s; if (b == "" || t < b) b = t; print b }')
    done
    printf '%.2f' "$best"
}

doc=$scratch/doc.json
"$bin/bench_collections_jsondata" generate 100 "$doc"
size=$(stat -c %s "$doc")
echo "strip-nulls on a $((size / 1048576)) MiB document (best of $repeats, load: $(cut -d' ' -f1-3 /proc/loadavg)):"
qx_time=$(best_of "$scratch/qx.json" "$bin/qx" json strip-nulls "$doc")
rate() { awk -v n="$size" -v t="$1" 'BEGIN { printf "%.0f", n / 1048576 / t }'; }
echo "  qx json strip-nulls          $qx_time s   ($(rate "$qx_time") MiB/s)"
jq_time=$(best_of "$scratch/jq.json" jq -c 'del(.. | nulls)' "$doc")
echo "  jq -c 'del(.. | nulls)'      $jq_time s   ($(rate "$jq_time") MiB/s)"
awk -v q="$qx_time" -v j="$jq_time" 'BEGIN { printf "  qx is %.1fx faster than jq (goal: at least 2x)\n", j / q }'
printf '  outputs: '
"$bin/bench_collections_jsondata" same "$scratch/qx.json" "$scratch/jq.json"

# With --ignore-arrays null array elements stay; jq's counterpart removes only
# null values of objects. Checked on a smaller document.
small=$scratch/small.json
"$bin/bench_collections_jsondata" generate 10 "$small"
"$bin/qx" json strip-nulls --ignore-arrays "$small" >"$scratch/qx-arrays.json"
jq -c 'walk(if type == "object" then with_entries(select(.value != null)) else . end)' "$small" >"$scratch/jq-arrays.json"
printf '  --ignore-arrays on 10 MiB against jq walk(objects without null values): '
"$bin/bench_collections_jsondata" same "$scratch/qx-arrays.json" "$scratch/jq-arrays.json"

echo
"$bin/bench_collections_sortedlist"
