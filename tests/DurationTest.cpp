#include <Oxil.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <climits>
#include <limits>

#include "MainLoopCalls.h"

/** Whatever takes milliseconds takes durations, too. */
namespace oxil::test {
namespace {

using namespace std::chrono_literals;

TEST(DurationTest, DurationsAreRoundedUpToMilliseconds)
{
    EXPECT_EQ(internal::toMilliseconds(2s), 2000);
    EXPECT_EQ(internal::toMilliseconds(7ms), 7);
    EXPECT_EQ(internal::toMilliseconds(1us), 1);
    EXPECT_EQ(internal::toMilliseconds(1000us), 1);
    EXPECT_EQ(internal::toMilliseconds(1001us), 2);
    EXPECT_EQ(internal::toMilliseconds(100000us), 100);
    EXPECT_EQ(internal::toMilliseconds(0.25s), 250);
    EXPECT_EQ(internal::toMilliseconds(0s), 0);
}

TEST(DurationTest, WhatMillisecondsCanNotTellIsTheNextThatTheyCan)
{
    EXPECT_EQ(internal::toMilliseconds(-1ns), 0);
    EXPECT_EQ(internal::toMilliseconds(-1s), 0);
    EXPECT_EQ(internal::toMilliseconds(std::chrono::milliseconds(INT_MAX)), INT_MAX);
    EXPECT_EQ(internal::toMilliseconds(std::chrono::milliseconds(INT_MAX) + 1ms), INT_MAX);
    EXPECT_EQ(internal::toMilliseconds(std::chrono::hours::max()), INT_MAX);
    EXPECT_EQ(internal::toMilliseconds(std::chrono::nanoseconds::min()), 0);
    EXPECT_EQ(internal::toMilliseconds(
                  std::chrono::duration<double>(std::numeric_limits<double>::quiet_NaN())),
              0);
}

TEST(DurationTest, TimersTakeThem)
{
    MainLoopCalls calls;
    Timer once;
    EXPECT_EQ(once.start(1500us, [] {}), STATUS_SUCCESS);
    Timer again;
    EXPECT_EQ(again.start(
                  1min, [] {}, REPEATABLE),
              STATUS_SUCCESS);

    ASSERT_EQ(calls.timeoutCount(), 2U);
    EXPECT_EQ(calls.timeout(1).interval, 2U);
    EXPECT_EQ(calls.timeout(2).interval, 60000U);
}

TEST(DurationTest, ARepeatingTimerRepeats)
{
    WaitingLoop loop;
    Timer timer;
    int calls = 0;
    timer.start(
        1ms,
        [&] {
            if (++calls == 3) {
                loop.quit();
            }
        },
        REPEATABLE);
    loop.run();
    EXPECT_EQ(calls, 3);
}

TEST(DurationTest, LoopsTakeThem)
{
    MainLoopCalls calls;
    WaitingLoop loop;
    const auto yes = [] { return true; };
    EXPECT_EQ(loop.run(1500us), 0);
    EXPECT_EQ(loop.run(3ms, yes), 0);
    EXPECT_EQ(loop.wait(0.004s), 0);
    EXPECT_EQ(loop.wait(5ms, yes), 0);

    ASSERT_EQ(calls.timeoutCount(), 4U);
    EXPECT_EQ(calls.timeout(1).interval, 2U);
    EXPECT_EQ(calls.timeout(2).interval, 3U);
    EXPECT_EQ(calls.timeout(3).interval, 4U);
    EXPECT_EQ(calls.timeout(4).interval, 5U);
}

TEST(DurationTest, RequestsTakeThem)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    Channel asking;
    Channel silent;
    asking.open(ends[0], nullptr, nullptr);
    silent.open(ends[1], nullptr, nullptr);

    WaitingLoop loop;
    int status = STATUS_SUCCESS;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(asking.request({"wait", {}}, 5ms,
                             [&](int newStatus, const SerializedData&) {
                                 status = newStatus;
                                 loop.quit();
                             }),
              STATUS_SUCCESS);
    loop.run();
    EXPECT_EQ(status, STATUS_TIMED_OUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 5ms);
}

}  // namespace
}  // namespace oxil::test
