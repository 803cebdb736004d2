// Hosts see the order in which a call tests its arguments: tests/data/refused_calls.txt. No refusal makes a request,
// and each logs its line.
#include <deque>
#include <functional>
#include <map>
#include <tuple>

#include "tests/provider/provider_fixture.h"
#include "tests/provider/words.h"

namespace {

using EntryCall = std::function<SECURITY_STATUS(const std::vector<uintptr_t>&)>;
using Calls = std::map<std::string, EntryCall>;

template <class Type>
Type ArgumentAs(uintptr_t value)
{
    if constexpr (std::is_pointer_v<Type>)
        return reinterpret_cast<Type>(value);
    else
        return static_cast<Type>(value);
}

template <class... Types>
EntryCall CallOf(SECURITY_STATUS(WINAPI* entry)(Types...))
{
    return [entry](const std::vector<uintptr_t>& values) {
        EXPECT_EQ(sizeof...(Types), values.size());
        auto value = values.begin();
        const std::tuple<Types...> arguments{ArgumentAs<Types>(*value++)...};
        return std::apply(entry, arguments);
    };
}

template <class Type>
uintptr_t AddressOf(Type& object)
{
    return reinterpret_cast<uintptr_t>(&object);
}

class ArgumentsTest : public ProviderTest {
  protected:
    // Finalizing a key without a name doesn't involve the vault.
    NCRYPT_KEY_HANDLE KeyFor(DWORD usage, bool finalized)
    {
        const NCRYPT_KEY_HANDLE key = Pending("RSA");
        EXPECT_EQ(0, SetKey(key, "Key Usage", Words({usage})));
        EXPECT_EQ(0, finalized ? Finalize(key) : 0);
        return key;
    }
    uintptr_t Argument(const std::string& word)
    {
        const bool repeated = word.size() > 2 && word[1] == '*';
        if (word[0] == '\'' || repeated) {
            texts.push_back(Wide(repeated ? std::string(std::stoul(word.substr(2)), word[0]) : word.substr(1)));
            return reinterpret_cast<uintptr_t>(texts.back().c_str());
        }
        const auto named = objects.find(word);
        return named != objects.end() ? named->second : std::stoul(word, nullptr, 0);
    }
    static std::string LineOf(const std::string& entry, SECURITY_STATUS status)
    {
        if (status == 0)
            return "";
        const bool bare = std::string("PromptUser NotifyChangeKey SecretAgreement DeriveKey FreeSecret").find(entry) !=
                          std::string::npos;
        const std::string word = entry == "OpenKey" ? " Error" : entry == "ExportKey" ? " Failed" : "";
        return "Kelvaro" + entry + (bare ? "" : word + " Error " + Hex(status));
    }

    struct {
        DWORD cbLength, dwMagic;
    } heads[4] = {{sizeof(KSP_PROVIDER), 0x7866ABCF},
                  {sizeof(KSP_PROVIDER) - 1, 0x7866ABCE},
                  {sizeof(KSP_KEY), 0x7866ABCE},
                  {sizeof(KSP_KEY) - 1, 0x7866ABCF}};
    BYTE bytes[64] = {};
    NCRYPT_HANDLE made = 77;
    DWORD size = 7;
    PVOID list = nullptr, state = bytes;
    std::map<std::string, uintptr_t> objects;
    std::deque<TextString> texts;
};

TEST_F(ArgumentsTest, FaultsInTheirOrder)
{
#define ENTRY(name) Calls::value_type(#name, CallOf(table->name))
    const Calls calls({ENTRY(OpenProvider),
                       ENTRY(OpenKey),
                       ENTRY(CreatePersistedKey),
                       ENTRY(GetProviderProperty),
                       ENTRY(GetKeyProperty),
                       ENTRY(SetProviderProperty),
                       ENTRY(SetKeyProperty),
                       ENTRY(FinalizeKey),
                       ENTRY(DeleteKey),
                       ENTRY(FreeProvider),
                       ENTRY(FreeKey),
                       ENTRY(Encrypt),
                       ENTRY(Decrypt),
                       ENTRY(IsAlgSupported),
                       ENTRY(EnumAlgorithms),
                       ENTRY(EnumKeys),
                       ENTRY(ImportKey),
                       ENTRY(ExportKey),
                       ENTRY(SignHash),
                       ENTRY(VerifySignature),
                       ENTRY(PromptUser),
                       ENTRY(NotifyChangeKey),
                       ENTRY(SecretAgreement),
                       ENTRY(DeriveKey),
                       ENTRY(FreeSecret)});
#undef ENTRY
    objects = {{"-", 0},
               {"p", OpenProvider()},
               {"key", KeyFor(1, false)},
               {"decrypts", KeyFor(1, true)},
               {"signs", KeyFor(2, true)},
               {"key-in-p", AddressOf(heads[0])},
               {"short-p", AddressOf(heads[1])},
               {"p-in-key", AddressOf(heads[2])},
               {"short-key", AddressOf(heads[3])},
               {"made", AddressOf(made)},
               {"size", AddressOf(size)},
               {"list", AddressOf(list)},
               {"state", AddressOf(state)},
               {"bytes", AddressOf(bytes)}};
    for (const auto& words : SectionRows("refused_calls.txt")) {
        SCOPED_TRACE(testing::PrintToString(words));
        const SECURITY_STATUS expected = StatusOfWord(words[0]);
        std::vector<uintptr_t> values;
        for (size_t at = 2; at < words.size(); ++at)
            values.push_back(Argument(words[at]));
        root.ClearLog();
        size = 7;
        EXPECT_EQ(Hex(expected), Hex(calls.at(words[1])(values)));
        EXPECT_EQ(LineOf(words[1], expected), LastErrorLine());
        EXPECT_EQ(expected == NTE_BUFFER_TOO_SMALL ? 4u : 7u, size) << "the size that is needed";
        EXPECT_EQ(77u, made);
        EXPECT_EQ(nullptr, list);
        EXPECT_EQ(Bytes(sizeof(bytes)), BytesOf(bytes)) << "no output";
    }
    EXPECT_EQ(0u, sim.Journal().size());
}

}  // namespace
