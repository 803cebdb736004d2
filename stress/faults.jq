# Summarizes the cells of the fault matrix, grouped by outcome.
{
  ok: (length > 0 and all(.[]; .ok)),
  cells: length,
  operations: (map(.operation) | unique | length),
  faults: (map(.fault) | unique | length),
  largestGrowthKb: (map(.memoryKb) | max),
  longestSeconds: (map(.seconds) | max | ceil),
  disagreeing: map(select(.ok | not)),
  outcomes: (group_by([.operation, .measured]) | map({operation: .[0].operation, faults: map(.fault)} + .[0].measured))
}
