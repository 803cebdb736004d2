# The rows of the table in docs/performance.md: what was measured, its figure, and the target. What a system doesn't measure has no
# row, and a run on wine has no targets.
def n($digits): if . == null then null else . * pow(10; $digits) | round / pow(10; $digits) end;
def sizes: to_entries | sort_by(.key | tonumber)[];
[
  ([["RSA-2048", "rsa2048"], ["P-256", "p256"]][] as [$key, $name] | .signature_against_the_wire |
    ["signature against the wire, \($key), median", (.[$name].median | n(3)), "<= 1.05"],
    ["signature against the wire, \($key), 95th percentile", (.[$name].p95 | n(3)), ""],
    ["signature against the wire with sessions, \($key), median", (.[$name + "_sessions"].median | n(3)), "<= 1.03"],
    ["signature against the wire with sessions, \($key), 95th percentile", (.[$name + "_sessions"].p95 | n(3)), ""]),
  ["signature with the log at level 4, relative to no log", (.log.level_4_over_closed | n(3)), "<= 1.02"],
  ["signature with the log at level 10, relative to no log", (.log.level_10_over_closed | n(3)), "<= 1.15"],
  ["own instructions, log off", (.own_work_of_a_signature.log_closed.instructions | n(0)), "<= 80000"],
  ["own allocations, log off", .own_work_of_a_signature.log_closed.allocations, "<= 30"],
  ["own instructions, log at level 10", (.own_work_of_a_signature.log_at_level_10.instructions | n(0)), ""],
  ["own allocations, log at level 10", .own_work_of_a_signature.log_at_level_10.allocations, ""],
  (.threads | ["50 ms", "200 ms"][] as $latency | .[$latency] |
    (.multiple_of_one_thread | sizes |
      ["throughput of \(.key) threads at \($latency), relative to one thread", (.value | n(1)),
        ({"50 ms 16": ">= 15", "200 ms 64": ">= 62"}["\($latency) \(.key)"] // "")]),
    (select($latency == "50 ms") |
      ["throughput that the cores can carry at 50 ms, relative to one thread", (.multiple_that_the_cores_can_carry | n(1)), ""],
      ["throughput of 128 threads at 50 ms, share of what the cores can carry", (.share_of_what_the_cores_can_carry | n(3)), ">= 0.95"],
      ["share of the work at 50 ms that is the simulator's", (.share_of_cpu_in_the_simulator | n(2)), ""])),
  ["sign-ins of all threads", .threads.sign_ins, "1"],
  (.threads.expiry |
    ["token expiring under \(.threads) threads: sign-ins", .sign_ins, "1"],
    ["token expiring under \(.threads) threads: signatures that waited for the new one", .signatures_that_waited, "<= \(.threads)"],
    ["token expiring under \(.threads) threads: longest signature, relative to a signature and a sign-in",
      (.longest_over_a_signature_and_a_sign_in | n(2)), "<= 1.1"]),
  (.lists // {} | to_entries[] | .key as $kind | .value | sizes |
    ["\(.key) \($kind): time per object, relative to the smallest list", (.value.time_an_object_over_smallest | n(2)), "<= 1.21"],
    ["\(.key) \($kind): own work per object, relative to the smallest list", (.value.cpu_an_object_over_smallest | n(2)), "<= 1.21"],
    ["\(.key) \($kind): peak bytes per name", (.value.peak_bytes_a_name | n(0)), "<= 600"]),
  ["requests of a cold start", .cold_start_against_the_wire.requests, ""],
  ["cold start against the wire, median", (.cold_start_against_the_wire.median | n(3)), "<= 1.15"],
  (.holdings | .signatures as $signatures | .before as $before | .after | to_entries[] |
    ["\(.key) left by \($signatures) signatures", .value - $before[.key], "0"]),
  (.tool |
    ["kelvaroctl keys list --names of \(.names.keys) keys: requests for pages", .names.pages, "120"],
    ["kelvaroctl keys list --names of \(.names.keys) keys: other requests to the vault", .names.other_requests, "<= 1"],
    ["kelvaroctl keys list --names of \(.names.keys) keys: time, relative to the vault's own", (.names.time_over_latency | n(2)), ""],
    ["kelvaroctl --version: milliseconds", (.version_ms | n(0)), "<= 50"]),
  (.strings // {} | to_entries[] | [(.key | gsub("_"; " ")), (.value | n(1)),
    ({"coded_name_over_copy": "<= 60"}[.key] // (if .key | contains("in_the_layer") then "<= 1.5" else "" end))])
] | map(select(.[1] != null)) | (["figure", "measured", "target"], ["---", "---", "---"], .[]) |
  (if $marks then . else .[:2] end) | "| " + (map(tostring) | join(" | ")) + " |"
