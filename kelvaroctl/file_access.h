// Who else can use a file or a folder. Each system has its own source, chosen by the build. Names are UTF-8.
#pragma once

#include <string>

namespace kelvaroctl {

// Creates the file, or opens an existing one without changing its content, and lets only its owner (and on Windows
// administrators) use it. Pipes and devices are left as they are. Throws a usage failure if that is refused, or if the
// file belongs to another user, who could regain access.
void CreateForOwner(const std::string& name);

// Whether ordinary users can write to the folder, or replace it. False if that can't be determined.
bool OthersCanWrite(const std::string& folder);

}  // namespace kelvaroctl
