# The short table: what was measured, its figure, and the mark.
def n($digits): . * pow(10; $digits) | round / pow(10; $digits);
.signature_against_the_wire as $signature |
[
  ["figure", "measured", "mark"],
  (["RSA-2048", "rsa2048"], ["P-256", "p256"] | . as [$key, $name] |
    ["signature against the wire, \($key), median", ($signature[$name].median | n(3)), "<= 1.05"],
    ["signature against the wire, \($key), 95th percentile", ($signature[$name].p95 | n(3)), ""],
    ["signature against the wire with sessions, \($key), median", ($signature[$name + "_sessions"].median | n(3)), "<= 1.03"],
    ["signature against the wire with sessions, \($key), 95th percentile", ($signature[$name + "_sessions"].p95 | n(3)), ""]),
  ["own instructions, log closed", (.own_work_of_a_signature.log_closed.instructions | n(0)), "<= 80000"],
  ["own allocations, log closed", .own_work_of_a_signature.log_closed.allocations, "<= 30"],
  ["own instructions, log at level 10", (.own_work_of_a_signature.log_at_level_10.instructions | n(0)), ""],
  ["own allocations, log at level 10", .own_work_of_a_signature.log_at_level_10.allocations, ""],
  (.threads.multiple_of_one_thread | to_entries | sort_by(.key | tonumber)[] |
    ["throughput of \(.key) threads, times one thread's", (.value | n(1)), ({"16": ">= 15", "64": ">= 50"}[.key] // "")]),
  ["throughput that the cores can carry with both ends on them, times one thread's", (.threads.multiple_that_the_cores_can_carry | n(1)), ""],
  ["share of that work in the simulator", (.threads.share_of_cpu_in_the_simulator | n(2)), ""],
  ["sign-ins of all threads", .threads.sign_ins, "1"],
  (.lists | to_entries[] | .key as $kind | .value | to_entries | sort_by(.key | tonumber)[] |
    ["\(.key) \($kind): time an object, times the smallest list's", (.value.time_an_object_over_smallest | n(2)), "<= 1.21"],
    (select(.value.cpu_an_object_over_smallest) |
      ["\(.key) \($kind): own work an object, times the smallest list's", (.value.cpu_an_object_over_smallest | n(2)), "<= 1.21"]),
    (select(.value.peak_bytes_a_name) | ["\(.key) \($kind): peak bytes a name", (.value.peak_bytes_a_name | n(0)), "< 600"])),
  ["requests of a cold start", .cold_start_against_the_wire.requests, ""],
  ["cold start against the wire, median", (.cold_start_against_the_wire.median | n(3)), "<= 1.15"],
  (.strings | to_entries[] | [.key, (.value | n(1)),
    ({"coded_name_over_copy": "<= 60"}[.key] // (if .key | contains("in_the_layer") then "<= 1.5" else "" end))])
] | .[] | @tsv
