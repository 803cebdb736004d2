// CNG's configuration in memory behind the table of calls, with the router's own answers: names without regard to case,
// a collision for a second registration, blocks of its own which must come back.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "register/registration.h"

namespace kelvaro_register {

class FakeRouter {
  public:
    struct Record {
        WideText image;
        ULONG interfaceId;
        WideText function;
    };

    // One router at a time: the calls have no place for it.
    FakeRouter();
    ~FakeRouter();
    FakeRouter(const FakeRouter&) = delete;
    FakeRouter& operator=(const FakeRouter&) = delete;

    static CngCalls Calls();

    std::map<WideText, Record> records;
    std::vector<WideText> listing = {TEXT("Microsoft Software Key Storage Provider")};
    // What a call of that name answers instead of doing its work; 0 for done without doing it.
    std::map<std::string, NTSTATUS> answers;
    std::string changes;  // the calls that change something, in their order, each with a blank
    int blocksOut = 0;
};

}  // namespace kelvaro_register
