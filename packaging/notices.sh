#!/bin/sh
# Prints the notices that the licences of the bundled libraries require.
# Usage: packaging/notices.sh [--json-c FOLDER] PACKAGE...
#   PACKAGE: an installed Debian package.   FOLDER: json-c as built by tools/build-json-c.sh.
set -eu
part() { # part NAME VERSION FILE
    printf '\n%s\n%s, version %s, as Debian distributes it\n%s\n\n' "$rule" "$1" "$2" "$rule"
    cat "$3"
}

rule=$(printf '%078d' 0 | tr 0 =)
echo "The programs and modules of this package contain code by other authors, under the following terms. The C++ run-time library"
echo "is GCC's, under the GNU General Public License, version 3, with the GCC Runtime Library Exception, version 3.1."
if [ "${1:-}" = --json-c ]; then
    part json-c "$(cat "$2/version")" "$2/copyright"
    shift 2
fi
for package in "$@"; do
    part "$package" "$(dpkg-query -W -f '${Version}' "$package")" "/usr/share/doc/$package/copyright"
done
