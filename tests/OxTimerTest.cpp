#include "OxTimer.h"

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <chrono>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iterator>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "CallLater.h"
#include "MainLoop.h"
#include "MainLoopCalls.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "OxWaitingLoop.h"

// Present under the address sanitizer.
extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();
extern "C" __attribute__((weak)) void __lsan_do_leak_check();

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

// ---- What the compiler can tell -----------------------------------------------------------------

using Callback = std::function<void()>;

static_assert(std::is_nothrow_destructible_v<Timer>);
static_assert(!std::is_copy_constructible_v<Timer> && !std::is_copy_assignable_v<Timer>);
static_assert(!std::is_move_constructible_v<Timer> && !std::is_move_assignable_v<Timer>);
static_assert(std::is_same_v<int, decltype(std::declval<Timer&>().start(0, Callback()))>);
static_assert(
    std::is_same_v<int, decltype(std::declval<Timer&>().start(0, Callback(), REPEATABLE))>);
static_assert(std::is_same_v<void, decltype(std::declval<Timer&>().cancel())>);

// ---- Set-up -------------------------------------------------------------------------------------

constexpr milliseconds LIMIT = 5s;    // what ought to happen happens long before
constexpr milliseconds QUIET = 10ms;  // in which a timer of 0 ms would fire again and again
constexpr int HOUR = 60 * 60 * 1000;
constexpr int TERMINATED = 86;

const LoggedBy logged("OxTimer.cpp");

class TimerTest : public testing::Test {
protected:
    /** Leaves a line among the calls when its last copy goes. */
    std::shared_ptr<void> noteAtEnd(const std::string& line)
    {
        return {nullptr, [this, line](void*) { calls.note(line); }};
    }

    /** Counts and, so that the end of the callback shows, keeps a note. */
    Callback counting(const std::string& line)
    {
        return [this, kept = noteAtEnd(line)] { ++fired; };
    }

    bool firesWithin(milliseconds limit, int times = 1)
    {
        return iterateUntil([this, times] { return fired >= times; }, limit);
    }

    /** Lets the source with this number expire as the main loop would. */
    gboolean expire(std::size_t number)
    {
        const MainLoopCalls::Timeout timeout = calls.timeout(number);
        return timeout.function(timeout.data);
    }

    int startWithoutMemory(int interval, const Callback& callback)
    {
        LogCapture log;
        int status = STATUS_SUCCESS;
        bool happened = false;
        {
            const AllocationFailure failure(Allocation::NothrowNew);
            status = timer->start(interval, callback);
            happened = failure.happened();
        }
        EXPECT_TRUE(happened);
        EXPECT_THAT(log.lines(), ElementsAre(logged("__start", "Memory allocation failed.")));
        return status;
    }

    int startRefused(int interval, const Callback& callback)
    {
        return refused([&] { return timer->start(interval, callback); });
    }

    int startRefused(int interval, const Callback& callback, Repeatable tag)
    {
        return refused([&] { return timer->start(interval, callback, tag); });
    }

    MainLoopCalls calls;
    std::unique_ptr<Timer> timer = std::make_unique<Timer>();
    int fired = 0;
    const Callback count = [this] { ++fired; };
    const Watchdog watchdog{2 * LIMIT};

private:
    int refused(const std::function<int()>& start)
    {
        LogCapture log;
        calls.refuse(true);
        const int status = start();
        calls.refuse(false);
        EXPECT_THAT(log.lines(), ElementsAre(logged("__start", "Invalid state.")));
        return status;
    }
};

// ---- Arming and disarming -----------------------------------------------------------------------

TEST_F(TimerTest, ANewTimerIsNotArmed)
{
    EXPECT_FALSE(hasSource(timer.get()));

    timer->cancel();
    timer.reset();

    EXPECT_THAT(calls.lines(), IsEmpty());
}

TEST_F(TimerTest, OneShotFiresExactlyOnceAndThenHasNothingToRemove)
{
    ASSERT_EQ(timer->start(0, count), STATUS_SUCCESS);
    EXPECT_TRUE(hasSource(timer.get()));

    EXPECT_TRUE(firesWithin(LIMIT));
    EXPECT_FALSE(hasSource(timer.get()));
    iterateFor(QUIET);
    timer->cancel();
    timer.reset();

    EXPECT_EQ(fired, 1);
    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 0 ms"));
}

TEST_F(TimerTest, ItCanBeArmedAgainAfterItHasFired)
{
    for (int round = 1; round <= 3; ++round) {
        ASSERT_EQ(timer->start(0, count), STATUS_SUCCESS);
        EXPECT_TRUE(firesWithin(LIMIT, round));
    }

    iterateFor(QUIET);

    EXPECT_EQ(fired, 3);
    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 0 ms", "add #2: 0 ms", "add #3: 0 ms"));
}

TEST_F(TimerTest, ARepeatingTimerFiresUntilItIsCancelled)
{
    ASSERT_EQ(timer->start(1, count, REPEATABLE), STATUS_SUCCESS);

    EXPECT_TRUE(firesWithin(LIMIT, 4));
    EXPECT_TRUE(calls.isAttached(1));
    timer->cancel();
    EXPECT_FALSE(hasSource(timer.get()));
    const int before = fired;
    iterateFor(QUIET);

    EXPECT_EQ(fired, before);
    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 1 ms", "remove #1"));
}

