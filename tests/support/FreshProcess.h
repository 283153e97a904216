#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

namespace oxil::test {

/** Ends the process; the failures so far go to where the parent shows them. */
[[noreturn]] inline void exitWithResult()
{
    const testing::TestResult& result =
        *testing::UnitTest::GetInstance()->current_test_info()->result();
    for (int i = 0; i < result.total_part_count(); ++i) {
        const testing::TestPartResult& part = result.GetTestPartResult(i);
        std::fprintf(stderr, "%s:%d: %s\n", part.file_name(), part.line_number(), part.message());
    }
    std::exit(result.Passed() ? 0 : 1);
}

/**
 * Runs the body in a process in which nothing was used yet that is made at first use; its
 * expectations are this test's. What stands before the call is run there, too.
 */
inline void inFreshProcess(const std::function<void()>& body)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // for the rest of this test
    EXPECT_EXIT((body(), exitWithResult()), testing::ExitedWithCode(0), "");
}

}  // namespace oxil::test
