#include "keyvault/certificate_merge.h"

#include <utility>

#include "keyvault/json_body.h"
#include "keyvault/rest_call.h"
#include "keyvault/throttle.h"
#include "support/base64.h"
#include "support/codepage.h"
#include "support/log.h"

namespace {

// NULL: no memory.
BldStrPtr BuildRequest(const BYTE* cert, DWORD certSize)
{
    const MallocPtr<WCHAR> base64(KVCKelvaro_ToBase64(cert, certSize));
    if (!base64)
        return nullptr;
    JsonBody body(1000);
    return body.Text(TEXT("{\"x5c\": [\"")).Text(base64.get()).Text(TEXT("\"]}")).Take();
}

// The result of KVCDoKVRESTCall.
int Send(KVC* kvc, const WCHAR* encodedName, BldStrPtr json)
{
    LogStrings(TEXT("KVCImportCertificate Body "), encodedName, json->cStr, LOG_DETAIL_LEVEL);
    const MallocPtr<char> body(WStrToBytesStr(json->cStr));
    json.reset();
    // What the creation left there is not taken for the answer of a call that cannot be made.
    kvc->lastStatus = 0;
    return KVCDoKVRESTCall(kvc, nullptr, kvc->certificateMode != 0, encodedName, TEXT("POST"), TEXT("pending/merge"),
                           body.get(), kApiVersionWrite);
}

}  // namespace

void KVCImportCertificate(KVC* kvc, const WCHAR* encodedName, const BYTE* cert, DWORD certSize)
{
    LogString(TEXT("KVCImportCertificate"), encodedName, LOG_STEP_LEVEL);
    Throttle throttle;
    int good = 0;
    do {
        BldStrPtr json = BuildRequest(cert, certSize);
        if (!json) {
            LogLine(TEXT("KVCImportCertificate Out of memory"), LOG_ERROR_LEVEL);
            return;
        }
        good = Send(kvc, encodedName, std::move(json));
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
