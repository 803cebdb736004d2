#include "register/registration.h"

#include <cstdio>
#include <filesystem>
#include <memory>

#include "platform/owner.h"

namespace kelvaro_register {

const WCHAR kImage[] = TEXT("kelvaro.dll");

std::string Utf8(const WideText& text)
{
    return std::filesystem::path(text).u8string();
}

static std::string RefusalText(const char* call, NTSTATUS status)
{
    char code[16];
    std::snprintf(code, sizeof(code), "0x%08lx", static_cast<unsigned long>(static_cast<ULONG>(status)));
    return std::string(call) + " answered " + code +
           (status == kStatusAccessDenied ? ": run this as an administrator" : "");
}

RefusedCall::RefusedCall(const char* call, NTSTATUS status) : std::runtime_error(RefusalText(call, status)) {}

static void Check(const char* call, NTSTATUS status)
{
    if (status < 0)
        throw RefusedCall(call, status);
}

static bool IsMissing(NTSTATUS status)
{
    return status == kStatusNotFound || status == kStatusNameNotFound;
}

namespace {
// A block that the router allocated.
template <typename T>
using RouterBlock = std::unique_ptr<T, VOID(WINAPI*)(PVOID)>;

// What is registered, in the published structures, whose texts aren't const.
struct Record : NonCopyable {
    WideText function = NCRYPT_KEY_STORAGE_ALGORITHM;
    WideText image = kImage;
    PWSTR functions[1] = {function.data()};
    CRYPT_INTERFACE_REG interfaceRecord = {NCRYPT_KEY_STORAGE_INTERFACE, CRYPT_LOCAL, 1, functions};
    PCRYPT_INTERFACE_REG interfaces[1] = {&interfaceRecord};
    CRYPT_IMAGE_REG imageRecord = {image.data(), 1, interfaces};
    CRYPT_PROVIDER_REG provider = {0, nullptr, &imageRecord, nullptr};
};
}  // namespace

static bool SameName(const WCHAR* first, const WCHAR* second)
{
    const auto lower = [](WCHAR ch) { return ch >= 'A' && ch <= 'Z' ? static_cast<WCHAR>(ch - 'A' + 'a') : ch; };
    for (; *first && lower(*first) == lower(*second); ++first)
        ++second;
    return lower(*first) == lower(*second);
}

static bool HasKeyStorage(const CRYPT_IMAGE_REG& image)
{
    for (ULONG at = 0; at < image.cInterfaces; ++at) {
        const CRYPT_INTERFACE_REG& row = *image.rgpInterfaces[at];
        for (ULONG function = 0; row.dwInterface == NCRYPT_KEY_STORAGE_INTERFACE && function < row.cFunctions;
             ++function) {
            if (SameName(row.rgpszFunctions[function], NCRYPT_KEY_STORAGE_ALGORITHM))
                return true;
        }
    }
    return false;
}

static void ReadRecord(const CngCalls& calls, RegistrationState* state)
{
    ULONG size = 0;
    PCRYPT_PROVIDER_REG found = nullptr;
    const NTSTATUS status =
        calls.queryProviderRegistration(kProviderName, CRYPT_UM, NCRYPT_KEY_STORAGE_INTERFACE, &size, &found);
    if (IsMissing(status))
        return;
    Check("BCryptQueryProviderRegistration", status);
    const RouterBlock<CRYPT_PROVIDER_REG> block(found, calls.freeBuffer);
    if (!found || !found->pUM)
        return;
    state->recorded = true;
    state->image = found->pUM->pszImage ? found->pUM->pszImage : WideText();
    state->ours = SameName(state->image.c_str(), kImage) && HasKeyStorage(*found->pUM);
}

static bool ReadListing(const CngCalls& calls)
{
    ULONG size = 0;
    PCRYPT_CONTEXT_FUNCTION_PROVIDERS found = nullptr;
    const NTSTATUS status = calls.enumContextFunctionProviders(
        CRYPT_LOCAL, CRYPT_DEFAULT_CONTEXT, NCRYPT_KEY_STORAGE_INTERFACE, NCRYPT_KEY_STORAGE_ALGORITHM, &size, &found);
    if (IsMissing(status))
        return false;
    Check("BCryptEnumContextFunctionProviders", status);
    const RouterBlock<CRYPT_CONTEXT_FUNCTION_PROVIDERS> block(found, calls.freeBuffer);
    for (ULONG at = 0; found && at < found->cProviders; ++at) {
        if (SameName(found->rgpszProviders[at], kProviderName))
            return true;
    }
    return false;
}

RegistrationState ReadRegistration(const CngCalls& calls)
{
    RegistrationState state;
    ReadRecord(calls, &state);
    state.listed = ReadListing(calls);
    return state;
}

static NTSTATUS RemoveListing(const CngCalls& calls)
{
    return calls.removeContextFunctionProvider(CRYPT_LOCAL, CRYPT_DEFAULT_CONTEXT, NCRYPT_KEY_STORAGE_INTERFACE,
                                               NCRYPT_KEY_STORAGE_ALGORITHM, kProviderName);
}

// Undoes what this install did. A replaced record cannot be restored.
static void RollBack(const CngCalls& calls, const InstallChanges& changes)
{
    if (changes.listing == Change::Made)
        RemoveListing(calls);
    if (changes.record == Change::Made)
        calls.unregisterProvider(kProviderName);
}

InstallChanges InstallRegistration(const CngCalls& calls)
{
    const RegistrationState before = ReadRegistration(calls);
    InstallChanges changes;
    try {
        if (!before.ours) {
            Record record;
            Check("BCryptRegisterProvider",
                  calls.registerProvider(kProviderName, before.recorded ? CRYPT_OVERWRITE : 0, &record.provider));
            changes.record = before.recorded ? Change::Replaced : Change::Made;
        }
        if (!before.listed) {
            // At the bottom: the router still asks the other providers for a key first.
            Check("BCryptAddContextFunctionProvider",
                  calls.addContextFunctionProvider(CRYPT_LOCAL, CRYPT_DEFAULT_CONTEXT, NCRYPT_KEY_STORAGE_INTERFACE,
                                                   NCRYPT_KEY_STORAGE_ALGORITHM, kProviderName, CRYPT_PRIORITY_BOTTOM));
            changes.listing = Change::Made;
        }
        const RegistrationState after = ReadRegistration(calls);
        if (!after.ours)
            throw RefusedCall("BCryptQueryProviderRegistration", kStatusNotFound);
        if (!after.listed)
            throw RefusedCall("BCryptEnumContextFunctionProviders", kStatusNotFound);
    } catch (const RefusedCall&) {
        RollBack(calls, changes);
        throw;
    }
    return changes;
}

UninstallChanges UninstallRegistration(const CngCalls& calls)
{
    // The list entry first: the router can't handle a listed provider without a record.
    const NTSTATUS listing = RemoveListing(calls);
    const NTSTATUS record = calls.unregisterProvider(kProviderName);
    if (!IsMissing(listing))
        Check("BCryptRemoveContextFunctionProvider", listing);
    if (!IsMissing(record))
        Check("BCryptUnregisterProvider", record);
    return {record >= 0, listing >= 0};
}

}  // namespace kelvaro_register