TEST_F(TimerTest, ACancelledTimerDoesNotFire)
{
    ASSERT_EQ(timer->start(0, count), STATUS_SUCCESS);

    timer->cancel();
    iterateFor(QUIET);
    timer->cancel();
    timer.reset();

    EXPECT_EQ(fired, 0);
    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 0 ms", "remove #1"));
}

TEST_F(TimerTest, CancelHasLetGoOfTheSourceBeforeItIsRemoved)
{
    ASSERT_EQ(timer->start(HOUR, count), STATUS_SUCCESS);
    calls.clear();
    calls.before("remove #1", [this] { timer->cancel(); });

    timer->cancel();

    EXPECT_THAT(calls.lines(), ElementsAre("remove #1"));
}

TEST_F(TimerTest, CancellingKeepsTheCallbackUntilTheTimerIsDestroyed)
{
    ASSERT_EQ(timer->start(HOUR, counting("callback gone")), STATUS_SUCCESS);

    timer->cancel();
    calls.note("cancelled");
    timer.reset();

    EXPECT_THAT(calls.lines(),
                ElementsAre("add #1: 3600000 ms", "remove #1", "cancelled", "callback gone"));
}

TEST_F(TimerTest, FiringKeepsTheCallbackUntilTheTimerIsDestroyed)
{
    ASSERT_EQ(timer->start(0, counting("callback gone")), STATUS_SUCCESS);

    EXPECT_TRUE(firesWithin(LIMIT));
    calls.note("fired");
    timer.reset();

    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 0 ms", "fired", "callback gone"));
}

TEST_F(TimerTest, DestroyingRemovesTheSourceFirstAndThenTheCallback)
{
    for (const bool repeating : {false, true}) {
        SCOPED_TRACE(repeating);
        timer = std::make_unique<Timer>();
        calls.clear();
        if (repeating) {
            ASSERT_EQ(timer->start(0, counting("callback gone"), REPEATABLE), STATUS_SUCCESS);
        } else {
            ASSERT_EQ(timer->start(0, counting("callback gone")), STATUS_SUCCESS);
        }

        timer.reset();
        iterateFor(QUIET);

        EXPECT_EQ(fired, 0);
        EXPECT_THAT(calls.lines(),
                    ElementsAre(repeating ? "add #2: 0 ms" : "add #1: 0 ms",
                                repeating ? "remove #2" : "remove #1", "callback gone"));
    }
}

// ---- The source ---------------------------------------------------------------------------------

TEST_F(TimerTest, TheIntervalReachesTheMainLoopUnchanged)
{
    const std::pair<int, guint> cases[] = {
        {0, 0},
        {1, 1},
        {250, 250},
        {INT_MAX, 2147483647U},
        {-1, 4294967295U},
        {-2, 4294967294U},
        {INT_MIN, 2147483648U},
    };

    for (const auto& [interval, passed] : cases) {
        SCOPED_TRACE(interval);
        EXPECT_EQ(timer->start(interval, count), STATUS_SUCCESS);
        EXPECT_EQ(calls.timeout(calls.timeoutCount()).interval, passed);
        EXPECT_EQ(timer->start(interval, count, REPEATABLE), STATUS_SUCCESS);
        EXPECT_EQ(calls.timeout(calls.timeoutCount()).interval, passed);
    }
    EXPECT_EQ(calls.timeoutCount(), 2 * std::size(cases));
}

TEST_F(TimerTest, ANegativeIntervalIsAVeryLongOne)
{
    ASSERT_EQ(timer->start(-1, count), STATUS_SUCCESS);

    iterateFor(QUIET);

    EXPECT_EQ(fired, 0);
    EXPECT_TRUE(calls.isAttached(1));
}

TEST_F(TimerTest, TheSourceBelongsToTheDefaultContextAtDefaultPriority)
{
    GMainContext* other = g_main_context_new();
    g_main_context_push_thread_default(other);

    EXPECT_EQ(timer->start(0, count), STATUS_SUCCESS);

    EXPECT_EQ(calls.timeout(1).data, timer.get());
    GSource* source = g_main_context_find_source_by_id(nullptr, calls.timeout(1).id);
    ASSERT_NE(source, nullptr);
    EXPECT_EQ(g_source_get_context(source), g_main_context_default());
    EXPECT_EQ(g_source_get_priority(source), G_PRIORITY_DEFAULT);
    EXPECT_TRUE(firesWithin(LIMIT));

    g_main_context_pop_thread_default(other);
    g_main_context_unref(other);
}

TEST_F(TimerTest, WithoutADelayItFiresOnTheNextIteration)
{
    ASSERT_EQ(timer->start(0, count), STATUS_SUCCESS);
    EXPECT_EQ(fired, 0);

    g_main_context_iteration(nullptr, FALSE);

    EXPECT_EQ(fired, 1);
}

TEST_F(TimerTest, NeverFiresBeforeItsDelayHasPassed)
{
    for (const int times : {1, 3}) {
        SCOPED_TRACE(times);
        fired = 0;
        const auto started = std::chrono::steady_clock::now();
        const int status =
            times == 1 ? timer->start(15, count) : timer->start(5, count, REPEATABLE);
        ASSERT_EQ(status, STATUS_SUCCESS);

        EXPECT_TRUE(firesWithin(LIMIT, times));

        EXPECT_GE(std::chrono::steady_clock::now() - started, 15ms);
    }
}

