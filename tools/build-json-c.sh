#!/bin/sh
# Cross-builds json-c, static, from Debian's source package.
# Usage: tools/build-json-c.sh x86_64|i686 BUILD_DIR   Leaves BUILD_DIR/jsonc/{include,lib}. Quick when it is there.
set -eu
arch=$1
build=$(mkdir -p "$2" && cd "$2" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
[ -f "$build/jsonc/lib/libjson-c.a" ] && exit 0

sources=$(dirname "$build")/json-c-source
if [ ! -d "$sources/tree" ]; then
    rm -rf "$sources"
    mkdir -p "$sources/lists/partial" "$sources/cache/archives/partial"
    # A source entry of our own beside the machine's own configuration, which stays as it is: Debian's entries alone.
    codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
    sed -n "s/^deb \\(\\[[^]]*\\] \\)\\{0,1\\}\\([^ ]*\\) \\($codename[^ ]*\\) \\(.*\\)\$/deb-src \\1\\2 \\3 \\4/p" \
        /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null >"$sources/sources.list" || true
    for list in /etc/apt/sources.list.d/*.sources; do
        [ -f "$list" ] || continue
        awk -v RS= -v ORS='\n\n' -v wanted="Suites: $codename" 'index($0, wanted)' "$list"
    done | sed 's/^Types:.*/Types: deb-src/' >"$sources/parts.sources"
    parts=/dev/null
    if [ -s "$sources/parts.sources" ]; then
        mkdir "$sources/parts"
        mv "$sources/parts.sources" "$sources/parts/debian.sources"
        parts="$sources/parts"
    fi
    apt="apt-get -qq -o Dir::Etc::sourcelist=$sources/sources.list -o Dir::Etc::sourceparts=$parts
         -o Dir::State::lists=$sources/lists -o Dir::Cache=$sources/cache -o APT::Sandbox::User=root"
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
