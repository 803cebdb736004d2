# The build variants, sourced by the scripts at the top. Each builds under build/NAME.
# Needs: top (the checkout).

linux_packages="g++ cmake ninja-build pkg-config libssl-dev libcurl4-openssl-dev libjson-c-dev libcpp-httplib-dev
    nlohmann-json3-dev libcli11-dev googletest openssl ca-certificates"
windows_packages="g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix binutils dpkg-dev xz-utils"
check_packages="clang-format"

configure() { # configure NAME CMAKE_OPTION...
    name=$1
    shift
    [ -f "$top/build/$name/build.ninja" ] || cmake -S "$top" -B "$top/build/$name" -G Ninja "$@" >/dev/null
}

build_variant() { # build_variant NAME [TARGET...]
    variant=$1
    shift
    case $variant in
    release) configure release -DCMAKE_BUILD_TYPE=Release ;;
    asan) configure asan -DCMAKE_BUILD_TYPE=Debug -DKELVARO_SANITIZER=address,undefined ;;
    tsan) configure tsan -DCMAKE_BUILD_TYPE=Debug -DKELVARO_SANITIZER=thread ;;
    win64 | win32)
        arch=x86_64
        [ "$variant" = win64 ] || arch=i686
        "$top/tools/build-json-c.sh" $arch "$top/build/$variant"
        configure "$variant" -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE="$top/cmake/mingw-$arch.cmake" \
            -DKELVARO_JSONC_ROOT="$top/build/$variant/jsonc"
        ;;
    *)
        echo "unknown variant: $variant" >&2
        return 2
        ;;
    esac
    if [ $# -gt 0 ]; then
        cmake --build "$top/build/$variant" --target "$@"
    else
        cmake --build "$top/build/$variant"
    fi
}
