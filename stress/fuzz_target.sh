#!/bin/sh
# Runs a fuzz target for a while, with the inputs that earlier runs kept in build/fuzz/found, and adds a line to
# build/fuzz/tally: "NAME EXECUTIONS SECONDS-OF-PROCESSOR-TIME". What is found stays in build/fuzz/findings.
# Usage: fuzz_target.sh TOP SECONDS TARGET
set -u
top=$1
seconds=$2
target=$3
fuzz=$top/build/fuzz
log=$(mktemp)
mkdir -p "$fuzz/findings" "$fuzz/found/$target"
ASAN_OPTIONS=allocator_may_return_null=1 "$fuzz/fuzz/kelvaro_fuzz" "--$target" -max_total_time="$seconds" -timeout=120 -report_slow_units=120 \
    -close_fd_mask=1 -dict="$top/fuzz/dictionary" -artifact_prefix="$fuzz/findings/$target-" -print_final_stats=1 \
    "$fuzz/found/$target" "$top/fuzz/corpus/$target" 2>"$log"
executions=$(sed -n 's/stat::number_of_executed_units: //p' "$log" | tail -n 1)
# The last line of times is for the processes that ended, "0m1.500000s 0m0.200000s". In a pipe it would be the pipe's own.
times >"$log"
used=$(tail -n 1 "$log" | sed 's/[ms]/ /g' | awk '{printf "%d", $1 * 60 + $2 + $3 * 60 + $4}')
echo "$target ${executions:-0} $used" >>"$fuzz/tally"
rm "$log"
