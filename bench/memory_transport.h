// The transport's functions, answered from memory: every sign-in, key and signature is one of three fixed answers. A
// program that links this has no network in it.
#pragma once

// Requests that were answered so far.
int AnsweredRequests();
