#!/bin/sh
# The main job, shown end to end on this machine: a simulated vault, a root of its own, and real signatures that an independent
# verifier accepts. Installs and builds what is missing; leaves nothing running.
set -eu
top=$(cd "$(dirname "$0")" && pwd)
. "$top/tools/variants.sh"

unset IDENTITY_ENDPOINT
say() { printf '\n\033[1m%s\033[0m\n' "$*"; }

# shellcheck disable=SC2086
"$top/tools/packages.sh" $linux_packages curl jq
say "Building the module, its administrator's tool and the simulator"
build_variant release kelvaro kelvaroctl vaultsim | tail -n 1

build=$top/build/release
work=$(mktemp -d)
simulator=
cleanup() {
    status=$?
    trap - EXIT INT TERM
    if [ -n "$simulator" ]; then
        kill "$simulator" 2>/dev/null || true
        wait "$simulator" 2>/dev/null || true
    fi
    rm -rf "$work"
    exit $status
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

secret=demo-secret-$$
start_simulator() { # start_simulator DIR OPTION...
    directory=$1
    shift
    mkfifo "$directory.ready"
    "$build/vaultsim/vaultsim" --dir "$directory" --quiet "$@" >"$directory.ready" &
    simulator=$!
    read -r ready <"$directory.ready"
    . "$directory/env"
    mkdir -p "$KELVARO_ROOT/log"
}
stop_simulator() {
    kill "$simulator"
    wait "$simulator" 2>/dev/null || true
    simulator=
}
control() { # control METHOD PATH [JSON]
    curl -sS --fail --noproxy '*' -X "$1" "http://127.0.0.1:$VAULTSIM_CONTROL$2" ${3:+-d "$3"}
}
ctl() { "$build/kelvaroctl/kelvaroctl" --module "$build/provider/libkelvaro.so" "$@"; }

say "1. A vault with an RSA and a P-256 key, and settings for an application's client credentials"
start_simulator "$work/sim" --vault demo-vault:premium \
    --tenant 11111111-2222-3333-4444-555555555555 --client-id 99999999-8888-7777-6666-555555555555 \
    --client-secret "$secret" --oid 0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0
control POST /vaults/demo-vault/keys '{"name":"web-server","kty":"RSA","size":2048}' >/dev/null
control POST /vaults/demo-vault/keys '{"name":"code-signing","kty":"EC","crv":"P-256"}' >/dev/null
ctl config set KeyVault demo-vault
ctl config set AuthenticationType 2
ctl config set TenantId 11111111-2222-3333-4444-555555555555
ctl config set ClientId 99999999-8888-7777-6666-555555555555
printf '%s\n' "$secret" | ctl config set ClientSecret
ctl config set CertificatesOrKeys 1
ctl config set LoggingLevel 4
ctl config set LogfilePath "$KELVARO_ROOT/log"

say "2. What the module sees in the vault"
ctl keys list --details
if grep -rqF "$secret" "$KELVARO_ROOT"; then
    echo "the clear secret is still on the disk" >&2
    exit 1
fi
echo "The client secret has moved under data protection: no file holds it in clear any more."

say "3. A file signed with RS256, PS256 and ES256, and each signature verified twice"
head -c 100000 /dev/urandom >"$work/file"
cp "$work/file" "$work/tampered"
printf 'x' | dd of="$work/tampered" bs=1 seek=5000 conv=notrunc 2>/dev/null
openssl_accepts() { # openssl_accepts ALG FILE
    case $1 in
    PS256) openssl dgst -sha256 -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:-1 \
        -verify "$work/$key.pem" -signature "$work/signature" "$2" ;;
    *) openssl dgst -sha256 -verify "$work/$key.pem" -signature "$work/signature" "$2" ;;
    esac
}
for pair in RS256:web-server PS256:web-server ES256:code-signing; do
    alg=${pair%%:*}
    key=${pair#*:}
    der=
    [ "$alg" != ES256 ] || der=--der
    ctl keys export "$key" --format pem --out "$work/$key.pem" >/dev/null
    ctl sign --key "$key" --alg "$alg" --in "$work/file" --out "$work/signature" $der >/dev/null
    ctl verify --key "$key" --alg "$alg" --in "$work/file" --signature "$work/signature" $der >/dev/null
    echo "$alg with $key: the module accepts the signature"
    echo "$alg with $key: openssl says $(openssl_accepts "$alg" "$work/file")"
    if ctl verify --key "$key" --alg "$alg" --in "$work/tampered" --signature "$work/signature" $der >/dev/null 2>&1 ||
        openssl_accepts "$alg" "$work/tampered" >/dev/null 2>&1; then
        echo "a tampered file was accepted" >&2
        exit 1
    fi
    echo "$alg with $key: a tampered file is refused by both"
done

say "4. The tail of the log"
tail -n 12 "$KELVARO_ROOT"/log/*_Kelvaro.log
stop_simulator

say "5. No settings at all: the machine's managed identity signs in, and the vault is the one named after it"
start_simulator "$work/sim2" --oid 0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0 --vault x0f1e2d3c4b5a69788796a5b:standard
control POST /vaults/x0f1e2d3c4b5a69788796a5b/keys '{"name":"identity-key","kty":"EC","crv":"P-384"}' >/dev/null
ctl keys list --details
control GET /journal | jq -r '.requests[] | select(.listener == "http" or .listener == "tls") | "\(.method) http\(if .listener == "tls" then "s" else "" end)://\(.host)\(.target)"' | head -n 3
stop_simulator

say "Done: nothing is left running."
