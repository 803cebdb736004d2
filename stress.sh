#!/bin/sh
# Installs what is missing, builds, and tests what the module survives, against a local simulator. Prints a table, and keeps
# the figures in stress/results.json; docs/reliability.md explains them.
# Usage: ./stress.sh [faults|fuzz|many|kill|calls|manners|judges|long|long-windows]... [--minutes N] [--signatures N] [--loads N]
# Default: all but judges, and long-windows, which needs a Windows build and a runtime for it. --minutes: how long each timed
# part runs.
# --signatures and --loads end the long parts; without --minutes, nothing else does.
set -eu
top=$(cd "$(dirname "$0")" && pwd)
. "$top/tools/variants.sh"

minutes=
signatures=0
loads=0
chosen=
while [ $# -gt 0 ]; do
    case $1 in
    faults | fuzz | many | kill | calls | manners | judges | long | long-windows) chosen="$chosen $1" ;;
    --minutes | --signatures | --loads)
        eval "${1#--}=\${2:?needs a number}"
        shift
        ;;
    *)
        sed -n '/^# Usage: /,/^set/s/^# //p' "$0" >&2
        exit 2
        ;;
    esac
    shift
done
# The long parts run until they reach their counts.
long_seconds=0
if [ "$minutes" = "" ] && [ $((signatures + loads)) -gt 0 ]; then
    signatures=$((signatures > 0 ? signatures : loads * 10))
    loads=$((loads > 0 ? loads : signatures / 10))
else
    long_seconds=$((${minutes:-1} * 60))
fi
minutes=${minutes:-1}

# shellcheck disable=SC2086
"$top/tools/packages.sh" $linux_packages jq
results=$top/stress/results.json
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=

build() { # build PROGRAM...: of the release build
    configure release -DCMAKE_BUILD_TYPE=Release
    cmake -DKELVARO_STRESS=ON "$top/build/release" >/dev/null
    build_quietly release "$@"
}

build_quietly() { # build_quietly FOLDER TARGET...
    folder=$top/build/$1
    shift
    cmake --build "$folder" --target "$@" >"$work/build.log" || { cat "$work/build.log" >&2 && exit 1; }
}

# Stores the filter's result for the input, and prints its table. Its member "ok" says whether everything held.
keep() { # keep NAME FILTER-FILE <INPUT
    jq -f "$2" >"$work/$1.json"
    [ -f "$results" ] || echo '{}' >"$results"
    jq -S --arg name "$1" --slurpfile part "$work/$1.json" \
        --arg machine "$(nproc) cores, Linux $(uname -r)" '.[$name] = $part[0] + {machine: $machine}' \
        "$results" | jq -r -f "$top/stress/results.jq" >"$work/results.json"
    cp "$work/results.json" "$results"
    jq --arg name "$1" '{($name): .[$name]}' "$results" | jq -r -f "$top/stress/table.jq"
    jq -e .ok "$work/$1.json" >/dev/null || failed="$failed $1"
}

try_faults() {
    build stress_faults
    "$top/build/release/stress/stress_faults" $((2 * $(nproc))) >"$work/cells"
    keep faults "$top/stress/faults.jq" <"$work/cells"
}

# Processes and threads, for half of the minutes each, then the threads again under the thread sanitizer.
try_many() {
    build stress_many
    "$top/build/release/stress/stress_many" $((minutes * 30)) >"$work/rules"
    configure_debug tsan thread >&2
    cmake -DKELVARO_STRESS=ON "$top/build/tsan" >/dev/null
    build_variant tsan stress_many >&2
    races=0
    TSAN_OPTIONS="suppressions=$top/tests/tsan_suppressions.txt" \
        "$top/build/tsan/stress/stress_many" $((minutes * 30)) threads >"$work/sanitized" 2>"$work/races" || races=1
    head -n 60 "$work/races" >&2
    # A run that printed nothing doesn't count as free of races.
    jq -s --argjson races $races 'add // [] | map(.rule |= "sanitized " + .)
        + [{rule: "sanitized threads: no race", ok: ($races == 0 and length > 0), measured: $races}]' "$work/sanitized" >"$work/more"
    jq -s add "$work/rules" "$work/more" >"$work/all"
    keep many "$top/stress/many.jq" <"$work/all"
}

try_kill() {
    "$top/tools/packages.sh" strace
    build stress_ended kelvaroctl
    "$top/stress/ended.sh" "$top/build/release/stress" "$top/build/release/kelvaroctl/kelvaroctl" >"$work/points"
    jq -R -s . "$work/points" >"$work/text"
    keep kill "$top/stress/kill.jq" <"$work/text"
}

