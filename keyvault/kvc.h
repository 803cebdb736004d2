// One client of one vault, and the calls on it.
//
// A provider owns two clients. A client is shared by all threads of the host and has the identity to sign in with, the
// vault's name and the latest token. Operations don't use the client directly: KVCBeginCall makes a call, which belongs
// to one thread, keeps its token and vault's name while the client gets new ones, and receives the answers.
#pragma once

#include "platform/owner.h"
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

// All strings are owned and may be NULL. The fields above the locks don't change after KVCNew. signInLock is held
// during a sign-in, network included, and alone protects loginUrl and resource. `lock` is held only briefly; a thread
// may acquire it while it holds signInLock. To change one of the other fields hold both, to read it either.
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
    BldStr* loginUrl;            // sign-in base URL followed by the tenant
    BldStr* resource;            // resource URL of the vault service
    BldStr* tokenType;           // first word of the Authorization header
    BldStr* accessToken;         // second word
    int64_t tokenExpiry;         // Unix time in seconds; from then on the token counts as expired
    BldStr* kvname;              // the vault's short name
    BldStr* host;                // the vault's host
    uint32_t failedSignIns;      // how many so far
    KVCLogOnResult lastFailure;  // how the last of them ended
};

// A call. All strings are owned and may be NULL.
struct KVC {
    KVCClient* client;  // not owned
    BldStr* tokenType;  // shared with the client, as are the next three
    BldStr* accessToken;
    BldStr* kvname;
    BldStr* host;
    DWORD purgeOnDelete;
    DWORD certificateMode;
    DWORD lastStatus;  // HTTP status of the last request, 0 if no response came
    char* lastBody;    // body of the last response, zero-terminated, owned (free); NULL if there is none
};

// Creates a client. kvname: the template of the vault's name. The other four strings are copied and may be NULL.
// purgeOnDelete and certificateMode are the negations of the settings DoDeletePurge and CertificatesOrKeys. NULL: the
// template is NULL, or no memory. No network traffic.
KVCClient* KVCNew(const WCHAR* kvname, DWORD authn, const WCHAR* tenant, const WCHAR* clientId,
                  const WCHAR* clientSecret, const WCHAR* clientCertId, DWORD purgeOnDelete, DWORD certificateMode,
                  DWORD exportableOption);

// Releases a client and wipes its secrets. NULL is only logged.
void KVCDelete(KVCClient* client);

// A new call on `client` (not NULL), without token and vault name: get them with KVCLogOn or KVCTakeHeldToken. NULL: no
// memory. The caller ends it with KVCEndCall before the client is deleted.
KVC* KVCBeginCall(KVCClient* client);

// Releases a call and wipes its token and answer. NULL does nothing. Preserves the thread's last error.
void KVCEndCall(KVC* call);

// Owns a call.
using KVCCall = Owner<KVC, KVCEndCall>;

// Gets a valid token for a call (not NULL). Ready: its tokenType, accessToken, host and kvname are current. Failures
// are logged. Returns at once while the client's token is less than an hour old, else blocks for a sign-in. If several
// threads find it expired, one signs in and the others share the outcome.
KVCLogOnResult KVCLogOn(KVC* call);

// KVCLogOn for callers that don't need the reason: 1 if ready, else 0.
int KVCAuthenticate(KVC* kvc);

// Gives a call the client's current token, possibly expired, and the vault name, without signing in or waiting for a
// sign-in in progress. Before the first sign-in there is no token.
void KVCTakeHeldToken(KVC* call);

// The text of a string, empty for NULL.
const WCHAR* KVCText(const BldStr* str);
