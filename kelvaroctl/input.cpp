#include "kelvaroctl/input.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "kelvaroctl/files.h"
#include "kelvaroctl/places.h"

namespace kelvaroctl {

static void ReadStream(std::istream& stream, const std::string& name,
                       const std::function<void(const char* piece, size_t size)>& take)
{
    std::vector<char> piece(64 * 1024);
    while (stream.read(piece.data(), static_cast<std::streamsize>(piece.size())) || stream.gcount())
        take(piece.data(), static_cast<size_t>(stream.gcount()));
    if (stream.bad())
        throw FileFailure("read", name);
}

void ReadInPieces(const std::string& name, const std::function<void(const char* piece, size_t size)>& take)
{
    errno = 0;
    if (name == "-") {
        ReadInputAsBytes();
        ReadStream(std::cin, "standard input", take);
        return;
    }
    std::ifstream file(std::filesystem::u8path(name), std::ios::binary);
    if (!file)
        throw FileFailure("open", name);
    ReadStream(file, name, take);
}

Bytes ReadInput(const std::string& name, size_t maxSize)
{
    if (name != "-")
        return ReadWholeFile(name, maxSize);
    Bytes content;
    ReadInPieces(name, [&](const char* piece, size_t size) {
        content.insert(content.end(), piece, piece + size);
        if (content.size() > maxSize)
            throw UsageFailure("standard input is larger than " + std::to_string(maxSize) + " bytes");
    });
    return content;
}

}  // namespace kelvaroctl
