// The provider's two entries in CNG's configuration: its record (name, image, interface), and its place in the router's
// list of key storage providers. Both are machine-wide and serve 64-bit and 32-bit programs.
#pragma once

#include <stdexcept>
#include <string>

#include "platform/product.h"
#include "register/cng_calls.h"

namespace kelvaro_register {

using WideText = std::basic_string<WCHAR>;

std::string Utf8(const WideText& text);

extern const WCHAR kImage[];  // no path: the router looks in the system folder

constexpr NTSTATUS kStatusAccessDenied = static_cast<NTSTATUS>(0xC0000022);
constexpr NTSTATUS kStatusNameNotFound = static_cast<NTSTATUS>(0xC0000034);
constexpr NTSTATUS kStatusNotFound = static_cast<NTSTATUS>(0xC0000225);

// A call that the router refused. The text names the call and its status.
class RefusedCall : public std::runtime_error {
  public:
    RefusedCall(const char* call, NTSTATUS status);
};

struct RegistrationState {
    bool recorded = false;  // the provider has a record with the key storage interface
    bool ours = false;      // and it is the one that install writes
    WideText image;         // the record's module
    bool listed = false;    // it is in the router's list
};

enum class Change { None, Made, Replaced };

struct InstallChanges {
    Change record = Change::None;
    Change listing = Change::None;
};

struct UninstallChanges {
    bool record = false;
    bool listing = false;
};

// All three throw RefusedCall.
RegistrationState ReadRegistration(const CngCalls& calls);
// Keeps what is already there. Removes a new record if adding the list entry fails, or if the configuration reads back
// differently.
InstallChanges InstallRegistration(const CngCalls& calls);
// Tries to remove each entry even if the other fails.
UninstallChanges UninstallRegistration(const CngCalls& calls);

}  // namespace kelvaro_register
