#include "tests/provider/key_fixture.h"

#include <fstream>
#include <iterator>

using nlohmann::json;

namespace {
std::string Encode(const Bytes& bytes, const char* alphabet, bool fill)
{
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t left = bytes.size() - i;
        uint32_t group = static_cast<uint32_t>(bytes[i]) << 16;
        if (left > 1)
            group |= static_cast<uint32_t>(bytes[i + 1]) << 8;
        if (left > 2)
            group |= bytes[i + 2];
        for (size_t digit = 0; digit < 4; ++digit) {
            if (digit <= left)
                text += alphabet[(group >> (18 - 6 * digit)) & 63];
            else if (fill)
                text += '=';
        }
    }
    return text;
}

constexpr char kStandard[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kUrlSafe[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr char kKid[] = "https://contoso-keys.vault.azure.net/keys/special/0123456789abcdef0123456789abcdef";
}  // namespace

std::string Base64(const Bytes& bytes)
{
    return Encode(bytes, kStandard, true);
}

std::string Base64Url(const Bytes& bytes)
{
    return Encode(bytes, kUrlSafe, false);
}

Bytes Pattern(size_t size)
{
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<BYTE>(i + 1);
    return bytes;
}

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

json RsaAnswer(const Bytes& n, const Bytes& e)
{
    return {
        {"key",
         {{"kid", kKid}, {"kty", "RSA"}, {"key_ops", {"sign", "verify"}}, {"n", Base64Url(n)}, {"e", Base64Url(e)}}},
        {"attributes", {{"enabled", true}}}};
}

json CurveAnswer(const std::string& crv, const Bytes& x, const Bytes& y, const std::vector<std::string>& ops,
                 const std::string& algIdTag)
{
    json answer = {
        {"key",
         {{"kid", kKid}, {"kty", "EC"}, {"key_ops", ops}, {"crv", crv}, {"x", Base64Url(x)}, {"y", Base64Url(y)}}},
        {"attributes", {{"enabled", true}}}};
    if (!algIdTag.empty())
        answer["tags"] = {{"AlgID", algIdTag}};
    return answer;
}

std::string ReadServiceSample(const std::string& name)
{
    std::ifstream file(std::string(KELVARO_TEST_DATA) + "/service/" + name + ".json", std::ios::binary);
    EXPECT_TRUE(file) << name;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

Padding::Padding(DWORD flags, const char* hash)
    : pss_((flags & BCRYPT_PAD_PKCS1) == 0 && (flags & BCRYPT_PAD_PSS) != 0), name_(Wide(hash ? hash : ""))
{
    pkcs1Info_.pszAlgId = hash ? name_.c_str() : nullptr;
    pssInfo_.pszAlgId = pkcs1Info_.pszAlgId;
    pssInfo_.cbSalt = 32;
}

Result KeyTest::Sign(NCRYPT_KEY_HANDLE key, void* padding, Bytes hash, DWORD flags, DWORD room)
{
    Result result;
    result.bytes.resize(room);
    result.status = table->SignHash(OpenProvider(), key, padding, hash.data(), static_cast<DWORD>(hash.size()),
                                    room ? result.bytes.data() : nullptr, room, &result.needed, flags);
    result.bytes.resize(result.status == 0 && room ? result.needed : 0);
    return result;
}

SECURITY_STATUS KeyTest::Verify(NCRYPT_KEY_HANDLE key, void* padding, Bytes hash, Bytes signature, DWORD flags)
{
    return table->VerifySignature(OpenProvider(), key, padding, hash.data(), static_cast<DWORD>(hash.size()),
                                  signature.data(), static_cast<DWORD>(signature.size()), flags);
}

Result KeyTest::Export(NCRYPT_KEY_HANDLE key, const char* blobType, DWORD flags)
{
    const TextString type = Wide(blobType);
    Result result;
    result.status = table->ExportKey(OpenProvider(), key, 0, type.c_str(), nullptr, nullptr, 0, &result.needed, flags);
    if (result.status != 0)
        return result;
    result.bytes.resize(result.needed);
    DWORD cb = 0;
    result.status =
        table->ExportKey(provider, key, 0, type.c_str(), nullptr, result.bytes.data(), result.needed, &cb, flags);
    EXPECT_EQ(result.needed, cb);
    return result;
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
    sim.Fault({{"method", "GET"},
               {"path", "/keys/special?"},
               {"action", "status"},
               {"status", 200},
               {"body", answer.dump()}});
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
