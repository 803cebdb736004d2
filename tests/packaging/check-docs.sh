#!/bin/sh
# The documents tell of every setting and of every property of the installer, and their links lead somewhere.
# Usage: tests/packaging/check-docs.sh
set -eu
top=$(cd "$(dirname "$0")/../.." && pwd)
failed=0
fail() {
    echo "documents: $*" >&2
    failed=1
}
settings=$(sed -n 's/^ *{"\([A-Za-z]*\)", SettingKind::.*/\1/p' "$top/kelvaroctl/setting_table.cpp")
[ -n "$settings" ] || fail "the tool's settings were not found"
for setting in $settings; do
    grep -q "\`$setting\`" "$top/docs/settings.md" || fail "settings.md lacks $setting"
done
for property in $(grep -v '^#' "$top/packaging/windows/settings.table" | awk '{print $3}') SETTINGSFILE NOREGISTER; do
    grep -q "\`${property}[\`=]" "$top/docs/installing.md" || fail "installing.md lacks $property"
done
for file in "$top"/docs/*.md; do
    name=${file##*/}
    [ "$name" = index.md ] || grep -q '^## What has been tried' "$file" || fail "$name does not say what has been tried"
    [ "$name" = index.md ] || grep -q "($name)" "$top/docs/index.md" || fail "index.md lacks $name"
    for link in $(grep -o '](\([a-z-]*\.md\))' "$file" | tr -d '()]'); do
        [ -f "$top/docs/$link" ] || fail "$name leads to $link, which is not there"
    done
done
[ "$failed" = 0 ] && echo "documents: every setting and property is told of"
exit "$failed"
