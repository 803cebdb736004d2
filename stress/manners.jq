# From the rows of a host's manners.
{ok: (length > 0 and all(.[]; .ok)), rows: .}
