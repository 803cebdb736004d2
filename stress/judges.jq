# Summarizes the output of judges.sh.
{ok: (length > 0 and all(.[]; .noticed and (.before | not))), faults: .}
