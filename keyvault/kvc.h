// One client of one vault, and the calls on it.
//
// A provider owns two clients. A client is shared by all threads of the host: it has the identity that it signs in
// with, the vault's name and the latest token. An operation never works on the client but on a call, which KVCBeginCall
// makes for it: it belongs to one thread, has its own copy of the token and of the vault's name, and carries the answer
// of its requests.
#pragma once

#include <memory>

#include "platform/platform.h"
#include "support/bldstr.h"

// Sign-in methods in `authn`; the other bits are ignored.
constexpr DWORD KVC_AUTHN_MANAGED_IDENTITY = 1;
constexpr DWORD KVC_AUTHN_CLIENT_CREDENTIALS = 2;

enum class KVCLogOnResult {
    Ready,
    Refused,   // or the service couldn't be reached
    NoMemory,  // for a token that the service granted
};

// All strings are owned and may be NULL. The part above the locks is fixed by KVCNew. signInLock is held throughout a
// sign-in, network included, and is all that loginUrl and resource need. `lock` is taken for moments only, by a thread
// that may hold signInLock already. Whoever changes the other fields below holds both, so either is enough to read
// them.
struct KVCClient {
    DWORD authn;             // sign-in methods
    BldStr* tenant;          // directory tenant
    BldStr* clientId;        // application id
    BldStr* clientSecret;    // clear text; may be empty
    BldStr* clientCertId;    // only logged
    DWORD purgeOnDelete;     // non-zero: a deletion is followed by a purge
    DWORD certificateMode;   // non-zero: keys live in the vault's certificate collection
    DWORD exportableOption;  // the setting ExportableOption, unchanged

    SRWLOCK signInLock;
    SRWLOCK lock;
    BldStr* loginUrl;            // sign-in base URL with the tenant behind it
    BldStr* resource;            // resource URL of the vault service
    BldStr* tokenType;           // first word of the Authorization header
    BldStr* accessToken;         // second word of it
    int64_t tokenExpiry;         // Unix time in seconds from which the token counts as used up
    BldStr* kvname;              // the vault's short name
    uint32_t failedSignIns;      // how many so far
    KVCLogOnResult lastFailure;  // how the last of them ended
};

// A call. All strings are owned and may be NULL.
struct KVC {
    KVCClient* client;  // not owned
    BldStr* tokenType;  // a copy of the client's, as are the next four
    BldStr* accessToken;
    BldStr* kvname;
    DWORD purgeOnDelete;
    DWORD certificateMode;
    DWORD lastStatus;  // HTTP status of the last request, 0 if no response came
    char* lastBody;    // entity of the last response, zero-terminated, owned (free); NULL without one
};

// Builds a client. kvname: the template of the vault's name (NULL gives NULL); the four strings are copied and may be
// NULL. purgeOnDelete and certificateMode are the negations of the settings DoDeletePurge and CertificatesOrKeys. NULL:
// a NULL template, or no memory. No network traffic.
KVCClient* KVCNew(const WCHAR* kvname, DWORD authn, const WCHAR* tenant, const WCHAR* clientId,
                  const WCHAR* clientSecret, const WCHAR* clientCertId, DWORD purgeOnDelete, DWORD certificateMode,
                  DWORD exportableOption);

// Releases a client and all that it owns, secrets wiped. NULL does nothing but log.
void KVCDelete(KVCClient* client);

// A call on `client` (not NULL), still without token and vault name: KVCLogOn or KVCTakeHeldToken bring them. NULL: no
// memory. The caller ends it with KVCEndCall before the client goes.
KVC* KVCBeginCall(KVCClient* client);

// Releases a call, tokens and answer wiped. NULL does nothing. Keeps the thread's last error.
void KVCEndCall(KVC* call);

struct KVCCallEnder {
    void operator()(KVC* call) const { KVCEndCall(call); }
};
// Holds one call.
using KVCCall = std::unique_ptr<KVC, KVCCallEnder>;

// Gets a valid token for a call (not NULL). Ready: its tokenType, accessToken and kvname may be used; failures are
// logged. Returns at once while the client's token is under an hour old, else blocks for a sign-in; of several threads
// that find it expired, one signs in and the others share its outcome.
KVCLogOnResult KVCLogOn(KVC* call);

// KVCLogOn for callers that need no reason: 1 when ready, else 0.
int KVCAuthenticate(KVC* kvc);

// Copies the client's current token, possibly expired, and the vault name to one of its calls, without signing in and
// without waiting for a sign-in that is under way; before the first one there is no token. 1; 0: no memory.
int KVCTakeHeldToken(KVC* call);

// The text of a string, empty for NULL.
const WCHAR* KVCText(const BldStr* str);
