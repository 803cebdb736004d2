// Files with the header of a Windows image, as much of it as a reader of it looks at.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

namespace kelvaro_register {

inline std::string ImageHeader(uint16_t machine, uint16_t characteristics, uint32_t at = 128)
{
    std::string bytes(at + 24, '\0');
    const auto put = [&](size_t where, uint32_t value, size_t size) {
        for (size_t index = 0; index < size; ++index)
            bytes[where + index] = static_cast<char>(value >> (8 * index));
    };
    bytes.replace(0, 2, "MZ");
    put(60, at, 4);
    bytes.replace(at, 2, "PE");
    put(at + 4, machine, 2);
    put(at + 22, characteristics, 2);
    return bytes;
}

constexpr uint16_t kModuleBits = 0x2022;  // executable, large addresses, DLL
constexpr uint16_t kProgramBits = 0x0022;

// A folder of this test alone, gone with it.
class ImageFolder {
  public:
    ImageFolder()
    {
        char name[] = "/tmp/kelvaro-register-XXXXXX";
        path_ = mkdtemp(name);
    }
    ~ImageFolder() { std::filesystem::remove_all(path_); }
    ImageFolder(const ImageFolder&) = delete;
    ImageFolder& operator=(const ImageFolder&) = delete;

    // The folder of that name, with a module of those bytes in it.
    std::filesystem::path With(const std::string& name, const std::string& bytes) const
    {
        const std::filesystem::path folder = path_ / name;
        std::filesystem::create_directories(folder);
        std::ofstream(folder / "kelvaro.dll", std::ios::binary) << bytes;
        return folder;
    }
    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

}  // namespace kelvaro_register
