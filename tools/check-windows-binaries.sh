#!/bin/sh
# The Windows module exports exactly GetKeyStorageInterface, undecorated, and needs nothing but Windows' own DLLs; the programs
# beside it need nothing else either.
# Usage: tools/check-windows-binaries.sh BUILD_DIR
set -eu
build=$1
windows_dlls='^(kernel32|advapi32|crypt32|ncrypt|bcrypt|winhttp|rpcrt4|msvcrt|user32|ws2_32|shell32|ole32|psapi|api-ms-win-[a-z0-9-]+)\.dll$'
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
if ! objdump -h "$module" | grep -q '\.rsrc'; then
    echo "$module has no version resource" >&2
    failed=1
fi
for file in "$module" "$build"/kelvaroctl/*.exe "$build"/register/*.exe; do
    [ -f "$file" ] || continue
    wrong=$(foreign "$file")
    if [ -n "$wrong" ]; then
        echo "$file needs: $wrong" >&2
        failed=1
    fi
done
[ "$failed" = 0 ] && echo "exports and imports of $module are as they must be"
exit "$failed"
