// The provider's two entries in CNG's configuration: its record (name, image, interface), and its place in the list of
// key storage providers that the router looks through. Both are the machine's, for 64-bit and 32-bit programs alike.
#pragma once

#include <exception>
#include <string>

#include "platform/product.h"
#include "register/cng_calls.h"

namespace kelvaro_register {

using WideText = std::basic_string<WCHAR>;

extern const WCHAR kImage[];  // without a folder: the router looks in the system's

constexpr NTSTATUS kStatusAccessDenied = static_cast<NTSTATUS>(0xC0000022);
constexpr NTSTATUS kStatusNameNotFound = static_cast<NTSTATUS>(0xC0000034);
constexpr NTSTATUS kStatusNotFound = static_cast<NTSTATUS>(0xC0000225);

// A call that the router refused. The text names the call and its status.
class RefusedCall : public std::exception {
  public:
    RefusedCall(const char* call, NTSTATUS status);

    const char* what() const noexcept override { return text_.c_str(); }
    NTSTATUS status() const { return status_; }

  private:
    NTSTATUS status_;
    std::string text_;
};

struct RegistrationState {
    bool recorded = false;  // there is a record of the provider's name with the key storage interface
    bool ours = false;      // and it is what an install makes
    WideText image;         // the record's module
    bool listed = false;    // the router looks for keys in it
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
// What is there already stays. A record that was made here is taken back when the listing is refused, or when the
// configuration does not hold what it was given.
InstallChanges InstallRegistration(const CngCalls& calls);
// Both entries are tried, whatever becomes of the other.
UninstallChanges UninstallRegistration(const CngCalls& calls);

}  // namespace kelvaro_register
