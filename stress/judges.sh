#!/bin/sh
# Plants the faults of judges.json, one at a time, in a copy of the checkout under build/judges, and runs the check that
# must notice each:
#   fault, part     the fault, and the part of stress.sh that must notice it
#   file, old, new  the text to replace, which occurs exactly once in the file
#   build, run      targets of the release build, and the command to run in its folder
#   says            a regular expression (grep -E) that matches a line of the output with the fault, and none without
# Prints one JSON object per fault.
# Usage: judges.sh CHECKOUT [PART-OF-THE-NAME]
set -eu
source=$1
wanted=${2:-}
list=$source/stress/judges.json
top=$source/build/judges
mkdir -p "$top"
# With new times: otherwise objects built from an older copy could count as current.
tar -C "$source" --exclude=./build --exclude=./.git -cf - . | tar -C "$top" -xmf -
. "$top/tools/variants.sh"
configure release -DCMAKE_BUILD_TYPE=Release -DKELVARO_STRESS=ON
# An interrupted run may have left objects with a fault.
jq -r '.[].file' "$list" | (cd "$top" && xargs touch)

field() { jq -r --argjson number "$number" --arg name "$1" '.[$number][$name]' "$list"; }

noticed() { # noticed: whether the run notices a fault. Sets took to its seconds.
    # shellcheck disable=SC2046
    cmake --build "$top/build/release" --target $(field build) >"$top/build.log" 2>&1 || { tail -n 30 "$top/build.log" >&2 && exit 1; }
    begin=$(date +%s)
    (cd "$top/build/release" && sh -c "$(field run)") >"$top/run.log" 2>&1 || true
    took=$(($(date +%s) - begin))
    grep -Eq -e "$(field says)" "$top/run.log"
}

plant() { # plant FILE: prints the file with the fault
    jq -Rsj --slurpfile list "$list" --argjson number "$number" '$list[0][$number] as $fault | split($fault.old)
        | if length == 2 then join($fault.new) else error("not once in the file: " + $fault.old) end' "$1"
}

count=$(jq length "$list")
number=0
quiet=
while [ $number -lt "$count" ]; do
    case "$(field part) $(field fault)" in
    *"$wanted"*)
        file=$(field file)
        before=false
        after=false
        # If the same program ran without a complaint for the fault before, it isn't run again.
        program="$(field build) $(field run) $(field says)"
        [ "$program" = "$quiet" ] || { noticed && before=true; } || quiet=$program
        plant "$source/$file" >"$top/$file"
        noticed && after=true
        cat "$source/$file" >"$top/$file"
        jq -c --argjson number "$number" --argjson before $before --argjson after $after --argjson seconds $took \
            '.[$number] | {fault, part, file, before: $before, noticed: $after, seconds: $seconds}' "$list"
        ;;
    esac
    number=$((number + 1))
done
