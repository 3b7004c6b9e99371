// Runs a target with every file of the folders that are given, without libFuzzer.
#include "tests/fuzz/fuzz.h"

#include <cstdio>
#include <filesystem>

int main(int argc, char **argv)
{
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            printf("%s\n", entry.path().c_str());
            fflush(stdout);
            const std::string bytes = file_content_of(entry.path());
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
            ++count;
        }
    }
    printf("%zu inputs\n", count);
    return count > 0 ? 0 : 1;
}
