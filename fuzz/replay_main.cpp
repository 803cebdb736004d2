// Runs a fuzz target over the files on the command line: every build replays what fuzzing has found.
#include <stdint.h>
#include <stdio.h>

#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; i++) {
        std::ifstream file(argv[i], std::ios::binary);
        if (!file) {
            fprintf(stderr, "cannot read %s\n", argv[i]);
            return 1;
        }
        const std::vector<char> input(std::istreambuf_iterator<char>(file), {});
        printf("%s\n", argv[i]);
        fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
    }
    return argc > 1 ? 0 : 1;
}
