#!/bin/sh
# Installs what is missing, builds, and tries what the module survives, against a local simulator. Prints a table, and keeps
# the figures in stress/results.json; docs/reliability.md explains them.
# Usage: ./stress.sh [faults]... [--minutes N]   All of them without a name. --minutes: for each that runs by the clock.
set -eu
top=$(cd "$(dirname "$0")" && pwd)
. "$top/tools/variants.sh"

minutes=1
chosen=
while [ $# -gt 0 ]; do
    case $1 in
    faults) chosen="$chosen $1" ;;
    --minutes)
        minutes=${2:?"--minutes needs a number"}
        shift
        ;;
    *)
        sed -n 's/^# Usage: //p' "$0" >&2
        exit 2
        ;;
    esac
    shift
done

# shellcheck disable=SC2086
"$top/tools/packages.sh" $linux_packages jq
results=$top/stress/results.json
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=

build() { # build PROGRAM...: of the release build
    configure release -DCMAKE_BUILD_TYPE=Release
    cmake -DKELVARO_STRESS=ON "$top/build/release" >/dev/null
    build_variant release "$@" | tail -n 1
}

# Keeps the object that a filter makes of the input, and prints its table. A part says with "ok" whether all held.
keep() { # keep NAME FILTER-FILE <INPUT
    jq -f "$2" >"$work/$1.json"
    [ -f "$results" ] || echo '{}' >"$results"
    jq -S --indent 1 --arg name "$1" --slurpfile part "$work/$1.json" \
        --arg machine "$(nproc) cores, Linux $(uname -r)" '.[$name] = $part[0] + {machine: $machine}' \
        "$results" >"$work/results.json"
    cp "$work/results.json" "$results"
    jq --arg name "$1" '{($name): .[$name]}' "$results" | jq -r -f "$top/stress/table.jq"
    jq -e .ok "$work/$1.json" >/dev/null || failed="$failed $1"
}

try_faults() {
    build stress_faults
    "$top/build/release/stress/stress_faults" $((2 * $(nproc))) >"$work/cells"
    keep faults "$top/stress/faults.jq" <"$work/cells"
}

for part in ${chosen:-faults}; do
    echo "== $part" >&2
    "try_$part"
done
[ -z "$failed" ] || { echo "not as expected:$failed" >&2 && exit 1; }
