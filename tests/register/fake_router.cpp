#include "tests/register/fake_router.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace kelvaro_register {

static FakeRouter* router = nullptr;

constexpr NTSTATUS kCollision = static_cast<NTSTATUS>(0xC0000035);
constexpr NTSTATUS kInvalid = static_cast<NTSTATUS>(0xC000000D);

FakeRouter::FakeRouter()
{
    router = this;
}

FakeRouter::~FakeRouter()
{
    router = nullptr;
}

static std::optional<NTSTATUS> Answer(const char* call)
{
    const auto found = router->answers.find(call);
    return found == router->answers.end() ? std::nullopt : std::optional<NTSTATUS>(found->second);
}

static std::optional<NTSTATUS> AnswerChange(const char* call)
{
    router->changes.append(call).append(" ");
    return Answer(call);
}

static bool IsKeyStorageList(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function)
{
    return table == 1 && WideText(context) == TEXT("Default") && interfaceId == 0x00010001 &&
           WideText(function) == TEXT("KEY_STORAGE");
}

// A zeroed block that counts as handed out.
static void* HandOut(size_t size)
{
    ++router->blocksOut;
    return std::calloc(1, size);
}

static WCHAR* Put(WCHAR* to, const WideText& text)
{
    std::memcpy(to, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
    return to + text.size() + 1;
}

static NTSTATUS WINAPI RegisterProvider(LPCWSTR name, ULONG flags, PCRYPT_PROVIDER_REG record)
{
    if (const auto answer = AnswerChange("register"))
        return *answer;
    if (!record || record->cAliases || record->pKM || !record->pUM || record->pUM->cInterfaces != 1)
        return kInvalid;
    const CRYPT_INTERFACE_REG& row = *record->pUM->rgpInterfaces[0];
    if (row.dwFlags != 1 || row.cFunctions != 1)
        return kInvalid;
    if (router->records.count(name) && flags != 1)
        return kCollision;
    router->records[name] = {record->pUM->pszImage, row.dwInterface, row.rgpszFunctions[0]};
    return 0;
}

static NTSTATUS WINAPI UnregisterProvider(LPCWSTR name)
{
    if (const auto answer = AnswerChange("unregister"))
        return *answer;
    return router->records.erase(name) ? 0 : kStatusNotFound;
}

namespace {
struct RecordBlock {
    CRYPT_PROVIDER_REG provider;
    CRYPT_IMAGE_REG image;
    CRYPT_INTERFACE_REG row;
    PCRYPT_INTERFACE_REG rows[1];
    PWSTR functions[1];
    WCHAR texts[512];
};

struct ListBlock {
    CRYPT_CONTEXT_FUNCTION_PROVIDERS list;
    PWSTR names[16];
    WCHAR texts[16 * 64];
};
}  // namespace

static NTSTATUS WINAPI QueryRegistration(LPCWSTR name, ULONG mode, ULONG interfaceId, ULONG* size,
                                         PCRYPT_PROVIDER_REG* out)
{
    if (const auto answer = Answer("query"))
        return *answer;
    const auto found = router->records.find(name);
    if (mode != 1 || found == router->records.end() || found->second.interfaceId != interfaceId)
        return kStatusNotFound;
    auto* const block = static_cast<RecordBlock*>(HandOut(sizeof(RecordBlock)));
    WCHAR* const function = Put(block->texts, found->second.image);
    Put(function, found->second.function);
    block->functions[0] = function;
    block->row = {interfaceId, 1, 1, block->functions};
    block->rows[0] = &block->row;
    block->image = {block->texts, 1, block->rows};
    block->provider = {0, nullptr, &block->image, nullptr};
    *size = sizeof(RecordBlock);
    *out = &block->provider;
    return 0;
}

static NTSTATUS WINAPI AddContextProvider(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function,
                                          LPCWSTR name, ULONG position)
{
    if (const auto answer = AnswerChange("add"))
        return *answer;
    if (!IsKeyStorageList(table, context, interfaceId, function) || position != 0xFFFFFFFF)
        return kInvalid;
    router->listing.push_back(name);
    return 0;
}

static NTSTATUS WINAPI RemoveContextProvider(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function,
                                             LPCWSTR name)
{
    if (const auto answer = AnswerChange("remove"))
        return *answer;
    if (!IsKeyStorageList(table, context, interfaceId, function))
        return kInvalid;
    const auto found = std::find(router->listing.begin(), router->listing.end(), name);
    if (found == router->listing.end())
        return kStatusNotFound;
    router->listing.erase(found);
    return 0;
}

static NTSTATUS WINAPI EnumContextProviders(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function,
                                            ULONG* size, PCRYPT_CONTEXT_FUNCTION_PROVIDERS* out)
{
    if (const auto answer = Answer("enum"))
        return *answer;
    if (!IsKeyStorageList(table, context, interfaceId, function))
        return kStatusNotFound;
    auto* const block = static_cast<ListBlock*>(HandOut(sizeof(ListBlock)));
    WCHAR* at = block->texts;
    for (const WideText& name : router->listing) {
        block->names[block->list.cProviders++] = at;
        at = Put(at, name);
    }
    block->list.rgpszProviders = block->names;
    *size = sizeof(ListBlock);
    *out = &block->list;
    return 0;
}

static VOID WINAPI TakeBackBlock(PVOID block)
{
    --router->blocksOut;
    std::free(block);
}

CngCalls FakeRouter::Calls()
{
    return {RegisterProvider,      UnregisterProvider,   QueryRegistration, AddContextProvider,
            RemoveContextProvider, EnumContextProviders, TakeBackBlock};
}

}  // namespace kelvaro_register
