// Which answers of the vault are retried, after which waits, and how often.
#pragma once

#include "keyvault/rest_call.h"
#include "support/log.h"

// A status worth a retry. The waits of a request are 1, 2, 4, 8... seconds, at most 64; the last wait is followed by no
// request.
struct RetryStatus {
    DWORD status;         // 0 in an unused row
    DWORD longestWaitMs;  // the status is final after this wait
    DWORD most;           // final after this many such answers; 0: no limit
};

struct RetryRule {
    const WCHAR* message;  // logged with the status of each answer that is retried
    LONG level;
    RetryStatus statuses[2];
};

// The rule for all but deletions: up to five answers of 429, over 31 seconds.
constexpr RetryRule ThrottleRule(const WCHAR* message)
{
    return {message, LOG_WARNING_LEVEL, {{HTTP_THROTTLED, 16000, 0}, {}}};
}

// The retries of one request.
class Retry {
  public:
    explicit Retry(const RetryRule& rule, DWORD firstWaitMs = 1000) : rule_(rule), waitMs_(firstWaitMs) {}

    // True: the request is to be sent again; logs the status and sleeps first. False: the answer is final.
    bool After(DWORD status);

    DWORD nextWaitMs() const { return waitMs_; }

  private:
    RetryRule rule_;
    DWORD waitMs_;
    DWORD answers_[2] = {};  // so far, for each status of the rule
};

// Calls `send` until the answer in kvc->lastStatus is final, and returns its last result. send: sends one request and
// returns the result of SendToVault.
template <typename Send>
int SendWithRetry(KVC* kvc, Retry& retry, Send send)
{
    int good = 0;
    do {
        // If the request can't be sent, the status of an earlier one must not count as its answer.
        kvc->lastStatus = 0;
        good = send();
    } while (retry.After(kvc->lastStatus));
    return good;
}
