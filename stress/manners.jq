# Summarizes the output of stress_manners.
{ok: (length > 0 and all(.[]; .ok)), rows: .}
