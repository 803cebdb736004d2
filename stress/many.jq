# Summarizes the output of stress_many.
{ok: (length > 0 and all(.[]; .ok)), rules: .}
