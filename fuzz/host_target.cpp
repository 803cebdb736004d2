// A host: the input is a small program of calls through the function table.
#include <string.h>

#include <algorithm>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "fuzz/harness.h"
#include "provider/entry_points.h"

using namespace fuzz;

namespace {

constexpr DWORD kFlags[] = {0, 0x20, 0x40, 0xA0, 2, 8, 4, 0x40000000, static_cast<DWORD>(NCRYPT_PERSIST_FLAG), 0x80};

struct Host {
    NCRYPT_PROV_HANDLE provider = 0;
    NCRYPT_KEY_HANDLE keys[4] = {};
    PVOID walk = nullptr;
    bool detaches = false;
};

// name: of a key, property, algorithm or blob type.
struct HostCall {
    char what;
    NCRYPT_KEY_HANDLE& key;
    DWORD flags;
    size_t zeroed;  // the number of the argument that is replaced by zero
    const WCHAR* name;
    BYTE* data;
    DWORD size;
};

template <typename... Parameters, typename... Arguments>
SECURITY_STATUS Try(const HostCall& call, SECURITY_STATUS(WINAPI* slot)(Parameters...), Arguments... arguments)
{
    size_t index = 0;
    const auto pick = [&](auto value) { return index++ == call.zeroed ? decltype(value)() : value; };
    const std::tuple<Parameters...> given{pick(Parameters(arguments))...};
    return std::apply(slot, given);
}

void Keys(const HostCall& c, Host& host)
{
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& t = Table();
    // The first is the key's name or, for an envelope, the certificates; the data gives the type of the second.
    const DWORD kind = NCRYPTBUFFER_PKCS_ALG_OID + c.size % 8;
    NCryptBuffer buffers[] = {{c.size, DWORD(c.flags ? NCRYPTBUFFER_PKCS_KEY_NAME : NCRYPTBUFFER_CERT_BLOB), c.data},
                              {c.size, kind, c.data}};
    NCryptBufferDesc list = {NCRYPTBUFFER_VERSION, c.size % 5, buffers};
    if (strchr("ociIr", c.what) && c.key)
        Require(t.FreeKey(host.provider, std::exchange(c.key, 0)) == 0);
    if (c.what == 'o')
        Try(c, t.OpenKey, host.provider, &c.key, c.name, 0, c.flags);
    if (c.what == 'c')
        Try(c, t.CreatePersistedKey, host.provider, &c.key, c.name, c.size ? TEXT("made") : nullptr, 0, c.flags);
    if (c.what == 'i' || c.what == 'I') {
        list.cBuffers = std::min<ULONG>(list.cBuffers, 2);
        NCryptBufferDesc* const parameters = c.what == 'I' ? &list : nullptr;
        Try(c, t.ImportKey, host.provider, 0, c.name, parameters, &c.key, c.data, c.size, c.flags);
    }
    if (c.what == 'f')
        Try(c, t.FinalizeKey, host.provider, c.key, c.flags);
    if (c.what == 'x' && Try(c, t.DeleteKey, host.provider, c.key, c.flags) == 0)
        c.key = 0;
}

void Lists(const HostCall& c, Host& host)
{
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& t = Table();
    DWORD count = 0;
    NCryptKeyName* found = nullptr;
    NCryptAlgorithmName* algorithms = nullptr;
    if (c.what == 'q')
        Try(c, t.IsAlgSupported, host.provider, c.name, c.flags);
    // A host frees its buffers before it unloads the module, which would no longer recognise them.
    if (strchr("bz", c.what) && host.walk)
        t.FreeBuffer(std::exchange(host.walk, nullptr));
    if (c.what == 'k' && Try(c, t.EnumKeys, host.provider, nullptr, &found, &host.walk, c.flags) == 0)
        t.FreeBuffer(found);
    if (c.what == 'a' && Try(c, t.EnumAlgorithms, host.provider, c.size, &count, &algorithms, c.flags) == 0)
        t.FreeBuffer(algorithms);
    if (c.what == 'n') {  // unsupported functions, and invalid handles
        t.PromptUser(host.provider, c.key, c.name, c.flags);
        t.NotifyChangeKey(host.provider, nullptr, c.flags);
        t.SecretAgreement(host.provider, c.key, c.key, nullptr, c.flags);
        t.DeriveKey(host.provider, 0, c.name, nullptr, c.data, c.size, &count, c.flags);
        t.FreeSecret(host.provider, 0);
        t.FreeKey(host.provider, 0);
        t.FreeProvider(0);
        t.FreeBuffer(nullptr);
    }
}

// For some sizes of the data there is no buffer for the result, or it is too small.
void Values(const HostCall& c, Host& host)
{
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& t = Table();
    BYTE block[700] = {};
    BYTE* const out = c.size % 4 == 2 ? nullptr : block;
    const DWORD room = c.size % 4 == 1 ? 10 : sizeof(block);
    DWORD needed = 0;
    BCRYPT_PSS_PADDING_INFO padding = {*c.name ? c.name : nullptr, 32};
    if (c.what == 'g')
        Try(c, t.GetKeyProperty, host.provider, c.key, c.name, out, room, &needed, c.flags);
    if (c.what == 'p')
        Try(c, t.SetKeyProperty, host.provider, c.key, c.name, c.data, c.size, c.flags);
    if (c.what == 'G')
        Try(c, t.GetProviderProperty, host.provider, c.name, out, room, &needed, c.flags);
    if (c.what == 'P')
        Try(c, t.SetProviderProperty, host.provider, c.name, c.data, c.size, c.flags);
    if (c.what == 'u')
        Try(c, t.ExportKey, host.provider, c.key, 0, c.name, nullptr, out, room, &needed, c.flags);
    if (c.what == 's')
        Try(c, t.SignHash, host.provider, c.key, &padding, c.data, c.size, out, room, &needed, c.flags);
    if (c.what == 'v')
        Try(c, t.VerifySignature, host.provider, c.key, &padding, c.data, c.size, block, 64, c.flags);
    if (c.what == 'e')
        Try(c, t.Encrypt, host.provider, c.key, c.data, c.size, nullptr, out, room, &needed, c.flags);
    if (c.what == 'd')
        Try(c, t.Decrypt, host.provider, c.key, c.data, c.size, nullptr, out, room, &needed, c.flags);
}

void CallLine(Host& host, std::string_view line)
{
    const size_t equals = line.find('=');
    const std::string_view data = equals == std::string_view::npos ? "" : line.substr(equals + 1);
    // Zeros follow the data, three because its size may be odd: some texts must have a terminator, whatever their size.
    std::vector<BYTE> bytes(data.begin(), data.end());
    bytes.resize(data.size() + 3);
    std::optional<AllocFaultPause> pause(std::in_place);
    const TextString name = Wide(std::string(line.substr(4, equals - 4)));
    pause.reset();
    // An absolute descriptor holds pointers, which the module trusts. Here they are null.
    if (name == TEXT("Security Descr") && data.size() > 8 && (bytes[3] & SE_SELF_RELATIVE >> 8) == 0)
        std::fill(bytes.begin() + 8, bytes.end(), BYTE{0});
    const HostCall call = {line[0],
                           host.keys[static_cast<BYTE>(line[1]) % 4],
                           kFlags[static_cast<BYTE>(line[2]) % std::size(kFlags)],
                           static_cast<size_t>(line[3] - 'a'),
                           name.c_str(),
                           bytes.data(),
                           static_cast<DWORD>(data.size())};
    Keys(call, host);
    Lists(call, host);
    Values(call, host);
    if (call.what == 'z') {  // as if the module were unloaded, or the process ended, and loaded again
        DllMain(nullptr, DLL_PROCESS_DETACH, data.empty() ? nullptr : &host);
        DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
        host.detaches = true;
    }
}

void RunProgram(Host& host, std::string_view input)
{
    for (int calls = 0; !input.empty() && calls < 60; calls++) {
        const std::string_view line = TakeLine(input);
        if (line.size() > 1 && line[0] == '=')
            QueueAnswer(line.substr(1));
        else if (line.size() >= 4 && line.find('=') >= 4)
            CallLine(host, line);
    }
    for (const char* line : {"r00-", "r10-", "r20-", "r30-", "b00-"})
        CallLine(host, line);
    Table().FreeProvider(host.provider);
}

void Set(const WCHAR* name, DWORD value)
{
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, TEXT("Software\\Zandrel\\Kelvaro"), name, REG_DWORD, &value, sizeof(value));
}

}  // namespace

// One line per call: the function, the key, flags, the argument to replace by zero ("-": none), a name, and "=" with
// data. A line that begins with "=" is an answer of the service. The second line has "k" for plain keys, and a digit
// for the exportable option.
FUZZ_TARGET(host_program)
{
    Host host;
    const std::string_view plan = TakeLine(input);
    const std::string_view mode = TakeLine(input);
    Set(TEXT("CertificatesOrKeys"), mode.substr(0, 1) == "k" ? 1 : 0);
    Set(TEXT("ExportableOption"), mode.size() > 1 ? static_cast<DWORD>(mode[1] - '0') : 0);
    Set(TEXT("FromKVLastSyncTime"), 0);
    {
        const AllocFault fault = FaultFrom(plan);
        host.provider = OpenProvider();
        if (host.provider)
            RunProgram(host, input);
    }
    if (host.detaches) {  // a semaphore may not have been created
        DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
        DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    }
}
