#include <utility>

#include "keyvault/key_lookup.h"
#include "platform/enumeration.h"
#include "provider/buffer_list.h"
#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/provider.h"
#include "provider/vault_call.h"
#include "support/guards.h"
#include "support/heap.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroEnumKeys");
constexpr SECURITY_STATUS kVaultReadFailed = static_cast<SECURITY_STATUS>(0x801B8002);

constexpr DWORD kAllowedFlags = NCRYPT_MACHINE_KEY_FLAG | NCRYPT_SILENT_FLAG;

// Releases a block that the host didn't get, registered or not.
struct UnregisterAndFree {
    void operator()(void* block) const
    {
        KelvaroForgetBuffer(block);
        HeapFree(GetProcessHeap(), 0, block);
    }
};
using EnumStatePtr = std::unique_ptr<KSP_ENUM_STATE, UnregisterAndFree>;

struct NameList : private NonCopyable {
    ~NameList() { KVCFreeNames(names, count); }

    WCHAR** names = nullptr;
    DWORD count = 0;
};

struct KeyNameBlock {
    NCryptKeyName name;
    WCHAR algId[kAlgIDChars];
};

// NULL: no memory, or more names than a 32-bit process can address.
KSP_ENUM_STATE* AllocateState(DWORD count)
{
    constexpr uint64_t kBytesPerName = sizeof(WCHAR*) + KSP_ENUM_STATE::kSlotChars * sizeof(WCHAR);
    return static_cast<KSP_ENUM_STATE*>(
        HeapAllocSized(HEAP_ZERO_MEMORY, sizeof(KSP_ENUM_STATE) + count * kBytesPerName));
}

SECURITY_STATUS TakeSnapshot(KVC* call, EnumStatePtr* state)
{
    NameList list;
    if (!KVCGetKeys(call, &list.names, &list.count))
        return kVaultReadFailed;
    EnumStatePtr made(AllocateState(list.count));
    if (!made || !KelvaroRegisterBuffer(made.get(), BufferKind::EnumState))
        return NTE_NO_MEMORY;

    made->count = list.count;
    for (DWORD i = 0; i < list.count; ++i) {
        made->names()[i] = made->slot(i);
        TextCopyCut(made->slot(i), KSP_ENUM_STATE::kSlotChars, View(list.names[i]));
    }
    *state = std::move(made);
    return ERROR_SUCCESS;
}

SECURITY_STATUS ReadNextKey(KVC* call, KSP_ENUM_STATE* state, DWORD dwFlags, NCryptKeyName** ppKeyName)
{
    WCHAR* name = state->names()[state->index];
    KVKeyOwner kvk;
    if (!KVCGetKey(call, name, &kvk.key, 0))
        return kVaultReadFailed;
    HeapPtr<KeyNameBlock> block(
        static_cast<KeyNameBlock*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, sizeof(KeyNameBlock))));
    if (!block)
        return NTE_NO_MEMORY;

    TextCopyCut(block->algId, kAlgIDChars, View(kvk.key.AlgID));
    block->name.pszName = name;  // the state's, which outlives the block
    block->name.pszAlgid = block->algId;
    block->name.dwFlags = dwFlags & NCRYPT_MACHINE_KEY_FLAG;
    ++state->index;
    if (!KelvaroRegisterBuffer(block.get(), BufferKind::KeyName))
        return NTE_NO_MEMORY;
    *ppKeyName = &block.release()->name;
    return ERROR_SUCCESS;
}

KVCClient* ChooseClient(const KSP_PROVIDER& provider, DWORD dwFlags)
{
    const DWORD machineFlag = dwFlags & NCRYPT_MACHINE_KEY_FLAG;
    LogLine(machineFlag != 0 ? TEXT("KelvaroEnumKeys NCRYPT_MACHINE_KEY_FLAG")
                             : TEXT("KelvaroEnumKeys NOT NCRYPT_MACHINE_KEY_FLAG"),
            LOG_DETAIL_LEVEL);
    return ProviderClient(&provider, machineFlag);
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroEnumKeys(NCRYPT_PROV_HANDLE hProvider, LPCWSTR /*pszScope*/, NCryptKeyName** ppKeyName,
                                       PVOID* ppEnumState, DWORD dwFlags)
{
    LogLine(kEntryPoint, LOG_ENTRY_LEVEL);
    const KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider)
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);
    if (!ppKeyName || !ppEnumState)
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    if ((dwFlags & ~kAllowedFlags) != 0)
        return FailStatus(NTE_BAD_FLAGS, kEntryPoint);

    KVCCall call;
    SECURITY_STATUS status =
        BeginVaultCall(ChooseClient(*provider, dwFlags), TEXT("KelvaroEnumKeys Authenticate Failed"), &call);
    if (status != ERROR_SUCCESS)
        return FailStatus(status, kEntryPoint);

    EnumStatePtr fresh;  // released here unless the host gets it
    auto* state = static_cast<KSP_ENUM_STATE*>(*ppEnumState);
    if (!state) {
        status = TakeSnapshot(call.get(), &fresh);
        if (status != ERROR_SUCCESS)
            return FailStatus(status, kEntryPoint);
        state = fresh.get();
    } else if (!KelvaroIsRegistered(state, BufferKind::EnumState)) {
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    }

    if (state->AtEnd())
        return NTE_NO_MORE_ITEMS;
    NCryptKeyName* keyName = nullptr;
    status = ReadNextKey(call.get(), state, dwFlags, &keyName);
    if (status != ERROR_SUCCESS)
        return FailStatus(status, kEntryPoint);
    *ppKeyName = keyName;
    *ppEnumState = state;
    fresh.release();  // the host owns it now
    return ERROR_SUCCESS;
}
