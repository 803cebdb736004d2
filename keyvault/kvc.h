// KVC: one client of one vault.
//
// A provider owns two clients. A client is shared by all threads of the host and carries identity, vault name and
// token. Two locks guard what changes after KVCNew. signInLock is held throughout a sign-in, network included, and is
// all that loginUrl and resource need. `lock` is taken for moments only, around tokenType, accessToken, tokenExpiry,
// kvname and the outcome of failed sign-ins; whoever changes these holds both, so either is enough to read them.
//
// An operation never works on the client itself but on a call record: a KVC of its own, handed out by KVCBeginCall with
// a copy of the behaviour flags, and by KVCAuthenticate with the vault name and the token. It carries the answer of its
// own calls (lastStatus, lastBody), belongs to one thread, and is given back with KVCEndCall.
#pragma once

#include <memory>

#include "platform/platform.h"
#include "support/bldstr.h"

// Sign-in methods in `authn`; the other bits are ignored.
constexpr DWORD KVC_AUTHN_MANAGED_IDENTITY = 1;
constexpr DWORD KVC_AUTHN_CLIENT_CREDENTIALS = 2;

// Longest vault name, in characters.
constexpr size_t kVaultNameLimit = 24;

enum class KVCLogOnResult {
    Ready,
    Refused,   // or the service couldn't be reached
    NoMemory,  // for a token that the service granted
};

// All strings are owned and may be NULL. All-zero is a valid empty record.
struct KVC {
    BldStr* tokenType;       // first word of the Authorization header
    BldStr* accessToken;     // second word of it
    int64_t tokenExpiry;     // Unix time in seconds from which the token counts as used up
    BldStr* loginUrl;        // sign-in base URL with the tenant behind it
    BldStr* resource;        // resource URL of the vault service
    BldStr* kvname;          // the vault's short name
    DWORD authn;             // sign-in methods
    BldStr* tenant;          // directory tenant
    BldStr* clientId;        // application id
    BldStr* clientSecret;    // clear text; may be empty
    BldStr* clientCertId;    // only logged
    DWORD purgeOnDelete;     // non-zero: a deletion is followed by a purge
    DWORD certificateMode;   // non-zero: keys live in the vault's certificate collection
    DWORD exportableOption;  // the setting ExportableOption, unchanged
    DWORD lastStatus;        // HTTP status of the last call, 0 if no response came
    char* lastBody;          // entity of the last call, zero-terminated, owned (free); NULL without one

    KVC* client;         // in a call record: the client that it was handed out by, not owned; else NULL
    SRWLOCK signInLock;  // in a client, as are all below: taken before `lock`
    SRWLOCK lock;
    uint32_t failedSignIns;      // how many so far
    KVCLogOnResult lastFailure;  // how the last of them ended
};

// Builds a client. kvname: the template of the vault's name (NULL gives NULL); the four strings are copied and may be
// NULL. purgeOnDelete and certificateMode are the negations of the settings DoDeletePurge and CertificatesOrKeys. NULL:
// a NULL template, or no memory. No network traffic.
KVC* KVCNew(const WCHAR* kvname, DWORD authn, const WCHAR* tenant, const WCHAR* clientId, const WCHAR* clientSecret,
            const WCHAR* clientCertId, DWORD purgeOnDelete, DWORD certificateMode, DWORD exportableOption);

// Releases a client and all that it owns, secrets wiped. NULL does nothing but log.
void KVCDelete(KVC* kvc);

// A call record of `client` (not NULL): behaviour flags and authn are copied, token and vault name follow with
// KVCAuthenticate. NULL: no memory. The caller gives it back with KVCEndCall before the client goes.
KVC* KVCBeginCall(KVC* client);

// Gives a call record back, tokens wiped. NULL does nothing. Keeps the thread's last error.
void KVCEndCall(KVC* call);

struct KVCCallEnder {
    void operator()(KVC* call) const { KVCEndCall(call); }
};
// Holds one call record.
using KVCCall = std::unique_ptr<KVC, KVCCallEnder>;

// Gets a valid token for a call. kvc: a call record, or a client that no other thread uses. Not NULL.
// Ready: tokenType, accessToken and kvname of `kvc` may be used; failures are logged. Returns at once while the token
// is under an hour old, else blocks for a sign-in; of several threads that find it expired, one signs in and the others
// share its outcome.
KVCLogOnResult KVCLogOn(KVC* kvc);

// KVCLogOn for callers that need no reason: 1 when ready, else 0.
int KVCAuthenticate(KVC* kvc);

// Copies the client's current token, possibly expired, and the vault name to one of its call records, without signing
// in and without waiting for a sign-in that is under way; before the first one there is no token. 1; 0: no memory.
int KVCTakeHeldToken(KVC* call);

// The text of a string, empty for NULL.
const WCHAR* KVCText(const BldStr* str);
