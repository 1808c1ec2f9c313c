// Stands in for libFuzzer in the ordinary tests: runs the inputs of a folder.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/fuzz.h"

int main(int argc, char **argv) {
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(argc > 1 ? argv[1] : ".")) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string input(std::istreambuf_iterator<char>(file), {});
        std::fprintf(stderr, "%s\n", entry.path().c_str()); // the last one is the culprit
        fuzz::run(input);
        ++count;
    }
    return count != 0 ? 0 : 1;
}
