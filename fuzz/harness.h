// Shared by the fuzz targets.
#pragma once

#include <stdlib.h>

#include <string>
#include <string_view>

#include "platform/cng_provider.h"
#include "tests/common/alloc_fault.h"
#include "tests/common/test_root.h"

namespace fuzz {

// Aborts unless the condition holds.
inline void Require(bool holds)
{
    if (!holds)
        abort();
}

// Removes the first line and its line end from the input, and returns it.
std::string_view TakeLine(std::string_view& input);

// A target: FUZZ_TARGET(name) { ...input... }
using TargetFunction = void (*)(std::string_view input);
struct Target {
    Target(const char* name, TargetFunction function);
};
#define FUZZ_TARGET(name)                                   \
    static void Run_##name(std::string_view input);         \
    static ::fuzz::Target target_##name(#name, Run_##name); \
    static void Run_##name([[maybe_unused]] std::string_view input)

// Selects the target that Run runs.
void Choose(std::string_view name);
void Run(std::string_view input);

// During its lifetime, the allocation or platform call with the number in the line fails, and so do all later ones if a
// letter follows the number. With an empty line none fails.
AllocFault FaultFrom(std::string_view line);

// Queues an answer of the fake service. The first character says what happens:
//   0 200   1 201   2 202   3 204   4 400   5 401   6 403   7 404   8 409   9 429   a 500
//     The rest is the body. If there is none, the body is the service's own.
//   b 200, with a body that is cut off   h 401, and the rest is a header line
//   A step fails: i session, j connection handle, k request handle, l connecting, m sending, n receiving, o headers
// When the queue is empty, the service answers correctly.
void QueueAnswer(std::string_view line);
void ForgetAnswers();

const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& Table();
NCRYPT_PROV_HANDLE OpenProvider();  // 0 if it fails

// Opens and frees a provider and the key "web", which also synchronizes the certificates. Returns whether all calls
// succeeded.
bool OpenKeyOnce();

// Created once and shared by all inputs.
TestRoot& Root();

}  // namespace fuzz
