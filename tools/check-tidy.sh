#!/bin/sh
# Runs clang-tidy with the checks of .clang-tidy on the sources that changed, and on headers through a source that
# includes them.
# Usage: tools/check-tidy.sh [--all | FILE...]
# Default: what differs from the commit KELVARO_LINT_BASE, which defaults to where the branch left origin/main, or on
# main to the previous commit.
# --all takes about 15 minutes on two cores: a source that includes the command line or the JSON library takes 20 s, one
# of the module's 2 s. The tests aren't checked: findings in GoogleTest's macros would drown out the rest.
set -eu
cd "$(dirname "$0")/.."
database=build/lint

# The compile commands: no unity builds or precompiled headers, and without the one option that clang rejects.
cmake -S . -B $database -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKELVARO_TESTS=OFF -DKELVARO_UNITY=OFF \
    -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON >/dev/null
sed -i 's/ -fno-gnu-unique//' $database/compile_commands.json

changed_files() {
    base=${KELVARO_LINT_BASE:-$(git merge-base origin/main HEAD 2>/dev/null || true)}
    if [ -z "$base" ] || [ "$base" = "$(git rev-parse HEAD)" ]; then
        base=$(git rev-parse --verify --quiet HEAD~1 || git hash-object -t tree /dev/null)
    fi
    git diff --name-only --diff-filter=d "$base"
    git ls-files --others --exclude-standard
}

# A header's source of the same name, else the first one that includes it, directly or through another header.
source_of() {
    case $1 in
    '' | *.cpp) echo "$1" ;;
    *.h)
        if [ -f "${1%.h}.cpp" ]; then
            echo "${1%.h}.cpp"
        else
            source_of "$(git grep -l -F "#include \"$1\"" -- '*.cpp' '*.h' ':!tests' | sort -t . -k 2,2 | head -n 1)"
        fi
        ;;
    esac
}

# The sources to read for the files on standard input. Sources of other builds (Windows') aren't in the database.
sources() {
    while read -r file; do
        case $file in
        tests/*) ;;
        *) file=$(source_of "$file") &&
            grep -q -F "\"file\": \"$PWD/$file\"" $database/compile_commands.json && echo "$file" ;;
        esac
    done | sort -u
}

case ${1:-} in
'') list=$(changed_files | sources) ;;
--all) list=$(git ls-files '*.cpp' | sources) ;;
*) list=$(printf '%s\n' "$@" | sources) ;;
esac
[ -n "$list" ] || { echo "clang-tidy: no source to check"; exit 0; }
echo "clang-tidy: $(echo "$list" | wc -l) sources"
# Its standard error counts suppressed warnings and only matters after a failure.
# shellcheck disable=SC2016
echo "$list" | xargs -P "$(nproc)" -n 1 sh -c '
    noise=$(clang-tidy --quiet -p "$0" "$1" 2>&1 >&3) || { printf "%s\n%s\n" "$1" "$noise" >&2; exit 1; }' $database 3>&1
