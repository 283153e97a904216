#include "ScriptFile.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace oxil::test {

ScriptFile::ScriptFile(const std::string& content)
    : __path(testing::TempDir() + "oxil-script-XXXXXX")
{
    const int file = mkstemp(__path.data());
    EXPECT_NE(file, -1) << __path;
    close(file);
    write(content);
}

ScriptFile::~ScriptFile()
{
    unlink(__path.c_str());
}

void ScriptFile::write(const std::string& content) const
{
    std::ofstream file(__path, std::ios::trunc | std::ios::binary);
    file << content;
    EXPECT_TRUE(file.flush()) << __path;
}

}  // namespace oxil::test
