#include "kelvaroctl/files.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "kelvaroctl/failure.h"
#include "kelvaroctl/file_access.h"
#include "kelvaroctl/places.h"
#include "kelvaroctl/terminal.h"

namespace kelvaroctl {

namespace fs = std::filesystem;

void ReadInPieces(const std::string& name, const std::function<void(const char* piece, size_t size)>& take)
{
    errno = 0;
    const bool standard = name == "-";
    std::ifstream file;
    if (standard)
        ReadInputAsBytes();
    else
        file.open(fs::u8path(name), std::ios::binary);
    if (!file)
        throw FileFailure("open", name);
    std::istream& stream = standard ? std::cin : file;
    SecretString piece(64 * 1024, 0);  // of a private key or a password, perhaps
    while (stream.read(piece.data(), static_cast<std::streamsize>(piece.size())) || stream.gcount())
        take(piece.data(), static_cast<size_t>(stream.gcount()));
    if (stream.bad())
        throw FileFailure("read", standard ? "standard input" : name);
}

Bytes ReadInput(const std::string& name, size_t maxSize)
{
    Bytes content;
    ReadInPieces(name, [&](const char* piece, size_t size) {
        if (size > maxSize - content.size())
            throw UsageFailure((name == "-" ? "standard input" : name) + " is larger than " + std::to_string(maxSize) +
                               " bytes");
        content.insert(content.end(), piece, piece + size);
    });
    return content;
}

OutputFile::OutputFile(const std::string& name, const std::string& input, Readers readers) : name_(name)
{
    if (name.empty())
        return;
    const fs::path path = fs::u8path(name);
    std::error_code ignored;
    if (!input.empty() && fs::equivalent(path, fs::u8path(input), ignored))
        throw UsageFailure("--in and --out are the same file: choose another for --out");
    isNew_ = !fs::exists(path, ignored);
    RemoveWhenInterrupted(isNew_ ? path : fs::path());
    if (readers == Readers::OwnerOnly) {
        CreateForOwner(name);
        return;
    }
    errno = 0;
    if (!std::ofstream(path, std::ios::binary | std::ios::app))
        throw FileFailure("write", name);
}

OutputFile::~OutputFile()
{
    std::error_code ignored;
    if (isNew_)
        fs::remove(fs::u8path(name_), ignored);
    RemoveWhenInterrupted({});
}

void OutputFile::Write(const Bytes& content)
{
    errno = 0;
    std::ofstream file(fs::u8path(name_), std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file)
        throw FileFailure("write", name_);
    isNew_ = false;
    RemoveWhenInterrupted({});
}

}  // namespace kelvaroctl
