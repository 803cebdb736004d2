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
# Wine keeps the handles of its TLS connections in a table without a lock. Each race damages it for good: after minutes of
# eight threads on two processors no handshake succeeds. On one processor, and as batch jobs, threads seldom interrupt others.
taskset -pc 0 $$ >/dev/null
chrt --batch -p 0 $$
run "$build/stress/stress_long.exe" "$4" "$5" "$6" >"$work/long.json"
