#include "keyvault/certificate_merge.h"

#include "keyvault/json_body.h"
#include "keyvault/rest_call.h"
#include "keyvault/throttle.h"
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

// The result of KVCDoKVRESTCall.
int Send(KVC* kvc, const WCHAR* encodedName, const char* body)
{
    // What the creation left there is not taken for the answer of a call that cannot be made.
    kvc->lastStatus = 0;
    return KVCDoKVRESTCall(kvc, nullptr, kvc->certificateMode != 0, encodedName, TEXT("POST"), TEXT("pending/merge"),
                           body, kApiVersionWrite);
}

}  // namespace

void KVCImportCertificate(KVC* kvc, const WCHAR* encodedName, const BYTE* cert, DWORD certSize)
{
    LogString(TEXT("KVCImportCertificate"), encodedName, LOG_STEP_LEVEL);
    Throttle throttle;
    int good = 0;
    do {
        const SecretBytesPtr body = BuildRequest(encodedName, cert, certSize);
        if (!body) {
            LogLine(TEXT("KVCImportCertificate Out of memory"), LOG_ERROR_LEVEL);
            return;
        }
        good = Send(kvc, encodedName, body.get());
        if (kvc->lastStatus != HTTP_THROTTLED)
            break;
    } while (throttle.WaitAndRetry(TEXT("KVCImportCertificate THROLLED - RETRY "), kvc->lastStatus));

    if (kvc->lastStatus == HTTP_THROTTLED)
        return;
    if (!good)
        LogError(TEXT("KVCImportCertificate Error"), kvc->lastStatus, LOG_ERROR_LEVEL);
    else if (kvc->lastStatus == HTTP_NO_CONTENT)
        LogError(TEXT("KVCImportCertificate Failed"), kvc->lastStatus, LOG_ERROR_LEVEL);
}
