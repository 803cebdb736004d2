# From the cases of failing calls: their numbers and statuses, the successes with a part of the work only, and the cases in
# which something is wrong.
{
  ok: (length > 0 and all(.[]; .wrong == [])),
  cases: length,
  functions: (map(select(.allAfter | not) | .call) | unique),
  operations: (group_by(.operation) | map({
    operation: .[0].operation,
    calls: (map(.number) | max + 1),
    statuses: (group_by(.status) | map({(.[0].status): length}) | add),
    partly: (map(select(.partly)) | length)
  })),
  wrong: map(select(.wrong != []))
}
