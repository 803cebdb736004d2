// Predicts what a fault does to an operation from the kind of request and the kind of fault.
#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "platform/platform.h"
#include "stress/gate.h"

namespace stress {

// The kind of the request that the fault hits.
enum class Kind {
    SignIn,
    Identity,
    Arc,
    Read,
    List,
    Crypto,
    Verify,
    Create,
    CreateCertificate,
    Merge,
    Delete,
    Purge,
    BestEffort,  // the host doesn't see it fail
};

enum class FaultClass {
    None,
    Refused,     // no connection
    Unreached,   // a connection, but the service sees no request
    Unanswered,  // the service sees the request; no complete head comes back
    CutBody,     // the service does the work and answers; the body breaks off
    WrongBody,   // a success status, but the body lacks what was requested
    WrongTypes,  // a success status, but members have the wrong types
    Status,      // always `status`
    StatusOnce,  // `status` once, then the real answer
};

struct Fault {
    const char* name;
    FaultClass cls = FaultClass::None;
    DWORD status = 0;
    GateFault gate = GateFault::None;
    const char* certificate = nullptr;  // the simulator's certificate mode
    nlohmann::json sim = nullptr;       // the simulator's fault, without method and path
    bool performed = false;             // the service still does the work
    int connectMs = 0;                  // time-outs of the faulty requests; 0: the defaults of WinHTTP
    int receiveMs = 0;
    DWORD tickMs = 0;  // how far each reading of the tick count advances it

    bool NeedsTls() const
    {
        return certificate || gate == GateFault::ResetInHandshake || gate == GateFault::SilentInHandshake;
    }
};

const std::vector<Fault>& Faults();

struct Outcome {
    SECURITY_STATUS status = 0;
    size_t requests = 0;       // of the faulty kind, as counted by the service
    std::vector<DWORD> waits;  // during the whole operation
};

struct Statuses {
    SECURITY_STATUS good;
    SECURITY_STATUS failed;
    SECURITY_STATUS wrongBody;
    SECURITY_STATUS wrongTypes;
};

// statuses: what the host gets for this kind of request.
Outcome Expect(Kind kind, const Statuses& statuses, const Fault& fault);

// The same if an earlier request of the operation was throttled once. fault: neither 409 nor a persistent 429.
Outcome ExpectAfterThrottling(Kind kind, const Statuses& statuses, const Fault& fault);

// The status of a successful request of this kind.
DWORD GoodStatus(Kind kind);

}  // namespace stress
