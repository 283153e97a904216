#pragma once

#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "Fuzz.h"

namespace oxil::fuzz {

/** A regular file that lies in memory, for what reads files only. */
class MemoryFile {
public:
    explicit MemoryFile(std::string_view content) : __descriptor(memfd_create("fuzz", MFD_CLOEXEC))
    {
        FUZZ_REQUIRE(__descriptor != -1);
        FUZZ_REQUIRE(write(__descriptor, content.data(), content.size()) ==
                     static_cast<ssize_t>(content.size()));
    }

    ~MemoryFile() { close(__descriptor); }

    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(__descriptor); }

private:
    int __descriptor;
};

}  // namespace oxil::fuzz
