# Summarizes the output of ended.sh, one case per line.
[split("\n")[] | select(. != "")]
| {
  ok: (length > 0 and all(.[]; test(": (ok|not reached)$"))),  # some calls depend on the random generator
  ways: (map(capture("^(?<way>.*) [a-z0-9]+ [0-9]+: (?<result>.*)$")) | group_by(.way)
    | map({way: .[0].way, points: length, good: (map(select(.result == "ok")) | length)})),
  failed: map(select(test(": (ok|not reached)$") | not))
}
