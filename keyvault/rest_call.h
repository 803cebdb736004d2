// One operation of the vault service as one HTTP exchange.
#pragma once

#include "keyvault/kvc.h"
#include "keyvault/web_call.h"

constexpr const WCHAR* kApiVersionRead = TEXT("2016-10-01");
constexpr const WCHAR* kApiVersionWrite = TEXT("7.0");

// rawURL: complete path and query, or NULL; when set, the four parameters that shape the URL are not looked at.
// useCertificates: non-zero for the collection "certificates", zero for "keys".
// keyName: encoded name, or name "/" version, or NULL.  actionverb: path element behind it, or NULL.
// body: zero-terminated JSON bytes, or NULL.  apiVersion: NULL means "2016-10-01".
// 1 when the status was 200, 201, 202 or 204, else 0. kvc->lastStatus and kvc->lastBody hold the answer in both cases;
// when the token is missing both stay as they were, and without a response record lastBody is NULL and lastStatus
// stays.
int KVCDoKVRESTCall(KVC* kvc, const WCHAR* rawURL, int useCertificates, const WCHAR* keyName, const WCHAR* verb,
                    const WCHAR* actionverb, const char* body, const WCHAR* apiVersion);
