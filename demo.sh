#!/bin/sh
# The main job, shown end to end on this machine: a simulated vault, a private settings folder, and real signatures that
# an independent verifier accepts. Installs and builds what is missing; leaves nothing running.
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
start_simulator "$work/sim" --vault demo-vault:premium --vault demo-standard:standard \
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
echo "The client secret is now under data protection: no file has it in clear text any more."

say "3. A file signed with RS256, PS256 and ES256, and each signature verified twice"
head -c 100000 /dev/urandom >"$work/file"
cp "$work/file" "$work/tampered"
printf 'x' | dd of="$work/tampered" bs=1 seek=5000 conv=notrunc 2>/dev/null
openssl_accepts() { # openssl_accepts ALG FILE
    case $1 in
    PS256) openssl dgst -sha256 -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:-1 \
        -verify "$work/$key.pem" -signature "$work/signature" "$2" ;;
    ES384) openssl dgst -sha384 -verify "$work/$key.pem" -signature "$work/signature" "$2" ;;
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

say "4. Two new keys in a vault without hardware keys, each as the key of a certificate: used, deleted and purged"
ctl config set KeyVault demo-standard
ctl config set CertificatesOrKeys 0
control DELETE /journal >/dev/null
ctl keys create tls-rsa --alg RSA
ctl keys create tls-p384 --alg ECDSA_P384
for pair in RS256:tls-rsa ES384:tls-p384; do
    alg=${pair%%:*}
    key=${pair#*:}
    der=
    [ "$alg" != ES384 ] || der=--der
    ctl keys export "$key" --format pem --out "$work/$key.pem" >/dev/null
    ctl sign --key "$key" --alg "$alg" --in "$work/file" --out "$work/signature" $der >/dev/null
    echo "$alg with $key: openssl says $(openssl_accepts "$alg" "$work/file")"
    control GET /vaults/demo-standard |
        jq -r ".certificates[] | select(.name == \"$key\") | .versions[-1].cer" | base64 -d >"$work/$key.der"
    openssl x509 -inform DER -in "$work/$key.der" -noout -pubkey | cmp - "$work/$key.pem"
    echo "its certificate holds that key: $(openssl x509 -inform DER -in "$work/$key.der" -noout -subject -serial -enddate | paste -sd' ')"
done
ctl keys delete tls-rsa --yes
ctl keys delete tls-p384 --yes
if [ "$(control GET /vaults/demo-standard | jq '[.keys, .certificates, .deletedKeys, .deletedCertificates] | map(length) | add')" -ne 0 ]; then
    echo "the vault still has keys or certificates" >&2
    exit 1
fi
echo "The vault has nothing left of them. The requests that were made:"
control GET /journal | jq -r '.requests[] | select(.target | contains("/tls-")) | "  \(.status) \(.method) \(.target | sub("/[0-9a-f]{32}"; "/VERSION"))"'

say "5. The tail of the log"
tail -n 12 "$KELVARO_ROOT"/log/*_Kelvaro.log
stop_simulator

say "6. No settings at all: the machine's managed identity signs in, and the vault is the one named after it"
start_simulator "$work/sim2" --oid 0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0 --vault x0f1e2d3c4b5a69788796a5b:standard
control POST /vaults/x0f1e2d3c4b5a69788796a5b/keys '{"name":"identity-key","kty":"EC","crv":"P-384"}' >/dev/null
ctl keys list --details
control GET /journal | jq -r '.requests[] | select(.listener == "http" or .listener == "tls") | "\(.method) http\(if .listener == "tls" then "s" else "" end)://\(.host)\(.target)"' | head -n 3
stop_simulator

say "7. An enrolment: a key, its request, a certificate of the demo's own authority, and that certificate on two machines"
tenant=11111111-2222-3333-4444-555555555555
client=99999999-8888-7777-6666-555555555555
start_simulator "$work/sim3" --vault demo-vault:premium --tenant $tenant --client-id $client --client-secret "$secret"
configure_enrolment() { # in the root that KELVARO_ROOT names; keys live as certificates of the vault
    for setting in "KeyVault demo-vault" "AuthenticationType 2" "TenantId $tenant" "ClientId $client" \
        "CertificatesOrKeys 0"; do
        # shellcheck disable=SC2086
        ctl config set $setting >/dev/null
    done
    printf '%s\n' "$secret" | ctl config set ClientSecret >/dev/null
}
in_vault() { # the subject of the vault's certificate
    control GET /vaults/demo-vault | jq -r '.certificates[] | select(.name == "web01") | .versions[-1].cer' |
        base64 -d | openssl x509 -inform DER -noout -subject
}
configure_enrolment
ctl keys create web01 --alg ECDSA_P256
echo "in the vault so far: $(in_vault)"
ctl keys request web01 --subject 'CN=web01, O="Acme, Inc."' --san dns:web01.contoso.com,ip:10.0.0.1 --out "$work/web01.csr"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 -subj "/CN=Demo CA" \
    -keyout "$work/ca.key" -out "$work/ca.pem" 2>/dev/null
openssl x509 -req -in "$work/web01.csr" -CA "$work/ca.pem" -CAkey "$work/ca.key" -copy_extensions copy -days 7 \
    -out "$work/web01.pem" 2>/dev/null
openssl verify -CAfile "$work/ca.pem" "$work/web01.pem"
ctl certs install "$work/web01.pem" --key web01
echo "the release of the key's handle publishes it:"
ctl certs publish web01
echo "in the vault now: $(in_vault)"
echo "on a second machine, which opens a machine key:"
mkdir "$work/second"
KELVARO_ROOT=$work/second
configure_enrolment
ctl keys show web01 >/dev/null
ctl certs list
[ "$(ctl certs list --json | jq -r '.certificates[] | select(.bound) | .container')" = web01 ] || {
    echo "the second machine did not get the certificate" >&2
    exit 1
}
stop_simulator

say "Done: nothing is left running."
