// The system-dependent functions of the long run.
#pragma once

#include <cstddef>
#include <string>

size_t ResidentKb();

// Whether the module with that path is loaded.
bool IsLoaded(const std::string& path);
