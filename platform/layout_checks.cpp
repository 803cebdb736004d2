// Compares the tables of platform/published with the platform's headers. Compiled in every build, so that a differing
// header fails the build. On Linux the numbers come from the table itself.
#include <string_view>

#include "platform/cng_provider.h"

namespace {

constexpr bool k64Bit = sizeof(void*) == 8;
static_assert(k64Bit || sizeof(void*) == 4, "a pointer has 64 or 32 bits");

static_assert(sizeof(WCHAR) == 2);
static_assert(sizeof(BYTE) == 1 && sizeof(WORD) == 2 && sizeof(DWORD) == 4 && sizeof(ULONG) == 4);
static_assert(sizeof(LONG) == 4 && sizeof(BOOL) == 4 && sizeof(SECURITY_STATUS) == 4 && sizeof(NTSTATUS) == 4);
static_assert(static_cast<DWORD>(-1) > 0 && static_cast<LONG>(-1) < 0);
// NOLINTNEXTLINE(bugprone-sizeof-expression): the size of the handle is meant, not of what it points to.
static_assert(sizeof(HANDLE) == sizeof(void*) && sizeof(HKEY) == sizeof(void*));
static_assert(sizeof(NCRYPT_PROV_HANDLE) == sizeof(void*) && sizeof(NCRYPT_KEY_HANDLE) == sizeof(void*));
static_assert(ComputerNameDnsFullyQualified == 3);
constexpr BCRYPT_INTERFACE_VERSION kVersion = NCRYPT_KEY_STORAGE_INTERFACE_VERSION;
static_assert(kVersion.MajorVersion == 1 && kVersion.MinorVersion == 0);

#define SIZE(type, in64Bit, in32Bit) static_assert(sizeof(type) == (k64Bit ? (in64Bit) : (in32Bit)), #type);
#define FIELD(type, field, in64Bit, in32Bit) \
    static_assert(offsetof(type, field) == (k64Bit ? (in64Bit) : (in32Bit)), #type "." #field);
#include "platform/published/layouts.def"

#define NUMBER(type, name, value) static_assert(static_cast<type>(name) == static_cast<type>(value), #name);
#include "platform/published/numbers.def"

#define WIDE_TEXT(name, text) static_assert(std::basic_string_view<WCHAR>(name) == TEXT(text), #name);
#define NARROW_TEXT(name, text) static_assert(std::string_view(name) == (text), #name);
#include "platform/published/texts.def"

}  // namespace
