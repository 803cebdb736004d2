// A host, as a small program of calls through the function table.
#include <optional>
#include <utility>
#include <vector>

#include "fuzz/harness.h"

using namespace fuzz;

namespace {

constexpr DWORD kFlags[] = {0, 0x20, 0x40, 0xA0, 2, 8, 4, 0x40000000, static_cast<DWORD>(NCRYPT_PERSIST_FLAG), 0x80};

struct Host {
    NCRYPT_PROV_HANDLE provider = 0;
    NCRYPT_KEY_HANDLE keys[4] = {};
    PVOID walk = nullptr;
};

// One call, by the first character of the line. name: of a key, a property, an algorithm or a type of blob. For some
// sizes of the data the room for the result is missing or too small.
void Call(char what, Host& host, NCRYPT_KEY_HANDLE& key, const WCHAR* name, DWORD flags, BYTE* data, DWORD size)
{
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& t = Table();
    const NCRYPT_PROV_HANDLE provider = host.provider;
    BYTE block[700] = {};
    BYTE* const out = size % 4 == 2 ? nullptr : block;
    const DWORD room = size % 4 == 1 ? 10 : sizeof(block);
    DWORD needed = 0;
    BCRYPT_PSS_PADDING_INFO padding = {name, 32};
    NCryptKeyName* found = nullptr;
    NCryptAlgorithmName* algorithms = nullptr;
    if ((what == 'o' || what == 'c' || what == 'i' || what == 'r') && key)
        Require(t.FreeKey(provider, std::exchange(key, 0)) == 0);
    if (what == 'o')
        t.OpenKey(provider, &key, name, 0, flags);
    if (what == 'c')
        t.CreatePersistedKey(provider, &key, name, size ? TEXT("made") : nullptr, 0, flags);
    if (what == 'i')
        t.ImportKey(provider, 0, name, nullptr, &key, data, size, flags);
    if (what == 'f')
        t.FinalizeKey(provider, key, flags);
    if (what == 'x' && t.DeleteKey(provider, key, flags) == 0)
        key = 0;
    if (what == 'g')
        t.GetKeyProperty(provider, key, name, out, room, &needed, flags);
    if (what == 'p')
        t.SetKeyProperty(provider, key, name, data, size, flags);
    if (what == 'G')
        t.GetProviderProperty(provider, name, out, room, &needed, flags);
    if (what == 'P')
        t.SetProviderProperty(provider, name, data, size, flags);
    if (what == 'u')
        t.ExportKey(provider, key, 0, name, nullptr, out, room, &needed, flags);
    if (what == 'q')
        t.IsAlgSupported(provider, name, flags);
    if (what == 'b' && host.walk)
        t.FreeBuffer(std::exchange(host.walk, nullptr));
    if (what == 'k' && t.EnumKeys(provider, nullptr, &found, &host.walk, flags) == 0)
        t.FreeBuffer(found);
    if (what == 'a' && t.EnumAlgorithms(provider, size, &needed, &algorithms, flags) == 0)
        t.FreeBuffer(algorithms);
    if (what == 's') {
        t.SignHash(provider, key, &padding, data, size, out, room, &needed, flags);
        t.VerifySignature(provider, key, &padding, data, size, block, 64, flags);
    }
    for (const auto transform : {t.Encrypt, t.Decrypt}) {
        if (what == 'e')
            transform(provider, key, data, size, nullptr, out, room, &needed, flags);
    }
}

void CallLine(Host& host, std::string_view line)
{
    const size_t equals = line.find('=');
    const std::string_view data = equals == std::string_view::npos ? "" : line.substr(equals + 1);
    // Two zero bytes follow the data: hosts owe some texts a terminator, whatever their size says.
    std::vector<BYTE> bytes(data.begin(), data.end());
    bytes.resize(data.size() + 2);
    std::optional<AllocFaultPause> pause(std::in_place);
    const TextString name = Wide(std::string(line.substr(3, equals - 3)));
    pause.reset();
    Call(line[0], host, host.keys[static_cast<BYTE>(line[1]) % 4], name.c_str(),
         kFlags[static_cast<BYTE>(line[2]) % std::size(kFlags)], bytes.data(), static_cast<DWORD>(data.size()));
}

}  // namespace

// A line for each call: what, which key, flags, a name, and "=" with data. A line that begins with "=" is an answer of
// the service. "k" as the second line: keys aren't certificates.
FUZZ_TARGET(host_program)
{
    Host host;
    const std::string_view plan = TakeLine(input);
    const DWORD plainKeys = TakeLine(input) == "k" ? 1 : 0;
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, TEXT("Software\\Zandrel\\Kelvaro"), TEXT("CertificatesOrKeys"), REG_DWORD,
                    &plainKeys, sizeof(plainKeys));
    const AllocFault fault = FaultFrom(plan);
    host.provider = OpenProvider();
    if (!host.provider)
        return;
    for (int calls = 0; !input.empty() && calls < 60; calls++) {
        const std::string_view line = TakeLine(input);
        if (line.size() > 1 && line[0] == '=')
            QueueAnswer(line.substr(1));
        else if (line.size() >= 3 && line.find('=') >= 3)
            CallLine(host, line);
    }
    for (const char* line : {"r00", "r10", "r20", "r30", "b00"})
        CallLine(host, line);
    Table().FreeProvider(host.provider);
}
