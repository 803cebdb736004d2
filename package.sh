#!/bin/sh
# Builds the packages into build/packages: the Windows installer and the Debian packages.
# Usage: ./package.sh [msi|deb]...   Default: both. SOURCE_DATE_EPOCH: the time stamped into them; default: the last commit's.
set -eu
top=$(cd "$(dirname "$0")" && pwd)
. "$top/tools/variants.sh"

[ $# -gt 0 ] || set -- deb msi
# shellcheck disable=SC2086
"$top/tools/packages.sh" $linux_packages $windows_packages $package_packages

version=$(cat "$top/VERSION")
# Without a git history, the time of the file VERSION.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git -C "$top" log -1 --format=%ct 2>/dev/null || stat -c %Y "$top/VERSION")}
export SOURCE_DATE_EPOCH
output=$top/build/packages
mkdir -p "$output"

lay_out_payload() { # lay_out_payload FOLDER: what the Windows installer carries
    rm -rf "$1"
    mkdir -p "$1/x64" "$1/x86" "$1/docs"
    cp "$top/build/win64/provider/kelvaro.dll" "$top/build/win64/kelvaroctl/kelvaroctl.exe" \
        "$top/build/win64/register/kelvaro-register.exe" "$1/x64"
    cp "$top/build/win32/provider/kelvaro.dll" "$top/build/win32/kelvaroctl/kelvaroctl.exe" "$1/x86"
    cp -R "$top/packaging/windows/policy" "$1/policy"
    cp "$top"/docs/*.md "$1/docs"
    cp "$top/packaging/windows/prove.ps1" "$1"
    "$top/packaging/notices.sh" --json-c "$top/build/win64/jsonc" libcli11-dev nlohmann-json3-dev mingw-w64-common >"$1/NOTICES.txt"
}

for kind in "$@"; do
    case $kind in
    deb)
        build_variant release kelvaro kelvaroctl vaultsim
        "$top/packaging/debian/build-deb.sh" "$version" "$top/build/release" "$top/docs" "$output"
        ;;
    msi)
        build_variant win64 kelvaro kelvaroctl kelvaro-register
        build_variant win32 kelvaro kelvaroctl
        lay_out_payload "$output/payload"
        "$top/packaging/windows/build-msi.sh" "$version" "$output/payload" "$output/kelvaro-$version-x64.msi"
        ;;
    *)
        echo "unknown package: $kind" >&2
        exit 2
        ;;
    esac
done
(cd "$output" && ls -l -- *.deb *.msi 2>/dev/null)
