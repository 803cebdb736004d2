#!/bin/sh
# Installs what is missing, builds, and measures everything against a local simulator. Writes bench/results.json and prints a
# table; docs/performance.md explains it.
set -eu
top=$(cd "$(dirname "$0")" && pwd)
. "$top/tools/variants.sh"

# shellcheck disable=SC2086
"$top/tools/packages.sh" $linux_packages libbenchmark-dev valgrind jq
configure release -DCMAKE_BUILD_TYPE=Release
cmake -DKELVARO_BENCH=ON "$top/build/release" >/dev/null
build_variant release bench | tail -n 1
programs=$top/build/release/bench
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

measure() { # measure NAME COMMAND...: keeps the JSON that the command prints
    name=$1
    shift
    echo "measuring: $name" >&2
    "$@" >"$work/$name.json"
}

# Instructions of N signatures at a log level, as callgrind counts them.
instructions() { # instructions SIGNATURES LEVEL
    valgrind --tool=callgrind --callgrind-out-file=/dev/null "$programs/bench_own_work" "$1" "$2" 2>&1 >/dev/null |
        sed -n 's/.*Collected : \([0-9]*\).*/\1/p'
}

own_work() { # own_work LEVEL: one signature, from the difference of 120 and 20
    few=$(instructions 20 "$1")
    many=$(instructions 120 "$1")
    "$programs/bench_own_work" 100 "$1" | jq --argjson few "$few" --argjson many "$many" '.instructions = ($many - $few) / 100'
}

measure signature "$programs/bench_signature"
measure own_work_closed own_work 0
measure own_work_level_10 own_work 10
measure threads "$programs/bench_threads"
measure lists "$programs/bench_lists"
measure cold_start "$programs/bench_cold_start"
measure strings "$programs/bench_strings" --benchmark_format=json --benchmark_min_time=0.3

jq -n --slurpfile signature "$work/signature.json" --slurpfile closed "$work/own_work_closed.json" \
    --slurpfile open "$work/own_work_level_10.json" --slurpfile threads "$work/threads.json" \
    --slurpfile lists "$work/lists.json" --slurpfile cold "$work/cold_start.json" --slurpfile strings "$work/strings.json" \
    -f "$top/bench/results.jq" >"$top/bench/results.json"
jq -r -f "$top/bench/table.jq" "$top/bench/results.json"