// ---- Arming an armed timer ----------------------------------------------------------------------

TEST_F(TimerTest, RestartingRunsOnlyTheNewCallbackOnTheNewInterval)
{
    for (const auto& [oldInterval, newInterval] : {std::pair(HOUR, 0), std::pair(0, 1)}) {
        SCOPED_TRACE(oldInterval);
        fired = 0;
        int oldFired = 0;
        ASSERT_EQ(timer->start(oldInterval, [&] { ++oldFired; }), STATUS_SUCCESS);
        ASSERT_EQ(timer->start(newInterval, count), STATUS_SUCCESS);

        EXPECT_TRUE(firesWithin(LIMIT));
        iterateFor(QUIET);

        EXPECT_EQ(oldFired, 0);
        EXPECT_EQ(fired, 1);
    }

    ASSERT_EQ(timer->start(0, count), STATUS_SUCCESS);
    ASSERT_EQ(timer->start(HOUR, count), STATUS_SUCCESS);
    iterateFor(QUIET);
    EXPECT_EQ(fired, 1) << "the old interval is no longer in force";
}

TEST_F(TimerTest, RestartingReplacesTheCallbackThenAddsASourceThenRemovesTheOldOne)
{
    ASSERT_EQ(timer->start(HOUR, counting("first gone")), STATUS_SUCCESS);
    ASSERT_EQ(timer->start(20, counting("second gone")), STATUS_SUCCESS);
    ASSERT_EQ(timer->start(30, count, REPEATABLE), STATUS_SUCCESS);

    EXPECT_THAT(calls.lines(),
                ElementsAre("add #1: 3600000 ms", "first gone", "add #2: 20 ms", "remove #1",
                            "second gone", "add #3: 30 ms", "remove #2"));
    EXPECT_TRUE(calls.isAttached(3));
}

TEST_F(TimerTest, TheNewSourceIsOwnedBeforeTheOldOneIsRemoved)
{
    ASSERT_EQ(timer->start(HOUR, count), STATUS_SUCCESS);
    calls.clear();
    calls.before("remove #1", [this] { timer->cancel(); });

    ASSERT_EQ(timer->start(HOUR, count), STATUS_SUCCESS);

    EXPECT_THAT(calls.lines(), ElementsAre("add #2: 3600000 ms", "remove #1", "remove #2"));
}

TEST_F(TimerTest, TheCallersFunctionIsCopied)
{
    {
        Callback callback = count;
        ASSERT_EQ(timer->start(0, callback), STATUS_SUCCESS);
        EXPECT_TRUE(callback) << "it is not moved from";
        callback = [] { FAIL() << "the timer has a copy"; };
    }

    EXPECT_TRUE(firesWithin(LIMIT));
}

TEST_F(TimerTest, ACallbackThatCannotBeCopiedChangesNothing)
{
    struct Uncopyable {
        bool* refuses;
        explicit Uncopyable(bool& flag) : refuses(&flag) {}
        Uncopyable(const Uncopyable& other) : refuses(other.refuses)
        {
            if (*refuses) {
                throw std::runtime_error("no copy");
            }
        }
        Uncopyable& operator=(const Uncopyable&) = delete;
        void operator()() const { FAIL() << "it never became the callback"; }
    };
    bool refuses = false;
    const Callback callback = Uncopyable(refuses);
    refuses = true;
    ASSERT_EQ(timer->start(0, count), STATUS_SUCCESS);

    EXPECT_THROW(timer->start(HOUR, callback), std::runtime_error);

    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 0 ms"));
    EXPECT_TRUE(firesWithin(LIMIT));
}

// ---- Repetition ---------------------------------------------------------------------------------

TEST_F(TimerTest, AnyValueOfTheTagAsksForRepetition)
{
    for (const int value : {0, 1, -1, 7}) {
        SCOPED_TRACE(value);
        timer = std::make_unique<Timer>();
        ASSERT_EQ(timer->start(HOUR, count, static_cast<Repeatable>(value)), STATUS_SUCCESS);
        EXPECT_EQ(expire(calls.timeoutCount()), TRUE);
        EXPECT_TRUE(calls.isAttached(calls.timeoutCount()));
    }
    EXPECT_EQ(fired, 4);
}

TEST_F(TimerTest, RepetitionSticks)
{
    ASSERT_EQ(timer->start(HOUR, count, REPEATABLE), STATUS_SUCCESS);
    timer->cancel();
    ASSERT_EQ(timer->start(1, count), STATUS_SUCCESS);

    EXPECT_TRUE(firesWithin(LIMIT, 3));
    EXPECT_TRUE(calls.isAttached(2));

    ASSERT_EQ(timer->start(1, count), STATUS_SUCCESS);
    fired = 0;
    EXPECT_TRUE(firesWithin(LIMIT, 3));
}

TEST_F(TimerTest, RepetitionSticksAlsoWhenTheStartThatAskedForItFailed)
{
    EXPECT_EQ(startRefused(HOUR, count, REPEATABLE), STATUS_INVALID_STATE);
    ASSERT_EQ(timer->start(1, count), STATUS_SUCCESS);

    EXPECT_TRUE(firesWithin(LIMIT, 3));
}

