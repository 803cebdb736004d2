#!/bin/sh
# Cross-builds json-c, static, from Debian's source package with Debian's patches.
# Usage: tools/build-json-c.sh x86_64|i686 BUILD_DIR   Makes BUILD_DIR/jsonc/{include,lib,copyright,version}, if not there already.
set -eu
# The version goes into the notices that the packages carry.
version=0.16-2
arch=$1
build=$(mkdir -p "$2" && cd "$2" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
# Rebuilds a library that was built from another version or with other steps.
recipe=$(sha256sum <"$0")
[ "$(cat "$build/jsonc/recipe" 2>/dev/null)" != "$recipe" ] || exit 0
. "$here/debian-archive.sh"

sources=$(dirname "$build")/json-c-source
if [ ! -d "$sources/$version" ]; then
    debian_archive "$sources" deb-src
    (
        cd "$sources"
        $apt update
        $apt source --download-only "json-c=$version" || {
            echo "Debian's archive no longer has json-c $version: set the version that it has in tools/build-json-c.sh" >&2
            exit 1
        }
        dpkg-source -q --no-check -x "json-c_$version.dsc" unpacked
        mv unpacked "$version"
    )
fi

rm -rf "$build/jsonc-build" "$build/jsonc"
# The library runs inside hosts. A thread-local variable would link in the compiler's thread library, which adds an
# exception handler to the whole process. And setlocale() changes the locale of all threads: two that parse at once could
# leave the host's numbers in the C locale. Without it the host's decimal separator applies to fractions, which no answer
# has.
cmake -S "$sources/$version" -B "$build/jsonc-build" -G Ninja -Wno-dev -Wno-deprecated \
    -DCMAKE_TOOLCHAIN_FILE="$here/../cmake/mingw-$arch.cmake" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$build/jsonc" -DCMAKE_INSTALL_LIBDIR=lib \
    -DBUILD_SHARED_LIBS=OFF -DBUILD_STATIC_LIBS=ON -DBUILD_TESTING=OFF -DDISABLE_THREAD_LOCAL_STORAGE=ON \
    -DHAVE_SETLOCALE=OFF -DDISABLE_WERROR=ON -DDISABLE_EXTRA_LIBS=ON >"$build/jsonc.log" 2>&1 || { cat "$build/jsonc.log"; exit 1; }
cmake --build "$build/jsonc-build" >/dev/null
cmake --install "$build/jsonc-build" >/dev/null
cp "$sources/$version/debian/copyright" "$build/jsonc/copyright"
echo "$version" >"$build/jsonc/version"
echo "$recipe" >"$build/jsonc/recipe"
