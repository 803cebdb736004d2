#!/bin/sh
# Installs what the build, the tests and the demo need from Debian's registry, by package name.
# Usage: tools/packages.sh PACKAGE...   Does nothing if everything is installed.
set -eu
missing=
for package in "$@"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing="$missing $package"
done
[ -n "$missing" ] || exit 0
echo "Installing:$missing"
run=
[ "$(id -u)" = 0 ] || run=sudo
$run apt-get update -qq
# shellcheck disable=SC2086
DEBIAN_FRONTEND=noninteractive $run apt-get install -y -qq --no-install-recommends $missing >/dev/null
