#!/bin/sh
# Builds a test program with full symbols and no optimisation, and starts it in gdb.
# Usage: tools/debug.sh PROGRAM [ARGUMENT...]   e.g. tools/debug.sh provider_tests --gtest_filter='Signing*'
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
. "$top/tools/variants.sh"
# shellcheck disable=SC2086
"$top/tools/packages.sh" $linux_packages $debug_packages
program=$1
shift
build_variant debug "$program"
exec gdb -q --args "$(find "$top/build/debug" -type f -name "$program")" "$@"
