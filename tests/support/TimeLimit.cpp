// A test that hangs ends the program, which says which one it was. CTest's own limit would end all
// tests of a process, and tell none.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>

namespace {

constexpr unsigned int SECONDS = 120;  // an emulator on a machine that is busy otherwise is slow

std::string running;

void say(const char* text)
{
    static_cast<void>(write(STDERR_FILENO, text, std::strlen(text)) + 1);
}

void giveUp(int)
{
    say("\n[  FAILED  ] took too long: ");
    say(running.c_str());
    say("\n");
    _exit(1);
}

class TimeLimit : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& test) override
    {
        running = std::string(test.test_suite_name()) + "." + test.name();
        alarm(SECONDS);
    }

    void OnTestEnd(const testing::TestInfo&) override { alarm(0); }
};

[[maybe_unused]] const bool installed = [] {
    std::signal(SIGALRM, giveUp);
    testing::UnitTest::GetInstance()->listeners().Append(new TimeLimit());
    return true;
}();

}  // namespace
