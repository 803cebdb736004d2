#include "register/module_files.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace kelvaro_register {

namespace fs = std::filesystem;

// Offsets in an image's header.
constexpr size_t kDosHeaderSize = 64;
constexpr size_t kOffsetOfHeader = 60;
constexpr size_t kHeaderSize = 24;
constexpr size_t kOffsetOfMachine = 4;
constexpr size_t kOffsetOfCharacteristics = 22;
constexpr WORD kIsModule = 0x2000;

static WORD Word(const char* bytes)
{
    return static_cast<WORD>(static_cast<BYTE>(bytes[0]) | static_cast<BYTE>(bytes[1]) << 8);
}

static ModuleFile ReadHeader(std::istream& file, WORD wanted)
{
    char dos[kDosHeaderSize];
    if (!file.read(dos, sizeof(dos)) || dos[0] != 'M' || dos[1] != 'Z')
        return {ModuleFit::NoModule, 0};
    const auto at = static_cast<std::streamoff>(Word(dos + kOffsetOfHeader)) |
                    static_cast<std::streamoff>(Word(dos + kOffsetOfHeader + 2)) << 16;
    char header[kHeaderSize];
    if (!file.seekg(at) || !file.read(header, sizeof(header)) ||
        std::string_view(header, 4) != std::string_view("PE\0\0", 4))
        return {ModuleFit::NoModule, 0};
    if (!(Word(header + kOffsetOfCharacteristics) & kIsModule))
        return {ModuleFit::NoModule, 0};
    const WORD machine = Word(header + kOffsetOfMachine);
    return {machine == wanted ? ModuleFit::Fits : ModuleFit::WrongMachine, machine};
}

ModuleFile InspectModule(const ModulePlace& place)
{
    const fs::path path = fs::path(place.folder) / fs::path(WideText(kImage));
    std::error_code error;
    if (!fs::exists(path, error))
        return {error ? ModuleFit::Unreadable : ModuleFit::Missing, 0};
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return {ModuleFit::Unreadable, 0};
    return ReadHeader(file, place.machine);
}

std::string MachineName(WORD machine)
{
    switch (machine) {
        case kMachineX86:
            return "x86";
        case kMachineX64:
            return "x64";
        case kMachineArm64:
            return "ARM64";
        default:
            char text[16];
            std::snprintf(text, sizeof(text), "0x%04x", static_cast<unsigned>(machine));
            return text;
    }
}

}  // namespace kelvaro_register
