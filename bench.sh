#!/bin/sh
# Installs what is missing, builds, and measures everything against a local simulator.
# Usage: ./bench.sh            Linux: writes bench/results.json
#        ./bench.sh windows    the Windows build on wine, unpacked in build/windows-runtime: writes bench/results-windows.json
#        ./bench.sh tables     measures nothing
# Each then puts both files' figures into the tables of docs/performance.md, which explains them.
set -eu
top=$(cd "$(dirname "$0")" && pwd)
. "$top/tools/variants.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/kelvaro-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM

collect() { # collect FILE: what has been measured, in one file; what hasn't is null
    for name in signature closed open threads lists cold_start handles tool strings; do
        [ -f "$work/$name.json" ] || echo null >"$work/$name.json"
    done
    jq -n --slurpfile signature "$work/signature.json" --slurpfile closed "$work/closed.json" \
        --slurpfile open "$work/open.json" --slurpfile threads "$work/threads.json" --slurpfile lists "$work/lists.json" \
        --slurpfile cold "$work/cold_start.json" --slurpfile handles "$work/handles.json" \
        --slurpfile tool "$work/tool.json" --slurpfile strings "$work/strings.json" -f "$top/bench/results.jq" >"$work/results.json"
    cp "$work/results.json" "$1"
}

table() { # table FILE MARKS: the rows of one table
    jq -r --argjson marks "$2" -f "$top/bench/table.jq" "$1"
}

write_tables() {
    for part in results:true results-windows:false; do
        file=bench/${part%:*}.json
        [ -f "$top/$file" ] || continue
        table "$top/$file" "${part#*:}" >"$work/table"
        awk -v table="$work/table" -v begin="<!-- $file -->" '
            $0 == "<!-- end -->" {inside = 0}
            !inside {print}
            $0 == begin {inside = 1; while ((getline row <table) > 0) print row}' \
            "$top/docs/performance.md" >"$work/document"
        cp "$work/document" "$top/docs/performance.md"
    done
}

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

measure_linux() {
    # shellcheck disable=SC2086
    "$top/tools/packages.sh" $linux_packages libbenchmark-dev valgrind jq
    configure release -DCMAKE_BUILD_TYPE=Release
    cmake -DKELVARO_BENCH=ON "$top/build/release" >/dev/null
    build_variant release bench | tail -n 1
    programs=$top/build/release/bench
    measure signature "$programs/bench_signature"
    measure closed own_work 0
    measure open own_work 10
    measure threads "$programs/bench_threads"
    measure lists "$programs/bench_lists"
    measure cold_start "$programs/bench_cold_start"
    measure handles "$programs/bench_handles" "$signatures"
    measure tool "$programs/bench_tool"
    measure strings "$programs/bench_strings" --benchmark_format=json --benchmark_min_time=0.3
    collect "$top/bench/results.json"
}

measure_windows() {
    # shellcheck disable=SC2086
    "$top/tools/packages.sh" $linux_packages $windows_packages $runtime_packages jq
    build_variant win64 kelvaro | tail -n 1
    cmake -DKELVARO_BENCH=ON "$top/build/win64" >/dev/null
    build_variant win64 bench | tail -n 1
    build_variant release vaultsim | tail -n 1
    "$top/tools/windows-runtime.sh" "$top/build/windows-runtime"
    "$top/tools/windows-namespace.sh" "$top/build/windows-runtime" "$work" "$top/bench/windows_run.sh" "$top/build/win64" \
        "$top/build/windows-runtime/prefix" "$top/build/release/vaultsim/vaultsim" "$signatures"
    collect "$top/bench/results-windows.json"
}

# SIGNATURES=300 ./bench.sh: fewer for the row that counts handles.
signatures=${SIGNATURES:-10000}
case ${1:-linux} in
linux) measure_linux ;;
windows) measure_windows ;;
tables) "$top/tools/packages.sh" jq ;;
*)
    sed -n '3,6s/^# //p' "$0" >&2
    exit 2
    ;;
esac
write_tables
sed -n '/^<!-- bench/,/^<!-- end/p' "$top/docs/performance.md"
