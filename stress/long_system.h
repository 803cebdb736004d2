// What differs between the systems for the long run.
#pragma once

#include <cstddef>
#include <string>

size_t ResidentKb();

// Whether the module of that path is loaded.
bool IsLoaded(const std::string& path);
