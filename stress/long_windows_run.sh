#!/bin/sh
# The long run of a Windows build; started by stress.sh in namespaces. Leaves its JSON in $work/long.json.
# Usage: stress/long_windows_run.sh BUILD_DIR PREFIX VAULTSIM SECONDS SIGNATURES LOADS
set -eu
build=$1
prefix=$2
vaultsim=$3
here=$(cd "$(dirname "$0")/../tests" && pwd)
longest_run=100000
. "$here/windows_vault.sh"
run "$build/stress/stress_long.exe" "$4" "$5" "$6" >"$work/long.json"