TEST_F(TimerTest, ASourceAlreadyArmedRepeatsAfterAFailedStartAskedForRepetition)
{
    ASSERT_EQ(timer->start(1, count), STATUS_SUCCESS);
    EXPECT_EQ(startRefused(HOUR, count, REPEATABLE), STATUS_INVALID_STATE);

    EXPECT_TRUE(firesWithin(LIMIT, 3));
    EXPECT_TRUE(calls.isAttached(1));
}

TEST_F(TimerTest, OneTimerDoesNotMakeAnotherRepeat)
{
    ASSERT_EQ(timer->start(HOUR, count, REPEATABLE), STATUS_SUCCESS);
    Timer other;
    ASSERT_EQ(other.start(0, count), STATUS_SUCCESS);

    EXPECT_TRUE(firesWithin(LIMIT));
    iterateFor(QUIET);

    EXPECT_EQ(fired, 1);
}

// ---- What the main loop is told -----------------------------------------------------------------

TEST_F(TimerTest, AnExpiryWithoutATimerIsLoggedAndItsSourceRemoved)
{
    for (const bool repeating : {false, true}) {
        SCOPED_TRACE(repeating);
        const int status =
            repeating ? timer->start(HOUR, count, REPEATABLE) : timer->start(HOUR, count);
        ASSERT_EQ(status, STATUS_SUCCESS);
        LogCapture log;

        EXPECT_EQ(calls.timeout(1).function(nullptr), FALSE);

        EXPECT_THAT(log.lines(), ElementsAre(logged("__timerExpired", "Invalid parameter.")));
        EXPECT_TRUE(hasSource(timer.get()));
        EXPECT_EQ(fired, 0);
    }
}

TEST_F(TimerTest, WhatTheMainLoopIsToldIsSettledBeforeTheCallbackRuns)
{
    ASSERT_EQ(timer->start(HOUR, [this] { timer->start(HOUR, count, REPEATABLE); }),
              STATUS_SUCCESS);
    EXPECT_EQ(expire(1), FALSE) << "it was a one-shot when it expired";
    calls.remove(1);
    EXPECT_TRUE(calls.isAttached(2));
    EXPECT_EQ(expire(2), TRUE);

    ASSERT_EQ(timer->start(HOUR, [this] { timer = std::make_unique<Timer>(); }), STATUS_SUCCESS);
    EXPECT_EQ(expire(3), TRUE) << "it was repeating when it expired";
}

TEST_F(TimerTest, AnEmptyCallbackIsNotCalled)
{
    ASSERT_EQ(timer->start(HOUR, counting("callback gone")), STATUS_SUCCESS);
    ASSERT_EQ(timer->start(0, Callback()), STATUS_SUCCESS);
    EXPECT_THAT(calls.lines(),
                ElementsAre("add #1: 3600000 ms", "callback gone", "add #2: 0 ms", "remove #1"));
    EXPECT_TRUE(iterateUntil([this] { return !calls.isAttached(2); }, LIMIT));
    EXPECT_EQ(calls.lines().size(), 4U) << "the main loop removed it by itself";

    ASSERT_EQ(timer->start(0, Callback(), REPEATABLE), STATUS_SUCCESS);
    iterateFor(QUIET);
    EXPECT_TRUE(calls.isAttached(3));
    EXPECT_EQ(expire(3), TRUE);

    EXPECT_EQ(fired, 0);
}

// ---- Failures -----------------------------------------------------------------------------------

TEST_F(TimerTest, ARefusedSourceLeavesTheTimerUnarmed)
{
    EXPECT_EQ(STATUS_INVALID_STATE, -524271);

    EXPECT_EQ(startRefused(20, count), -524271);
    EXPECT_EQ(startRefused(30, count, REPEATABLE), -524271);

    timer->cancel();
    EXPECT_FALSE(hasSource(timer.get()));
    EXPECT_THAT(calls.lines(), ElementsAre("refuse: 20 ms", "refuse: 30 ms"));
}

TEST_F(TimerTest, ARefusedSourceLeavesAnArmedTimerArmedWithTheNewCallback)
{
    ASSERT_EQ(timer->start(0, [] { FAIL() << "the first callback was replaced"; }), STATUS_SUCCESS);

    EXPECT_EQ(startRefused(HOUR, count), STATUS_INVALID_STATE);

    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 0 ms", "refuse: 3600000 ms"));
    EXPECT_TRUE(calls.isAttached(1));
    EXPECT_TRUE(firesWithin(LIMIT));
    iterateFor(QUIET);
    EXPECT_EQ(fired, 1);
}

TEST_F(TimerTest, ATimerThatStaysArmedAfterARefusalCanBeCancelled)
{
    ASSERT_EQ(timer->start(0, count), STATUS_SUCCESS);
    EXPECT_EQ(startRefused(0, count), STATUS_INVALID_STATE);

    timer->cancel();
    iterateFor(QUIET);

    EXPECT_EQ(fired, 0);
    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 0 ms", "refuse: 0 ms", "remove #1"));
}

