#include "keyvault/key_certificate_creation.h"

#include <string.h>

#include "keyvault/certificate_merge.h"
#include "keyvault/dummy_certificate.h"
#include "keyvault/hardware_first.h"
#include "keyvault/json.h"
#include "keyvault/key_lookup.h"
#include "support/base64.h"
#include "support/codepage.h"

namespace {

constexpr WCHAR kDummySubject[] = TEXT("CN=CertificateDummySubject");
constexpr WCHAR kRetryInSoftware[] = TEXT("KVCLowLevelCreateKeyCertificate HSM Key Failed - retry with software key");
constexpr WCHAR kDetail[] = TEXT("KVCLowLevelCreateKeyCertificate HSM Key Failed - detail error");

struct CertificateRequest {
    const WCHAR* keyName;
    const WCHAR* algId;
    KeyKind kind;
    bool exportable;
    bool isPublication;    // the caller has the certificate, so the policy doesn't specify key usage
    const WCHAR* subject;  // of the policy
};

const WCHAR* PolicySubject(bool isPublication, const WCHAR* subject)
{
    return isPublication && subject && *subject ? subject : kDummySubject;
}

// Publishing a certificate for an RSA key reuses the key, whatever its type.
void AddKeyProperties(const CertificateRequest& request, const WCHAR* hsmSuffix, JsonBody& body)
{
    body.Text(TEXT("\"key_props\": {"));
    body.Text(request.exportable ? TEXT("\"exportable\": true ") : TEXT("\"exportable\": false "));
    const KeyKind& kind = request.kind;
    if (!request.isPublication || kind.crv) {
        body.Text(TEXT(",\"kty\":\"")).Text(kind.kty).Text(hsmSuffix).Text(TEXT("\""));
        body.Text(TEXT(",\"key_size\": ")).Number(kind.bits).Text(TEXT(" "));
        if (kind.crv)
            body.Text(TEXT(",\"crv\":")).Quoted(kind.crv);
    }
    body.Text(TEXT(",\"reuse_key\": true ")).Text(TEXT("}"));
}

void AddCertificateProperties(const CertificateRequest& request, JsonBody& body)
{
    body.Text(TEXT(",\"x509_props\": {"));
    body.Text(TEXT("\"subject\":")).Quoted(request.subject);
    body.Text(TEXT(",\"validity_months\": 600 "));
    if (!request.isPublication) {
        body.Text(TEXT(",\"ekus\":[\"1.3.6.1.5.5.7.3.1\",\"1.3.6.1.5.5.7.3.2\"]"));
        body.Text(TEXT(",\"key_usage\":[\"digitalSignature\"]"));
    }
    body.Text(TEXT("}"));
}

// NULL: no memory.
SecretBytesPtr BuildRequest(const CertificateRequest& request, const WCHAR* hsmSuffix)
{
    JsonBody body(500);
    body.Text(TEXT("{\"attributes\":{\"enabled\": true}"));
    body.Text(TEXT(",\"policy\": {"));
    AddKeyProperties(request, hsmSuffix, body);
    body.Text(TEXT(",\"secret_props\": {\"contentType\":\"application/x-pkcs12\"}"));
    AddCertificateProperties(request, body);
    body.Text(TEXT("}"));
    body.Text(TEXT(",\"tags\": {\"KSPManaged\":\"KSP\","));
    AddKeyTags(body, request.algId, request.keyName);
    LogString(TEXT("KVCLowLevelCreateKeyCertificate JSON Body"), body.text(), LOG_DETAIL_LEVEL);
    return body.Bytes();
}

void LogDetail(const KVC* kvc)
{
    const MallocPtr<WCHAR> text(kvc->lastBody ? BytesStrToWStr(kvc->lastBody) : nullptr);
    LogString(kDetail, text.get(), LOG_WARNING_LEVEL);
}

// If the reason for the refusal is known, the first line is enough.
void LogHardwareRefusal(const KVC* kvc)
{
    const DWORD status = kvc->lastStatus;
    LogError(kRetryInSoftware, status, LOG_WARNING_LEVEL);
    const bool isKnown = status == HTTP_FORBIDDEN ||
                         (status == HTTP_BAD_REQUEST && kvc->lastBody && strstr(kvc->lastBody, "kty RSA-HSM"));
    if (!isKnown)
        LogDetail(kvc);
}

// Creates the certificate or a new version. 1: the vault accepted the request; its answer is in kvc->lastBody.
int CreatePending(KVC* kvc, const WCHAR* encodedName, const CertificateRequest& request)
{
    const Creation creation = {
        kvc->certificateMode != 0, encodedName, TEXT("KVCLowLevelCreateKeyCertificate REST Call Error"),
        TEXT("KVCLowLevelCreateKeyCertificate ActionThrottled"), TEXT("KVCLowLevelCreateKeyCertificate Out of memory")};
    const auto build = [&](const WCHAR* hsmSuffix) { return BuildRequest(request, hsmSuffix); };
    if (!CreateHardwareFirst(kvc, creation, build, [&] { LogHardwareRefusal(kvc); }))
        return 0;
    if (kvc->lastStatus == HTTP_ACCEPTED)
        return 1;
    if (kvc->lastStatus != HTTP_THROTTLED) {
        LogError(TEXT("KVCLowLevelCreateKeyCertificate Failed"), kvc->lastStatus, LOG_ERROR_LEVEL);
        LogDetail(kvc);
    }
    return 0;
}

// Answers the vault's certificate request with a dummy certificate. 0: none could be made. 1 also if the vault made no
// request, or if the merge failed.
int AnswerRequest(KVC* kvc, const WCHAR* encodedName)
{
    const JsonPtr answer = JsonParseAnswer(TEXT("KVCLowLevelCreateKeyCertificate answer is not JSON"), kvc->lastBody);
    const char* csrText = JsonMemberText(answer.get(), "csr");
    if (!csrText)
        return 1;
    MallocPtr<WCHAR> csrWide(BytesStrToWStr(csrText));
    LogLine(TEXT("KVCLowLevelCreateKeyCertificate Found CSR"), LOG_DETAIL_LEVEL);

    BYTE* bytes = nullptr;
    DWORD cbCsr = 0;
    const int decoded = KVCKelvaro_FromBase64(csrWide.get(), &bytes, &cbCsr, 1);
    MallocPtr<BYTE> csr(bytes);
    csrWide.reset();
    if (!decoded || !csr)
        return Fail(0, TEXT("KVCLowLevelCreateKeyCertificate Decode Request Failed"));

    BYTE* certificate = nullptr;
    DWORD cbCertificate = 0;
    const int isSigned = KVCSignDummyCert(csr.get(), cbCsr, &certificate, &cbCertificate);
    const MallocPtr<BYTE> dummyCert(certificate);
    csr.reset();
    if (!isSigned)
        return Fail(0, TEXT("KVCLowLevelCreateKeyCertificate SignDummyCert Request Failed"));
    if (dummyCert) {
        LogString(TEXT("KVCLowLevelCreateKeyCertificate DummyCert Good"), TEXT("dummyCert"), LOG_STEP_LEVEL);
        KVCImportCertificate(kvc, encodedName, dummyCert.get(), cbCertificate);
    }
    return 1;
}

}  // namespace

int KVCLowLevelCreateKeyCertificate(KVC* kvc, const WCHAR* keyName, const WCHAR* encodedName, const WCHAR* algId,
                                    LONG keyBits, KVKey* key, DWORD exportable, const BYTE* b64Cert, DWORD certSize,
                                    const WCHAR* subject)
{
    LogLine(TEXT("KVCLowLevelCreateKeyCertificate"), LOG_STEP_LEVEL);
    const bool isPublication = b64Cert != nullptr;
    const CertificateRequest request = {keyName,         algId,         KeyKindOf(algId, keyBits),
                                        exportable != 0, isPublication, PolicySubject(isPublication, subject)};
    if (!CreatePending(kvc, encodedName, request))
        return 0;
    if (isPublication) {
        LogString(TEXT("KVCLowLevelCreateKeyCertificate KVC_ToBase64 b64Cert Good"), TEXT("b64Cert"), LOG_STEP_LEVEL);
        KVCImportCertificate(kvc, encodedName, b64Cert, certSize);
    } else if (!AnswerRequest(kvc, encodedName)) {
        return 0;
    }
    return KVCGetKey(kvc, keyName, key, 0);
}
