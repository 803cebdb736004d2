// Runs every input of a folder of corpora. The name of an input's folder is its target.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/harness.h"

int main(int argc, char** argv)
{
    int count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argc > 1 ? argv[1] : ".")) {
        if (!entry.is_regular_file())
            continue;
        printf("%s\n", entry.path().c_str());
        fflush(stdout);
        std::ifstream file(entry.path(), std::ios::binary);
        fuzz::Choose(entry.path().parent_path().filename().string());
        fuzz::Run(std::string(std::istreambuf_iterator<char>(file), {}));
        ++count;
    }
    return count > 0 ? 0 : 1;
}
