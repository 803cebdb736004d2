#!/bin/sh
# The policies name the provider's settings, with values of the right type, and every text that they use is there.
# Usage: tests/packaging/check-policy.sh
set -eu
top=$(cd "$(dirname "$0")/../.." && pwd)
admx=$top/packaging/windows/policy/Kelvaro.admx
adml=$top/packaging/windows/policy/en-US/Kelvaro.adml
failed=0
fail() {
    echo "policies: $*" >&2
    failed=1
}
xmllint --noout "$admx" "$adml"
names() { grep -o "$1" "$2" | sed 's/.*[.="]\([A-Za-z0-9_]\{1,\}\)[")]*$/\1/' | sort -u; }

for kind in string presentation; do
    used=$(names "\$($kind\.[A-Za-z0-9_]*)" "$admx")
    given=$(names "<$kind id=\"[A-Za-z0-9_]*\"" "$adml")
    [ -n "$used" ] && [ "$used" = "$given" ] || fail "the ${kind}s that are used and given differ"
done
doubled=$(grep -o '<policy name="[^"]*"' "$admx" | sort | uniq -d)
[ -z "$doubled" ] || fail "twice: $doubled"

query() { xmllint --xpath "$1" "$admx" 2>/dev/null || true; }
policy='//*[local-name()="policy"]'
# Every setting that is no secret, for the machine in both registry views, and for the user where the user's is read.
sed -n 's/^ *{"\([A-Za-z]*\)", SettingKind::\(Text\|Number\), *[0-9]*, *[0-9]*, \(true\|false\),.*/\1 \2 \3/p' \
    "$top/kelvaroctl/setting_table.cpp" | grep -v '^ClientCertID ' >"${TMPDIR:-/tmp}/kelvaro-settings.$$"
trap 'rm -f "${TMPDIR:-/tmp}/kelvaro-settings.$$"' EXIT
count=0
while read -r name type machine_only; do
    element=text
    [ "$type" = Text ] || element=enum
    for view in 'Software\Zandrel\Kelvaro' 'Software\WOW6432Node\Zandrel\Kelvaro'; do
        class=Both
        if [ "$machine_only" = true ] || [ "$view" != 'Software\Zandrel\Kelvaro' ]; then
            class=Machine
        fi
        found=$(query "string(${policy}[@key='$view' and *[local-name()='elements']/*[local-name()='$element' and @valueName='$name']]/@class)")
        [ "$found" = "$class" ] || fail "$name under $view is '$found', not $class"
        count=$((count + 1))
    done
done <"${TMPDIR:-/tmp}/kelvaro-settings.$$"
[ "$count" -gt 0 ] && [ "$count" = "$(query "count($policy)")" ] || fail "$count policies expected, found $(query "count($policy)")"
[ "$(query 'count(//*[@valueName="ClientSecret"])')" = 0 ] || fail "a secret is a policy"

[ "$failed" = 0 ] && echo "policies: $count, each with its setting and its texts"
exit "$failed"