try_judges() {
    "$top/tools/packages.sh" strace
    "$top/stress/judges.sh" "$top" >"$work/faults"
    jq -s . "$work/faults" >"$work/list"
    keep judges "$top/stress/judges.jq" <"$work/list"
}

# STEP=5 ./stress.sh calls: only every fifth call fails.
try_calls() {
    build stress_calls
    "$top/build/release/stress/stress_calls" $((2 * $(nproc))) "${STEP:-1}" >"$work/cases"
    keep calls "$top/stress/calls.jq" <"$work/cases"
}

try_manners() {
    "$top/tools/packages.sh" locales
    build stress_manners
    mkdir "$work/locales"
    localedef -i tr_TR -f UTF-8 "$work/locales/tr_TR.UTF-8"
    localedef -i de_DE -f ISO-8859-1 "$work/locales/de_DE.ISO-8859-1"
    LOCPATH=$work/locales "$top/build/release/stress/stress_manners" >"$work/rows"
    keep manners "$top/stress/manners.jq" <"$work/rows"
}

try_long() {
    build stress_long
    "$top/build/release/stress/stress_long" $long_seconds "$signatures" "$loads" >"$work/samples"
    keep long "$top/stress/long.jq" <"$work/samples"
}

try_long_windows() {
    # shellcheck disable=SC2086
    "$top/tools/packages.sh" $windows_packages $runtime_packages
    build vaultsim
    build_variant win64 kelvaro >&2
    cmake -DKELVARO_STRESS=ON "$top/build/win64" >/dev/null
    build_variant win64 stress_long >&2
    "$top/tools/windows-runtime.sh" "$top/build/windows-runtime"
    "$top/tools/windows-namespace.sh" "$top/build/windows-runtime" "$work" "$top/stress/long_windows_run.sh" "$top/build/win64" \
        "$top/build/windows-runtime/prefix" "$top/build/release/vaultsim/vaultsim" $long_seconds "$signatures" "$loads"
    keep long-windows "$top/stress/long.jq" <"$work/long.json"
}

# Every target for its share of the minutes, as many at a time as there are processors. Executions and processor time are added to
# those in stress/results.json. Inputs that reach something new stay in build/fuzz/found and count for the coverage.
try_fuzz() {
    "$top/tools/packages.sh" clang llvm libclang-rt-dev
    for build in "fuzz -DKELVARO_FUZZ=ON" "fuzz-coverage -DCMAKE_CXX_FLAGS=-fprofile-instr-generate\ -fcoverage-mapping"; do
        # shellcheck disable=SC2086
        eval "CC=clang CXX=clang++ configure $build -DKELVARO_TESTS=OFF"
        build_quietly "${build%% *}" kelvaro_fuzz
    done
    rm -f "$top/build/fuzz/tally"
    targets=$(ls "$top/fuzz/corpus")
    seconds=$((minutes * 60 * $(nproc) / $(echo "$targets" | wc -l)))
    echo "$targets" | xargs -P "$(nproc)" -n 1 "$top/stress/fuzz_target.sh" "$top" $((seconds > 1 ? seconds : 1))
    [ ! -f "$results" ] || jq -r '.fuzz.targets[]? | "\(.name) \(.executions) \(.seconds)"' "$results" >>"$top/build/fuzz/tally"
    found=$top/build/fuzz/found
    for target in $targets; do
        echo "$target $(find "$top/build/fuzz/findings" -name "$target-*" | wc -l)"
    done >"$work/findings"
    program=$top/build/fuzz-coverage/fuzz/kelvaro_fuzz
    for corpus in "$top/fuzz/corpus" "$found"; do
        LLVM_PROFILE_FILE=$work/%p.profraw "$program" "$corpus" >/dev/null
    done
    llvm-profdata merge -o "$work/profile" "$work"/*.profraw
    llvm-cov export -summary-only -instr-profile "$work/profile" "$program" >"$work/coverage"
    jq -n --rawfile tally "$top/build/fuzz/tally" --rawfile findings "$work/findings" --slurpfile coverage "$work/coverage" \
        '{tally: $tally, findings: $findings, coverage: $coverage[0]}' >"$work/fuzz"
    keep fuzz "$top/stress/fuzz.jq" <"$work/fuzz"
}

for part in ${chosen:-faults fuzz many kill calls manners long}; do
    echo "== $part" >&2
    "try_$(echo "$part" | tr - _)"
done
[ -z "$failed" ] || { echo "not as expected:$failed" >&2 && exit 1; }