TEST_F(TimerTest, ARefusalComesAfterTheCallbackWasReplaced)
{
    ASSERT_EQ(timer->start(HOUR, counting("first gone")), STATUS_SUCCESS);
    calls.clear();

    EXPECT_EQ(startRefused(20, counting("second gone")), STATUS_INVALID_STATE);
    EXPECT_THAT(calls.lines(), ElementsAre("first gone", "refuse: 20 ms"));

    timer.reset();
    EXPECT_THAT(calls.lines(),
                ElementsAre("first gone", "refuse: 20 ms", "remove #1", "second gone"));
}

TEST_F(TimerTest, WithoutMemoryTheSourceFiresWithoutAnOwner)
{
    EXPECT_EQ(startWithoutMemory(0, count), -12);
    EXPECT_TRUE(calls.isAttached(1));
    timer->cancel();
    EXPECT_TRUE(calls.isAttached(1)) << "nobody owns it";

    EXPECT_TRUE(firesWithin(LIMIT));
    iterateFor(QUIET);

    EXPECT_EQ(fired, 1);
    EXPECT_FALSE(calls.isAttached(1));
    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 0 ms"));
}

TEST_F(TimerTest, WithoutMemoryARepeatingSourceGoesOnWithoutAnOwner)
{
    ASSERT_EQ(timer->start(HOUR, count, REPEATABLE), STATUS_SUCCESS);
    timer->cancel();
    EXPECT_EQ(startWithoutMemory(1, count), STATUS_OUT_OF_MEMORY);

    EXPECT_TRUE(firesWithin(LIMIT, 3));
    timer->cancel();
    fired = 0;
    EXPECT_TRUE(firesWithin(LIMIT, 3));

    calls.remove(2);
    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 3600000 ms", "remove #1", "add #2: 1 ms"));
}

TEST_F(TimerTest, WithoutMemoryAnArmedTimerKeepsItsSourceAndBothRunTheNewCallback)
{
    ASSERT_EQ(timer->start(
                  1, [] { FAIL() << "the first callback was replaced"; }, REPEATABLE),
              STATUS_SUCCESS);

    EXPECT_EQ(startWithoutMemory(HOUR, count), STATUS_OUT_OF_MEMORY);

    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 1 ms", "add #2: 3600000 ms"));
    EXPECT_TRUE(firesWithin(LIMIT, 2));
    timer->cancel();
    EXPECT_FALSE(calls.isAttached(1)) << "this one is still owned";
    EXPECT_TRUE(calls.isAttached(2));
    fired = 0;
    EXPECT_EQ(expire(2), TRUE);
    EXPECT_EQ(fired, 1);
    calls.remove(2);
}

TEST_F(TimerTest, AnOwnerlessOneShotDisarmsTheTimerWithoutRemovingTheOwnedSource)
{
    ASSERT_EQ(timer->start(HOUR, count), STATUS_SUCCESS);
    EXPECT_EQ(startWithoutMemory(0, count), STATUS_OUT_OF_MEMORY);

    EXPECT_TRUE(firesWithin(LIMIT));
    timer->cancel();

    EXPECT_TRUE(calls.isAttached(1));
    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 3600000 ms", "add #2: 0 ms"));
    calls.remove(1);
}

TEST_F(TimerTest, SourcesWithoutAnOwnerGoWithTheirTimer)
{
    EXPECT_EQ(startWithoutMemory(0, count), STATUS_OUT_OF_MEMORY);
    EXPECT_EQ(startWithoutMemory(HOUR, count), STATUS_OUT_OF_MEMORY);
    std::unique_ptr<Timer> old = std::exchange(timer, std::make_unique<Timer>());
    EXPECT_EQ(startWithoutMemory(HOUR, count), STATUS_OUT_OF_MEMORY);
    // An object and its first member have the same address.
    const guint ofTheApplication = g_timeout_add(
        HOUR, [](gpointer) -> gboolean { return G_SOURCE_REMOVE; }, old.get());

    old.reset();

    EXPECT_FALSE(calls.isAttached(1));
    EXPECT_FALSE(calls.isAttached(2));
    EXPECT_TRUE(calls.isAttached(3)) << "this is another timer's";
    iterateFor(QUIET);
    EXPECT_EQ(fired, 0);
    EXPECT_TRUE(g_source_remove(ofTheApplication));
    timer.reset();
    EXPECT_FALSE(calls.isAttached(3));
}

TEST_F(TimerTest, ASourceThatLostItsOwnerToAnotherGoesWithTheTimerToo)
{
    ASSERT_EQ(timer->start(HOUR, count), STATUS_SUCCESS);
    EXPECT_EQ(startWithoutMemory(0, count), STATUS_OUT_OF_MEMORY);
    EXPECT_EQ(startWithoutMemory(0, count), STATUS_OUT_OF_MEMORY);
    EXPECT_TRUE(firesWithin(LIMIT, 2));
    timer->cancel();
    EXPECT_TRUE(calls.isAttached(1)) << "nobody owns it any more";

    timer.reset();

    EXPECT_FALSE(calls.isAttached(1));
}

