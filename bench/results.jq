# Puts the programs' outputs into one record: ratios and counts only.
def time_of($name): $strings[0].benchmarks[] | select(.name == $name) | .cpu_time;
def over($name; $baseline): time_of($name) / time_of($baseline);
{
  signature_against_the_wire: $signature[0] | del(.log),
  log: $signature[0].log,
  own_work_of_a_signature: { log_closed: $closed[0], log_at_level_10: $open[0] },
  threads: $threads[0],
  lists: $lists[0],
  cold_start_against_the_wire: $cold[0],
  holdings: $handles[0],
  tool: $tool[0],
  strings: (if $strings[0] == null then null else {
    base64_encode_over_copy: over("Base64Encode"; "Copy"),
    base64_encode_over_openssl: over("Base64Encode"; "Base64EncodeOpenSsl"),
    base64_encode_in_the_layer_over_openssl: over("PlatformEncode"; "Base64EncodeOpenSsl"),
    base64_decode_over_copy: over("Base64Decode"; "Copy"),
    base64_decode_over_openssl: over("Base64Decode"; "Base64DecodeOpenSsl"),
    base64_decode_in_the_layer_over_openssl: over("PlatformDecode"; "Base64DecodeOpenSsl"),
    plain_name_over_copy: over("EncodeName/plain"; "CopyName/plain"),
    coded_name_over_copy: over("EncodeName/coded"; "CopyName/coded")
  } end)
} | del(.. | nulls) | del(.. | select(. == {}))
