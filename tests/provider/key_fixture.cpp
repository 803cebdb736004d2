#include "tests/provider/key_fixture.h"

using nlohmann::json;

Bytes Pattern(size_t size)
{
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<BYTE>(i + 1);
    return bytes;
}

static json KeyAnswer(json key, const std::vector<std::string>& ops)
{
    key["kid"] = "https://contoso-keys.vault.azure.net/keys/special/0123456789abcdef0123456789abcdef";
    key["key_ops"] = ops;
    return {{"key", key}, {"attributes", {{"enabled", true}}}};
}

json RsaAnswer(const Bytes& n, const Bytes& e)
{
    return KeyAnswer({{"kty", "RSA"}, {"n", Base64Url(n)}, {"e", Base64Url(e)}}, {"sign", "verify"});
}

json CurveAnswer(const std::string& crv, const Bytes& x, const Bytes& y, const std::vector<std::string>& ops,
                 const std::string& algIdTag)
{
    json answer = KeyAnswer({{"kty", "EC"}, {"crv", crv}, {"x", Base64Url(x)}, {"y", Base64Url(y)}}, ops);
    if (!algIdTag.empty())
        answer["tags"] = {{"AlgID", algIdTag}};
    return answer;
}

Padding::Padding(DWORD flags, const char* hash)
    : pss_((flags & BCRYPT_PAD_PKCS1) == 0 && (flags & BCRYPT_PAD_PSS) != 0), name_(Wide(hash ? hash : ""))
{
    pkcs1Info_.pszAlgId = hash ? name_.c_str() : nullptr;
    pssInfo_.pszAlgId = pkcs1Info_.pszAlgId;
    pssInfo_.cbSalt = 32;
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

Result KeyTest::Sign(NCRYPT_KEY_HANDLE key, void* padding, Bytes hash, DWORD flags, DWORD room)
{
    return IntoBuffer(room, [&](BYTE* output, DWORD* needed) {
        return table->SignHash(OpenProvider(), key, padding, hash.data(), static_cast<DWORD>(hash.size()), output, room,
                               needed, flags);
    });
}

Result KeyTest::Encrypt(NCRYPT_KEY_HANDLE key, Bytes input, DWORD flags, DWORD room, void* padding)
{
    return IntoBuffer(room, [&](BYTE* output, DWORD* needed) {
        return table->Encrypt(OpenProvider(), key, input.data(), static_cast<DWORD>(input.size()), padding, output,
                              room, needed, flags);
    });
}

Result KeyTest::Decrypt(NCRYPT_KEY_HANDLE key, Bytes input, DWORD flags, DWORD room)
{
    return IntoBuffer(room, [&](BYTE* output, DWORD* needed) {
        return table->Decrypt(OpenProvider(), key, input.data(), static_cast<DWORD>(input.size()), nullptr, output,
                              room, needed, flags);
    });
}

SECURITY_STATUS KeyTest::Verify(NCRYPT_KEY_HANDLE key, void* padding, Bytes hash, Bytes signature, DWORD flags)
{
    return table->VerifySignature(OpenProvider(), key, padding, hash.data(), static_cast<DWORD>(hash.size()),
                                  signature.data(), static_cast<DWORD>(signature.size()), flags);
}

Result KeyTest::Export(NCRYPT_KEY_HANDLE key, const char* blobType, DWORD flags)
{
    return ReadAsked([&](BYTE* output, DWORD size, DWORD* result) {
        return table->ExportKey(OpenProvider(), key, 0, Wide(blobType).c_str(), nullptr, output, size, result, flags);
    });
}

KeyTest::Found KeyTest::Next(PVOID* state, DWORD flags)
{
    NCryptKeyName* name = nullptr;
    Found found = {table->EnumKeys(OpenProvider(), nullptr, &name, state, flags), "", "", 0};
    if (found.status == 0) {
        found.name = Narrow(name->pszName);
        found.algId = Narrow(name->pszAlgid);
        found.flags = name->dwFlags;
        EXPECT_EQ(0u, name->dwLegacyKeySpec);
        EXPECT_EQ(0, table->FreeBuffer(name));
    } else {
        EXPECT_EQ(nullptr, name);
    }
    return found;
}

void KeyTest::Answer(const std::string& path, int status, const std::string& body)
{
    sim.Fault({{"path", path}, {"action", "status"}, {"status", status}, {"body", body}});
}

void KeyTest::AddRsaKey(const std::string& name)
{
    sim.AddKey(Simulator::kVault, {{"name", name}, {"kty", "RSA"}, {"size", 2048}});
}

void KeyTest::AddCurveKey(const std::string& name, const std::string& crv)
{
    sim.AddKey(Simulator::kVault, {{"name", name}, {"kty", "EC"}, {"crv", crv}});
}

void KeyTest::AddOneOfEach()
{
    AddRsaKey("rsa");
    AddCurveKey("p256", "P-256");
    AddCurveKey("p384", "P-384");
    AddCurveKey("p521", "P-521");
}

NCRYPT_KEY_HANDLE KeyTest::OpenAnswered(const json& answer)
{
    Answer("/keys/special?", 200, answer.dump());
    return OpenKey("special");
}

std::vector<std::string> KeyTest::Bodies(const std::string& action)
{
    std::vector<std::string> bodies;
    for (const json& request : sim.Journal()) {
        if (request.value("target", "").find("/" + action + "?") != std::string::npos)
            bodies.push_back(request.value("body", ""));
    }
    return bodies;
}

std::vector<std::string> KeyTest::ErrorLines() const
{
    std::vector<std::string> lines;
    for (const std::string& line : root.LogLines()) {
        if (line.size() > 2 && line.compare(line.size() - 2, 2, " 1") == 0)
            lines.push_back(line.substr(0, line.size() - 2));
    }
    return lines;
}

std::string KeyTest::LastErrorLine() const
{
    const std::vector<std::string> lines = ErrorLines();
    return lines.empty() ? "" : lines.back();
}
