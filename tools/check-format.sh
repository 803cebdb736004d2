#!/bin/sh
# Every C++ file stands as .clang-format has it. `tools/check-format.sh --fix` rewrites those that don't.
set -eu
cd "$(dirname "$0")/.."
mode="--dry-run -Werror"
[ "${1:-}" != --fix ] || mode=-i
# shellcheck disable=SC2086
git ls-files -z --cached --others --exclude-standard '*.cpp' '*.h' | xargs -0 clang-format $mode
