#!/bin/sh
# What Debian's hardening leaves in a binary is in each of these: position independence, no executable stack, full RELRO with
# immediate binding, the stack protector, and fortified calls.
# Usage: tests/packaging/check-hardening.sh BINARY...
set -eu
failed=0
for binary in "$@"; do
    headers=$(LC_ALL=C readelf --wide --file-header --program-headers --dynamic --dyn-syms "$binary")
    expect() { # expect PATTERN WHAT
        echo "$headers" | grep -Eq -e "$1" || {
            echo "$binary: $2" >&2
            failed=1
        }
    }
    expect '^ *Type: +DYN ' 'not position-independent'
    expect '^ *GNU_STACK .* RW +0x' 'the stack may be executable'
    expect '^ *GNU_RELRO ' 'no RELRO'
    expect '\(FLAGS_1\).*\<NOW\>' 'symbols are not bound at once'
    expect 'UND __stack_chk_fail' 'no stack protector'
    expect 'UND __[a-z]*(mem|str|printf|read)[a-z]*_chk' 'no fortified call'
done
exit $failed
