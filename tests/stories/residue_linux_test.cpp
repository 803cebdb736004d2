// No part of a secret is left in a host's memory after everything is freed.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "platform/owner.h"
#include "tests/common/base64.h"
#include "tests/provider/envelopes.h"

namespace fs = std::filesystem;

namespace {

// Pieces of secrets in every encoding that they pass through, each with a name.
class Needles {
  public:
    void AddBytes(const std::string& name, const std::string& bytes)
    {
        constexpr size_t kPiece = 12;
        constexpr size_t kPieces = 6;
        for (size_t i = 0; i < kPieces; i++) {
            const std::string piece = bytes.substr((bytes.size() - kPiece) * i / (kPieces - 1), kPiece);
            byStart_[Start(piece.data())].emplace_back(name, piece);
        }
    }
    void AddText(const std::string& name, const std::string& text)
    {
        AddBytes(name, text);
        const Bytes wide = TextBytes(text, false);
        AddBytes(name + ",wide", std::string(wide.begin(), wide.end()));
        std::string bigEndian;
        for (size_t i = 0; i < wide.size(); i += 2)
            bigEndian += {static_cast<char>(wide[i + 1]), static_cast<char>(wide[i])};
        AddBytes(name + ",big-endian", bigEndian);
    }
    // Bytes that are sent or received.
    void AddValue(const std::string& name, const Bytes& bytes)
    {
        AddBytes(name, std::string(bytes.begin(), bytes.end()));
        AddText(name + ",base64", Base64(bytes));
        AddText(name + ",base64url", Base64Url(bytes));
    }
    // The private numbers of a key in both byte orders. plain: bytes with the numbers at `offsets`.
    void AddNumbers(const std::string& name, const Bytes& plain, const std::vector<size_t>& offsets)
    {
        for (const size_t offset : offsets) {
            const std::string piece(reinterpret_cast<const char*>(&plain[offset]), 24);
            AddBytes(name, piece);
            AddBytes(name + ",reversed", std::string(piece.rbegin(), piece.rend()));
        }
    }
    // The names of the pieces that the bytes contain.
    std::set<std::string> FoundIn(const std::string& bytes) const
    {
        std::set<std::string> found;
        const char* const end = bytes.data() + bytes.size();
        for (const char* at = bytes.data(); at + 2 <= end; at++) {
            for (const auto& [name, piece] : byStart_[Start(at)]) {
                if (static_cast<size_t>(end - at) >= piece.size() && std::equal(piece.begin(), piece.end(), at))
                    found.insert(name);
            }
        }
        return found;
    }

  private:
    // The first two bytes as a number.
    static size_t Start(const char* bytes)
    {
        return static_cast<size_t>(static_cast<BYTE>(bytes[0]) << 8 | static_cast<BYTE>(bytes[1]));
    }
    std::vector<std::vector<std::pair<std::string, std::string>>> byStart_{1 << 16};
};

// The host (residue_host_linux.cpp) and a socket that is its standard input and output.
class ResidueHost : private NonCopyable {
  public:
    explicit ResidueHost(const std::string& folder)
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
            throw std::runtime_error("no socket pair");
        pid_ = fork();
        if (pid_ == 0) {
            unsetenv("VAULTSIM_CLIENT_SECRET");
            dup2(ends[1], STDIN_FILENO);
            dup2(ends[1], STDOUT_FILENO);
            execl(KELVARO_RESIDUE_HOST, "residue_host", KELVARO_MODULE_PATH, folder.c_str(),
                  static_cast<char*>(nullptr));
            _exit(127);
        }
        close(ends[1]);
        socket_ = ends[0];
    }
    ~ResidueHost()
    {
        close(socket_);
        waitpid(pid_, nullptr, 0);
    }

    // The status of the step, or "" if the host has died.
    std::string Run(const std::string& step) const
    {
        send(socket_, (step + "\n").c_str(), step.size() + 1, MSG_NOSIGNAL);
        char answer[16] = {};
        return read(socket_, answer, sizeof(answer) - 1) > 0 ? answer : "";
    }
    // Searches all memory that the host can write. Each place: what was found, and in which mapping.
    std::set<std::string> Search(const Needles& needles) const
    {
        const std::string process = "/proc/" + std::to_string(pid_);
        const int memory = open((process + "/mem").c_str(), O_RDONLY | O_CLOEXEC);
        std::set<std::string> places;
        size_t searched = 0;
        std::ifstream maps(process + "/maps");
        for (std::string line; std::getline(maps, line);) {
            off_t from = 0, to = 0;
            char access[5] = "", name[256] = "-";
            sscanf(line.c_str(), "%lx-%lx %4s %*s %*s %*s %255s", reinterpret_cast<unsigned long*>(&from),
                   reinterpret_cast<unsigned long*>(&to), access, name);
            if (std::string(access, 2) != "rw")
                continue;
            std::string bytes(static_cast<size_t>(to - from), '\0');
            if (pread(memory, bytes.data(), bytes.size(), from) != static_cast<ssize_t>(bytes.size()))
                ADD_FAILURE() << "can't be read: " << line;
            searched += bytes.size();
            for (const std::string& found : needles.FoundIn(bytes))
                places.insert(found + " in " + name);
        }
        close(memory);
        EXPECT_GT(searched, 100000u);
        return places;
    }

