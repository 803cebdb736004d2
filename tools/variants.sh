# The build variants, sourced by the scripts at the top. Each builds under build/NAME.
# Needs: top (the checkout).

linux_packages="g++ cmake ninja-build pkg-config libssl-dev libcurl4-openssl-dev libjson-c-dev libcpp-httplib-dev
    nlohmann-json3-dev libcli11-dev libgtest-dev openssl ca-certificates"
windows_packages="googletest g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix binutils dpkg-dev xz-utils"
# What the Windows tests need in addition to the runtime that tools/windows-runtime.sh unpacks.
runtime_packages="iproute2 perl-base util-linux libc-bin"
debug_packages="gdb"
check_packages="clang-format clang-tidy git perl"
package_packages="wixl msitools gcab dpkg-dev libxml2-utils perl curl git"
package_check_packages="lintian groff zsh"

configure() { # configure NAME CMAKE_OPTION...
    folder=$top/build/$1
    shift
    [ -f "$folder/build.ninja" ] || cmake -S "$top" -B "$folder" -G Ninja "$@" >/dev/null
}

# These builds use the release build's simulator. Only `debug` has full symbols and no optimisation at all; the
# sanitizer builds choose their own (cmake/KelvaroOptions.cmake).
configure_debug() { # configure_debug NAME [SANITIZERS]
    configure release -DCMAKE_BUILD_TYPE=Release
    cmake --build "$top/build/release" --target vaultsim
    configure "$1" -DCMAKE_BUILD_TYPE=Debug -DKELVARO_SANITIZER="${2:-}" \
        -DKELVARO_VAULTSIM="$top/build/release/vaultsim/vaultsim"
}

build_variant() { # build_variant NAME [TARGET...]
    variant=$1
    shift
    case $variant in
    release) configure release -DCMAKE_BUILD_TYPE=Release ;;
    debug) configure_debug debug ;;
    asan) configure_debug asan address,undefined ;;
    tsan) configure_debug tsan thread ;;
    win64 | win32)
        arch=x86_64
        [ "$variant" = win64 ] || arch=i686
        "$top/tools/build-json-c.sh" $arch "$top/build/$variant"
        configure "$variant" -DCMAKE_BUILD_TYPE=Release -DKELVARO_TESTS=ON \
            -DCMAKE_TOOLCHAIN_FILE="$top/cmake/mingw-$arch.cmake" -DKELVARO_JSONC_ROOT="$top/build/$variant/jsonc"
        ;;
    *)
        echo "unknown variant: $variant" >&2
        return 2
        ;;
    esac
    # Only the tests are needed from the thread sanitizer's build.
    [ $# -gt 0 ] || [ "$variant" != tsan ] || set -- test_programs
    # Yields to tests that run at the same time.
    nice -n 5 cmake --build "$top/build/$variant" ${1:+--target "$@"}
}
