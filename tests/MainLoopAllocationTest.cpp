// What each allocation that fails leaves of timers, loops, queues and channels. GLib's own don't: it
// ends the process.

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "AllocationSweep.h"
#include "ChannelEnd.h"
#include "MainLoop.h"
#include "OxCallQueue.h"
#include "OxTimer.h"
#include "OxWaitingLoop.h"
#include "Records.h"
#include "Streams.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int HOUR = 60 * 60 * 1000;

/** What a callback captures that has to be allocated. */
const std::string LONG(100, 'x');

/** Lets happen whatever is due. */
void iterate()
{
    for (int i = 0; i < 10; ++i) {
        g_main_context_iteration(nullptr, FALSE);
    }
}

// ---- Timer

TEST(MainLoopAllocationTest, ATimerIsArmedOrLeavesNothingBehind)
{
    failEachAllocation([](Attempt& attempt) {
        int before = 0;
        int calls = 0;
        {
            Timer timer;
            EXPECT_EQ(timer.start(
                          HOUR, [&before] { ++before; }, REPEATABLE),
                      STATUS_SUCCESS);

            const int r = attempt.run([&] {
                return timer.start(
                    0, [&calls, text = LONG] { ++calls; }, REPEATABLE);
            });

            iterate();
            // Without an owner the source fires all the same. What couldn't be copied is no start.
            EXPECT_EQ(calls > 0, r != Attempt::THREW);
            EXPECT_EQ(timer.start(
                          HOUR, [] {}, REPEATABLE),
                      STATUS_SUCCESS);
        }
        calls = 0;
        iterate();
        EXPECT_EQ(calls, 0);
        EXPECT_EQ(before, 0);
    });
}

TEST(MainLoopAllocationTest, ATimerThatFiresOnceGivesUpItsCellAndNoMore)
{
    const auto scenario = [](Attempt& attempt) {
        int calls = 0;
        Timer timer;

        const int r =
            attempt.run([&] { return timer.start(0, [&calls, text = LONG] { ++calls; }); });

        iterate();
        EXPECT_EQ(calls, r != Attempt::THREW ? 1 : 0);
    };
    failEachAllocation(scenario, 1);
}

// ---- WaitingLoop

TEST(MainLoopAllocationTest, ALoopWithoutMemoryForItsTimersEndsWhenItIsTold)
{
    failEachAllocation([](Attempt& attempt) {
        std::optional<WaitingLoop> loop;
        Timer end;
        attempt.mayGoOn();
        EXPECT_EQ(end.start(
                      0,
                      [&] {
                          loop->quit();
                          loop->go();
                      },
                      REPEATABLE),
                  STATUS_SUCCESS);

        attempt.run([&] {
            loop.emplace();
            loop->run(HOUR);
            return loop->wait(HOUR);
        });

        if (!attempt.hasFailed()) {
            EXPECT_THAT(attempt.lines(), IsEmpty());
        }
        ASSERT_TRUE(loop.has_value());
        EXPECT_EQ(loop->run(), 0);
        EXPECT_FALSE(loop->isRunning());
        EXPECT_FALSE(loop->isWaiting());
    });
}

TEST(MainLoopAllocationTest, APredicateThatCannotBeKeptLeavesTheLoopAsItWas)
{
    failEachAllocation([](Attempt& attempt) {
        WaitingLoop loop;
        attempt.mayGoOn();
        Timer end;
        EXPECT_EQ(end.start(
                      100, [&] { loop.go(); }, REPEATABLE),
                  STATUS_SUCCESS);

        attempt.run([&] { return loop.wait(0, [text = LONG] { return true; }); });

        EXPECT_FALSE(loop.isWaiting());
        EXPECT_EQ(loop.wait(0, [] { return true; }), 0);
    });
}

// ---- CallQueue

TEST(MainLoopAllocationTest, WhatCannotBePostedIsNotCalledAndAQueueEndsWithoutMemory)
{
    const int failures = failEachAllocation([](Attempt& attempt) {
        std::vector<int> calls;
        calls.reserve(3);
        std::optional<CallQueue> queue;
        std::optional<CallQueue::Sender> sender;
        int posted = 0;

        attempt.run([&] {
            queue.emplace();
            sender.emplace(queue->getSender());
            for (int i = 0; i < 3; ++i) {
                sender->post([&calls, i, text = LONG] { calls.push_back(i); });
                ++posted;
            }
            return STATUS_SUCCESS;
        });

        iterate();
        EXPECT_EQ(static_cast<int>(calls.size()), posted);
        if (sender.has_value()) {
            EXPECT_EQ(sender->post([] {}), STATUS_SUCCESS);
            queue.reset();
            EXPECT_EQ(sender->post([] {}), STATUS_INVALID_STATE);
        }
    });
    EXPECT_GT(failures, 3);
}

