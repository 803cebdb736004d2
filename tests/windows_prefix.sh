#!/bin/sh
# Makes a fresh prefix; run by tools/windows-runtime.sh.
set -eu
chroot "$runtime_root" "$WINE64" wineboot -i >"$work/prefix.log" 2>&1 || { cat "$work/prefix.log"; exit 1; }
# Writes the registry to the disk and ends wine's own programs.
chroot "$runtime_root" "$WINESERVER" -k
chroot "$runtime_root" "$WINESERVER" -w