TEST_F(TimerTest, ASourceWithoutAnOwnerCanDestroyItsTimer)
{
    EXPECT_EQ(startWithoutMemory(HOUR, count), STATUS_OUT_OF_MEMORY);
    const int status = startWithoutMemory(0, [this, kept = std::make_shared<int>(1)] {
        timer.reset();
        fired += *kept;
    });
    EXPECT_EQ(status, STATUS_OUT_OF_MEMORY);

    EXPECT_TRUE(firesWithin(LIMIT));
    iterateFor(QUIET);

    EXPECT_EQ(fired, 1);
    EXPECT_FALSE(calls.isAttached(1));
    EXPECT_FALSE(calls.isAttached(2));
}

// ---- Callbacks that deal with their own timer ---------------------------------------------------

TEST_F(TimerTest, OneShotIsUnarmedInsideItsCallback)
{
    ASSERT_EQ(timer->start(0,
                           [this] {
                               calls.note("callback");
                               timer->cancel();
                               calls.note("cancelled");
                               ++fired;
                           }),
              STATUS_SUCCESS);

    EXPECT_TRUE(firesWithin(LIMIT));
    iterateFor(QUIET);

    EXPECT_EQ(fired, 1);
    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 0 ms", "callback", "cancelled"));
}

TEST_F(TimerTest, ASourceAddedInsideAOneShotCallbackSurvivesIt)
{
    ASSERT_EQ(timer->start(0,
                           [this] {
                               calls.note("callback");
                               EXPECT_EQ(timer->start(0, count), STATUS_SUCCESS);
                           }),
              STATUS_SUCCESS);

    EXPECT_TRUE(firesWithin(LIMIT));
    iterateFor(QUIET);

    EXPECT_EQ(fired, 1);
    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 0 ms", "callback", "add #2: 0 ms"));
}

TEST_F(TimerTest, ASourceAddedInsideAOneShotCallbackCanBeCancelledLater)
{
    ASSERT_EQ(timer->start(0, [this] { timer->start(HOUR, count); }), STATUS_SUCCESS);
    EXPECT_TRUE(iterateUntil([this] { return calls.timeoutCount() == 2; }, LIMIT));
    EXPECT_FALSE(calls.isAttached(1));
    EXPECT_TRUE(calls.isAttached(2));

    timer->cancel();

    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 0 ms", "add #2: 3600000 ms", "remove #2"));
}

TEST_F(TimerTest, CancellingInsideARepeatingCallbackRemovesTheSourceAtOnce)
{
    ASSERT_EQ(timer->start(
                  0,
                  [this] {
                      timer->cancel();
                      EXPECT_FALSE(calls.isAttached(1));
                      ++fired;
                  },
                  REPEATABLE),
              STATUS_SUCCESS);

    EXPECT_TRUE(firesWithin(LIMIT));
    iterateFor(QUIET);

    EXPECT_EQ(fired, 1);
    EXPECT_THAT(calls.lines(), ElementsAre("add #1: 0 ms", "remove #1"));
}

struct OwnAction {
    const char* name;
    std::function<void(std::unique_ptr<Timer>&, const Callback&)> act;
    bool keepsCallback;
    bool firesAgain;
};

void PrintTo(const OwnAction& action, std::ostream* stream)
{
    *stream << action.name;
}

class TimerCallbackTest : public TimerTest,
                          public testing::WithParamInterface<std::tuple<OwnAction, bool>> {};

TEST_P(TimerCallbackTest, MayDealWithItsTimerAndStillUseWhatItCaptured)
{
    const auto& [action, repeating] = GetParam();
    std::weak_ptr<std::string> shared;
    std::string seen;
    bool held = false;
    {
        auto text = std::make_shared<std::string>("shared");
        shared = text;
        // Larger than what a function object keeps inside itself.
        const Callback callback = [&, act = action.act, text = std::move(text),
                                   own = std::string("a text long enough for the heap")] {
            act(timer, count);
            held = shared.use_count() > 0;
            seen += own + ", " + *text;
        };
        const int status = repeating ? timer->start(0, callback, REPEATABLE)  //
                                     : timer->start(0, callback);
        ASSERT_EQ(status, STATUS_SUCCESS);
    }
    EXPECT_EQ(shared.use_count(), 1);

    EXPECT_TRUE(iterateUntil([&] { return !seen.empty(); }, LIMIT));

    EXPECT_EQ(seen, "a text long enough for the heap, shared");
    EXPECT_TRUE(held);
    EXPECT_EQ(shared.use_count(), action.keepsCallback ? 1 : 0);
    EXPECT_EQ(firesWithin(action.firesAgain ? LIMIT : QUIET), action.firesAgain);
    EXPECT_EQ(seen, "a text long enough for the heap, shared") << "it never runs again";
    timer.reset();
    EXPECT_TRUE(shared.expired());
}

INSTANTIATE_TEST_SUITE_P(
    Own, TimerCallbackTest,
    testing::Combine(
        testing::Values(
            OwnAction{"cancels", [](auto& timer, const Callback&) { timer->cancel(); }, true,
                      false},
            OwnAction{"restarts", [](auto& timer, const Callback& next) { timer->start(0, next); },
                      false, true},
            OwnAction{"restartsRepeating",
                      [](auto& timer, const Callback& next) { timer->start(0, next, REPEATABLE); },
                      false, true},
            OwnAction{"restartsAndCancels",
                      [](auto& timer, const Callback& next) {
                          timer->start(0, next);
                          timer->cancel();
                      },
                      false, false},
            OwnAction{"restartsTwice",
                      [](auto& timer, const Callback& next) {
                          timer->start(0, [] { FAIL() << "it was replaced"; });
                          timer->start(0, next);
                      },
                      false, true},
            OwnAction{"restartsAndDestroys",
                      [](auto& timer, const Callback& next) {
                          timer->start(0, next);
                          timer.reset();
                      },
                      false, false},
            OwnAction{"destroys", [](auto& timer, const Callback&) { timer.reset(); }, false,
                      false}),
        testing::Bool()),
    [](const auto& test) {
        return std::string(std::get<1>(test.param) ? "Repeating_" : "OneShot_") +
               std::get<0>(test.param).name;
    });

