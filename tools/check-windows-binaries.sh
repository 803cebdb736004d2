#!/bin/sh
# Checks that the Windows module exports exactly GetKeyStorageInterface, undecorated; that module and programs need only
# Windows' own DLLs, carry the version of the file VERSION, and enable ASLR and DEP; that the module installs no
# exception handler in its host and never changes its locale; and that each program's manifest states the privileges it
# runs with.
# Usage: tools/check-windows-binaries.sh BUILD_DIR
set -eu
build=$1
windows_dlls='^(kernel32|advapi32|crypt32|ncrypt|bcrypt|winhttp|rpcrt4|msvcrt|user32|ws2_32|shell32|ole32|psapi|ktmw32|api-ms-win-[a-z0-9-]+)\.dll$'
version=$(head -n 1 "$(dirname "$0")/../VERSION")
failed=0
wrong() {
    echo "$*" >&2
    failed=1
}

foreign() {
    objdump -p "$1" | sed -n 's/^[[:space:]]*DLL Name: //p' | tr 'A-Z' 'a-z' | grep -Ev "$windows_dlls" || true
}

# The version resource: its fixed part has the number as 16-bit words, minor before major and a zero before the patch number.
unversioned() {
    # shellcheck disable=SC2046
    words=$(printf '\\x%02x\\x00' $(echo "$version" | awk -F. '{print $2, $1, 0, $3}'))
    LC_ALL=C grep -qaP "\\xbd\\x04\\xef\\xfe\\x00\\x00\\x01\\x00$words" "$1" || return 0
    strings -el "$1" | grep -qx "$version.0" || return 0
    return 1
}

# Prints the header flags that ASLR and DEP need and that are missing.
unguarded() {
    objdump -p "$1" >"$header"
    flags='DYNAMIC_BASE NX_COMPAT'
    ! grep -q '^Magic.*020b' "$header" || flags="$flags HIGH_ENTROPY_VA"
    for flag in $flags; do
        grep -qw "$flag" "$header" || echo "$flag"
    done
    # Without relocations there is no ASLR, whatever the flags say.
    ! grep -q 'relocations stripped' "$header" && objdump -h "$1" | grep -qw '\.reloc' || echo relocations
}

# The compiler's thread library installs such a handler. It is linked in by thread-local variables, static variables
# initialized at first use, and everything that may throw, such as a string view's substr().
hooks() {
    LC_ALL=C grep -aoE 'AddVectored[A-Za-z]*|SetUnhandledExceptionFilter|libwinpthread' "$1" | sort -u
}

header=$(mktemp)
trap 'rm -f "$header"' EXIT
module=$build/provider/kelvaro.dll
exports=$(objdump -p "$module" | awk '/\[Ordinal\/Name Pointer\] Table/ {on = 1; next} on && /^[[:space:]]*\[/ {print $NF} on && NF == 0 {on = 0}')
[ "$exports" = GetKeyStorageInterface ] || wrong "$module exports: $exports"
hooked=$(hooks "$module")
[ -z "$hooked" ] || wrong "$module hooks into its host's exceptions:" $hooked
# Checks the libraries, not the module's imports: mingw's 32-bit C runtime calls setlocale() itself, but only to ask for the code page.
for library in provider/libkelvaro_provider certsync/libkelvaro_certsync keyvault/libkelvaro_keyvault support/libkelvaro_support jsonc/lib/libjson-c; do
    nm "$build/$library.a" >"$header" 2>/dev/null || wrong "$build/$library.a can't be read"
    ! grep -qE ' U _*(imp_+)?w?setlocale$' "$header" || wrong "$build/$library.a can change the host's locale"
done

for file in "$module" "$build"/kelvaroctl/*.exe "$build"/register/*.exe; do
    [ -f "$file" ] || continue
    needed=$(foreign "$file")
    [ -z "$needed" ] || wrong "$file needs:" $needed
    ! unversioned "$file" || wrong "$file has no version resource with $version"
    lacking=$(unguarded "$file")
    [ -z "$lacking" ] || wrong "$file lacks:" $lacking
    case $file in
    */kelvaro-register.exe) level=requireAdministrator ;;
    *.exe) level=asInvoker ;;
    *) continue ;;
    esac
    LC_ALL=C grep -qa "<requestedExecutionLevel level=\"$level\"" "$file" || wrong "$file has no manifest with $level"
done
for file in "$module" "$build/kelvaroctl/kelvaroctl.exe"; do
    [ -f "$file" ] || wrong "$file is missing"
done
[ "$failed" = 0 ] && echo "exports, imports, versions, manifests and guards of $build are as expected"
exit "$failed"
