#!/bin/sh
# Cross-builds json-c, static, from Debian's source package.
# Usage: tools/build-json-c.sh x86_64|i686 BUILD_DIR   Leaves BUILD_DIR/jsonc/{include,lib}. Quick when it is there.
set -eu
arch=$1
build=$(mkdir -p "$2" && cd "$2" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
[ -f "$build/jsonc/lib/libjson-c.a" ] && exit 0
. "$here/debian-archive.sh"

sources=$(dirname "$build")/json-c-source
if [ ! -d "$sources/tree" ]; then
    debian_archive "$sources" deb-src
    (
        cd "$sources"
        $apt update
        $apt source --download-only json-c
        mkdir tree
        tar -xf json-c_*.orig.tar.* -C tree --strip-components=1
    )
fi

cmake -S "$sources/tree" -B "$build/jsonc-build" -G Ninja -Wno-dev -Wno-deprecated \
    -DCMAKE_TOOLCHAIN_FILE="$here/../cmake/mingw-$arch.cmake" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$build/jsonc" -DCMAKE_INSTALL_LIBDIR=lib \
    -DBUILD_SHARED_LIBS=OFF -DBUILD_STATIC_LIBS=ON -DBUILD_TESTING=OFF \
    -DDISABLE_WERROR=ON -DDISABLE_EXTRA_LIBS=ON >"$build/jsonc.log" 2>&1 || { cat "$build/jsonc.log"; exit 1; }
cmake --build "$build/jsonc-build" >/dev/null
cmake --install "$build/jsonc-build" >/dev/null
