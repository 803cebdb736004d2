// The process's effective account.
#pragma once

#include <string>

struct Account {
    std::string name;  // the user id in digits if the account has no name
    std::string home;  // "/" if it has none
};

Account CallerAccount();
