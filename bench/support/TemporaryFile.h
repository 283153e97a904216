#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace oxil::bench {

/** A file in the temporary folder that is there as long as this object is. */
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& content)
        : __path(std::filesystem::temp_directory_path() / "oxil-bench-XXXXXX")
    {
        const int descriptor = mkstemp(__path.data());
        if (descriptor < 0) {
            std::perror(__path.c_str());
            std::abort();
        }
        close(descriptor);
        std::ofstream(__path, std::ios::binary) << content;
    }

    ~TemporaryFile() { std::remove(__path.c_str()); }

    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return __path; }

    std::string content() const
    {
        std::ifstream file(__path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

private:
    std::string __path;
};

}  // namespace oxil::bench
