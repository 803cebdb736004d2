// Runs every input of a folder of corpora, each with the target that its own folder names.
#include <stdint.h>
#include <stdio.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

namespace fs = std::filesystem;

namespace fuzz {
void Choose(std::string_view name);
}
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    int count = 0;
    for (const auto& entry : fs::recursive_directory_iterator(argc > 1 ? argv[1] : ".")) {
        if (!entry.is_regular_file())
            continue;
        fuzz::Choose(entry.path().parent_path().filename().string());
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> input(std::istreambuf_iterator<char>(file), {});
        printf("%s\n", entry.path().c_str());
        fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
        ++count;
    }
    return count > 0 ? 0 : 1;
}
