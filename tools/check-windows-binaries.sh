#!/bin/sh
# The Windows module exports exactly GetKeyStorageInterface, undecorated, and needs nothing but Windows' own DLLs; the programs
# beside it need nothing else either. Each says the version of the file VERSION.
# Usage: tools/check-windows-binaries.sh BUILD_DIR
set -eu
build=$1
windows_dlls='^(kernel32|advapi32|crypt32|ncrypt|bcrypt|winhttp|rpcrt4|msvcrt|user32|ws2_32|shell32|ole32|psapi|ktmw32|api-ms-win-[a-z0-9-]+)\.dll$'
version=$(head -n 1 "$(dirname "$0")/../VERSION")
failed=0

foreign() {
    objdump -p "$1" | sed -n 's/^[[:space:]]*DLL Name: //p' | tr 'A-Z' 'a-z' | grep -Ev "$windows_dlls" || true
}

module=$build/provider/kelvaro.dll
exports=$(objdump -p "$module" | awk '/\[Ordinal\/Name Pointer\] Table/ {on = 1; next} on && /^[[:space:]]*\[/ {print $NF} on && NF == 0 {on = 0}')
if [ "$exports" != GetKeyStorageInterface ]; then
    echo "$module exports: $exports" >&2
    failed=1
fi
# The version resource: its fixed part has the number as 16-bit words, minor before major and a zero before the patch number.
unversioned() {
    # shellcheck disable=SC2046
    words=$(printf '\\x%02x\\x00' $(echo "$version" | awk -F. '{print $2, $1, 0, $3}'))
    LC_ALL=C grep -qaP "\\xbd\\x04\\xef\\xfe\\x00\\x00\\x01\\x00$words" "$1" || return 0
    strings -el "$1" | grep -qx "$version.0" || return 0
    return 1
}

for file in "$module" "$build"/kelvaroctl/*.exe "$build"/register/*.exe; do
    [ -f "$file" ] || continue
    wrong=$(foreign "$file")
    if [ -n "$wrong" ]; then
        echo "$file needs: $wrong" >&2
        failed=1
    fi
    if unversioned "$file"; then
        echo "$file has no version resource with $version" >&2
        failed=1
    fi
done
for file in "$module" "$build/kelvaroctl/kelvaroctl.exe"; do
    [ -f "$file" ] || { echo "$file is missing" >&2 && failed=1; }
done
[ "$failed" = 0 ] && echo "exports, imports and versions of $build are as they must be"
exit "$failed"
