#include <filesystem>

#include "tests/provider/read_only_settings.h"

// The new registry cannot be written where a directory stands, not even by root.
ReadOnlySettings::ReadOnlySettings(const TestRoot& root)
    : obstacle_(root.directory() + "/root/registry/HKEY_LOCAL_MACHINE.reg.new")
{
    std::filesystem::create_directory(obstacle_);
}

ReadOnlySettings::~ReadOnlySettings()
{
    std::filesystem::remove(obstacle_);
}
