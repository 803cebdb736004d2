#!/bin/sh
# Installs what is missing, builds every variant and runs the tests.
# Usage: ./test.sh [lint|release|windows|win64|win32|packages|asan|tsan|debug]...   Default: all but debug.
# While one variant's tests run, the next one is built: tests mostly wait, compilers don't.
set -eu
top=$(cd "$(dirname "$0")" && pwd)
. "$top/tools/variants.sh"

[ $# -gt 0 ] || set -- lint release windows packages asan tsan

# shellcheck disable=SC2086
"$top/tools/packages.sh" $linux_packages $windows_packages $runtime_packages $check_packages $package_packages $package_check_packages

export ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:allocator_may_return_null=1
export UBSAN_OPTIONS=print_stacktrace=1
export TSAN_OPTIONS="halt_on_error=0:second_deadlock_stack=1:allocator_may_return_null=1:suppressions=$top/tests/tsan_suppressions.txt"

build() {
    case $1 in
    lint | format) ;;
    windows) build_variant win64 && build_variant win32 ;;
    packages) "$top/package.sh" ;;
    *) build_variant "$1" ;;
    esac
}

run() {
    case $1 in
    lint | format) "$top/tools/check-format.sh" && "$top/tools/check-tidy.sh" ;;
    windows) "$top/test-windows.sh" ;;
    win64 | win32) "$top/test-windows.sh" "$1" ;;
    packages) "$top/tests/packaging/check-packages.sh" ;;
    *) ctest --test-dir "$top/build/$1" --output-on-failure --no-tests=error -j "$(($(nproc) * 2))" ;;
    esac
}

work=$(mktemp -d)
background=
end_tree() { # end_tree PROCESS: with all that it started; the parent first, so that it starts no more
    children=$(for stat in /proc/[0-9]*/stat; do
        ! read -r child name state parent rest 2>/dev/null <"$stat" || [ "$parent" != "$1" ] || echo "$child"
    done)
    kill "$1" 2>/dev/null || true
    for child in $children; do
        end_tree "$child"
    done
}
# shellcheck disable=SC2086
trap 'for process in $background; do end_tree $process; done; wait; rm -rf "$work"' EXIT
trap 'exit 130' INT TERM
case " $* " in
*" win"* | *" packages "*)
    # Mostly a download. What needs the runtime waits for it, and reports if it couldn't be made.
    mkdir -p "$top/build"
    "$top/tools/windows-runtime.sh" "$top/build/windows-runtime" >/dev/null 2>&1 &
    background=$!
    ;;
esac

# Runs each variant's tests in the order of the builds; shows their output when they end.
mkfifo "$work/built"
while read -r variant; do
    started=$(date +%s)
    run "$variant" >"$work/log" 2>&1 </dev/null || echo "$variant" >>"$work/failed"
    echo "== tests of $variant, $(($(date +%s) - started)) s"
    cat "$work/log"
done <"$work/built" &
runner=$!
background="$background $runner"
exec 3>"$work/built"
for variant in "$@"; do
    echo "== $variant"
    started=$(date +%s)
    build "$variant" 3>&- &
    background="$background $!"
    if ! wait $!; then
        echo "$variant, which isn't built" >>"$work/failed"
        break
    fi
    echo "== $variant is built, $(($(date +%s) - started)) s"
    echo "$variant" >&3
done
exec 3>&-
wait "$runner"
if [ -f "$work/failed" ]; then
    echo "== failed: $(paste -s -d , "$work/failed")" >&2
    exit 1
fi
echo "== all done: $*"
