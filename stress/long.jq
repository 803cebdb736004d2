# Judges the samples of a long run. From the second quarter to the last, average use may grow by at most 1 MiB of resident memory
# and 1024 units of heap (blocks; on Linux 16 bytes), and the maximum by at most two handles and no thread.
def quarter($n): .[(length * ($n - 1) / 4 | ceil):(length * $n / 4 | ceil)];
def average(f): (map(f) | add) / length;
def grown: {
  residentKb: ((quarter(4) | average(.residentKb)) - (quarter(2) | average(.residentKb)) | round),
  heap: ((quarter(4) | average(.heap)) - (quarter(2) | average(.heap)) | round),
  handles: ((quarter(4) | map(.handles) | max) - (quarter(2) | map(.handles) | max)),
  threads: ((quarter(4) | map(.threads) | max) - (quarter(2) | map(.threads) | max))
};
def judged: if (.samples | length) < 8 then .ok = false | .grown = "too few samples" else
  .grown = (.samples | grown)
  | .ok = (.failures == .failuresExpected and .grown.residentKb <= 1024 and .grown.heap <= 1024 and .grown.handles <= 2
    and .grown.threads <= 0) end;
{signatures: (.signatures | judged), loads: (.loads | judged)}
| .ok = (.signatures.ok and .loads.ok)
| .signatureSamples = .signatures.samples | .loadSamples = .loads.samples | del(.signatures.samples, .loads.samples)
