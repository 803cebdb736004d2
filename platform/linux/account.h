// Who and what the process is.
#pragma once

#include <string>

struct Account {
    std::string name;  // the user id in digits if the account has no name
    std::string home;  // "/" if it has none
};

// The effective account.
Account CallerAccount();

// The path of its program. Throws Failure if it can't be read.
std::u16string ProgramPath();
