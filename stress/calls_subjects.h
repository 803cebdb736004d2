// The operations whose calls of the platform fail, and how to judge them.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "stress/operations.h"

namespace stress {

// Kinds of calls. Those of no kind, such as the registry's and the closing ones, must not make an operation fail.
enum Family : unsigned {
    kMemory = 1,
    kText = 2,  // conversions between character sets
    kHttp = 4,
    kBase64 = 8,
    kFile = 16,
    kCrypto = 32,
    kMissing = 64,   // an algorithm that the platform lacks
    kContents = 128  // of a blob that a host passes
};
unsigned FamilyOf(const std::string& call);

// How much of its work a successful operation has done.
enum class Work {
    Missing,
    Partly,  // the rest may be lost: it is done at the next opportunity, or the handle can't be used and says so
    Done
};

// A request that differs from the undisturbed ones because the module continues without the result of this call.
struct Fallback {
    std::string call;
    std::string text;  // in the request
};

struct Subject {
    std::string name;
    std::function<void(Stage&)> prepare;
    std::function<SECURITY_STATUS(Stage&)> run;
    std::function<Work(Stage&)> work;
    std::map<SECURITY_STATUS, unsigned> failures;  // with the families of calls that may cause each
    DWORD room = Stage::kUntouched;                // of the output buffer: the size that a failure may leave
    std::vector<Fallback> fallbacks = {};
};

const std::vector<Subject>& Subjects();

}  // namespace stress
