#!/bin/sh
# Interrupts the writing of settings, secret, master key, store and log at every system call that changes something below the
# root. Prints a line a point: how, the call, and "ok" or what is wrong.
# Usage: ended.sh PROGRAM-FOLDER [STEP]   STEP: only each STEPth point.
set -u
program=$1/stress_ended
step=${2:-1}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
calls=openat,write,pwrite64,writev,fsync,fdatasync,rename,renameat,renameat2,link,linkat,unlink,unlinkat,mkdir,mkdirat,ftruncate,fchmod
unset KELVARO_USER_ROOT

KELVARO_ROOT=$work/prepared "$program" prepare || exit 1
mkdir -p "$work/prepared/drive_c"

# The calls of an undisturbed run that change something below the root, with their numbers among their kind.
cp -r "$work/prepared" "$work/root"
KELVARO_ROOT=$work/root strace -f -qq -y -o "$work/trace" -e "trace=$calls" "$program" work || exit 1
awk -v root="$work/root" '{ name = $2; sub(/\(.*/, "", name); count[name]++
    if (index($0, root) && (name != "openat" || /O_CREAT|O_WRONLY|O_RDWR|O_APPEND/)) print name, count[name] }' \
    "$work/trace" >"$work/points"

try() { # try HOW CALL NUMBER INJECTION: a run with the injection, and what is left behind
    rm -rf "$work/root"
    cp -r "$work/prepared" "$work/root"
    KELVARO_ROOT=$work/root strace -f -qq -o /dev/null -e "trace=$2" -e "inject=$2:$4" "$program" work >/dev/null 2>&1
    status=$?
    [ "$1" != killed ] || [ $status -ge 128 ] || { echo "$1 $2 $3: not reached" && return; }
    result=$(KELVARO_ROOT=$work/root "$program" check 2>&1) &&
        result=$(KELVARO_ROOT=$work/root "$program" work 2>&1 && KELVARO_ROOT=$work/root "$program" done 2>&1) && result=ok
    echo "$1 $2 $3: ${result:-failed}"
}

number=0
while read -r call count; do
    number=$((number + 1))
    [ $((number % step)) -eq 0 ] || continue
    try killed "$call" "$count" "signal=KILL:when=$count"
    [ "$call" = openat ] || try "disk full once" "$call" "$count" "error=ENOSPC:when=$count"
    [ "$call" = openat ] || try "disk full from then on" "$call" "$count" "error=ENOSPC:when=$count+"
    try "read-only" "$call" "$count" "error=EROFS:when=$count"
done <"$work/points"
