#!/bin/sh
# Runs one Windows build's test programs beside a simulator; started by test-windows.sh in namespaces of its own.
# Usage: tests/windows_run.sh BUILD_DIR PREFIX VAULTSIM   In the environment: see tools/windows-namespace.sh. The programs
# stand in $work/built, and here under the name of BUILD_DIR, which they have in them.
set -eu
build=$1
prefix=$2
vaultsim=$3
here=$(cd "$(dirname "$0")" && pwd)
cannot=$here/windows_cannot.txt
bits=$(basename "$build" | tr -dc 0-9)
wine=$WINE64
[ "$bits" = 64 ] || wine=$WINE32

[ -d "$work/built" ] && mount --bind "$work/built" "$runtime_root$build"
cp -a "$prefix" "$work/tmp/prefix"
"$here/windows_names.pl" &
"$here/windows_relay.pl" 8123 80 &
sim=$work/tmp/sim
mkdir "$sim"
# The simulator tells clients of files in its folder: the path is the same inside the runtime's root.
mkdir -p "$runtime_root$work/tmp"
ln -s /tmp/sim "$runtime_root$sim"
# RSA certificates: wine takes one ECDSA signature in a hundred for false, those with a leading zero in r or s.
"$vaultsim" --dir "$sim" --address 0.0.0.0 --close-tls --rsa --control-port 8000 \
    --listen-tls 443 --http-port 80 --arc-port 40342 --vault contoso-keys:premium --vault fabrikam:standard \
    --tenant 11111111-2222-3333-4444-555555555555 \
    --client-id aaaaaaaa-bbbb-cccc-dddd-eeeeeeeeeeee --client-secret 's3cret~Value.For-Tests' \
    --oid 0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0 --quiet >"$work/ready" &
until grep -q '^ready' "$work/ready"; do
    kill -0 $! || exit 1
    sleep 0.1
done
# Where wine looks for the system's roots.
cp "$sim/ca.pem" "$work/certs/ca-certificates.crt"
export VAULTSIM_CONTROL=8000

run() { # run PROGRAM ARGUMENT...
    program=$1
    shift
    # A program that hangs is a failure of its own, not of the whole run.
    timeout --kill-after=10 600 chroot "$runtime_root" "$wine" "$program" "$@" </dev/null 2>&1
}

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
run "$build/tests/windows_host.exe" "Z:$build/provider/kelvaro.dll" || wrong "the module is no good guest"
[ -s "$runtime_root$build/tests.txt" ] || wrong "no test programs"
while read -r program; do
    name=$(basename "$program" .exe)
    if ! run "$program" --gtest_list_tests >"$work/list"; then
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
        if run "$program" --gtest_filter="$test" --gtest_repeat="$(repeats "$test")" >"$work/alone"; then
            wrong "$test passes: take it from the list of what the runtime can't do"
        fi
    done
    echo "-- $name"
    if ! run "$program" --gtest_filter="*-${skip#:}" >"$work/log"; then
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
