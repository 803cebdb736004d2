# The results as tables.
def row: "| " + (map(tostring) | join(" | ")) + " |";
def head: row, (map("---") | row);

def faults:
  "\(.cells) cells: \(.operations) operations, \(.faults) faults; \(.disagreeing | length) disagree.",
  "Largest growth of memory \(.largestGrowthKb) KiB, longest cell \(.longestSeconds) s.",
  "",
  (["operation", "faults", "status", "requests", "waits", "waited, s"] | head),
  (.outcomes[] | [.operation, (.faults | join(", ")), .status, .requests, .waits, .waitedMs / 1000] | row),
  (.disagreeing[] | "DISAGREES: \(.operation) / \(.fault): expected \(.expected), measured \(.measured), next call \(.nextCall), " +
    "\(.descriptors) descriptors more, \(.memoryKb) KB more, \(.seconds) s");

def fuzz:
  (["target", "executions", "minutes of processor time", "findings"] | head),
  (.targets[] | [.name, .executions, (.seconds / 6 | round / 10), .findings] | row),
  "",
  (["room", "lines", "covered by the targets alone"] | head),
  (.rooms[] | [.room, .lines, "\(.covered * 1000 / .lines | round / 10) %"] | row);

def many: (["rule", "held", "measured"] | head), (.rules[] | [.rule, .ok, .measured] | row);

def kill:
  (["interrupted by", "cases", "nothing lost or damaged, and the next start works"] | head),
  (.ways[] | [.way, .points, .good] | row),
  .failed[];

def calls:
  "\(.cases) cases with \(.functions | length) functions; something is wrong in \(.wrong | length).",
  "",
  (["operation", "calls", "statuses", "of the successes, only in part"] | head),
  (.operations[] | [.operation, .calls, .statuses, .partly] | row),
  (.wrong[] | "WRONG: \(.)");

def manners: (["done", "must hold", "held"] | head), (.rows[] | [.done, .must, if .wrong == "" then "yes" else .wrong end] | row);

def held($part; samples):
  "",
  "\(.[$part].done) \($part), \(.[$part].failures) failures with \(.[$part].failuresExpected) expected. From the second quarter to the last: \(.[$part].grown)",
  "",
  (["seconds", $part, "resident, KiB", "heap", "handles", "threads"] | head),
  (samples[] | [.seconds, .done, .residentKb, .heap, .handles, .threads] | row);
def long: held("signatures"; .signatureSamples), held("loads"; .loadSamples);

def judges:
  (["planted", "noticed by", "seconds"] | head),
  (.faults[] | [.fault, (if .before then "\(.part), but also without the fault" elif .noticed then .part else "NOT NOTICED" end), .seconds] | row);

if .faults then .faults | faults else empty end,
if .fuzz then .fuzz | fuzz else empty end,
if .many then .many | many else empty end,
if .kill then .kill | kill else empty end,
if .calls then .calls | calls else empty end,
if .manners then .manners | manners else empty end,
(.long, ."long-windows" | select(.) | long),
if .judges then .judges | judges else empty end