TEST_F(TimerTest, ACallbackKeepsItsOwnStateFromOneExpiryToTheNext)
{
    std::vector<int> states;
    ASSERT_EQ(timer->start(
                  0, [&states, state = 0]() mutable { states.push_back(++state); }, REPEATABLE),
              STATUS_SUCCESS);

    EXPECT_TRUE(iterateUntil([&] { return states.size() >= 3; }, LIMIT));

    states.resize(3);
    EXPECT_THAT(states, ElementsAre(1, 2, 3));
}

TEST_F(TimerTest, ACallbackCanRunAgainInsideItself)
{
    std::vector<int> states;
    ASSERT_EQ(timer->start(
                  HOUR,
                  [this, &states, state = 0, text = std::string(100, 'x')]() mutable {
                      states.push_back(++state);
                      if (state < 3) {
                          EXPECT_EQ(expire(1), TRUE);
                      } else {
                          timer.reset();
                      }
                      EXPECT_EQ(text, std::string(100, 'x'));
                      states.push_back(state);
                  },
                  REPEATABLE),
              STATUS_SUCCESS);

    EXPECT_EQ(expire(1), TRUE);

    EXPECT_THAT(states, ElementsAre(1, 2, 3, 3, 3, 3));
}

TEST_F(TimerTest, ACallbackMayDispatchTheCallbackThatReplacesIt)
{
    for (const bool repeating : {false, true}) {
        SCOPED_TRACE(repeating);
        fired = 0;
        std::string seen;
        timer = std::make_unique<Timer>();
        const auto inner = [this, text = std::string(100, 'i'), &seen] {
            timer.reset();
            ++fired;
            seen += text;
        };
        const auto outer = [this, inner, text = std::string(100, 'o'), &seen] {
            ASSERT_EQ(timer->start(0, inner), STATUS_SUCCESS);
            EXPECT_TRUE(firesWithin(LIMIT));
            seen += text;
        };
        const int status = repeating ? timer->start(0, outer, REPEATABLE) : timer->start(0, outer);
        ASSERT_EQ(status, STATUS_SUCCESS);

        EXPECT_TRUE(iterateUntil([&] { return seen.size() >= 200; }, LIMIT));

        EXPECT_EQ(seen, std::string(100, 'i') + std::string(100, 'o'));
    }
}

TEST_F(TimerTest, WhatACallbackCapturedMayUseTheTimerWhenItGoes)
{
    const auto cancelAtEnd = [this] {
        return std::shared_ptr<void>(nullptr, [this](void*) {
            calls.note("gone");
            timer->cancel();
        });
    };
    ASSERT_EQ(timer->start(HOUR, [kept = cancelAtEnd()] {}), STATUS_SUCCESS);

    ASSERT_EQ(timer->start(0, count), STATUS_SUCCESS);

    EXPECT_THAT(calls.lines(),
                ElementsAre("add #1: 3600000 ms", "gone", "remove #1", "add #2: 0 ms"));
    EXPECT_TRUE(firesWithin(LIMIT));
}

TEST_F(TimerTest, ATimerMayBeDestroyedFromALoopInsideItsCallback)
{
    for (const bool repeating : {false, true}) {
        SCOPED_TRACE(repeating);
        timer = std::make_unique<Timer>();
        std::string seen;
        const auto callback = [this, &seen, text = std::string(100, 'x')] {
            const CallLater destroyer(0ms, [this] { timer.reset(); });
            WaitingLoop loop;
            loop.run(3);
            EXPECT_EQ(timer, nullptr);
            seen = text;
        };
        const int status =
            repeating ? timer->start(0, callback, REPEATABLE) : timer->start(0, callback);
        ASSERT_EQ(status, STATUS_SUCCESS);

        EXPECT_TRUE(iterateUntil([&] { return !seen.empty(); }, LIMIT));

        EXPECT_EQ(seen, std::string(100, 'x'));
    }
}

TEST_F(TimerTest, ACallbackThatThrowsEndsTheProcess)
{
    const auto end = [this](bool repeating, const Callback& callback) {
        std::set_terminate([] { std::_Exit(TERMINATED); });
        if (repeating) {
            timer->start(0, callback, REPEATABLE);
        } else {
            timer->start(0, callback);
        }
        iterateFor(LIMIT);
    };
    const Callback throws = [] { throw std::runtime_error("from a callback"); };
    const Callback destroysAndThrows = [this] {
        timer.reset();
        throw std::runtime_error("from a callback");
    };

    for (const bool repeating : {false, true}) {
        SCOPED_TRACE(repeating);
        EXPECT_EXIT(end(repeating, throws), testing::ExitedWithCode(TERMINATED), "");
        EXPECT_EXIT(end(repeating, destroysAndThrows), testing::ExitedWithCode(TERMINATED), "");
    }
}

