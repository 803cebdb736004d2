#!/bin/sh
# Builds the Windows test programs and runs them on wine, against a local simulator.
# Usage: ./test-windows.sh [win64|win32]... [PROGRAM [TESTS]]   Default: both variants, in parallel.
# With a program, such as provider_tests, only that is built and run, with all of its output. TESTS: a filter, as in 'Signing*'.
# Installs what is missing. Everything else it creates is in build/ and in a folder under /tmp, which is removed; host names,
# ports and trusted roots exist only in private namespaces.
set -eu
top=$(cd "$(dirname "$0")" && pwd)
. "$top/tools/variants.sh"

variants=
while [ "${1:-}" = win64 ] || [ "${1:-}" = win32 ]; do
    variants="$variants $1"
    shift
done
program=${1:-}
tests=${2:-*}
# shellcheck disable=SC2086
set -- ${variants:-win64 win32}
# shellcheck disable=SC2086
"$top/tools/packages.sh" $linux_packages $windows_packages $runtime_packages

# Copies of this script build one after the other, then run in parallel.
mkdir -p "$top/build"
exec 8>"$top/build/windows.lock"
flock 8
for variant in "$@"; do
    if [ -n "$program" ]; then
        build_variant "$variant" kelvaro "$program"
    else
        build_variant "$variant"
        "$top/tools/check-windows-binaries.sh" "$top/build/$variant"
    fi
done
build_variant release vaultsim
"$top/tools/windows-runtime.sh" "$top/build/windows-runtime"

work=$(mktemp -d "${TMPDIR:-/tmp}/kelvaro-windows-XXXXXX")
pids=
trap 'for pid in $pids; do kill $pid 2>/dev/null || true; done; wait; rm -rf "$work"' EXIT
trap 'exit 130' INT TERM
for variant in "$@"; do
    # Copied, so that another copy's build doesn't replace what this one runs.
    mkdir -p "$work/$variant/built"
    (cd "$top/build/$variant" && find . -name '*.exe' -o -name '*.dll' -o -name tests.txt) |
        tar -C "$top/build/$variant" -cf - -T - | tar -C "$work/$variant/built" -xf -
done
exec 8>&-
runs=
for variant in "$@"; do
    "$top/tools/windows-namespace.sh" "$top/build/windows-runtime" "$work/$variant" "$top/tests/windows_run.sh" \
        "$top/build/$variant" "$top/build/windows-runtime/prefix" "$top/build/release/vaultsim/vaultsim" "$program" "$tests" \
        >"$work/$variant.log" 2>&1 &
    pids="$pids $!"
    runs="$runs $variant:$!"
done
failed=0
for run in $runs; do
    code=0
    wait "${run#*:}" || code=$?
    echo "== tests of ${run%%:*}"
    cat "$work/${run%%:*}.log"
    [ $code = 0 ] || failed=1
done
pids=
[ $failed = 0 ] && echo "== the Windows tests pass: $*"
exit $failed