  private:
    pid_t pid_ = 0;
    int socket_ = -1;
};

Bytes RandomLooking(size_t size, uint32_t seed)
{
    Bytes bytes(size);
    for (BYTE& byte : bytes) {
        seed = seed * 1664525 + 1013904223;
        byte = static_cast<BYTE>(seed >> 24);
    }
    return bytes;
}

constexpr char kPin[] = "31415926535897932384";
// The password of the encrypted files.
constexpr char kPassword[] = "p\xC3\xA4ssw\xC3\xB6rd \xE2\x82\xAC\xF0\x9D\x84\x9E";

class ResidueTest : public testing::Test {
  protected:
    void SetUp() override
    {
        sim.Reset();
        // The second one is named after the identity.
        sim.Control("PUT", "/vaults/x0f1e2d3c4b5a69788796a5b", {{"tier", "premium"}});
        for (const char* vault : {Simulator::kVault, "x0f1e2d3c4b5a69788796a5b"})
            sim.AddKey(vault, {{"name", "rsa"}, {"pem", PrivateKeyPem("rsa3072")}});
        WriteClientSettings(root);
        // Machine keys sign in with the client secret, user keys with the managed identity of an Arc machine.
        root.SetNumber(HKEY_CURRENT_USER, "AuthenticationType", 1);
        SetEnvironmentVariableW(TEXT("IDENTITY_ENDPOINT"),
                                TEXT("http://localhost:40342/metadata/identity/oauth2/token"));
    }
    void TearDown() override { SetEnvironmentVariableW(TEXT("IDENTITY_ENDPOINT"), nullptr); }

