// One operation of the vault: one HTTP exchange.
#pragma once

#include "keyvault/kvc.h"
#include "keyvault/web_call.h"

constexpr const WCHAR* kApiVersionRead = TEXT("2016-10-01");
constexpr const WCHAR* kApiVersionWrite = TEXT("7.0");

struct VaultRequest {
    const WCHAR* verb = TEXT("GET");
    const WCHAR* rawURL = nullptr;      // complete path and query; if set, the next four are ignored
    int useCertificates = 0;            // non-zero: the collection "certificates", zero: "keys"
    const WCHAR* keyName = nullptr;     // encoded name, or name "/" version
    const WCHAR* actionverb = nullptr;  // next element of the path
    const WCHAR* apiVersion = nullptr;  // NULL means kApiVersionRead
    const char* body = nullptr;         // zero-terminated JSON bytes
};

// A POST to a key or certificate, with the write version of the API.
VaultRequest PostRequest(const WCHAR* keyName, const WCHAR* actionverb);

// 1 if the status is 200, 201, 202 or 204, else 0. In both cases the answer is in kvc->lastStatus and kvc->lastBody. If
// the token is missing, both are unchanged; if there was no memory, lastBody is NULL and lastStatus unchanged.
int SendToVault(KVC* kvc, const VaultRequest& request);

// The same with the members as arguments.
int KVCDoKVRESTCall(KVC* kvc, const WCHAR* rawURL, int useCertificates, const WCHAR* keyName, const WCHAR* verb,
                    const WCHAR* actionverb, const char* body, const WCHAR* apiVersion);
