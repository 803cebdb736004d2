#!/bin/sh
# The Debian packages contain what was built, and it works once installed: a key of a simulated vault signs, openssl verifies.
# dpkg installs and removes them in a folder with its own database, so this machine isn't changed.
# Usage: tests/packaging/check-deb.sh PACKAGES_DIR BUILD_DIR VERSION
set -eu
packages=$(cd "$1" && pwd)
build=$(cd "$2" && pwd)
architecture=$(dpkg --print-architecture)
tool=$packages/kelvaro_$3_$architecture.deb
simulation=$packages/kelvaro-vaultsim_$3_$architecture.deb
work=$(mktemp -d)
simulator=
unset IDENTITY_ENDPOINT

cleanup() {
    status=$?
    trap - EXIT INT TERM
    [ -z "$simulator" ] || kill "$simulator" 2>/dev/null || true
    rm -rf "$work"
    exit $status
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
fail() {
    echo "Debian packages: $*" >&2
    exit 1
}
root=$work/root
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
: >"$root/var/lib/dpkg/status"
dpkg_there() { # dpkg_there ACTION ARGUMENT...
    dpkg --root="$root" --log=/dev/null --force-not-root --force-script-chrootless --force-depends "$@" >"$work/dpkg.log" 2>&1 || {
        cat "$work/dpkg.log" >&2
        fail "dpkg $1 failed"
    }
}

lintian --allow-root --fail-on error "$tool" "$simulation" >"$work/lintian.log" 2>&1 || {
    cat "$work/lintian.log" >&2
    fail "lintian finds errors"
}
. "$(dirname "$0")/../../packaging/publisher.sh"
for package in "$tool" "$simulation"; do
    [ "$(dpkg-deb -f "$package" Maintainer)" = "$maintainer" ] || fail "$package has another maintainer"
    dpkg-deb --fsys-tarfile "$package" | tar -xO --wildcards './usr/share/doc/*/copyright' | grep -qxF " $terms" || fail "$package has other terms"
    for needed in $(dpkg-deb -f "$package" Depends | sed 's/([^)]*)//g; s/,/ /g'); do
        dpkg-query -W -f '${Status}' "$needed" 2>/dev/null | grep -q 'ok installed' || fail "$package needs $needed, which is not here"
    done
done
dpkg_there --install "$tool" "$simulation"
LD_LIBRARY_PATH=$(dirname "$(find "$root" -name libkelvaro.so)")
export LD_LIBRARY_PATH
for package in "$tool" "$simulation"; do
    dpkg-deb --fsys-tarfile "$package" | tar -tv | awk '$2 != "root/root" {exit 1}' || fail "$package has files of other owners"
done
carries() { # carries INSTALLED BUILT: what was built, without its symbols
    strip -o "$work/stripped" "$2"
    cmp "$work/stripped" "$1"
}
carries "$root/usr/bin/kelvaroctl" "$build/kelvaroctl/kelvaroctl"
carries "$root/usr/bin/vaultsim" "$build/vaultsim/vaultsim"
carries "$(find "$root/usr/lib" -name libkelvaro.so)" "$build/provider/libkelvaro.so"
"$(dirname "$0")/check-hardening.sh" "$root/usr/bin/kelvaroctl" "$root/usr/bin/vaultsim" "$(find "$root/usr/lib" -name libkelvaro.so)"
[ -s "$root/usr/share/doc/kelvaro/installing.md" ] || fail "the documents are missing"

# Manual pages that the formatter accepts without warnings, and completions that the shells can read.
for page in kelvaroctl vaultsim; do
    file=$root/usr/share/man/man1/$page.1.gz
    [ -s "$file" ] || fail "no manual page of $page"
    zcat "$file" | groff -man -Tascii -P-cbu -ww 2>"$work/groff.log" >"$work/$page.txt"
    [ ! -s "$work/groff.log" ] || { cat "$work/groff.log" >&2; fail "the manual page of $page"; }
    bash -n "$root/usr/share/bash-completion/completions/$page" || fail "the completion of $page in bash"
    [ "$(head -n 1 "$root/usr/share/zsh/vendor-completions/_$page")" = "#compdef $page" ] || fail "no completion of $page in zsh"
    zsh -n "$root/usr/share/zsh/vendor-completions/_$page" || fail "the completion of $page in zsh"
done
grep -q 'keys list' "$work/kelvaroctl.txt" || fail "the manual page lacks the commands"
grep -q -e '--control-port' "$work/vaultsim.txt" || fail "the manual page lacks the options"

mkfifo "$work/sim.ready"
"$root/usr/bin/vaultsim" --dir "$work/sim" --vault packaged --client-secret secret-of-the-test --quiet >"$work/sim.ready" &
simulator=$!
read -r ready <"$work/sim.ready"
. "$work/sim/env"
ctl() { "$root/usr/bin/kelvaroctl" "$@"; }
curl -sS --fail --noproxy '*' -X POST "http://127.0.0.1:$VAULTSIM_CONTROL/vaults/packaged/keys" \
    -d '{"name":"signer","kty":"RSA","size":2048}' >/dev/null
ctl config set KeyVault packaged >/dev/null
ctl config set AuthenticationType 2 >/dev/null
ctl config set TenantId "$VAULTSIM_TENANT" >/dev/null
ctl config set ClientId "$VAULTSIM_CLIENT_ID" >/dev/null
echo "$VAULTSIM_CLIENT_SECRET" | ctl config set ClientSecret >/dev/null
ctl config set CertificatesOrKeys 1 >/dev/null
echo "what is signed" >"$work/file"
ctl sign --key signer --alg RS256 --in "$work/file" --out "$work/file.sig" >/dev/null
ctl keys export signer --format pem --out "$work/signer.pem" >/dev/null
openssl dgst -sha256 -verify "$work/signer.pem" -signature "$work/file.sig" "$work/file" >/dev/null || fail "a bad signature"

# What a machine stores there.
mkdir -p "$root/var/lib/kelvaro/registry"
dpkg_there --remove kelvaro
[ -d "$root/var/lib/kelvaro/registry" ] || fail "removal deleted the settings"
dpkg_there --purge kelvaro kelvaro-vaultsim
left=$(find "$root" -name '*kelvaro*' -o -name vaultsim)
[ -z "$left" ] || fail "left behind: $left"
echo "Debian packages: what they install signs, and is removed without a trace"
