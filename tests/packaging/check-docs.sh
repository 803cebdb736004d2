#!/bin/sh
# The documents describe every setting and every property of the installer, and their links have targets.
# Usage: tests/packaging/check-docs.sh
set -eu
top=$(cd "$(dirname "$0")/../.." && pwd)
failed=0
fail() {
    echo "documents: $*" >&2
    failed=1
}
# The headings of a page as links name them.
anchors() {
    sed -n 's/^##* //p' "$1" | tr 'A-Z ' 'a-z-' | tr -cd 'a-z0-9\n-'
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
    # Guides say what has been tried; these two aren't guides.
    case $name in
    index.md | architecture.md) ;;
    *) grep -q "^## What \(has been\|wasn't\) tried" "$file" || fail "$name does not say what has been tried" ;;
    esac
    [ "$name" = index.md ] || grep -q "($name)" "$top/docs/index.md" || fail "index.md lacks $name"
    for link in $(grep -o '](\([a-z-]*\.md\)\?\(#[a-z0-9-]*\)\?)' "$file" | tr -d '()]'); do
        target=${link%%#*}
        target=$top/docs/${target:-$name}
        if [ ! -f "$target" ]; then
            fail "$name leads to $link, which is not there"
        elif [ "$link" != "${link#*#}" ]; then
            anchors "$target" | grep -qx -- "${link#*#}" || fail "$name leads to $link, which has no such heading"
        fi
    done
done
[ "$failed" = 0 ] && echo "documents: every setting and property is documented"
exit "$failed"
