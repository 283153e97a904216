#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

namespace oxil::test {

/** No file may have more bytes, while it lives. */
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t size) : __handler(std::signal(SIGXFSZ, SIG_IGN))
    {
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &__before), 0);
        rlimit limit = __before;
        limit.rlim_cur = size;
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }

    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &__before);
        std::signal(SIGXFSZ, __handler);
    }

    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit __before{};
    void (*__handler)(int);
};

}  // namespace oxil::test
