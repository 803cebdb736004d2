#!/bin/sh
# Runs one Windows build's test programs beside a simulator; started by test-windows.sh in namespaces of its own.
# Usage: tests/windows_run.sh BUILD_DIR PREFIX VAULTSIM   In the environment: see tools/windows-namespace.sh. The programs
# are in $work/built.
set -eu
build=$1
prefix=$2
vaultsim=$3
here=$(cd "$(dirname "$0")" && pwd)
cannot=$here/windows_cannot.txt
bits=$(basename "$build" | tr -dc 0-9)
. "$here/windows_vault.sh"

failed=0
wrong() {
    echo "windows $bits: $1" >&2
    failed=1
}

# The list's form stands at its top. Names that no test has are told at the end.
listed=$(awk -v bits="$bits" '!/^#/ && NF && ($2 == bits || $2 == "any") {print $1}' "$cannot")
repeats() { # repeats TEST
    awk -v test="$1" '$1 == test {print $3 ? $3 : 1}' "$cannot"
}
met=$work/met
: >"$met"
run "$build/tests/windows_host.exe" "Z:$build/provider/kelvaro.dll" 2>&1 || wrong "the module is no good guest"
[ -s "$runtime_root$build/tests.txt" ] || wrong "no test programs"
while read -r program; do
    name=$(basename "$program" .exe)
    if ! run "$program" --gtest_list_tests >"$work/list" 2>&1; then
        wrong "$name does not start"
        cat "$work/list" >&2
        continue
    fi
    tr -d '\r' <"$work/list" | awk '/^[^ ]/ {suite = $1} /^ / {print suite $1}' >"$work/names"
    skip=
    for test in $listed; do
        grep -qxF "$test" "$work/names" || continue
        echo "$test" >>"$met"
        skip=$skip:$test
        # By itself, so that what goes wrong with it harms no other test.
        if run "$program" --gtest_filter="$test" --gtest_repeat="$(repeats "$test")" >"$work/alone" 2>&1; then
            wrong "$test passes: take it from the list of what the runtime can't do"
        fi
    done
    echo "-- $name"
    if ! run "$program" --gtest_filter="*-${skip#:}" >"$work/log" 2>&1; then
        wrong "$name failed"
    fi
    # What passed is only counted.
    tr -d '\r' <"$work/log" | grep -Ev '^$|^\[( RUN  |  *OK |---|===)' || true
    grep -q '^\[==========\].* ran' "$work/log" || wrong "$name ended inside: $(grep '^\[ RUN' "$work/log" | tail -n 1)"
done <"$runtime_root$build/tests.txt"
for test in $listed; do
    grep -qxF "$test" "$met" || wrong "$test is on the list of what the runtime can't do, and no test has that name"
done
exit $failed
