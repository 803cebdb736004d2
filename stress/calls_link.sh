#!/bin/sh
# Joins the module's rooms to one object whose calls of the platform go to Faulty_NAME instead, for the list of calls.inc.
# A call that the list lacks is an error, and so is an entry that nothing calls.
# Usage: calls_link.sh LIST PLATFORM-LIBRARY OBJECT ROOM-LIBRARY...
set -eu
list=$1
platform=$2
object=$3
shift 3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
ld -r -o "$work/rooms.o" --whole-archive "$@"
nm -u "$work/rooms.o" | awk '{print $NF}' | sort -u >"$work/undefined"
nm --defined-only "$platform" 2>/dev/null | awk 'NF == 3 {print $3}' | sort -u | comm -12 - "$work/undefined" >"$work/platform"
sed -n 's/^\([A-Z]*\)(\([A-Za-z0-9_]*\).*/\1 \2/p' "$list" | sort -k 2 >"$work/list"
c++filt <"$work/undefined" | sed 's/(.*//' | paste -d ' ' - "$work/undefined" | sort >"$work/names"
awk '{print $2}' "$work/list" >"$work/listed"
lacking=$(c++filt <"$work/platform" | sed 's/(.*//' | sort -u | comm -23 - "$work/listed")
unused=$(awk '{print $1}' "$work/names" | sort -u | comm -13 - "$work/listed")
[ -z "$lacking$unused" ] || { echo "calls.inc lacks:" $lacking "and has without need:" $unused >&2 && exit 1; }
join -1 2 -2 1 "$work/list" "$work/names" | awk '$2 != "SOUND" {print $3, "Faulty_" $1}' >"$work/redirected"
objcopy --redefine-syms="$work/redirected" "$work/rooms.o" "$object"
