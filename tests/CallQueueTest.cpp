#include "OxCallQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "AllocationFailure.h"
#include "OxStatus.h"
#include "OxTimer.h"
#include "OxWaitingLoop.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/** Runs the main loop until nothing is left of what it was handed up to now. */
void runAll(const CallQueue& queue)
{
    WaitingLoop loop;
    queue.getSender().post([&] { loop.quit(); });
    loop.run();
}

TEST(CallQueueTest, FunctionsAreCalledInOrderFromTheMainLoop)
{
    CallQueue queue;
    std::vector<int> calls;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(queue.getSender().post([&calls, i] { calls.push_back(i); }), STATUS_SUCCESS);
    }
    EXPECT_THAT(calls, IsEmpty());
    runAll(queue);
    EXPECT_THAT(calls, ElementsAre(0, 1, 2));
    runAll(queue);
    EXPECT_THAT(calls, ElementsAre(0, 1, 2));
}

TEST(CallQueueTest, ManyThreadsHandOverEachInItsOrder)
{
    constexpr int THREADS = 8;
    constexpr int CALLS = 500;

    CallQueue queue;
    WaitingLoop loop;
    std::vector<std::vector<int>> calls(THREADS);
    int left = THREADS * CALLS;
    bool onMainThread = true;
    const std::thread::id mainThread = std::this_thread::get_id();

    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&, thread, sender = queue.getSender()] {
            for (int i = 0; i < CALLS; ++i) {
                sender.post([&, thread, i] {
                    onMainThread = onMainThread && std::this_thread::get_id() == mainThread;
                    calls[static_cast<std::size_t>(thread)].push_back(i);
                    if (--left == 0) {
                        loop.quit();
                    }
                });
            }
        });
    }
    loop.run();
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_TRUE(onMainThread);
    for (const std::vector<int>& ofThread : calls) {
        ASSERT_EQ(ofThread.size(), CALLS);
        EXPECT_TRUE(std::is_sorted(ofThread.begin(), ofThread.end()));
    }
}

TEST(CallQueueTest, AFunctionThatIsHandedOverByAnotherComesAfterAllThatWait)
{
    CallQueue queue;
    std::vector<int> calls;
    const CallQueue::Sender sender = queue.getSender();
    sender.post([&] {
        calls.push_back(1);
        sender.post([&] { calls.push_back(3); });
    });
    sender.post([&] { calls.push_back(2); });
    runAll(queue);
    runAll(queue);
    EXPECT_THAT(calls, ElementsAre(1, 2, 3));
}

TEST(CallQueueTest, FunctionsThatHandOverThemselvesLeaveTheLoopToOthers)
{
    CallQueue queue;
    WaitingLoop loop;
    const CallQueue::Sender sender = queue.getSender();
    std::function<void()> again = [&] { sender.post(again); };
    sender.post(again);
    EXPECT_EQ(loop.run(5), 0);  // the time-out gets its turn
}

TEST(CallQueueTest, WhileAFunctionWaitsThoseAfterItAreCalled)
{
    CallQueue queue;
    std::vector<int> calls;
    const CallQueue::Sender sender = queue.getSender();
    WaitingLoop inner;
    sender.post([&] {
        calls.push_back(1);
        inner.run();
        calls.push_back(4);
    });
    sender.post([&] { calls.push_back(2); });
    sender.post([&] {
        calls.push_back(3);
        inner.quit();
    });
    runAll(queue);
    EXPECT_THAT(calls, ElementsAre(1, 2, 3, 4));
}

TEST(CallQueueTest, NothingIsCalledOnceTheQueueIsGone)
{
    auto held = std::make_shared<int>(1);
    std::vector<int> calls;
    std::optional<CallQueue> queue(std::in_place);
    const CallQueue::Sender sender = queue->getSender();
    sender.post([&calls, held] { calls.push_back(*held); });
    EXPECT_EQ(held.use_count(), 2);

    queue.reset();
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(sender.post([&calls, held] { calls.push_back(*held); }), STATUS_INVALID_STATE);
    EXPECT_EQ(held.use_count(), 1);

    CallQueue other;
    runAll(other);
    EXPECT_THAT(calls, IsEmpty());
}

TEST(CallQueueTest, AFunctionMayDestroyTheQueueAndKeepsWhatItCaptured)
{
    auto queue = std::make_unique<CallQueue>();
    WaitingLoop loop;
    std::vector<int> calls;
    const CallQueue::Sender sender = queue->getSender();
    sender.post([&, held = std::make_shared<int>(7)] {
        queue.reset();
        calls.push_back(*held);
        loop.quit();
    });
    sender.post([&] { calls.push_back(8); });
    loop.run();
    loop.run(5);
    EXPECT_THAT(calls, ElementsAre(7));
    EXPECT_EQ(sender.post([] {}), STATUS_INVALID_STATE);
}

TEST(CallQueueTest, WhatIsDestroyedWithTheQueueMayUseItsSender)
{
    struct Reposting {
        explicit Reposting(const CallQueue::Sender& newSender, int& newResult)
            : sender(newSender), result(newResult)
        {
        }
        Reposting(const Reposting&) = delete;
        Reposting& operator=(const Reposting&) = delete;
        ~Reposting()
        {
            result = sender.post([] {});
        }

        CallQueue::Sender sender;
        int& result;
    };

    int result = STATUS_SUCCESS;
    {
        CallQueue queue;
        const CallQueue::Sender sender = queue.getSender();
        auto reposting = std::make_shared<Reposting>(sender, result);
        sender.post([reposting] {});
    }
    EXPECT_EQ(result, STATUS_INVALID_STATE);
}

TEST(CallQueueTest, AThreadMayOutliveTheQueue)
{
    std::atomic<int> refused{0};
    std::vector<std::thread> threads;
    {
        CallQueue queue;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&refused, sender = queue.getSender()] {
                while (sender.post([] {}) == STATUS_SUCCESS) {
                    std::this_thread::yield();
                }
                ++refused;
            });
        }
        runAll(queue);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(refused, 4);
}

TEST(CallQueueTest, AnEmptyFunctionIsNotCalled)
{
    CallQueue queue;
    EXPECT_EQ(queue.getSender().post(nullptr), STATUS_SUCCESS);
    runAll(queue);
}

TEST(CallQueueTest, WithoutMemoryNothingIsTaken)
{
    CallQueue queue;
    const CallQueue::Sender sender = queue.getSender();
    std::vector<int> calls;
    const std::function<void()> function = [&calls, a = 1L, b = 2L, c = 3L] {
        calls.push_back(static_cast<int>(a + b + c));
    };
    bool thrown = false;
    try {
        const AllocationFailure failure(Allocation::ThrowingNew);
        sender.post(function);
    } catch (const std::bad_alloc&) {
        thrown = true;
    }
    EXPECT_TRUE(thrown);
    runAll(queue);
    EXPECT_THAT(calls, IsEmpty());
}

TEST(CallQueueDeathTest, AFunctionThatThrowsEndsTheProcess)
{
    CallQueue queue;
    queue.getSender().post([] { throw std::runtime_error("thrown by a function"); });
    EXPECT_DEATH(runAll(queue), "thrown by a function");
}

}  // namespace
}  // namespace oxil::test
