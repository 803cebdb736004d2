// Rights to the machine's settings, as an administrator finds or grants them.
#pragma once

#include <string>

// Lets every user of the machine read the settings. root: the test's folder.
void LetEverybodyReadSettings(const std::string& root);

// An account or group that can be allowed to read them.
std::string AccountToAllow();
