// A host that knows the published interface and nothing else: it writes a registry file by hand, loads the module and
// walks the table. And what such a host leaves behind on the disk.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/cng_provider.h"
#include "tests/common/host.h"

namespace fs = std::filesystem;

namespace {

class PlainHostTest : public testing::Test {
  protected:
    void SetUp() override
    {
        sim.Reset();
        sim.AddKey(Simulator::kVault, {{"name", "web"}, {"kty", "RSA"}, {"size", 2048}});
        registry = root.directory() + "/root/registry/HKEY_LOCAL_MACHINE.reg";
        fs::create_directories(fs::path(registry).parent_path());
        std::ofstream file(registry);
        file << "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro]\n"
             << "\"KeyVault\"=\"" << Simulator::kVault << "\"\n"
             << "\"AuthenticationType\"=dword:00000002\n"
             << "\"TenantId\"=\"" << Simulator::kTenant << "\"\n"
             << "\"ClientId\"=\"" << Simulator::kClientId << "\"\n"
             << "\"ClientSecret\"=\"" << Simulator::kClientSecret << "\"\n"
             << "\"CertificatesOrKeys\"=dword:00000001\n"
             << "\"LoggingLevel\"=dword:0000000a\n"
             << "\"EVLoggingLevel\"=dword:0000000a\n"
             << "\"LogfilePath\"=\"" << root.logDirectory() << "\"\n";
        file.close();
        module = dlopen(KELVARO_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(nullptr, module) << dlerror();
        const auto get = reinterpret_cast<GetKeyStorageInterfaceFn>(dlsym(module, "GetKeyStorageInterface"));
        ASSERT_NE(nullptr, get);
        ASSERT_EQ(0, get(TEXT("any name"), &table, 0));
    }
    void TearDown() override
    {
        if (module)
            dlclose(module);
    }

    // Opens, signs a digest of zeros and frees everything; the signature.
    Bytes SignOnce()
    {
        NCRYPT_PROV_HANDLE provider = 0;
        NCRYPT_KEY_HANDLE key = 0;
        EXPECT_EQ(0, table->OpenProvider(&provider, TEXT("Zandrel Key Storage Provider for Key Vault"), 0));
        EXPECT_EQ(0, table->OpenKey(provider, &key, TEXT("web"), 0, NCRYPT_MACHINE_KEY_FLAG));
        BCRYPT_PKCS1_PADDING_INFO padding = {TEXT("SHA256")};
        BYTE digest[32] = {};
        DWORD size = 0;
        EXPECT_EQ(0, table->SignHash(provider, key, &padding, nullptr, 0, nullptr, 0, &size, BCRYPT_PAD_PKCS1));
        Bytes signature(size);
        EXPECT_EQ(
            0, table->SignHash(provider, key, &padding, digest, 32, signature.data(), size, &size, BCRYPT_PAD_PKCS1));
        EXPECT_EQ(0, table->FreeKey(provider, key));
        EXPECT_EQ(0, table->FreeProvider(provider));
        return signature;
    }

    Simulator& sim = Simulator::Get();
    TestRoot root;
    std::string registry;
    void* module = nullptr;
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
};

bool OpenSslAccepts(const std::string& pem, const Bytes& digest, const Bytes& signature)
{
    BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
    EVP_PKEY* key = PEM_read_bio_PUBKEY(bio, nullptr, nullptr, nullptr);
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new(key, nullptr);
    const bool good = EVP_PKEY_verify_init(context) == 1 &&
                      EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) == 1 &&
                      EVP_PKEY_CTX_set_signature_md(context, EVP_sha256()) == 1 &&
                      EVP_PKEY_verify(context, signature.data(), signature.size(), digest.data(), digest.size()) == 1;
    EVP_PKEY_CTX_free(context);
    EVP_PKEY_free(key);
    BIO_free(bio);
    return good;
}

std::string ReadFile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string Utf16(const std::string& text)
{
    std::string wide;
    for (const char ch : text)
        wide += std::string{ch, '\0'};
    return wide;
}

}  // namespace

TEST_F(PlainHostTest, SignsAndAnIndependentVerifierAccepts)
{
    const Bytes signature = SignOnce();
    const std::string pem = sim.PublicKeyPem(Simulator::kVault, "web");
    EXPECT_TRUE(OpenSslAccepts(pem, Bytes(32, 0), signature));
    EXPECT_FALSE(OpenSslAccepts(pem, Bytes(32, 1), signature));
}

TEST_F(PlainHostTest, LeavesNoSecretOnTheDiskAndNoFileOpenToOthers)
{
    SignOnce();
    SignOnce();  // once more from the protected form
    std::string token;
    for (const auto& request : sim.Journal()) {
        for (const std::string header : request["headers"]) {
            if (header.rfind("Authorization: Bearer ", 0) == 0)
                token = header.substr(22);
        }
    }
    ASSERT_GT(token.size(), 100u);
    ASSERT_NE(std::string::npos, root.WholeLog().find("KVCDoKVRESTCall url")) << "the log is at its most talkative";

    int files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(root.directory())) {
        if (!entry.is_regular_file())
            continue;
        files++;
        const std::string content = ReadFile(entry.path());
        for (const std::string& secret : {token, std::string(Simulator::kClientSecret)}) {
            EXPECT_EQ(std::string::npos, content.find(secret)) << entry.path();
            EXPECT_EQ(std::string::npos, content.find(Utf16(secret))) << entry.path();
        }
        struct stat info = {};
        ASSERT_EQ(0, stat(entry.path().c_str(), &info));
        EXPECT_EQ(0u, info.st_mode & 077) << entry.path();
    }
    EXPECT_GE(files, 4) << "hive, log, event log, master key";
    EXPECT_NE(std::string::npos, ReadFile(registry).find("\"ClientDPAPISecret\"=\""));
    EXPECT_NE(std::string::npos, ReadFile(registry).find("\"ClientSecret\"=\"\""));
}
