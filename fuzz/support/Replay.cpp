// Runs a target with the files of a folder: for compilers without libFuzzer, and as a test. Of a file
// that is named itself it is told what it stands for, and what is logged.
//
// Usage: NAME-fuzz FOLDER|FILE...

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Fuzz.h"

namespace {

/** The files of a folder, always in the same order; or the one that it is itself. */
std::vector<std::filesystem::path> filesOf(const std::filesystem::path& path)
{
    if (!std::filesystem::is_directory(path)) {
        return {path};
    }
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

bool replay(const std::filesystem::path& path, bool isTold)
{
    // Told before, because a target that finds something ends the process.
    std::printf("%s\n", path.filename().c_str());
    std::fflush(stdout);

    std::ifstream file(path, std::ios::binary);
    const std::vector<char> content((std::istreambuf_iterator<char>(file)), {});
    if (!file.good() && !file.eof()) {
        std::fprintf(stderr, "can't be read: %s\n", path.c_str());
        return false;
    }
    // Of just this size, so that a sanitizer sees a step beyond.
    const std::vector<std::uint8_t> bytes(content.begin(), content.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    if (isTold) {
        oxil::fuzz::tell();
    }
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FOLDER|FILE...\n", argv[0]);
        return 2;
    }
    // What a target keeps from one run to the next must not make a difference.
    std::size_t count = 0;
    for (const bool isFirst : {true, false}) {
        for (int i = 1; i < argc; ++i) {
            const std::vector<std::filesystem::path> files = filesOf(argv[i]);
            const bool isTold = isFirst && files.size() == 1;
            for (const std::filesystem::path& file : files) {
                if (!replay(file, isTold)) {
                    return 1;
                }
                ++count;
            }
        }
    }
    std::printf("%zu runs\n", count);
    return count > 0 ? 0 : 1;
}
