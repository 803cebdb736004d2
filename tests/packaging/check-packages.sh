#!/bin/sh
# What ./package.sh has built: the same bytes a second time, and each package in itself.
# Usage: tests/packaging/check-packages.sh
set -eu
top=$(cd "$(dirname "$0")/../.." && pwd)
here=$top/tests/packaging
. "$top/tools/variants.sh"
# shellcheck disable=SC2154,SC2086
"$top/tools/packages.sh" $package_packages $windows_packages $runtime_packages $package_check_packages
packages=$top/build/packages
version=$(cat "$top/VERSION")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mkdir "$work/first"
cp "$packages"/*.deb "$packages"/*.msi "$work/first"
"$top/package.sh" >/dev/null
for package in "$work"/first/*; do
    cmp "$package" "$packages/${package##*/}"
done
echo "packages: two builds give the same bytes"

"$here/check-policy.sh"
"$here/check-msi.sh" "$packages/kelvaro-$version-x64.msi" "$packages/payload" "$version"
"$here/check-deb.sh" "$packages" "$top/build/release" "$version"

# The same payload under a later version, to upgrade to.
later=99.0.0
SOURCE_DATE_EPOCH=1000000000 "$top/packaging/windows/build-msi.sh" $later "$packages/payload" "$work/later.msi"
"$top/tools/windows-runtime.sh" "$top/build/windows-runtime"
x86_64-w64-mingw32-g++-posix -std=c++17 -O1 -shared -static -DUNICODE -D_UNICODE -D_WIN32_WINNT=0x0A00 -I"$top" \
    "$here/router_windows.cpp" -o "$work/router.dll"
x86_64-w64-mingw32-gcc-posix -shared "$here/hostile_windows.c" -o "$work/hostile.dll"
mkdir "$work/run"
"$top/tools/windows-namespace.sh" "$top/build/windows-runtime" "$work/run" "$here/installer_run.sh" \
    "$top/build/windows-runtime/prefix" "$packages/payload" "$top/build/release/vaultsim/vaultsim" "$work/router.dll" \
    "$work/hostile.dll" "$packages/kelvaro-$version-x64.msi" "$version" "$work/later.msi" $later
