# A simulator for programs of a Windows build, sourced inside the namespaces of tools/windows-namespace.sh.
# Needs, in addition to that script's variables: here (this folder), build (the build's folder), prefix, vaultsim. The programs are in
# $work/built, and here under the name of $build, which they have in them.
wine=$WINE64
[ "$(basename "$build" | tr -dc 0-9)" = 64 ] || wine=$WINE32

[ -d "$work/built" ] && mount --bind "$work/built" "$runtime_root$build"
cp -a "$prefix" "$work/tmp/prefix"
"$here/windows_names.pl" &
"$here/windows_relay.pl" 8123 80 &
sim=$work/tmp/sim
mkdir "$sim"
# The simulator names files in its folder to clients: the path is the same inside the runtime's root.
mkdir -p "$runtime_root$work/tmp"
ln -s /tmp/sim "$runtime_root$sim"
# RSA certificates: wine takes one ECDSA signature in a hundred for false, those with a leading zero in r or s.
"$vaultsim" --dir "$sim" --address 0.0.0.0 --close-tls --rsa --control-port 8000 \
    --listen-tls 443 --http-port 80 --arc-port 40342 --vault contoso-keys:premium --vault fabrikam:standard \
    --tenant 11111111-2222-3333-4444-555555555555 \
    --client-id aaaaaaaa-bbbb-cccc-dddd-eeeeeeeeeeee --client-secret 's3cret~Value.For-Tests' \
    --oid 0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0 --quiet >"$work/ready" &
until grep -q '^ready' "$work/ready"; do
    kill -0 $! || exit 1
    sleep 0.1
done
# Where wine looks for the system's roots.
cp "$sim/ca.pem" "$work/certs/ca-certificates.crt"
export VAULTSIM_CONTROL=8000

run() { # run PROGRAM ARGUMENT...
    program=$1
    shift
    # A program that hangs fails alone, not the whole run.
    timeout --kill-after=10 "${longest_run:-600}" chroot "$runtime_root" "$wine" "$program" "$@" </dev/null
}