TEST(MainLoopAllocationTest, AQueueNeedsNoMemoryToEnd)
{
    const int failures = failEachAllocation([](Attempt& attempt) {
        std::optional<CallQueue> queue;
        queue.emplace();
        int calls = 0;
        EXPECT_EQ(queue->getSender().post([&calls] { ++calls; }), STATUS_SUCCESS);

        attempt.run([&] {
            queue.reset();
            return STATUS_SUCCESS;
        });

        iterate();
        EXPECT_EQ(calls, 0);
    });
    EXPECT_EQ(failures, 0);
}

// ---- Channel

TEST(MainLoopAllocationTest, AChannelThatCannotBeOpenedKeepsTheStreamItHad)
{
    failEachAllocation([](Attempt& attempt) {
        Sockets first = makeSockets();
        Sockets second = makeSockets();
        ChannelEnd end;
        end.open(std::move(first.near));
        const int other = second.near.get();

        const int r =
            attempt.run([&] { return end.channel.open(other, end.onMessage(), end.onClosed()); });

        if (r == STATUS_SUCCESS) {
            second.near.release();  // it is the channel's
        }
        EXPECT_TRUE(end.channel.isOpen());
        EXPECT_EQ(end.send(7), STATUS_SUCCESS);
        const Sockets& reached = r == STATUS_SUCCESS ? second : first;
        EXPECT_EQ(readAvailable(reached.far.get()), frameOf(numbered(7)));
    });
}

TEST(MainLoopAllocationTest, ARequestThatCannotBeMadeIsNotWaitedFor)
{
    failEachAllocation([](Attempt& attempt) {
        Sockets sockets = makeSockets();
        ChannelEnd end;
        end.open(std::move(sockets.near));
        const KeyValues record = recordOf({{"name", LONG}});

        const int r = attempt.run([&] {
            return end.channel.request(record, HOUR,
                                       [&end, text = LONG](int, const SerializedData&) {
                                           end.answers.push_back("answered");
                                       });
        });

        EXPECT_EQ(readAvailable(sockets.far.get()).empty(), r != STATUS_SUCCESS);
        sockets.far.close();
        EXPECT_TRUE(end.waitForClosed());
        EXPECT_EQ(end.answers.size(), r == STATUS_SUCCESS ? 1u : 0u);
    });
}

TEST(MainLoopAllocationTest, AMessageIsDeliveredOrEndsTheChannel)
{
    failEachAllocation([](Attempt& attempt) {
        Sockets sockets = makeSockets();
        ChannelEnd end;
        int messages = 0;
        std::optional<int> closed;
        attempt.mayGoOn();
        EXPECT_EQ(end.channel.open(
                      sockets.near.release(), [&](const SerializedData&) { ++messages; },
                      [&](int status) { closed = status; }),
                  STATUS_SUCCESS);
        EXPECT_TRUE(writeAll(sockets.far.get(), frameOf(recordOf({{"name", LONG}, {"n", 1}}))));

        attempt.run([&] {
            while (messages == 0 && !closed.has_value()) {
                g_main_context_iteration(nullptr, TRUE);
            }
            return STATUS_SUCCESS;
        });

        EXPECT_EQ(messages, attempt.hasFailed() ? 0 : 1);
        EXPECT_EQ(closed,
                  attempt.hasFailed() ? std::optional<int>(STATUS_OUT_OF_MEMORY) : std::nullopt);
        EXPECT_EQ(attempt.lines().empty(), !attempt.hasFailed());
        EXPECT_EQ(end.channel.isOpen(), !attempt.hasFailed());
    });
}

TEST(MainLoopAllocationTest, ARequestThatTimesOutIsAnswered)
{
    failEachAllocation([](Attempt& attempt) {
        Sockets sockets = makeSockets();
        ChannelEnd end;
        end.open(std::move(sockets.near));
        std::optional<int> status;
        attempt.mayGoOn();  // what the answer would hold may be missing
        EXPECT_EQ(end.channel.request(small("n", 1), 1,
                                      [&](int result, const SerializedData&) { status = result; }),
                  STATUS_SUCCESS);

        attempt.run([&] {
            while (!status.has_value()) {
                g_main_context_iteration(nullptr, TRUE);
            }
            return STATUS_SUCCESS;
        });

        EXPECT_EQ(status, STATUS_TIMED_OUT);
        EXPECT_TRUE(end.channel.isOpen());
    });
}

}  // namespace
}  // namespace oxil::test
