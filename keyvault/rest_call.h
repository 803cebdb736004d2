// One operation of the vault service as one HTTP exchange.
#pragma once

#include "keyvault/kvc.h"
#include "keyvault/web_call.h"

constexpr const WCHAR* kApiVersionRead = TEXT("2016-10-01");
constexpr const WCHAR* kApiVersionWrite = TEXT("7.0");

struct VaultRequest {
    const WCHAR* verb = TEXT("GET");
    const WCHAR* rawURL = nullptr;      // complete path and query; when set, the four members behind it play no part
    int useCertificates = 0;            // non-zero for the collection "certificates", zero for "keys"
    const WCHAR* keyName = nullptr;     // encoded name, or name "/" version
    const WCHAR* actionverb = nullptr;  // path element behind it
    const WCHAR* apiVersion = nullptr;  // NULL means kApiVersionRead
    const char* body = nullptr;         // zero-terminated JSON bytes
};

// A POST to a key or certificate, with the write version of the API.
VaultRequest PostRequest(const WCHAR* keyName, const WCHAR* actionverb);

// 1 when the status was 200, 201, 202 or 204, else 0. kvc->lastStatus and kvc->lastBody hold the answer in both cases;
// when the token is missing both stay as they were, and without a response record lastBody is NULL and lastStatus
// stays.
int SendToVault(KVC* kvc, const VaultRequest& request);

// The same with each member as an argument.
int KVCDoKVRESTCall(KVC* kvc, const WCHAR* rawURL, int useCertificates, const WCHAR* keyName, const WCHAR* verb,
                    const WCHAR* actionverb, const char* body, const WCHAR* apiVersion);
