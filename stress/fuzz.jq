# From the fuzz targets' runs ("NAME EXECUTIONS FINDINGS" a line) and the coverage of all that they reached.
{
  targets: [.runs | split("\n")[] | select(. != "") | split(" ") | {name: .[0], executions: (.[1] | tonumber? // 0), findings: (.[2] | tonumber)}],
  rooms: ([.coverage.data[0].files[] | {room: (.filename | split("/../../")[1] // "" | split("/")[0]), lines: .summary.lines}]
    | group_by(.room) | map({room: .[0].room, lines: (map(.lines.count) | add), covered: (map(.lines.covered) | add)})
    | map(select(.room | IN("provider", "certsync", "keyvault", "support"))))
} | .ok = all(.targets[]; .executions > 0 and .findings == 0)