// ---- The cell that holds the id -----------------------------------------------------------------

class TimerMemoryTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (__sanitizer_get_current_allocated_bytes == nullptr || __lsan_do_leak_check == nullptr) {
            GTEST_SKIP() << "only the address sanitizer keeps count";
        }
    }
};

/** The bytes that ten rounds of something leave allocated. */
long bytesLeftBy(const std::function<void()>& round)
{
    round();  // what the main loop keeps for later is allocated now
    const std::size_t before = __sanitizer_get_current_allocated_bytes();
    for (int i = 0; i < 10; ++i) {
        round();
    }
    const std::size_t after = __sanitizer_get_current_allocated_bytes();
    return static_cast<long>(after) - static_cast<long>(before);
}

TEST_F(TimerMemoryTest, OneShotGivesUpItsCellWheneverItFires)
{
    Timer timer;
    bool fired = false;
    const Callback callback = [&] { fired = true; };

    EXPECT_EQ(bytesLeftBy([&] {
                  fired = false;
                  timer.start(0, callback);
                  while (!fired) {
                      g_main_context_iteration(nullptr, FALSE);
                  }
              }),
              10 * 4);
}

TEST_F(TimerMemoryTest, NothingElseLeavesMemoryBehind)
{
    Timer timer;
    bool fired = false;
    const Callback callback = [&] { fired = true; };
    const Callback cancels = [&] {
        fired = true;
        timer.cancel();
    };

    EXPECT_EQ(bytesLeftBy([&] {
                  timer.start(HOUR, callback);
                  timer.cancel();
              }),
              0)
        << "cancel()";
    EXPECT_EQ(bytesLeftBy([&] { timer.start(HOUR, callback); }), 0) << "start() of an armed timer";
    EXPECT_EQ(bytesLeftBy([&] {
                  Timer armed;
                  armed.start(HOUR, callback);
              }),
              0)
        << "destruction";
    EXPECT_EQ(bytesLeftBy([&] {
                  fired = false;
                  timer.start(0, cancels, REPEATABLE);
                  while (!fired) {
                      g_main_context_iteration(nullptr, FALSE);
                  }
              }),
              0)
        << "cancel() in a repeating callback";
}

/** The heap that one round of something takes for good, with the C library's bookkeeping. */
double heapTakenBy(const std::function<void()>& round)
{
    constexpr int ROUNDS = 4000;  // so many that a block of somebody else's does not count
    const auto inUse = [] {
        malloc_trim(0);  // what was freed and is kept for later no longer counts
        return mallinfo2().uordblks;
    };
    const auto goOn = [&] {
        for (int i = 0; i < ROUNDS; ++i) {
            round();
        }
    };
    goOn();  // what the main loop keeps for later is allocated now
    const std::size_t before = inUse();
    goOn();
    return static_cast<double>(inUse() - before) / ROUNDS;
}

TEST(TimerHeapTest, ALostCellTakesTheSmallestPieceOfTheHeap)
{
    if (__sanitizer_get_current_allocated_bytes != nullptr) {
        GTEST_SKIP() << "the address sanitizer has a heap of its own";
    }
    const double smallest = sizeof(void*) == 8 ? 32 : 16;
    Timer timer;
    bool fired = false;
    const auto fire = [&] {
        fired = false;
        while (!fired) {
            g_main_context_iteration(nullptr, FALSE);
        }
    };
    WaitingLoop loop;

    EXPECT_NEAR(heapTakenBy([&] {
                    timer.start(0, [&] { fired = true; });
                    fire();
                }),
                smallest, 1);
    EXPECT_NEAR(heapTakenBy([&] { loop.run(0); }), smallest, 1);
    EXPECT_NEAR(heapTakenBy([&] { loop.wait(0); }), smallest, 1);

    EXPECT_NEAR(heapTakenBy([&] { loop.run(0, [] { return true; }); }), 0, 1);
    timer.start(
        0, [&] { fired = true; }, REPEATABLE);
    EXPECT_NEAR(heapTakenBy(fire), 0, 1);
}

MATCHER(ReportsLostCellsAsExpected, "")
{
    // A table with the columns: count, bytes, template.
    const std::string text = arg;
    const std::size_t end = text.find(" oxil::Timer::__start\n");
    if (end == std::string::npos) {
        return false;
    }
    const std::size_t start = text.rfind('\n', end);
    int count = 0;
    int bytes = 0;
    return std::sscanf(text.c_str() + start, "%d %d", &count, &bytes) == 2 && count > 0 &&
           bytes == 4 * count;
}

TEST_F(TimerMemoryTest, TheLeakCheckExpectsTheLostCells)
{
    const auto check = [] {
        for (int i = 0; i < 20; ++i) {
            Timer timer;
            bool fired = false;
            timer.start(0, [&] { fired = true; });
            while (!fired) {
                g_main_context_iteration(nullptr, FALSE);
            }
        }
        __lsan_do_leak_check();  // exits with another code if it finds one that is not expected
        std::_Exit(0);
    };

    EXPECT_EXIT(check(), testing::ExitedWithCode(0), ReportsLostCellsAsExpected());
}

}  // namespace
}  // namespace oxil::test
