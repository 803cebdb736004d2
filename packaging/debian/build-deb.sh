#!/bin/sh
# Builds the Debian packages from the Linux build, reproducibly.
# Usage: packaging/debian/build-deb.sh VERSION BUILD_DIR DOCS_DIR OUTPUT_DIR   SOURCE_DATE_EPOCH: the time of every file.
set -eu
version=$1
build=$(cd "$2" && pwd)
docs=$(cd "$3" && pwd)
output=$(cd "$4" && pwd)
: "${SOURCE_DATE_EPOCH:?}"
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../publisher.sh"
architecture=$(dpkg --print-architecture)
library=usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LC_ALL=C TZ=UTC
umask 022

depends() { # depends ROOT: the packages that the binaries need
    mkdir -p "$work/shlibs/debian"
    printf 'Source: kelvaro\n\nPackage: kelvaro\nArchitecture: any\n' >"$work/shlibs/debian/control"
    binaries=$(find "$1/usr" -type f -path '*/bin/*' -o -type f -name '*.so')
    # shellcheck disable=SC2086
    found=$(cd "$work/shlibs" && dpkg-shlibdeps -O $binaries 2>log) || { cat "$work/shlibs/log" >&2; return 1; }
    echo "${found#shlibs:Depends=}"
}

fill() { # fill FILE: with the publisher's name and terms
    maintainer=$maintainer terms=$terms perl -pe 's/\@MAINTAINER\@/$ENV{maintainer}/; s/\@TERMS\@/$ENV{terms}/' "$1"
}

notices() { # notices NAME: copyright and changelog, in their usual place
    folder=$work/$1/usr/share/doc/$1
    mkdir -p "$folder"
    fill "$here/copyright" >"$folder/copyright"
    printf '%s (%s) stable; urgency=medium\n\n  * Version %s.\n\n -- %s  %s\n' "$1" "$version" "$version" \
        "$maintainer" "$(date -R -d "@$SOURCE_DATE_EPOCH")" |
        gzip -9n >"$folder/changelog.gz"
}

package() { # package NAME: from the tree of that name
    name=$1
    root=$work/$name
    notices "$name"
    needed=$(depends "$root")
    mkdir -p "$root/DEBIAN"
    fill "$here/$name.control" |
        sed -e "s/@VERSION@/$version/" -e "s/@ARCHITECTURE@/$architecture/" -e "s/@DEPENDS@/$needed/" \
            -e "s/@SIZE@/$(du -sk --apparent-size --exclude=DEBIAN "$root" | cut -f1)/" >"$root/DEBIAN/control"
    for part in postrm triggers; do
        [ ! -f "$here/$name.$part" ] || cp "$here/$name.$part" "$root/DEBIAN/$part"
    done
    [ ! -f "$root/DEBIAN/postrm" ] || chmod 755 "$root/DEBIAN/postrm"
    (cd "$root" && find usr -type f | sort | xargs md5sum >DEBIAN/md5sums)
    find "$root" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
    dpkg-deb --root-owner-group -Zxz --build "$root" "$output/${name}_${version}_$architecture.deb" >/dev/null
}

manual() { # manual NAME: the page on standard input
    install -d "$root/usr/share/man/man1"
    gzip -9n >"$root/usr/share/man/man1/$1.1.gz"
}
completion() { # completion SHELL NAME: the script on standard input
    case $1 in
    bash) file=usr/share/bash-completion/completions/$2 ;;
    zsh) file=usr/share/zsh/vendor-completions/_$2 ;;
    esac
    install -d "$(dirname "$root/$file")"
    cat >"$root/$file"
}

root=$work/kelvaro
install -s -D -m 755 "$build/kelvaroctl/kelvaroctl" "$root/usr/bin/kelvaroctl"
install -s -D -m 644 "$build/provider/libkelvaro.so" "$root/$library/libkelvaro.so"
install -d "$root/usr/share/doc/kelvaro"
install -m 644 "$docs"/* "$root/usr/share/doc/kelvaro"
tool=$build/kelvaroctl/kelvaroctl
"$tool" manual | manual kelvaroctl
"$tool" completion bash | completion bash kelvaroctl
"$tool" completion zsh | completion zsh kelvaroctl
package kelvaro

root=$work/kelvaro-vaultsim
install -s -D -m 755 "$build/vaultsim/vaultsim" "$root/usr/bin/vaultsim"
install -D -m 644 "$here/../../vaultsim/README.md" "$root/usr/share/doc/kelvaro-vaultsim/README.md"
{
    printf '.TH VAULTSIM 1 "" "Kelvaro %s" "Kelvaro"\n.SH NAME\nvaultsim \\- simulates an Azure Key Vault on loopback\n' "$version"
    printf '.SH DESCRIPTION\n.nf\n'
    "$build/vaultsim/vaultsim" --help | sed -e 's/\\/\\e/g' -e 's/-/\\-/g' -e "s/^[.']/\\\\\&&/"
    printf '.fi\n.SH SEE ALSO\n/usr/share/doc/kelvaro\\-vaultsim/README.md\n'
} | manual vaultsim
# Both shells can take the options from --help.
echo 'complete -F _longopt vaultsim' | completion bash vaultsim
printf '#compdef vaultsim\n_gnu_generic\n' | completion zsh vaultsim
package kelvaro-vaultsim
