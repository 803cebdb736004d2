// What the fuzz targets share.
#pragma once

#include <stdlib.h>

#include <string>
#include <string_view>

#include "platform/cng_provider.h"
#include "tests/common/alloc_fault.h"
#include "tests/common/test_root.h"

namespace fuzz {

// Aborts unless it holds.
inline void Require(bool holds)
{
    if (!holds)
        abort();
}

// Takes the first line off the input, with its line end.
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

// While it lives, the allocation or call of the platform whose number is in the line fails, and all later ones too if a
// letter follows the number. An empty line lets none fail.
AllocFault FaultFrom(std::string_view line);

// Queues an answer of the fake service. The first character says what happens:
//   0 200   1 201   2 202   3 204   4 400   5 401   6 403   7 404   8 409   9 429   a 500
//     The rest is the body; without a rest the body is what the service would say.
//   b 200, and the body breaks off   h 401, and the rest is a line of the head
//   No i session, j connection handle, k request handle, l connection, m sending, n answer, o head
// Once no answer is left, the service gives the right ones.
void QueueAnswer(std::string_view line);
void ForgetAnswers();

const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& Table();
NCRYPT_PROV_HANDLE OpenProvider();  // 0 if it fails

// Opens and releases a provider and the key "web", which also synchronizes the certificates. Whether all calls succeed.
bool OpenKeyOnce();

// Created once; inputs share it.
TestRoot& Root();

}  // namespace fuzz
