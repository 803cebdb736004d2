#!/bin/sh
# Runs one Windows build's test programs beside a simulator; started by test-windows.sh in private namespaces.
# Usage: tests/windows_run.sh BUILD_DIR PREFIX VAULTSIM [PROGRAM TESTS]   In the environment: see tools/windows-namespace.sh.
# The programs are in $work/built. With a PROGRAM that isn't empty, only its TESTS are run, also those that the runtime can't do.
set -eu
build=$1
prefix=$2
vaultsim=$3
here=$(cd "$(dirname "$0")" && pwd)
cannot=$here/windows_cannot.txt
bits=$(basename "$build" | tr -dc 0-9)
. "$here/windows_vault.sh"

if [ -n "${4:-}" ]; then
    program=$(grep "/$4.exe\$" "$runtime_root$build/tests.txt") || { echo "no test program is called $4" >&2 && exit 2; }
    run "$program" --gtest_filter="$5" 2>&1 </dev/null
    exit
fi

failed=0
wrong() {
    echo "windows $bits: $1" >&2
    failed=1
}

# The list's form is described at its top.
listed=$(awk -v bits="$bits" '!/^#/ && NF && ($2 == bits || $2 == "any") {print $1}' "$cannot")
repeats() { # repeats TEST
    awk -v test="$1" '$1 == test {print $3 ? $3 : 1}' "$cannot"
}
met=$work/met
: >"$met"
run "$build/tests/windows_host.exe" "Z:$build/provider/kelvaro.dll" 2>&1 || wrong "the module misbehaves in its host"
[ -s "$runtime_root$build/tests.txt" ] || wrong "no test programs"
ended() { # ended LOG: whether the program reached its last line
    grep -q '^\[==========\].* ran' "$1"
}
# Runs what is listed: each must fail. One that ends the program hides those after it, which are then run again.
run_listed() { # run_listed PROGRAM
    left=$listed
    while [ -n "$left" ]; do
        run "$1" --gtest_filter="$(echo "$left" | paste -s -d :)" 2>&1 </dev/null | tr -d '\r' >"$work/alone" || true
        sed -n 's/^\[ RUN      \] //p' "$work/alone" >"$work/begun"
        cat "$work/begun" >>"$met"
        sed -n 's/^\[       OK \] \([^ ]*\).*/\1/p' "$work/alone" >"$work/passed"
        while read -r test; do
            if run "$1" --gtest_filter="$test" --gtest_repeat="$(repeats "$test")" >"$work/again" 2>&1; then
                wrong "$test passes: remove it from the list of what the runtime can't do"
            fi
        done <"$work/passed"
        if ended "$work/alone"; then
            return
        elif [ ! -s "$work/begun" ]; then
            wrong "$(basename "$1" .exe) does not start"
            cat "$work/alone" >&2
            return
        fi
        left=$(echo "$left" | grep -vxF -f "$work/begun" || true)
    done
}
while read -r program; do
    name=$(basename "$program" .exe)
    run_listed "$program"
    echo "-- $name"
    if ! run "$program" --gtest_filter="-$(echo "$listed" | paste -s -d :)" >"$work/log" 2>&1; then
        wrong "$name failed"
    fi
    # What passed is only counted.
    tr -d '\r' <"$work/log" | grep -Ev '^$|^Note: |^Running main|^\[( RUN  |  *OK |---|===)' || true
    ended "$work/log" || wrong "$name ended inside: $(grep '^\[ RUN' "$work/log" | tail -n 1)"
done <"$runtime_root$build/tests.txt"
for test in $listed; do
    grep -qxF "$test" "$met" || wrong "$test is on the list of what the runtime can't do, and no test has that name"
done
exit $failed
