#include "kelvaroctl/files.h"

#include <filesystem>
#include <fstream>

#include "kelvaroctl/failure.h"

namespace kelvaroctl {

namespace fs = std::filesystem;

Bytes ReadWholeFile(const std::string& name, size_t maxSize)
{
    std::ifstream file(fs::u8path(name), std::ios::binary);
    if (!file)
        throw UsageFailure("cannot open " + name);
    Bytes content;
    char piece[4096];
    while (file.read(piece, sizeof(piece)) || file.gcount()) {
        content.insert(content.end(), piece, piece + file.gcount());
        if (content.size() > maxSize)
            throw UsageFailure(name + " is larger than " + std::to_string(maxSize) + " bytes");
    }
    if (file.bad())
        throw UsageFailure("cannot read " + name);
    return content;
}

void WriteWholeFile(const std::string& name, const Bytes& content, Readers readers)
{
    const fs::path path = fs::u8path(name);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file)
        throw UsageFailure("cannot write " + name);
    std::error_code ignored;
    if (readers == Readers::OwnerOnly && fs::is_regular_file(path, ignored))
        fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write, ignored);
    file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file)
        throw UsageFailure("cannot write " + name);
}

}  // namespace kelvaroctl
