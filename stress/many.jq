# From the rules of the threads and processes.
{ok: (length > 0 and all(.[]; .ok)), rules: .}
