#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>

namespace oxil::test {

/** A name in the temporary folder for a file that the test makes; nothing is there at first. */
class OutputFile {
public:
    explicit OutputFile(const std::string& name)
        : __path(testing::TempDir() + "oxil-" + std::to_string(getpid()) + "-" + name)
    {
        unlink(__path.c_str());
    }

    ~OutputFile() { unlink(__path.c_str()); }

    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& path() const { return __path; }

    bool exists() const { return access(__path.c_str(), F_OK) == 0; }

    std::string content() const
    {
        std::ifstream file(__path, std::ios::binary);
        EXPECT_TRUE(file) << __path;
        return {std::istreambuf_iterator<char>(file), {}};
    }

    /** Puts something there, which the file under test is to replace. */
    void fill(const std::string& content) const
    {
        std::ofstream file(__path, std::ios::trunc | std::ios::binary);
        file << content;
        EXPECT_TRUE(file.flush()) << __path;
    }

private:
    std::string __path;
};

}  // namespace oxil::test
