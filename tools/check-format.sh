#!/bin/sh
# Checks that every C++ file is formatted as .clang-format says. `tools/check-format.sh --fix` rewrites those that don't.
set -eu
cd "$(dirname "$0")/.."
mode="--dry-run -Werror"
[ "${1:-}" != --fix ] || mode=-i
# shellcheck disable=SC2086
git ls-files -z --cached --others --exclude-standard '*.cpp' '*.h' | xargs -0 clang-format $mode
