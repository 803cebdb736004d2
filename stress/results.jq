# Formats the results: one table row per line.
def value: if type == "array" and length > 0 then "[\n   " + (map(tojson) | join(",\n   ")) + "\n  ]" else tojson end;
def members($indent; f): "{\n" + (to_entries | map("\($indent)\(.key | tojson): " + (.value | f)) | join(",\n"));
members(" "; members("  "; value) + "\n }") + "\n}"