    void Write(const std::string& name, const Bytes& bytes)
    {
        std::ofstream(root.directory() + "/" + name, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    void Answer(const char* path, const nlohmann::json& body)
    {
        sim.Fault({{"path", path}, {"action", "status"}, {"status", 200}, {"times", -1}, {"body", body}});
    }
    // Keys with private numbers. Those of tests/data are in the folder "data".
    void AddKeys(Needles* needles)
    {
        fs::create_directory_symlink(KELVARO_TEST_DATA, root.directory() + "/data");
        needles->AddNumbers("private-key", ReadPkcs8("rsa2048"), {400, 700, 850, 1100});
        needles->AddNumbers("blob", ReadData("pkcs7/blob.bin"), {40, 140, 180, 700, 1100});
        needles->AddText("password", kPassword);
        Write("password", TextBytes(kPassword));
        const std::string containers = root.directory() + "/root/user/keycontainers";
        fs::create_directories(containers);
        fs::copy(KELVARO_TEST_DATA "/pkcs7/me.pem", containers + "/box.pem");
        Write("store", SerializedStore(ProviderInfo("box") + CertificateRecord("me")));
    }
    // Plain texts for both directions. The vault's answers are made up, so it needn't know them.
    void WritePlainTexts(Needles* needles)
    {
        const Bytes encrypted = RandomLooking(480, 1);
        const Bytes decrypted = RandomLooking(480, 2);
        needles->AddValue("encrypted-text", encrypted);
        needles->AddValue("decrypted-text", decrypted);
        Write("plain", encrypted);
        Write("cipher", Bytes(256, 7));
        Answer("/encrypt?", {{"value", "AQID"}});
        // With an escape inside, which makes the parser join the string from pieces.
        std::string value = Base64Url(decrypted);
        char escape[7];
        std::snprintf(escape, sizeof(escape), "\\u%04x", value[500]);
        value.replace(500, 1, escape);
        // Long enough to make the body's buffer grow while it holds the value.
        Answer("/decrypt?", "{\"value\":\"" + value + "\",\"padding\":\"" + std::string(20000, 'x') + "\"}");
    }
    // A key with its private numbers. The service never sends those.
    void WriteWholeKey(Needles* needles)
    {
        nlohmann::json key = {{"kid", "https://contoso-keys.vault.azure.net/keys/whole/1"}, {"kty", "RSA"}};
        for (const char* number : {"d", "dp", "dq", "k", "p", "q", "qi"}) {
            const Bytes bytes = RandomLooking(128, static_cast<uint32_t>(number[0] * 256 + number[1]));
            needles->AddValue(std::string("whole-key-") + number, bytes);
            key[number] = Base64Url(bytes);
        }
        Answer("/keys/whole", {{"key", key}});
    }
    // The master key, and the tokens and Arc secrets that the services received.
    void AddSentSecrets(Needles* needles)
    {
        std::ifstream key(root.directory() + "/root/dpapi/master.key", std::ios::binary);
        const std::string bytes(std::istreambuf_iterator<char>(key), {});
        if (!bytes.empty())
            needles->AddBytes("master-key", bytes);
        for (const auto& request : sim.Journal()) {
            for (const std::string header : request["headers"]) {
                for (const std::string scheme : {"Bearer ", "Basic "}) {
                    const std::string begin = "Authorization: " + scheme;
                    if (header.rfind(begin, 0) == 0) {
                        needles->AddText("sent-" + scheme, header.substr(begin.size()));
                        sent[scheme]++;
                    }
                }
            }
        }
    }
    // Runs a host with these steps; the places of its memory where a needle was found. import: status of an import.
    std::set<std::string> Search(const std::vector<std::string>& steps, Needles needles, SECURITY_STATUS import = 0)
    {
        const ResidueHost host(root.directory());
        for (const std::string& step : steps)
            EXPECT_EQ(Hex(step.rfind("import", 0) == 0 ? import : 0), host.Run(step)) << step;
        AddSentSecrets(&needles);
        return host.Search(needles);
    }

    Simulator& sim = Simulator::Get();
    TestRoot root;
    std::map<std::string, int> sent;  // secrets, by their scheme of authentication
};

TEST_F(ResidueTest, TheSearchFindsWhatIsLeft)
{
    Needles needles;
    needles.AddText("pin", kPin);
    Write("pin", TextBytes(kPin));
    EXPECT_EQ(std::set<std::string>{}, Search({"provider", "free-provider"}, needles));
    EXPECT_NE(std::set<std::string>{}, Search({"leave - pin"}, needles));
}

TEST_F(ResidueTest, NothingOfASecretIsLeftInMemory)
{
    Needles needles;
    needles.AddText("client-secret", Simulator::kClientSecret);
    needles.AddText("provider's record", "Nbq7Xwz4Jkp2Vhs9");  // its name; a freed handle mustn't look valid
    needles.AddText("pin", kPin);
    Write("pin", TextBytes(kPin));
    Write("descriptor", Descriptor() + TextBytes(kPin));
    AddKeys(&needles);
    WritePlainTexts(&needles);
    WriteWholeKey(&needles);
    const struct {
        const char* name;
        std::vector<std::string> steps;
        const char* vault = Simulator::kVault;
        SECURITY_STATUS import = 0;
    } rows[] = {
        {"encryption", {"key rsa", "encrypt - plain", "free-key"}},
        {"decryption", {"key rsa", "decrypt - cipher", "free-key"}},
        {"a managed identity", {"user-key rsa", "free-key"}},
        {"a vault named after the identity", {"key rsa", "free-key"}, "%G"},
        {"a key with its private half", {"key whole", "free-key"}},
        {"a PIN", {"key rsa", "keep SmartCardPin pin", "keep SmartCardPin pin", "free-key"}},
        {"contexts", {"key rsa", "set Use+Context pin", "set-provider Use+Context pin", "free-key"}},
        {"replaced contexts",
         {"key rsa", "set Use+Context pin", "set Use+Context password", "set-provider Use+Context pin",
          "set-provider Use+Context password", "free-key"}},
        {"descriptors", {"key rsa", "set Security+Descr descriptor", "set Security+Descr descriptor", "free-key"}},
        {"a blob that is set",
         {"create new", "set PRIVATEBLOB data/pkcs7/blob.bin", "set PRIVATEBLOB data/pkcs7/blob.bin",
          "keep PRIVATEBLOB data/pkcs7/blob.bin", "free-key"}},
        {"a blob", {"import RSAPRIVATEBLOB data/pkcs7/blob.bin", "free-key"}},
        {"PKCS#8", {"import PKCS8_PRIVATEKEY data/pkcs8/rsa2048.der", "free-key"}},
        {"PBES2", {"import PKCS8_PRIVATEKEY data/pkcs8/pbes2-unicode.der 46 password", "free-key"}},
        {"PKCS#12", {"import PKCS8_PRIVATEKEY data/pkcs8/pkcs12-unicode.der 46 password", "free-key"}},
        {"an envelope", {"import PKCS7_ENVELOPE data/pkcs7/aes-256-cbc.der 47 store", "free-key"}},
        {"a refused envelope", {"import PKCS7_ENVELOPE data/pkcs7/short.der 47 store"}, Simulator::kVault, NTE_BAD_KEY},
    };
    for (const auto& row : rows) {
        // An administrator sets it in the clear; the open protects it.
        root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", Simulator::kClientSecret);
        root.SetText(HKEY_LOCAL_MACHINE, "KeyVault", row.vault);
        std::vector<std::string> steps = {"provider"};
        steps.insert(steps.end(), row.steps.begin(), row.steps.end());
        steps.push_back("free-provider");
        sim.ClearJournal();
        EXPECT_EQ(std::set<std::string>{}, Search(steps, needles, row.import)) << row.name;
    }
    EXPECT_GT(sent["Bearer "], 5);
    EXPECT_GT(sent["Basic "], 0);
}

}  // namespace
