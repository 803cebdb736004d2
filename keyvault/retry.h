// Which answers of the vault are waited out, how long and how often.
#pragma once

#include "keyvault/rest_call.h"
#include "support/log.h"

// A status that may pass. The waits of a request are 1, 2, 4, 8... seconds, and never over 64.
struct RetryStatus {
    DWORD status;         // 0 in a row that isn't used
    DWORD longestWaitMs;  // final once this has been waited
    DWORD most;           // final after so many such answers; 0: no limit but the waits'
};

struct RetryRule {
    const WCHAR* message;  // logged with the status of each answer that may pass
    LONG level;
    RetryStatus statuses[2];
};

// The rule of all but deletions: five answers of 429, over 31 seconds.
constexpr RetryRule ThrottleRule(const WCHAR* message)
{
    return {message, LOG_WARNING_LEVEL, {{HTTP_THROTTLED, 16000, 0}, {}}};
}

// How far one request has come in its waits.
class Retry {
  public:
    explicit Retry(const RetryRule& rule, DWORD firstWaitMs = 1000) : rule_(rule), waitMs_(firstWaitMs) {}

    // Judges an answer; logs and sleeps when its status may pass. False: it is final.
    bool After(DWORD status);

    DWORD nextWaitMs() const { return waitMs_; }

  private:
    RetryRule rule_;
    DWORD waitMs_;
    DWORD answers_[2] = {};  // so far, of each status of the rule
};

// Calls `send` until the answer in kvc->lastStatus is final. send: sends one request, and gives the result of
// KVCDoKVRESTCall; lastStatus is 0 before. The last result.
template <typename Send>
int SendWithRetry(KVC* kvc, Retry& retry, Send send)
{
    int good = 0;
    do {
        // What an earlier call left isn't taken for the answer to a request that can't be sent.
        kvc->lastStatus = 0;
        good = send();
    } while (retry.After(kvc->lastStatus));
    return good;
}
