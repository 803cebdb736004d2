#!/bin/sh
# Interrupts the writing of settings, secrets, master key, certificates and log, and the tool's import and protection of
# settings, at every system call that changes something below the root. Prints one line per case: how, where, and "ok" or
# what is wrong.
# Usage: ended.sh PROGRAM-FOLDER TOOL [CALL]   CALL: only system calls whose name contains it.
set -u
program=$1/stress_ended
tool=$2
only=${3:-}
# In memory: nothing here depends on the disk, and waiting for it would take most of the time.
work=$(mktemp -d -p /dev/shm)
trap 'rm -rf "$work"' EXIT
calls=openat,write,pwrite64,writev,fsync,fdatasync,rename,renameat,renameat2,link,linkat,unlink,unlinkat,mkdir,mkdirat,ftruncate,fchmod,fchmodat,fchown
unset KELVARO_USER_ROOT

{
    echo "Windows Registry Editor Version 5.00"
    for hive in HKEY_LOCAL_MACHINE HKEY_CURRENT_USER; do
        printf '\n[%s\\Software\\Zandrel\\Kelvaro]\n' $hive
        for name in ClientId ClientCertID; do echo "\"$name\"=\"new\""; done
    done
} >"$work/import.reg"

try() { # try HOW CALL NUMBER INJECTION: runs the job with the injection, then checks the root
    rm -rf "$work/$job/root"
    cp -r "$work/$kind" "$work/$job/root"
    # shellcheck disable=SC2086
    KELVARO_ROOT=$work/$job/root strace -f -qq -o /dev/null -e "trace=$2" -e "inject=$2:$4" $command >/dev/null 2>&1
    status=$?
    [ "$1" != killed ] || [ $status -ge 128 ] || { echo "$1 $job $2 $3: not reached" && return; }
    # shellcheck disable=SC2086
    result=$({ "$program" "$interrupted" && $command && "$program" "$finished"; } 2>&1 >/dev/null) && result=ok
    echo "$1 $job $2 $3: ${result:-failed}"
}

# The cases come from an undisturbed run: its calls that change something below the root, each with its number among the
# calls of that name.
run() { # run JOB KIND-OF-ROOT CHECK-AFTER-INTERRUPTION CHECK-AT-THE-END COMMAND...
    job=$1 kind=$2 interrupted=$3 finished=$4
    shift 4
    command=$*
    mkdir "$work/$job"
    export KELVARO_ROOT="$work/$job/root"
    cp -r "$work/$kind" "$KELVARO_ROOT"
    strace -f -qq -y -o "$work/$job/trace" -e "trace=$calls" "$@" >&2 && "$program" "$finished" >&2 || { echo "not disturbed $job none 0: failed" && return; }
    awk -v root="$KELVARO_ROOT" -v only="$only" '{ name = $2; sub(/\(.*/, "", name); count[name]++
        if (index($0, root) && index(name, only) && !/ = -1 / && (name != "openat" || /O_CREAT|O_WRONLY|O_RDWR|O_APPEND/))
            print name, count[name] }' "$work/$job/trace" >"$work/$job/points"
    while read -r call count; do
        try killed "$call" "$count" "signal=KILL:when=$count"
        try "disk full once" "$call" "$count" "error=ENOSPC:when=$count"
        try "disk full from then on" "$call" "$count" "error=ENOSPC:when=$count+"
        try "read-only from then on" "$call" "$count" "error=EROFS:when=$count+"
        try "device error" "$call" "$count" "error=EIO:when=$count"
    done <"$work/$job/points"
}

for kind in fresh moved; do
    KELVARO_ROOT=$work/$kind "$program" prepare $kind || exit 1
    mkdir -p "$work/$kind/drive_c"
done
run first-secret fresh check done "$program" work &
run next-secret moved check done "$program" work
run import moved whole imported "$tool" config import "$work/import.reg"
run protection moved whole whole "$tool" config protect
wait
