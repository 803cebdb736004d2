// Rights to the machine's settings and to folders, as an administrator finds or grants them.
#pragma once

#include <string>

// Lets every user of the machine read the settings. root: the test's folder.
void LetEverybodyReadSettings(const std::string& root);

// Lets every user of the machine write to the folder.
void LetEverybodyWriteTo(const std::string& folder);

// An account or group that can be allowed to read them.
std::string AccountToAllow();
