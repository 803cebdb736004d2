#include "certsync/certificate_fetch.h"

#include "keyvault/json.h"
#include "keyvault/retry.h"
#include "support/base64.h"
#include "support/codepage.h"
#include "support/log.h"

namespace {

// Leaves the answer in lastBody.
bool Fetch(KVC* kvc, const WCHAR* certName)
{
    VaultRequest request;
    request.useCertificates = kvc->certificateMode != 0;
    request.keyName = certName;
    Retry retry(ThrottleRule(TEXT("KVCGetCert ActionThrottled")));
    if (SendWithRetry(kvc, retry, [&] { return SendToVault(kvc, request); }) && kvc->lastStatus == HTTP_OK)
        return true;
    if (kvc->lastStatus != HTTP_THROTTLED)
        LogError(TEXT("KVCGetCert REST Call Error"), kvc->lastStatus, LOG_ERROR_LEVEL);
    return false;
}

// The certificate's text, borrowed; NULL if the answer has none.
const char* CertificateText(json_object* answer)
{
    if (json_object* value = JsonMember(answer, "value")) {
        LogLine(TEXT("KeyVaultClient::GetCert Found Certificate - value (non-exportable)"), LOG_DETAIL_LEVEL);
        return json_object_get_string(value);
    }
    if (json_object* cer = JsonMember(answer, "cer")) {
        LogLine(TEXT("KeyVaultClient::GetCert Found Certificate - cer (exportable)"), LOG_DETAIL_LEVEL);
        return json_object_get_string(cer);
    }
    return nullptr;
}

}  // namespace

bool KVCGetCert(KVC* kvc, const WCHAR* certName, CertBlob* certblob)
{
    LogLine(TEXT("KVCGetCert"), LOG_STEP_LEVEL);
    if (!certName || !certblob) {
        LogLine(TEXT("KVCGetCert Bad CertName or certblob pointer"), LOG_ERROR_LEVEL);
        return false;
    }
    if (!Fetch(kvc, certName))
        return false;
    const JsonPtr answer = JsonParseAnswer(TEXT("KVCGetCert answer is not JSON"), kvc->lastBody);
    const char* text = CertificateText(answer.get());
    const MallocPtr<WCHAR> wide(text ? BytesStrToWStr(text) : nullptr);
    BYTE* bytes = nullptr;
    DWORD size = 0;
    if (!wide || !KVCKelvaro_FromBase64(wide.get(), &bytes, &size, 1))
        return false;
    certblob->der.reset(bytes);
    certblob->size = size;
    // If memory runs out, the decoder returns only the size.
    return bytes;
}
