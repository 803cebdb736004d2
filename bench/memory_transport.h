// The transport's functions, answered from memory: sign-in, key and signature each have one fixed answer. A program
// that links this uses no network.
#pragma once

// Requests answered so far.
int AnsweredRequests();
