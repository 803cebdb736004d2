# From the targets' runs, earlier ones included ("NAME EXECUTIONS SECONDS" a line, several for a target), the findings that nobody
# fixed yet ("NAME COUNT" a line) and the coverage of all that they reached.
def rows: split("\n")[] | select(. != "") | split(" ");
([.findings | rows | {(.[0]): (.[1] | tonumber)}] | add) as $findings
| {
  targets: ([.tally | rows] | group_by(.[0])
    | map({name: .[0][0], executions: (map(.[1] | tonumber) | add), seconds: (map(.[2] | tonumber) | add),
        findings: $findings[.[0][0]]})),
  rooms: ([.coverage.data[0].files[] | {room: (.filename | split("/")[-2]), lines: .summary.lines}]
    | group_by(.room) | map({room: .[0].room, lines: (map(.lines.count) | add), covered: (map(.lines.covered) | add)})
    | map(select(.room | IN("provider", "certsync", "keyvault", "support"))))
}
| .ok = (all(.targets[]; .executions > 0 and .findings == 0) and (.targets | length) == ($findings | length)
    and (.rooms | length) == 4)
