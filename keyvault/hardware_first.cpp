#include "keyvault/hardware_first.h"

int SendCreation(KVC* kvc, const Creation& creation, const char* body)
{
    VaultRequest request = PostRequest(creation.encodedName, TEXT("create"));
    request.useCertificates = creation.useCertificates;
    request.body = body;
    return SendToVault(kvc, request) ? 1 : Fail(0, creation.refused, kvc->lastStatus);
}

void AddKeyTags(JsonBody& body, const WCHAR* algId, const WCHAR* keyName)
{
    body.Text(TEXT("\"AlgID\":")).Quoted(algId);
    body.Text(TEXT(",\"KeyName\":")).Quoted(keyName).Text(TEXT("}}"));
}
