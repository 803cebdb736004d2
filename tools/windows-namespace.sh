#!/bin/sh
# Runs a script in private namespaces with the Windows runtime: mounts, network and processes all end with the script,
# whatever it leaves running.
# Usage: tools/windows-namespace.sh RUNTIME WORK SCRIPT [ARGUMENT]...
# RUNTIME: a folder of tools/windows-runtime.sh.   WORK: an empty folder of the caller's, which removes it afterwards.
# The script finds in its environment
#   runtime_root   the runtime's root, for chroot; it contains the checkout under the same path
#   work           WORK; WORK/tmp is the root's /tmp
#   WINE64, WINE32, WINESERVER and what else wine reads. The prefix is /tmp/prefix.
# The network is loopback only, with the instance metadata service's address on it.
set -eu
if [ "${KELVARO_INSIDE:-}" != yes ]; then
    user=
    [ "$(id -u)" = 0 ] || user=--map-root-user
    # An empty environment keeps out the machine's proxy and locale.
    # shellcheck disable=SC2086
    exec env -i PATH="$PATH" KELVARO_INSIDE=yes unshare $user --mount --propagation unchanged --net --pid --fork --kill-child "$0" "$@"
fi
top=$(cd "$(dirname "$0")/.." && pwd)
runtime_root=$(cd "$1" && pwd)/root
work=$(cd "$2" && pwd)
script=$3
shift 3

# In a chroot "/" is not a mount point, so those below it are made private one by one.
mount --make-rprivate / 2>/dev/null || awk '{print $5}' /proc/self/mountinfo | while read -r at; do
    mount --make-private "$at"
done
mount -t proc proc /proc
ip link set lo up
ip address add 169.254.169.254/32 dev lo
mkdir -p "$work/tmp" "$work/certs" "$runtime_root/etc/ssl/certs"
mount --bind "$work/tmp" "$runtime_root/tmp"
mount --bind "$work/certs" "$runtime_root/etc/ssl/certs"
mount --rbind /dev "$runtime_root/dev"
mount --rbind /sys "$runtime_root/sys"
mount -t proc proc "$runtime_root/proc"
# After the other mounts: the checkout may be below one of them.
mkdir -p "$runtime_root$top"
mount --bind "$top" "$runtime_root$top"
printf 'nameserver 127.0.0.1\noptions timeout:1 attempts:1\n' >"$work/resolv.conf"
: >"$runtime_root/etc/resolv.conf"
mount --bind "$work/resolv.conf" "$runtime_root/etc/resolv.conf"
printf 'hosts: files dns\n' >"$runtime_root/etc/nsswitch.conf"
printf '127.0.0.1 localhost\n' >"$runtime_root/etc/hosts"
unset KELVARO_INSIDE

export runtime_root work
export WINE64=/usr/lib/wine/wine64 WINE32=/usr/lib/wine/wine WINESERVER=/usr/lib/wine/wineserver64
export WINEPREFIX=/tmp/prefix HOME=/tmp WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES='mscoree,mshtml,winemenubuilder.exe,winedbg.exe='
cd "$work/tmp"
"$script" "$@"
