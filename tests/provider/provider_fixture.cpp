#include "tests/provider/provider_fixture.h"

#include <algorithm>

static json KeyAnswer(json key, const std::vector<std::string>& ops)
{
    key["kid"] = "https://contoso-keys.vault.azure.net/keys/special/0123456789abcdef0123456789abcdef";
    key["key_ops"] = ops;
    return {{"key", key}, {"attributes", {{"enabled", true}}}};
}

json RsaAnswer(const Bytes& n)
{
    return KeyAnswer({{"kty", "RSA"}, {"n", Base64Url(n)}, {"e", "AQAB"}}, {"sign", "verify"});
}

json CurveAnswer(const std::string& crv, const Bytes& x, const Bytes& y, const std::vector<std::string>& ops,
                 const std::string& algIdTag)
{
    json answer = KeyAnswer({{"kty", "EC"}, {"crv", crv}, {"x", Base64Url(x)}, {"y", Base64Url(y)}}, ops);
    if (!algIdTag.empty())
        answer["tags"] = {{"AlgID", algIdTag}};
    return answer;
}

NCRYPT_KEY_HANDLE ProviderTest::Pending(const char* algorithm, const char* name, DWORD flags)
{
    NCRYPT_KEY_HANDLE key = 0;
    const TextString wide = Wide(name ? name : "");
    EXPECT_EQ(kDone, Hex(table->CreatePersistedKey(OpenProvider(), &key, Wide(algorithm).c_str(),
                                                   name ? wide.c_str() : nullptr, 1, flags)));
    if (key)
        keys.push_back(key);
    return key;
}

Result ProviderTest::GetKey(NCRYPT_KEY_HANDLE key, const std::string& property, DWORD flags)
{
    const TextString name = Wide(property);
    return ReadAsked([&](BYTE* output, DWORD size, DWORD* result) {
        return key ? table->GetKeyProperty(provider, key, name.c_str(), output, size, result, flags)
                   : table->GetProviderProperty(OpenProvider(), name.c_str(), output, size, result, flags);
    });
}

SECURITY_STATUS ProviderTest::SetKey(NCRYPT_KEY_HANDLE key, const std::string& property, Bytes value, DWORD flags)
{
    const TextString name = Wide(property);
    const DWORD size = static_cast<DWORD>(value.size());
    value.reserve(1);  // an empty value isn't NULL
    return key ? table->SetKeyProperty(provider, key, name.c_str(), value.data(), size, flags)
               : table->SetProviderProperty(OpenProvider(), name.c_str(), value.data(), size, flags);
}

// Runs operation(output, &needed).
template <class Operation>
static Result IntoBuffer(DWORD room, Operation operation)
{
    const Bytes before(room, 0xEE);
    Result result = {0, before, 0};
    result.status = operation(room ? result.bytes.data() : nullptr, &result.needed);
    EXPECT_TRUE(result.status == 0 || result.bytes == before);
    result.bytes.resize(result.status == 0 && room ? result.needed : 0);
    return result;
}

// The padding information that belongs to the flags.
struct Padding {
    Padding(DWORD flags, const char* hash) : name(Wide(hash ? hash : ""))
    {
        pss.pszAlgId = pkcs1.pszAlgId = name.empty() ? nullptr : name.c_str();
        pss.cbSalt = 32;
        if (hash)
            info = (flags & BCRYPT_PAD_PKCS1) ? static_cast<void*>(&pkcs1) : &pss;
    }
    const TextString name;
    BCRYPT_PKCS1_PADDING_INFO pkcs1 = {};
    BCRYPT_PSS_PADDING_INFO pss = {};
    void* info = nullptr;
};

Result ProviderTest::Sign(NCRYPT_KEY_HANDLE key, Bytes hash, DWORD flags, const char* hashName, DWORD room)
{
    const Padding padding(flags, hashName);
    return IntoBuffer(room, [&](BYTE* output, DWORD* needed) {
        return table->SignHash(OpenProvider(), key, padding.info, hash.data(), static_cast<DWORD>(hash.size()), output,
                               room, needed, flags);
    });
}

std::string ProviderTest::Verify(NCRYPT_KEY_HANDLE key, Bytes hash, Bytes signature, DWORD flags, const char* hashName)
{
    const Padding padding(flags, hashName);
    return Hex(table->VerifySignature(OpenProvider(), key, padding.info, hash.data(), static_cast<DWORD>(hash.size()),
                                      signature.data(), static_cast<DWORD>(signature.size()), flags));
}

// The hash of the padding information doesn't count.
Result ProviderTest::Transform(decltype(NCRYPT_KEY_STORAGE_FUNCTION_TABLE::Encrypt) operation, NCRYPT_KEY_HANDLE key,
                               Bytes input, DWORD flags, DWORD room)
{
    BCRYPT_OAEP_PADDING_INFO padding = {TEXT("SHA256"), nullptr, 0};
    return IntoBuffer(room, [&](BYTE* output, DWORD* needed) {
        return operation(OpenProvider(), key, input.data(), static_cast<DWORD>(input.size()), &padding, output, room,
                         needed, flags);
    });
}

ProviderTest::Found ProviderTest::Next(PVOID* state, DWORD flags)
{
    NCryptKeyName* name = nullptr;
    Found found = {table->EnumKeys(OpenProvider(), nullptr, &name, state, flags), "", "", 0};
    EXPECT_EQ(found.status == 0, name != nullptr);
    if (name) {
        found = {found.status, Narrow(name->pszName), Narrow(name->pszAlgid), name->dwFlags};
        EXPECT_EQ(0u, name->dwLegacyKeySpec);
        EXPECT_EQ(0, table->FreeBuffer(name));
    }
    return found;
}

std::vector<json> ProviderTest::Bodies(const std::string& action)
{
    std::vector<json> bodies;
    for (const json& request : sim.Journal()) {
        if (request.value("target", "").find("/" + action + "?") != std::string::npos)
            bodies.push_back(json::parse(request.value("body", "")));
    }
    return bodies;
}

Lines ProviderTest::ErrorLines() const
{
    Lines lines;
    for (const std::string& line : root.LogLines()) {
        if (line.size() > 2 && line.compare(line.size() - 2, 2, " 1") == 0)
            lines.push_back(line.substr(0, line.size() - 2));
    }
    return lines;
}

Bytes ProviderTest::KeptBlob(const KSP_KEY& key)
{
    DATA_BLOB sealed = {key.cbPrivateKey, key.pbPrivateKey};
    DATA_BLOB plain = {};
    LPWSTR description = nullptr;
    if (!CryptUnprotectData(&sealed, &description, nullptr, nullptr, nullptr, 0, &plain))
        return {};
    EXPECT_EQ("Private Key", Narrow(description));
    LocalFree(description);
    const Bytes blob(plain.pbData, plain.pbData + plain.cbData);
    LocalFree(plain.pbData);
    return blob;
}
