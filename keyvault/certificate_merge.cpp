#include "keyvault/certificate_merge.h"

#include "keyvault/json_body.h"
#include "keyvault/retry.h"
#include "support/base64.h"
#include "support/log.h"

namespace {

// NULL: no memory.
SecretBytesPtr BuildRequest(const WCHAR* encodedName, const BYTE* cert, DWORD certSize)
{
    const MallocPtr<WCHAR> base64(KVCKelvaro_ToBase64(cert, certSize));
    JsonBody body(1000);
    body.Text(TEXT("{\"x5c\": [\"")).Text(base64.get()).Text(TEXT("\"]}"));
    LogStrings(TEXT("KVCImportCertificate Body "), encodedName, body.text(), LOG_DETAIL_LEVEL);
    return body.Bytes();
}

}  // namespace

void KVCImportCertificate(KVC* kvc, const WCHAR* encodedName, const BYTE* cert, DWORD certSize)
{
    LogString(TEXT("KVCImportCertificate"), encodedName, LOG_STEP_LEVEL);
    VaultRequest request = PostRequest(encodedName, TEXT("pending/merge"));
    request.useCertificates = kvc->certificateMode != 0;
    Retry retry(ThrottleRule(TEXT("KVCImportCertificate THROLLED - RETRY ")));
    SecretBytesPtr body;
    const int good = SendWithRetry(kvc, retry, [&] {
        body = BuildRequest(encodedName, cert, certSize);
        request.body = body.get();
        return body ? SendToVault(kvc, request) : 0;
    });
    if (!body)
        LogLine(TEXT("KVCImportCertificate Out of memory"), LOG_ERROR_LEVEL);
    else if (kvc->lastStatus == HTTP_THROTTLED)
        return;
    else if (!good)
        LogError(TEXT("KVCImportCertificate Error"), kvc->lastStatus, LOG_ERROR_LEVEL);
    else if (kvc->lastStatus == HTTP_NO_CONTENT)
        LogError(TEXT("KVCImportCertificate Failed"), kvc->lastStatus, LOG_ERROR_LEVEL);
}
