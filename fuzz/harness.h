// What the fuzz targets share.
#pragma once

#include <stdlib.h>

#include <optional>
#include <string>
#include <string_view>

#include "keyvault/kvc.h"
#include "platform/cng_provider.h"
#include "tests/common/alloc_fault.h"

namespace fuzz {

// Ends the process unless it holds.
inline void Require(bool holds)
{
    if (!holds)
        abort();
}

// An input, read from its front.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}
    std::string_view Line();  // up to the next line end, which goes too
    std::string_view Rest() const { return rest_; }
    bool AtEnd() const { return rest_.empty(); }

  private:
    std::string_view rest_;
};

// The targets: FUZZ_TARGET(name) { ...input... }
struct Target {
    Target(const char* targetName, void (*function)(Input& input));
    const char* name;
    void (*run)(Input& input);
    Target* next;
};
#define FUZZ_TARGET(name)                                   \
    static void Run_##name(::fuzz::Input& input);           \
    static ::fuzz::Target target_##name(#name, Run_##name); \
    static void Run_##name([[maybe_unused]] ::fuzz::Input& input)

// While one lives, the allocation whose number is on the input's first line fails ("" for none), and with an "a" behind
// it all later ones too.
class FailingAllocation {
  public:
    explicit FailingAllocation(Input& input);
    void Stop() { fault_.reset(); }

  private:
    std::optional<AllocFault> fault_;
};

// Queues an answer for the fake transport. Its first character says what happens:
//   0 200, 1 201, 2 202, 3 204, 4 400, 5 401, 6 403, 7 404, 8 409, 9 429, a 500, with the rest as the body, or with
//   what the service would say if there is no rest b 200 with a body that breaks off     h 401 with the rest as a line
//   of the head i no session     j no connection object     k no request     l cannot connect     m the sending fails
//   n no head        o a head that can't be read
// When no answer is left, the service gives the right one.
void QueueAnswer(std::string_view line);
void ForgetAnswers();

// A call that is signed in at its own client.
class VaultCall {
  public:
    VaultCall();
    ~VaultCall();
    VaultCall(const VaultCall&) = delete;
    VaultCall& operator=(const VaultCall&) = delete;
    KVC* get() const { return call_; }

  private:
    KVCClient* client_;
    KVC* call_;
};

const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& Table();

// Made once; nothing in it is lost between inputs.
const std::string& RootFolder();

}  // namespace fuzz
