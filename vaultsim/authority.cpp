#include "vaultsim/authority.h"

#include <stdexcept>

#include "vaultsim/files.h"
#include "vaultsim/key_material.h"
#include "vaultsim/text.h"
#include "vaultsim/x509.h"

namespace vaultsim {

namespace {

constexpr int64_t kDay = 24 * 60 * 60;

struct Mode {
    const char* name;
    bool publicNames;
    bool ownRoot;
    int64_t fromDays;  // validity, counted from today
    int64_t toDays;
};

constexpr Mode kModes[] = {
    {"good", true, true, -1, 365},      {"wrong-host", false, true, -1, 365},   {"unknown-root", true, false, -1, 365},
    {"expired", true, true, -365, -30}, {"not-yet-valid", true, true, 30, 365},
};

}  // namespace

Authority::Authority(const std::string& directory, bool rsa) : rsa_(rsa), serverKey_(NewKey())
{
    if (!Load(directory)) {
        root_ = NewRoot("CN=vaultsim root");
        WriteFile(directory + "/ca.key", PrivatePem(root_.key.get()), 0600);
        WriteFile(directory + "/ca.pem", ToPem(root_.certificate.get()), 0644);
    }
    Select("good");
}

Pkey Authority::NewKey() const
{
    return rsa_ ? GenerateRsa(2048) : GenerateEc(*FindCurve("P-256"));
}

Authority::Pair Authority::NewRoot(const std::string& subject) const
{
    Pair root;
    root.key = NewKey();
    CertificateSpec spec;
    spec.subject = subject;
    spec.authority = true;
    spec.notBefore = Now() - 2 * 365 * kDay;
    spec.notAfter = Now() + 10 * 365 * kDay;
    spec.publicKey = spec.signer = root.key.get();
    root.certificate = MakeCertificate(spec);
    return root;
}

bool Authority::Load(const std::string& directory)
{
    const auto key = ReadFile(directory + "/ca.key");
    const auto certificate = ReadFile(directory + "/ca.pem");
    if (!key || !certificate)
        return false;
    root_.key = KeyFromPem(*key);
    root_.certificate = CertificateFromPem(*certificate);
    if (!root_.certificate || X509_check_private_key(root_.certificate.get(), root_.key.get()) != 1)
        throw std::runtime_error("ca.key does not belong to ca.pem");
    return true;
}

SslContext Authority::MakeContext(const std::string& name) const
{
    const Mode* mode = FindByName(kModes, name);
    if (!mode)
        throw std::invalid_argument("unknown certificate mode: " + name);
    const Pair stranger = mode->ownRoot ? Pair() : NewRoot("CN=vaultsim stranger");
    const Pair& root = mode->ownRoot ? root_ : stranger;
    CertificateSpec spec;
    spec.subject = "CN=vaultsim";
    spec.dnsNames = mode->publicNames ? std::vector<std::string>{"*.vault.azure.net", "login.microsoftonline.com"}
                                      : std::vector<std::string>{"*.example.net"};
    spec.notBefore = Now() + mode->fromDays * kDay;
    spec.notAfter = Now() + mode->toDays * kDay;
    spec.publicKey = serverKey_.get();
    spec.issuer = root.certificate.get();
    spec.signer = root.key.get();
    const X509Ptr certificate = MakeCertificate(spec);

    SslContext context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1 ||
        SSL_CTX_use_certificate(context.get(), certificate.get()) != 1 ||
        SSL_CTX_use_PrivateKey(context.get(), serverKey_.get()) != 1)
        throw std::runtime_error("cannot set up TLS");
    return context;
}

void Authority::Select(const std::string& mode)
{
    SslContext context = MakeContext(mode);
    const std::lock_guard<std::mutex> lock(mutex_);
    current_ = std::move(context);
}

SslContext Authority::Current() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return current_;
}

}  // namespace vaultsim
