# From the cases of calls that fail: their number and statuses, and the cases in which something is wrong.
{
  ok: (length > 0 and all(.[]; .wrong == [])),
  cases: length,
  functions: (map(select(.allAfter | not) | .call) | unique),
  operations: (group_by(.operation) | map({
    operation: .[0].operation,
    calls: (map(.number) | max + 1),
    statuses: (group_by(.status) | map({(.[0].status): length}) | add)
  })),
  wrong: map(select(.wrong != []))
}
