// What a fault does to an operation, worked out from what kind of request it hits and what kind of fault it is.
#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "platform/platform.h"
#include "stress/gate.h"

namespace stress {

// The request that is hit.
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
    BestEffort,  // its failure doesn't show to the host
};

enum class FaultClass {
    None,
    Refused,     // no connection
    Unreached,   // a connection, but the service sees no request
    Unanswered,  // the service sees the request; no complete head comes back
    CutBody,     // the service does the work and answers; the body breaks off
    WrongBody,   // a good status with a body without what is asked for
    WrongTypes,  // a good status with members of wrong types
    Status,      // `status` for ever
    StatusOnce,  // `status`, and then the real answer
};

struct Fault {
    const char* name;
    FaultClass cls = FaultClass::None;
    DWORD status = 0;
    GateFault gate = GateFault::None;
    const char* certificate = nullptr;  // of the simulator
    nlohmann::json sim = nullptr;       // a fault of the simulator, but for the requests that it hits
    bool performed = false;             // the service does the work
    int connectMs = 0;                  // time-outs of the faulty requests; 0: WinHTTP's
    int receiveMs = 0;
    DWORD tickMs = 0;  // so much later is each reading of the clock's tick

    bool NeedsTls() const
    {
        return certificate || gate == GateFault::ResetInHandshake || gate == GateFault::SilentInHandshake;
    }
};

const std::vector<Fault>& Faults();

struct Outcome {
    SECURITY_STATUS status = 0;
    size_t requests = 0;       // of the kind that is hit, as the service counts them
    std::vector<DWORD> waits;  // of the whole operation
};

struct Statuses {
    SECURITY_STATUS good;
    SECURITY_STATUS failed;
    SECURITY_STATUS wrongBody;
    SECURITY_STATUS wrongTypes;
};

// statuses: what the host sees of such a request.
Outcome Expect(Kind kind, const Statuses& statuses, const Fault& fault);

// A status with which a request of this kind has done its work.
DWORD GoodStatus(Kind kind);

}  // namespace stress
