#!/bin/sh
# Installs what is missing, builds every variant and passes the tests.
# Usage: ./test.sh [lint|release|asan|tsan|windows|win64|win32|debug|packages]...   All of them without an argument.
set -eu
top=$(cd "$(dirname "$0")" && pwd)
. "$top/tools/variants.sh"

[ $# -gt 0 ] || set -- lint release asan tsan windows packages

# shellcheck disable=SC2086
"$top/tools/packages.sh" $linux_packages $windows_packages $check_packages $package_packages

export ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:allocator_may_return_null=1
export UBSAN_OPTIONS=print_stacktrace=1
export TSAN_OPTIONS="halt_on_error=0:second_deadlock_stack=1:allocator_may_return_null=1:suppressions=$top/tests/tsan_suppressions.txt"

for variant in "$@"; do
    echo "== $variant"
    case $variant in
    lint | format)
        "$top/tools/check-format.sh"
        "$top/tools/check-tidy.sh"
        ;;
    windows)
        "$top/test-windows.sh"
        ;;
    win64 | win32)
        "$top/test-windows.sh" "$variant"
        ;;
    packages)
        "$top/package.sh"
        "$top/tests/packaging/check-packages.sh"
        ;;
    *)
        build_variant "$variant"
        ctest --test-dir "$top/build/$variant" --output-on-failure --no-tests=error -j "$(($(nproc) * 2))"
        ;;
    esac
done
echo "== all done: $*"
