// A host as a little program over the function table.
#include <utility>
#include <vector>

#include "fuzz/harness.h"
#include "tests/common/test_root.h"

using namespace fuzz;

namespace {

constexpr DWORD kFlags[] = {0, 0x20, 0x40, 0xA0, 2, 8, 4, 0x40000000, static_cast<DWORD>(NCRYPT_PERSIST_FLAG), 0x80};

struct Host {
    NCRYPT_PROV_HANDLE provider = 0;
    NCRYPT_KEY_HANDLE keys[4] = {};
    PVOID walk = nullptr;
};

// One call of the program. The room for what comes back is missing or too small for some sizes of the data. Behind the
// data are two zero bytes: hosts owe some texts a terminator, whatever their size says.
struct Step {
    NCRYPT_PROV_HANDLE provider;
    NCRYPT_KEY_HANDLE& key;
    PVOID& walk;
    DWORD flags;
    TextString text;
    std::vector<BYTE> data;
    BYTE room[700] = {};
    DWORD needed = 0;

    DWORD size() const { return static_cast<DWORD>(data.size() - 2); }
    DWORD roomSize() const { return size() % 4 == 1 ? 10 : sizeof(room); }
    BYTE* out() { return size() % 4 == 2 ? nullptr : room; }
};

using Functions = NCRYPT_KEY_STORAGE_FUNCTION_TABLE;

void Release(const Functions& table, Step& step)
{
    if (step.key)
        Require(table.FreeKey(step.provider, std::exchange(step.key, 0)) == 0);
}

void Enumerate(const Functions& table, Step& step)
{
    NCryptKeyName* name = nullptr;
    if (table.EnumKeys(step.provider, nullptr, &name, &step.walk, step.flags) == 0)
        table.FreeBuffer(name);
}

void Algorithms(const Functions& table, Step& step)
{
    NCryptAlgorithmName* names = nullptr;
    if (table.EnumAlgorithms(step.provider, step.size(), &step.needed, &names, step.flags) == 0)
        table.FreeBuffer(names);
}

void SignAndVerify(const Functions& table, Step& step)
{
    BCRYPT_PSS_PADDING_INFO padding = {step.text.c_str(), 32};
    table.SignHash(step.provider, step.key, &padding, step.data.data(), step.size(), step.out(), step.roomSize(),
                   &step.needed, step.flags);
    table.VerifySignature(step.provider, step.key, &padding, step.data.data(), step.size(), step.room, 64, step.flags);
}

void Transform(const Functions& table, Step& step)
{
    for (const auto call : {table.Encrypt, table.Decrypt})
        call(step.provider, step.key, step.data.data(), step.size(), nullptr, step.out(), step.roomSize(), &step.needed,
             step.flags);
}

// By the first character of the line. The text is a name, of a key, a property, an algorithm or a type of blob.
void Run(char what, const Functions& t, Step& s)
{
    if (what == 'o' || what == 'c' || what == 'i' || what == 'r')
        Release(t, s);
    if (what == 'o')
        t.OpenKey(s.provider, &s.key, s.text.c_str(), 0, s.flags);
    if (what == 'c')
        t.CreatePersistedKey(s.provider, &s.key, s.text.c_str(), s.size() ? TEXT("made") : nullptr, 0, s.flags);
    if (what == 'i')
        t.ImportKey(s.provider, 0, s.text.c_str(), nullptr, &s.key, s.data.data(), s.size(), s.flags);
    if (what == 'f')
        t.FinalizeKey(s.provider, s.key, s.flags);
    if (what == 'x' && t.DeleteKey(s.provider, s.key, s.flags) == 0)
        s.key = 0;
    if (what == 'g')
        t.GetKeyProperty(s.provider, s.key, s.text.c_str(), s.out(), s.roomSize(), &s.needed, s.flags);
    if (what == 'p')
        t.SetKeyProperty(s.provider, s.key, s.text.c_str(), s.data.data(), s.size(), s.flags);
    if (what == 'G')
        t.GetProviderProperty(s.provider, s.text.c_str(), s.out(), s.roomSize(), &s.needed, s.flags);
    if (what == 'P')
        t.SetProviderProperty(s.provider, s.text.c_str(), s.data.data(), s.size(), s.flags);
    if (what == 'u')
        t.ExportKey(s.provider, s.key, 0, s.text.c_str(), nullptr, s.out(), s.roomSize(), &s.needed, s.flags);
    if (what == 'q')
        t.IsAlgSupported(s.provider, s.text.c_str(), s.flags);
    if (what == 'b' && s.walk)
        t.FreeBuffer(std::exchange(s.walk, nullptr));
    if (what == 'k')
        Enumerate(t, s);
    if (what == 'a')
        Algorithms(t, s);
    if (what == 's')
        SignAndVerify(t, s);
    if (what == 'e')
        Transform(t, s);
}

void RunLine(Host& host, std::string_view line)
{
    const size_t equals = line.find('=');
    const std::string_view data = equals == std::string_view::npos ? "" : line.substr(equals + 1);
    std::optional<Step> step;
    {
        const AllocFaultPause pause;
        step.emplace(Step{host.provider,
                          host.keys[static_cast<BYTE>(line[1]) % 4],
                          host.walk,
                          kFlags[static_cast<BYTE>(line[2]) % std::size(kFlags)],
                          Wide(std::string(line.substr(3, equals - 3))),
                          {data.begin(), data.end()}});
    }
    step->data.resize(data.size() + 2);
    Run(line[0], Table(), *step);
}

}  // namespace

// A line a call: what, which key, flags, a name, and "=" with data. "=" at the beginning is an answer of the service. A
// "k" as the second line: keys aren't certificates.
FUZZ_TARGET(host_program)
{
    Host host;
    const std::string plan(input.Line());
    const DWORD plainKeys = input.Line() == "k" ? 1 : 0;
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, TEXT("Software\\Zandrel\\Kelvaro"), TEXT("CertificatesOrKeys"), REG_DWORD,
                    &plainKeys, sizeof(plainKeys));
    Input planned(reinterpret_cast<const uint8_t*>(plan.data()), plan.size());
    FailingAllocation fault(planned);
    if (Table().OpenProvider(&host.provider, TEXT("provider"), 0) != 0)
        return;
    for (int calls = 0; !input.AtEnd() && calls < 60; calls++) {
        const std::string_view line = input.Line();
        if (line.size() > 1 && line[0] == '=')
            QueueAnswer(line.substr(1));
        else if (line.size() >= 3 && line.find('=') >= 3)
            RunLine(host, line);
    }
    for (const char* line : {"r00", "r10", "r20", "r30", "b00"})
        RunLine(host, line);
    Table().FreeProvider(host.provider);
}
