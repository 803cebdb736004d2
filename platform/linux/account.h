// The account that the process acts as.
#pragma once

#include <string>

struct Account {
    std::string name;  // the user id in digits when the account has no name
    std::string home;  // "/" when it has none
};

Account CallerAccount();
