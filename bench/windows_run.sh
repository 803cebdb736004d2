#!/bin/sh
# Runs the measurements of a Windows build; started by bench.sh in namespaces. Leaves NAME.json in $work for each.
# Usage: bench/windows_run.sh BUILD_DIR PREFIX VAULTSIM SIGNATURES
set -eu
build=$1
prefix=$2
vaultsim=$3
here=$(cd "$(dirname "$0")/../tests" && pwd)
longest_run=3600
. "$here/windows_vault.sh"

measure() { # measure NAME ARGUMENT...
    name=$1
    shift
    echo "measuring: $name" >&2
    run "$build/bench/bench_$name.exe" "$@" >"$work/$name.json"
}
measure signature
# A handshake on wine takes several times the processor time.
measure threads 8
measure cold_start
measure handles "$4"
