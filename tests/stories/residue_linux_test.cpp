// What a host's memory holds after everything is freed: nothing of a secret.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "tests/common/base64.h"
#include "tests/provider/bytes.h"
#include "tests/provider/envelope_maker.h"

namespace fs = std::filesystem;

namespace {

// The searching host (residue_host_linux.cpp), with both its ends.
class ResidueHost {
  public:
    explicit ResidueHost(const std::string& folder)
    {
        int in[2];
        int out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        pid_ = fork();
        if (pid_ == 0) {
            unsetenv("VAULTSIM_CLIENT_SECRET");
            dup2(in[0], STDIN_FILENO);
            dup2(out[1], STDOUT_FILENO);
            execl(KELVARO_RESIDUE_HOST, "residue_host", KELVARO_MODULE_PATH, folder.c_str(),
                  static_cast<char*>(nullptr));
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        in_ = fdopen(in[1], "w");
        out_ = fdopen(out[0], "r");
    }
    ~ResidueHost()
    {
        if (in_)
            fclose(in_);
        fclose(out_);
        waitpid(pid_, nullptr, 0);
    }
    ResidueHost(const ResidueHost&) = delete;
    ResidueHost& operator=(const ResidueHost&) = delete;

    void Tell(const std::string& line)
    {
        fputs((line + "\n").c_str(), in_);
        fflush(in_);
    }
    void EndOfInput()
    {
        fclose(in_);
        in_ = nullptr;
    }
    // "" at the end.
    std::string Line()
    {
        char line[512];
        if (!fgets(line, sizeof(line), out_))
            return "";
        return std::string(line, strcspn(line, "\n"));
    }

  private:
    pid_t pid_ = 0;
    FILE* in_ = nullptr;
    FILE* out_ = nullptr;
};

// Pieces of one secret in each form that it takes on its way, masked as the host expects them.
class Needles {
  public:
    void AddBytes(const std::string& name, const std::string& bytes)
    {
        constexpr size_t kPiece = 12;
        constexpr size_t kPieces = 6;
        for (size_t i = 0; i < kPieces; i++)
            Add(name, bytes.substr((bytes.size() - kPiece) * i / (kPieces - 1), kPiece));
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
    // Bytes that go over the wire.
    void AddValue(const std::string& name, const Bytes& bytes)
    {
        AddBytes(name, std::string(bytes.begin(), bytes.end()));
        AddText(name + ",base64", Base64(bytes));
        AddText(name + ",base64url", Base64Url(bytes));
    }
    // The private numbers of a key in both orders of their bytes. plain: bytes in which they are at `offsets`.
    void AddNumbers(const std::string& name, const Bytes& plain, const std::vector<size_t>& offsets)
    {
        for (const size_t offset : offsets) {
            const std::string piece(plain.begin() + static_cast<ptrdiff_t>(offset),
                                    plain.begin() + static_cast<ptrdiff_t>(offset) + 24);
            AddBytes(name, piece);
            AddBytes(name + ",reversed", std::string(piece.rbegin(), piece.rend()));
        }
    }
    const std::vector<std::string>& lines() const { return lines_; }

  private:
    void Add(const std::string& name, const std::string& piece)
    {
        std::string line = name + " ";
        for (const char ch : piece) {
            char digits[3];
            std::snprintf(digits, sizeof(digits), "%02x", static_cast<unsigned char>(ch) ^ 0xA5);
            line += digits;
        }
        lines_.push_back(line);
    }
    std::vector<std::string> lines_;
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
// Of the encrypted files.
constexpr char kPassword[] = "p\xC3\xA4ssw\xC3\xB6rd \xE2\x82\xAC\xF0\x9D\x84\x9E";

class ResidueTest : public testing::Test {
  protected:
    void SetUp() override
    {
        sim.Reset();
        // The second one is named after the identity.
        sim.Control("PUT", "/vaults/x0f1e2d3c4b5a69788796a5b", {{"tier", "premium"}});
        for (const char* vault : {Simulator::kVault, "x0f1e2d3c4b5a69788796a5b"})
            sim.AddKey(vault, {{"name", "rsa"}, {"kty", "RSA"}, {"size", 2048}});
        WriteClientSettings(root);
        // Machine keys sign in with the client secret, the user's with the identity of the connected machine.
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
    static Bytes ReadPkcs8(const std::string& name)
    {
        std::ifstream file(std::string(KELVARO_TEST_DATA "/pkcs8/") + name + ".der", std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(file), {});
    }
    // A key with private numbers, in every form that a host can import, each a file.
    void WriteKeys(Needles* needles)
    {
        const Bytes der = ReadPkcs8("rsa2048");
        needles->AddNumbers("private-key", der, {400, 700, 850, 1100});
        Write("p8", der);
        Write("p8-pbes2", ReadPkcs8("pbes2-unicode"));
        Write("p8-pkcs12", ReadPkcs8("pkcs12-unicode"));
        needles->AddText("password", kPassword);
        Write("password", TextBytes(kPassword));

        const Recipient recipient;
        const std::string containers = root.directory() + "/root/user/keycontainers";
        fs::create_directories(containers);
        std::ofstream(containers + "/box.pem") << recipient.ContainerPem();
        Write("store", SerializedStore(ProviderInfo("box", 0) + StoreRecord(32, recipient.Certificate())));
        const Bytes blob = BlobWithNumbers(2048);
        needles->AddNumbers("blob", blob, {40, 140, 180});
        Write("blob", blob);
        Write("envelope", recipient.Seal(blob));
        Write("short-envelope", recipient.Seal(BlobWithNumbers(1024)));
    }
    static Bytes BlobWithNumbers(DWORD bits)
    {
        Bytes blob = RsaBlob(bits);
        const Bytes numbers = RandomLooking(blob.size() - 27, 3);
        std::copy(numbers.begin(), numbers.end(), blob.begin() + 27);
        return blob;
    }
    // Plain texts for both directions. The vault's answers are made up: it need not know them.
    void WritePlainTexts(Needles* needles)
    {
        const Bytes encrypted = RandomLooking(480, 1);
        const Bytes decrypted = RandomLooking(480, 2);
        needles->AddValue("encrypted-text", encrypted);
        needles->AddValue("decrypted-text", decrypted);
        Write("plain", encrypted);
        Write("cipher", Bytes(256, 7));
        Answer("/encrypt?", {{"value", "AQID"}});
        // With an escape inside: the parser puts such a string together from pieces.
        std::string value = Base64Url(decrypted);
        char escape[7];
        std::snprintf(escape, sizeof(escape), "\\u%04x", value[500]);
        value.replace(500, 1, escape);
        // Long enough that the buffer of the body has to grow while it holds the value.
        Answer("/decrypt?", "{\"value\":\"" + value + "\",\"padding\":\"" + std::string(20000, 'x') + "\"}");
    }
    // The service never answers like this.
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
    static int AddHeader(const std::string& begin, const std::string& header, const char* name, Needles* needles)
    {
        if (header.rfind(begin, 0) != 0)
            return 0;
        needles->AddText(name, header.substr(begin.size()));
        return 1;
    }
    // Tokens and Arc secrets, as the services saw them.
    void AddWhatWentOut(Needles* needles)
    {
        std::ifstream key(root.directory() + "/root/dpapi/master.key", std::ios::binary);
        const std::string bytes(std::istreambuf_iterator<char>(key), {});
        if (!bytes.empty())
            needles->AddBytes("master-key", bytes);
        for (const auto& request : sim.Journal()) {
            for (const std::string header : request["headers"]) {
                tokens += AddHeader("Authorization: Bearer ", header, "token", needles);
                arcSecrets += AddHeader("Authorization: Basic ", header, "arc-secret", needles);
            }
        }
    }
    // Runs a host with these steps and searches its memory for the needles. status: of an import.
    void ExpectNothingAfter(const std::vector<std::string>& steps, Needles needles, SECURITY_STATUS status = 0)
    {
        for (const std::string& place : Search(steps, std::move(needles), status))
            ADD_FAILURE() << place;
    }
    // The places where something was found.
    std::set<std::string> Search(const std::vector<std::string>& steps, Needles needles, SECURITY_STATUS status = 0)
    {
        ResidueHost host(root.directory());
        for (const std::string& step : steps)
            host.Tell(step);
        host.Tell("search");
        for (const std::string& step : steps)
            EXPECT_EQ(step + " " + Hex(step.find("import") == 0 ? status : 0), host.Line());
        EXPECT_EQ("done", host.Line());
        AddWhatWentOut(&needles);
        for (const std::string& line : needles.lines())
            host.Tell(line);
        host.EndOfInput();
        std::set<std::string> places;
        std::string line;
        for (line = host.Line(); line != "end" && !line.empty(); line = host.Line())
            places.insert(line);
        EXPECT_EQ("end", line) << "the search broke off";
        return places;
    }

    Simulator& sim = Simulator::Get();
    TestRoot root;
    int tokens = 0;
    int arcSecrets = 0;
};

TEST_F(ResidueTest, TheSearchFindsWhatIsLeft)
{
    Needles needles;
    needles.AddText("pin", kPin);
    Write("pin", TextBytes(kPin));
    EXPECT_EQ(std::set<std::string>{}, Search({}, needles));
    EXPECT_NE(std::set<std::string>{}, Search({"leave pin"}, needles));
}

TEST_F(ResidueTest, NothingOfASecretIsLeftInMemory)
{
    Needles needles;
    needles.AddText("client-secret", Simulator::kClientSecret);
    needles.AddText("pin", kPin);
    Write("pin", TextBytes(kPin));
    WriteKeys(&needles);
    WritePlainTexts(&needles);
    WriteWholeKey(&needles);
    const struct {
        const char* name;
        std::vector<std::string> steps;
        const char* vault = Simulator::kVault;
        SECURITY_STATUS import = 0;
    } rows[] = {
        {"encryption", {"key rsa", "encrypt plain", "free-key"}},
        {"decryption", {"key rsa", "decrypt cipher", "free-key"}},
        {"the identity of the machine", {"user-key rsa", "free-key"}},
        {"a vault named after the identity", {"key rsa", "free-key"}, "%G"},
        {"a key that comes with its private half", {"key whole", "free-key"}},
        {"a PIN", {"key rsa", "keep SmartCardPin pin", "keep SmartCardPin pin", "free-key"}},
        {"a blob that is set",
         {"create new", "set PRIVATEBLOB blob", "set PRIVATEBLOB blob", "keep PRIVATEBLOB blob", "free-key"}},
        {"a blob", {"import RSAPRIVATEBLOB blob", "free-key"}},
        {"PKCS#8", {"import PKCS8_PRIVATEKEY p8", "free-key"}},
        {"PKCS#8 under PBES2", {"import PKCS8_PRIVATEKEY p8-pbes2 46 password", "free-key"}},
        {"PKCS#8 under PKCS#12's encryption", {"import PKCS8_PRIVATEKEY p8-pkcs12 46 password", "free-key"}},
        {"an envelope", {"import PKCS7_ENVELOPE envelope 47 store", "free-key"}},
        {"an envelope that is refused",
         {"import PKCS7_ENVELOPE short-envelope 47 store"},
         Simulator::kVault,
         NTE_BAD_KEY},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        // Clear at first, as an administrator sets it; the open seals it.
        root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", Simulator::kClientSecret);
        root.SetText(HKEY_LOCAL_MACHINE, "KeyVault", row.vault);
        std::vector<std::string> steps = {"provider"};
        steps.insert(steps.end(), row.steps.begin(), row.steps.end());
        steps.push_back("free-provider");
        sim.ClearJournal();
        ExpectNothingAfter(steps, needles, row.import);
    }
    EXPECT_GT(tokens, 5);
    EXPECT_GT(arcSecrets, 0);
}

}  // namespace
