#include "OxWaitingLoop.h"

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "CallLater.h"
#include "MainLoop.h"
#include "MainLoopCalls.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "OxTimer.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

// ---- What the compiler can tell -----------------------------------------------------------------

using Predicate = std::function<bool()>;

static_assert(std::is_nothrow_destructible_v<WaitingLoop>);
static_assert(!std::is_copy_constructible_v<WaitingLoop> &&
              !std::is_copy_assignable_v<WaitingLoop>);
static_assert(!std::is_move_constructible_v<WaitingLoop> &&
              !std::is_move_assignable_v<WaitingLoop>);
static_assert(std::is_same_v<void, decltype(std::declval<WaitingLoop&>().quit())>);
static_assert(std::is_same_v<void, decltype(std::declval<WaitingLoop&>().go())>);
static_assert(std::is_same_v<bool, decltype(std::declval<const WaitingLoop&>().isRunning())>);
static_assert(std::is_same_v<bool, decltype(std::declval<const WaitingLoop&>().isWaiting())>);

// ---- Set-up -------------------------------------------------------------------------------------

constexpr milliseconds LIMIT = 5s;  // what ought to happen happens long before
constexpr int HOUR = 60 * 60 * 1000;
constexpr int TERMINATED = 86;

class WaitingLoopTest : public testing::Test {
protected:
    /** A predicate that is never true, and leaves a line among the calls when its last copy goes. */
    Predicate never(const std::string& line)
    {
        const std::shared_ptr<void> note(nullptr, [this, line](void*) { calls.note(line); });
        return [note] { return false; };
    }

    /** Ends the nested loop behind the back of its WaitingLoop, or when that is gone. */
    void quitOrphan() { g_main_loop_quit(calls.loop()); }

    MainLoopCalls calls;
    std::unique_ptr<WaitingLoop> loop = std::make_unique<WaitingLoop>();
    const Watchdog watchdog{LIMIT};
};

/** One of the two modes, for what holds for both. */
struct Mode {
    const char* name;
    int (*enter)(WaitingLoop&);
    int (*enterTimed)(WaitingLoop&, int);
    int (*enterPolled)(WaitingLoop&, int, const Predicate&);
    void (*leave)(WaitingLoop&);
    bool (*isActive)(const WaitingLoop&);
    bool (*isOtherActive)(const WaitingLoop&);
    const char* starter;
    int timerAllocation;  // which allocation of the constructor is this mode's timer
};

void PrintTo(const Mode& mode, std::ostream* stream)
{
    *stream << mode.name;
}

const Mode RUN = {"run",
                  [](WaitingLoop& loop) { return loop.run(); },
                  [](WaitingLoop& loop, int interval) { return loop.run(interval); },
                  [](WaitingLoop& loop, int interval, const Predicate& predicate) {
                      return loop.run(interval, predicate);
                  },
                  [](WaitingLoop& loop) { loop.quit(); },
                  [](const WaitingLoop& loop) { return loop.isRunning(); },
                  [](const WaitingLoop& loop) { return loop.isWaiting(); },
                  "__startRunTimer",
                  1};

const Mode WAIT = {"wait",
                   [](WaitingLoop& loop) { return loop.wait(); },
                   [](WaitingLoop& loop, int interval) { return loop.wait(interval); },
                   [](WaitingLoop& loop, int interval, const Predicate& predicate) {
                       return loop.wait(interval, predicate);
                   },
                   [](WaitingLoop& loop) { loop.go(); },
                   [](const WaitingLoop& loop) { return loop.isWaiting(); },
                   [](const WaitingLoop& loop) { return loop.isRunning(); },
                   "__startWaitTimer",
                   2};

class WaitingLoopModeTest : public WaitingLoopTest, public testing::WithParamInterface<Mode> {
protected:
    /** Stays without a timer for a moment; what the predicate captured does this when it goes. */
    void leavePredicateBehind(const std::function<void()>& atEnd)
    {
        const CallLater ender(0ms, [&] { mode.leave(*loop); });
        const std::shared_ptr<void> captured(nullptr, [atEnd](void*) { atEnd(); });
        EXPECT_EQ(mode.enterPolled(*loop, -1, [captured] { return false; }), 0);
    }

    void SetUp() override { calls.clear(); }

    const Mode& mode = GetParam();
    const Mode& other = std::string(mode.name) == RUN.name ? WAIT : RUN;
};

INSTANTIATE_TEST_SUITE_P(Both, WaitingLoopModeTest, testing::Values(RUN, WAIT),
                         testing::PrintToStringParamName());

// ---- Making and idling --------------------------------------------------------------------------

TEST_F(WaitingLoopTest, ANewLoopIsIdleAndHasAMainLoopOfTheDefaultContext)
{
    EXPECT_FALSE(loop->isRunning());
    EXPECT_FALSE(loop->isWaiting());
    EXPECT_THAT(calls.lines(), ElementsAre("new loop"));
    EXPECT_TRUE(calls.madeForDefaultContext());

    loop.reset();
    EXPECT_THAT(calls.lines(), ElementsAre("new loop", "unref loop"));
}

TEST_F(WaitingLoopTest, EndingAnIdleLoopDoesNothingThatShows)
{
    loop->quit();
    loop->go();
    loop->quit();

    EXPECT_FALSE(loop->isRunning());
    EXPECT_FALSE(loop->isWaiting());
}

TEST_F(WaitingLoopTest, EndingAnIdleLoopDoesNotEndItsNextStay)
{
    loop->quit();
    loop->go();
    bool later = false;
    const CallLater quitter(2ms, [&] {
        later = true;
        loop->quit();
    });

    EXPECT_EQ(loop->run(), 0);

    EXPECT_TRUE(later);
}

// ---- Both modes alike ---------------------------------------------------------------------------

TEST_P(WaitingLoopModeTest, BlocksUntilItIsEnded)
{
    bool ended = false;
    const CallLater ender(3ms, [&] {
        EXPECT_TRUE(mode.isActive(*loop));
        EXPECT_FALSE(mode.isOtherActive(*loop));
        ended = true;
        mode.leave(*loop);
        EXPECT_FALSE(mode.isActive(*loop));
    });

    EXPECT_EQ(mode.enter(*loop), 0);

    EXPECT_TRUE(ended);
    EXPECT_FALSE(mode.isActive(*loop));
    EXPECT_EQ(calls.timeoutCount(), 0U) << "no timer";
}

TEST_P(WaitingLoopModeTest, DispatchesWhatComesUpMeanwhile)
{
    int ticks = 0;
    Timer ticker;
    ASSERT_EQ(ticker.start(
                  1,
                  [&] {
                      if (++ticks == 5) {
                          mode.leave(*loop);
                      }
                  },
                  REPEATABLE),
              STATUS_SUCCESS);

    EXPECT_EQ(mode.enter(*loop), 0);

    EXPECT_EQ(ticks, 5);
}

TEST_P(WaitingLoopModeTest, EndsByItselfWhenTheTimeIsOver)
{
    const auto started = std::chrono::steady_clock::now();

    EXPECT_EQ(mode.enterTimed(*loop, 10), 0);

    EXPECT_GE(std::chrono::steady_clock::now() - started, 10ms);
    EXPECT_FALSE(mode.isActive(*loop));
    ASSERT_EQ(calls.timeoutCount(), 1U);
    EXPECT_EQ(calls.timeout(1).interval, 10U);
    EXPECT_FALSE(calls.isAttached(1));
}

TEST_P(WaitingLoopModeTest, AnEmptyPredicateMeansATimeOut)
{
    EXPECT_EQ(mode.enterPolled(*loop, 2, Predicate()), 0);
    EXPECT_EQ(mode.enterPolled(*loop, 2, nullptr), 0);

    EXPECT_THAT(calls.timeoutCount(), 2U);
    EXPECT_FALSE(mode.isActive(*loop));
}

TEST_P(WaitingLoopModeTest, TimeOutOfZeroIsOverOnTheNextIteration)
{
    EXPECT_EQ(mode.enterTimed(*loop, 0), 0);

    EXPECT_EQ(calls.timeout(1).interval, 0U);
    EXPECT_LE(calls.pollingIterations(), 1);
}

TEST_P(WaitingLoopModeTest, CanBeEndedBeforeTheTimeIsOver)
{
    const CallLater ender(2ms, [&] { mode.leave(*loop); });

    EXPECT_EQ(mode.enterTimed(*loop, HOUR), 0);

    EXPECT_FALSE(calls.isAttached(1));
}

TEST_P(WaitingLoopModeTest, OnlyMinusOneMeansNoTimer)
{
    const std::pair<int, guint> timed[] = {
        {-2, 4294967294U}, {INT_MIN, 2147483648U}, {INT_MAX, 2147483647U}, {1, 1}};

    for (const auto& [interval, passed] : timed) {
        SCOPED_TRACE(interval);
        const CallLater ender(0ms, [&] { mode.leave(*loop); });
        EXPECT_EQ(mode.enterTimed(*loop, interval), 0);
        EXPECT_EQ(calls.timeout(calls.timeoutCount()).interval, passed);
    }
    EXPECT_EQ(calls.timeoutCount(), 4U);

    const CallLater ender(2ms, [&] { mode.leave(*loop); });
    EXPECT_EQ(mode.enterTimed(*loop, -1), 0);
    EXPECT_EQ(calls.timeoutCount(), 4U);
}

TEST_P(WaitingLoopModeTest, AsksThePredicateEveryIntervalUntilItIsTrue)
{
    int asked = 0;
    const auto started = std::chrono::steady_clock::now();
    const Predicate fourth = [&] {
        EXPECT_TRUE(mode.isActive(*loop));
        EXPECT_GE(std::chrono::steady_clock::now() - started, ++asked * 4ms);
        return asked == 4;
    };

    EXPECT_EQ(mode.enterPolled(*loop, 4, fourth), 0);

    EXPECT_EQ(asked, 4);
    EXPECT_FALSE(mode.isActive(*loop));
    ASSERT_EQ(calls.timeoutCount(), 1U);
    EXPECT_EQ(calls.timeout(1).interval, 4U);
    EXPECT_FALSE(calls.isAttached(1));
}

TEST_P(WaitingLoopModeTest, ThePredicatesOwnStateLastsFromOneQuestionToTheNext)
{
    EXPECT_EQ(mode.enterPolled(*loop, 1, [asked = 0]() mutable { return ++asked == 3; }), 0);
}

TEST_P(WaitingLoopModeTest, APolledStayCanBeEndedToo)
{
    int asked = 0;

    EXPECT_EQ(mode.enterPolled(*loop, 1,
                               [&] {
                                   if (++asked == 3) {
                                       mode.leave(*loop);
                                   }
                                   return false;
                               }),
              0);

    EXPECT_EQ(asked, 3);
    EXPECT_FALSE(calls.isAttached(1));
}

TEST_P(WaitingLoopModeTest, WithoutATimerThePredicateIsKeptButNeverAsked)
{
    std::weak_ptr<int> kept;
    const CallLater ender(10ms, [&] { mode.leave(*loop); });
    {
        const auto captured = std::make_shared<int>(0);
        kept = captured;
        EXPECT_EQ(mode.enterPolled(*loop, -1,
                                   [captured] {
                                       ADD_FAILURE() << "asked";
                                       return true;
                                   }),
                  0);
    }
    EXPECT_EQ(kept.use_count(), 1);
    EXPECT_EQ(calls.timeoutCount(), 0U);

    EXPECT_EQ(other.enterTimed(*loop, 0), 0);
    EXPECT_EQ(kept.use_count(), 1) << "each mode has a predicate of its own";

    const CallLater again(0ms, [&] {
        EXPECT_EQ(kept.use_count(), 0) << "replaced on entry";
        mode.leave(*loop);
    });
    EXPECT_EQ(mode.enter(*loop), 0);
}

TEST_P(WaitingLoopModeTest, ThePredicateIsReplacedAfterTheModeHasBegunAndBeforeATimerIsStarted)
{
    bool active = false;
    std::size_t timers = 1;
    leavePredicateBehind([&] {
        active = mode.isActive(*loop);
        timers = calls.timeoutCount();
    });

    EXPECT_EQ(mode.enterTimed(*loop, 5), 0);

    EXPECT_TRUE(active);
    EXPECT_EQ(timers, 0U);
    EXPECT_EQ(calls.timeoutCount(), 1U);
}

TEST_P(WaitingLoopModeTest, OnlyTheTimerOfAnActiveModeIsCancelled)
{
    // Ending the mode while it begins is the way to have its timer armed without it.
    leavePredicateBehind([&] { mode.leave(*loop); });
    bool attached = false;
    const CallLater ender(0ms, [&] {
        EXPECT_FALSE(mode.isActive(*loop));
        loop->quit();
        loop->go();
        attached = calls.isAttached(1);
        quitOrphan();
    });

    EXPECT_EQ(mode.enterTimed(*loop, HOUR), 0);

    EXPECT_TRUE(iterateUntil([&] { return attached; }, LIMIT / 2));
}

TEST_P(WaitingLoopModeTest, ThePredicateIsCopied)
{
    int asked = 0;
    Predicate predicate = [&] { return ++asked == 2; };
    const CallLater changer(0ms, [&] { predicate = nullptr; });

    EXPECT_EQ(mode.enterPolled(*loop, 3, predicate), 0);

    EXPECT_EQ(asked, 2);
}

TEST_P(WaitingLoopModeTest, CanBeEnteredAgainAndAgain)
{
    for (int round = 0; round < 3; ++round) {
        int asked = 0;
        EXPECT_EQ(mode.enterPolled(*loop, 1, [&] { return ++asked == 2; }), 0);
        EXPECT_EQ(mode.enterTimed(*loop, 1), 0);
        EXPECT_EQ(other.enterTimed(*loop, 1), 0);
        EXPECT_EQ(asked, 2);
        EXPECT_FALSE(loop->isRunning());
        EXPECT_FALSE(loop->isWaiting());
    }
}

TEST_P(WaitingLoopModeTest, TheOtherModesPredicateHasNoSay)
{
    // Kept from a stay without a timer.
    const CallLater ender(0ms, [&] { other.leave(*loop); });
    EXPECT_EQ(other.enterPolled(*loop, -1, [] { return false; }), 0);

    EXPECT_EQ(mode.enterTimed(*loop, 2), 0);

    EXPECT_FALSE(mode.isActive(*loop));
}

TEST_P(WaitingLoopModeTest, TheOtherModesCallDoesNotEndIt)
{
    bool stillActive = false;
    const CallLater wrong(1ms, [&] {
        other.leave(*loop);
        EXPECT_TRUE(mode.isActive(*loop));
    });
    const CallLater right(5ms, [&] {
        stillActive = mode.isActive(*loop);
        mode.leave(*loop);
    });

    EXPECT_EQ(mode.enter(*loop), 0);

    EXPECT_TRUE(stillActive);
}

TEST_P(WaitingLoopModeTest, TheOtherModesCallCancelsItsTimeOut)
{
    bool stillActive = false;
    const CallLater wrong(0ms, [&] { other.leave(*loop); });
    const CallLater right(20ms, [&] {
        stillActive = mode.isActive(*loop);
        EXPECT_FALSE(calls.isAttached(1));
        mode.leave(*loop);
    });

    EXPECT_EQ(mode.enterTimed(*loop, 8), 0);

    EXPECT_TRUE(stillActive);
}

TEST_P(WaitingLoopModeTest, WorksWithAThreadDefaultContextInPlace)
{
    GMainContext* context = g_main_context_new();
    g_main_context_push_thread_default(context);
    WaitingLoop here;

    EXPECT_TRUE(calls.madeForDefaultContext());
    EXPECT_EQ(mode.enterTimed(here, 2), 0);

    g_main_context_pop_thread_default(context);
    g_main_context_unref(context);
}

TEST_P(WaitingLoopModeTest, WorksInsideATimersCallback)
{
    std::vector<std::string> events;
    Timer outer;
    ASSERT_EQ(outer.start(0,
                          [&] {
                              events.emplace_back("in");
                              EXPECT_EQ(mode.enterTimed(*loop, 3), 0);
                              events.emplace_back("out");
                          }),
              STATUS_SUCCESS);
    Timer meanwhile;
    ASSERT_EQ(meanwhile.start(1, [&] { events.emplace_back("meanwhile"); }), STATUS_SUCCESS);

    EXPECT_TRUE(iterateUntil([&] { return events.size() == 3; }, LIMIT));

    EXPECT_THAT(events, ElementsAre("in", "meanwhile", "out"));
}

// ---- How each mode blocks -----------------------------------------------------------------------

TEST_F(WaitingLoopTest, RunningSleepsInANestedMainLoop)
{
    EXPECT_EQ(loop->run(5), 0);

    EXPECT_EQ(calls.pollingIterations(), 0);
    EXPECT_EQ(calls.blockingIterations(), 0);
    EXPECT_THAT(calls.lines(), ElementsAre("new loop", "add #1: 5 ms", "run loop", "quit loop"));
}

TEST_F(WaitingLoopTest, WaitingPollsAndNeverSleeps)
{
    // Blocking iterations would be as few as the questions.
    int asked = 0;
    EXPECT_EQ(loop->wait(1, [&] { return calls.pollingIterations() > 10 + 3 * ++asked; }), 0);

    EXPECT_EQ(calls.blockingIterations(), 0);
    EXPECT_THAT(calls.lines(), ElementsAre("new loop", "add #1: 1 ms", "remove #1"));
}

// ---- Both modes at once -------------------------------------------------------------------------

/** One mode inside the other. */
struct Nesting {
    const Mode* outer;
    const Mode* inner;
};

void PrintTo(const Nesting& nesting, std::ostream* stream)
{
    *stream << nesting.inner->name << "InsideA" << nesting.outer->name;
}

class WaitingLoopNestingTest : public WaitingLoopTest, public testing::WithParamInterface<Nesting> {
protected:
    /** Enters both modes, then does the rest; returns who ended, in order, once both have. */
    std::vector<std::string> enterBoth(
        int outerInterval, const Predicate& outerPredicate, int innerInterval,
        const Predicate& innerPredicate, const std::function<void()>& then = [] {},
        const std::function<void()>& atLast = [] {})
    {
        std::vector<std::string> ended;
        calls.clear();
        const CallInTurn turns{[&] {
                                   EXPECT_TRUE(outer.isActive(*loop));
                                   EXPECT_EQ(
                                       inner.enterPolled(*loop, innerInterval, innerPredicate), 0);
                                   ended.emplace_back("inner");
                               },
                               then, atLast};
        EXPECT_EQ(outer.enterPolled(*loop, outerInterval, outerPredicate), 0);
        ended.emplace_back("outer");
        return ended;
    }

    void expectIdle() const
    {
        EXPECT_FALSE(loop->isRunning());
        EXPECT_FALSE(loop->isWaiting());
        for (std::size_t number = 1; number <= calls.timeoutCount(); ++number) {
            EXPECT_FALSE(calls.isAttached(number)) << number;
        }
    }

    const Mode& outer = *GetParam().outer;
    const Mode& inner = *GetParam().inner;
    const std::string runTimer = &outer == &RUN ? "#1" : "#2";
    const std::string waitTimer = &outer == &RUN ? "#2" : "#1";
};

INSTANTIATE_TEST_SUITE_P(Both, WaitingLoopNestingTest,
                         testing::Values(Nesting{&RUN, &WAIT}, Nesting{&WAIT, &RUN}),
                         testing::PrintToStringParamName());

TEST_P(WaitingLoopNestingTest, TheFlagsAreIndependent)
{
    const auto leaveInner = [&] {
        EXPECT_TRUE(loop->isRunning());
        EXPECT_TRUE(loop->isWaiting());
        inner.leave(*loop);
        EXPECT_FALSE(inner.isActive(*loop));
        EXPECT_TRUE(outer.isActive(*loop));
    };
    bool outerStayed = false;
    const auto leaveOuter = [&] {
        outerStayed = outer.isActive(*loop);
        EXPECT_FALSE(inner.isActive(*loop));
        outer.leave(*loop);
    };

    EXPECT_THAT(enterBoth(-1, {}, -1, {}, leaveInner, leaveOuter), ElementsAre("inner", "outer"));

    EXPECT_TRUE(outerStayed);
    expectIdle();
}

TEST_P(WaitingLoopNestingTest, TheOuterOneCanBeToldFirstButReturnsLast)
{
    const auto leaveOuter = [&] {
        outer.leave(*loop);
        EXPECT_FALSE(outer.isActive(*loop));
        EXPECT_TRUE(inner.isActive(*loop));
    };
    bool innerStayed = false;
    const auto leaveInner = [&] {
        innerStayed = inner.isActive(*loop);
        inner.leave(*loop);
    };

    EXPECT_THAT(enterBoth(-1, {}, -1, {}, leaveOuter, leaveInner), ElementsAre("inner", "outer"));

    EXPECT_TRUE(innerStayed);
    expectIdle();
}

TEST_P(WaitingLoopNestingTest, TheInnerTimeOutEndsBoth)
{
    EXPECT_THAT(enterBoth(-1, {}, 3, {}), ElementsAre("inner", "outer"));
    expectIdle();

    EXPECT_THAT(enterBoth(HOUR, {}, 3, {}), ElementsAre("inner", "outer"));
    expectIdle();
}

TEST_P(WaitingLoopNestingTest, TheOuterTimeOutEndsBoth)
{
    EXPECT_THAT(enterBoth(3, {}, -1, {}), ElementsAre("inner", "outer"));
    expectIdle();

    EXPECT_THAT(enterBoth(3, {}, HOUR, {}), ElementsAre("inner", "outer"));
    expectIdle();
}

TEST_P(WaitingLoopNestingTest, EitherPredicateEndsBoth)
{
    const Predicate no = [] { return false; };
    const auto third = [] { return [asked = 0]() mutable { return ++asked == 3; }; };

    EXPECT_THAT(enterBoth(1, no, 1, third()), ElementsAre("inner", "outer"));
    expectIdle();

    EXPECT_THAT(enterBoth(2, third(), 1, no), ElementsAre("inner", "outer"));
    expectIdle();
}

TEST_P(WaitingLoopNestingTest, APredicateThatIsFalseEndsNeither)
{
    int outerAsked = 0;
    int innerAsked = 0;
    const Predicate ofOuter = [&] {
        ++outerAsked;
        return false;
    };
    const Predicate ofInner = [&] {
        EXPECT_TRUE(loop->isRunning());
        EXPECT_TRUE(loop->isWaiting());
        if (++innerAsked >= 3 && outerAsked >= 3) {
            loop->quit();
            loop->go();
        }
        return false;
    };

    EXPECT_THAT(enterBoth(1, ofOuter, 1, ofInner), ElementsAre("inner", "outer"));

    expectIdle();
}

TEST_P(WaitingLoopNestingTest, QuitCancelsBothTimersAndLeavesTheWaitToGo)
{
    const auto quit = [&] {
        calls.clear();
        loop->quit();
        EXPECT_THAT(calls.lines(),
                    ElementsAre("remove " + runTimer, "remove " + waitTimer, "quit loop"));
        EXPECT_FALSE(loop->isRunning());
        EXPECT_TRUE(loop->isWaiting());
    };
    bool stillWaiting = false;
    const auto go = [&] {
        stillWaiting = loop->isWaiting();
        calls.clear();
        loop->go();
        EXPECT_THAT(calls.lines(), IsEmpty());
        EXPECT_FALSE(loop->isWaiting());
    };

    EXPECT_THAT(enterBoth(HOUR, {}, HOUR, {}, quit, go), ElementsAre("inner", "outer"));

    EXPECT_TRUE(stillWaiting);
    expectIdle();
}

TEST_P(WaitingLoopNestingTest, GoCancelsBothTimersAndLeavesTheRunToQuit)
{
    const auto go = [&] {
        calls.clear();
        loop->go();
        EXPECT_THAT(calls.lines(), ElementsAre("remove " + runTimer, "remove " + waitTimer));
        EXPECT_TRUE(loop->isRunning());
        EXPECT_FALSE(loop->isWaiting());
    };
    bool stillRunning = false;
    const auto quit = [&] {
        stillRunning = loop->isRunning();
        calls.clear();
        loop->quit();
        EXPECT_THAT(calls.lines(), ElementsAre("quit loop"));
        EXPECT_FALSE(loop->isRunning());
    };

    EXPECT_THAT(enterBoth(HOUR, {}, HOUR, {}, go, quit), ElementsAre("inner", "outer"));

    EXPECT_TRUE(stillRunning);
    expectIdle();
}

TEST_P(WaitingLoopNestingTest, AnExpiryQuitsAndThenGoes)
{
    bool waitingWhenQuit = false;
    calls.before("quit loop", [&] { waitingWhenQuit = loop->isWaiting(); });

    enterBoth(HOUR, {}, 2, {});

    EXPECT_TRUE(waitingWhenQuit);
    expectIdle();
}

// ---- Timers that fire although their mode has ended ---------------------------------------------

// Memory runs out where a timer stores the id of its source, so that nobody can cancel the source.
class WaitingLoopOwnerlessTest : public WaitingLoopTest {
protected:
    /** Enters the mode with a time-out that nobody owns, and leaves it again. */
    void leaveTimeOutBehind(const Mode& mode, const Predicate& predicate = {})
    {
        const CallLater ender(0ms, [&] { mode.leave(*loop); });
        LogCapture log;
        {
            const AllocationFailure failure(Allocation::NothrowNew);
            EXPECT_EQ(mode.enterPolled(*loop, HOUR, predicate), 0);
        }
        EXPECT_THAT(log.lines(),
                    ElementsAre(LoggedIn("OxTimer.cpp", "__start", "Memory allocation failed.")));
        const std::size_t number = calls.timeoutCount();
        EXPECT_TRUE(calls.isAttached(number)) << "nobody should own it";
        calls.remove(number);
        __left = calls.timeout(number);
        calls.clear();
    }

    /** Lets it expire as the main loop would. */
    gboolean expire() const { return __left.function(__left.data); }

private:
    MainLoopCalls::Timeout __left = {};
};

TEST_F(WaitingLoopOwnerlessTest, ALoopTakesItsTimeOutsWithIt)
{
    for (const Mode& mode : {RUN, WAIT}) {
        SCOPED_TRACE(mode.starter);
        const CallLater ender(0ms, [&] { mode.leave(*loop); });
        LogCapture log;
        {
            const AllocationFailure failure(Allocation::NothrowNew);
            EXPECT_EQ(mode.enterTimed(*loop, HOUR), 0);
        }
        const std::size_t number = calls.timeoutCount();
        EXPECT_TRUE(calls.isAttached(number)) << "nobody should own it";

        loop = std::make_unique<WaitingLoop>();

        EXPECT_FALSE(calls.isAttached(number));
    }
}

TEST_F(WaitingLoopOwnerlessTest, ARunThatTimesOutWhenOnlyWaitingEndsTheWait)
{
    leaveTimeOutBehind(RUN);
    bool ended = false;
    const CallLater call(0ms, [&] {
        EXPECT_EQ(expire(), FALSE);
        ended = !loop->isWaiting();
        loop->go();
    });

    EXPECT_EQ(loop->wait(), 0);

    EXPECT_TRUE(ended);
}

TEST_F(WaitingLoopOwnerlessTest, AWaitThatTimesOutWhenOnlyRunningQuitsTheRun)
{
    leaveTimeOutBehind(WAIT);
    bool ended = false;
    const CallLater call(0ms, [&] {
        EXPECT_EQ(expire(), FALSE);
        ended = !loop->isRunning();
        loop->quit();
    });

    EXPECT_EQ(loop->run(), 0);

    EXPECT_TRUE(ended);
}

TEST_F(WaitingLoopOwnerlessTest, ATimeOutOfAnIdleLoopEndsNothing)
{
    for (const Mode* mode : {&RUN, &WAIT}) {
        SCOPED_TRACE(mode->name);
        leaveTimeOutBehind(*mode);

        EXPECT_EQ(expire(), FALSE);

        EXPECT_FALSE(loop->isRunning());
        EXPECT_FALSE(loop->isWaiting());
    }
}

TEST_F(WaitingLoopOwnerlessTest, ItsPredicateStillDecides)
{
    for (const auto& [left, entered] : {std::pair(&RUN, &WAIT), std::pair(&WAIT, &RUN)}) {
        SCOPED_TRACE(left->name);
        int asked = 0;
        std::vector<bool> active;
        loop = std::make_unique<WaitingLoop>();
        leaveTimeOutBehind(*left, [&] { return ++asked == 2; });
        const CallLater call(0ms, [&, mode = entered] {
            EXPECT_EQ(expire(), TRUE);
            active.push_back(mode->isActive(*loop));
            EXPECT_EQ(expire(), TRUE);
            active.push_back(mode->isActive(*loop));
            mode->leave(*loop);
        });

        EXPECT_EQ(entered->enter(*loop), 0);

        EXPECT_THAT(active, ElementsAre(true, false));
    }
}

TEST_F(WaitingLoopOwnerlessTest, APredicateThatRunsAlreadyIsAskedAgain)
{
    // Two sources of one timer: the first can expire while the second one's expiry is under way.
    for (const Mode* mode : {&RUN, &WAIT}) {
        SCOPED_TRACE(mode->name);
        loop = std::make_unique<WaitingLoop>();
        leaveTimeOutBehind(*mode);
        int asked = 0;

        EXPECT_EQ(mode->enterPolled(*loop, 1,
                                    [&] {
                                        if (++asked == 1) {
                                            EXPECT_EQ(expire(), TRUE);
                                            EXPECT_EQ(asked, 2);
                                            EXPECT_TRUE(mode->isActive(*loop));
                                        }
                                        return asked == 3;
                                    }),
                  0);

        EXPECT_EQ(asked, 3);
    }
}

TEST_P(WaitingLoopModeTest, ATimeOutThatIsRefusedLeavesAStayWithoutOne)
{
    bool ended = false;
    const CallLater ender(8ms, [&] {
        ended = true;
        mode.leave(*loop);
    });
    LogCapture log;
    calls.refuse(true);

    EXPECT_EQ(mode.enterTimed(*loop, 2), 0);

    calls.refuse(false);
    EXPECT_TRUE(ended);
    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxTimer.cpp", "__start", "Invalid state.")));
}

// ---- Entering a mode that is active -------------------------------------------------------------

TEST_P(WaitingLoopModeTest, AnEntryInsideItselfReplacesThePredicateOfTheTimerInPlace)
{
    // The inner stay has no predicate, so the outer one's next poll is a time-out.
    std::vector<std::string> ended;
    const CallLater nester(0ms, [&] {
        EXPECT_EQ(mode.enter(*loop), 0);
        ended.emplace_back("inner");
    });

    EXPECT_EQ(mode.enterPolled(*loop, 3, [] { return false; }), 0);
    ended.emplace_back("outer");

    EXPECT_THAT(ended, ElementsAre("inner", "outer"));
    EXPECT_EQ(calls.timeoutCount(), 1U);
}

TEST_P(WaitingLoopModeTest, APredicateFromAnEntryInsideItselfHoldsBackTheTimeOutInPlace)
{
    int asked = 0;
    bool stillActive = false;
    std::unique_ptr<CallLater> ender;
    const Predicate no = [&] {
        ++asked;
        ender = std::make_unique<CallLater>(8ms, [&] {
            stillActive = mode.isActive(*loop);
            mode.leave(*loop);
        });
        return false;
    };
    const CallLater nester(0ms, [&] { EXPECT_EQ(mode.enterPolled(*loop, -1, no), 0); });

    EXPECT_EQ(mode.enterTimed(*loop, 2), 0);

    EXPECT_TRUE(stillActive);
    EXPECT_EQ(asked, 1) << "the time-out was a one-shot";
}

TEST_P(WaitingLoopModeTest, AnEntryInsideItselfRestartsTheTimer)
{
    const CallLater nester(0ms, [&] { EXPECT_EQ(mode.enterTimed(*loop, 3), 0); });

    EXPECT_EQ(mode.enterTimed(*loop, HOUR), 0);

    EXPECT_FALSE(mode.isActive(*loop));
    EXPECT_FALSE(calls.isAttached(1));
    EXPECT_EQ(calls.timeout(1).data, calls.timeout(2).data) << "one timer for each mode";
}

TEST_F(WaitingLoopTest, EachModeHasATimerOfItsOwn)
{
    EXPECT_EQ(loop->run(0), 0);
    EXPECT_EQ(loop->wait(0), 0);
    EXPECT_EQ(loop->run(0), 0);

    EXPECT_NE(calls.timeout(1).data, calls.timeout(2).data);
    EXPECT_EQ(calls.timeout(1).data, calls.timeout(3).data);
}

// ---- Deeper nesting -----------------------------------------------------------------------------

TEST_F(WaitingLoopTest, ARunInAWaitInARunEndsInsideOut)
{
    std::vector<std::string> events;
    const CallInTurn turns{[&] {
                               EXPECT_EQ(loop->wait(), 0);
                               events.emplace_back("wait");
                           },
                           [&] {
                               EXPECT_EQ(loop->run(), 0);
                               events.emplace_back("inner run");
                           },
                           [&] {
                               EXPECT_TRUE(loop->isRunning());
                               EXPECT_TRUE(loop->isWaiting());
                               loop->quit();
                           },
                           [&] {
                               events.emplace_back("go");
                               EXPECT_FALSE(loop->isRunning());
                               EXPECT_TRUE(loop->isWaiting());
                               loop->go();
                           }};

    EXPECT_EQ(loop->run(), 0);

    EXPECT_THAT(events, ElementsAre("inner run", "go", "wait"));
}

TEST_F(WaitingLoopTest, TheInnermostTimeOutEndsARunInAWaitInARun)
{
    std::vector<std::string> events;
    const CallInTurn turns{[&] {
                               EXPECT_EQ(loop->wait(HOUR), 0);
                               events.emplace_back("wait");
                           },
                           [&] {
                               EXPECT_EQ(loop->run(3), 0);
                               events.emplace_back("inner run");
                           }};

    EXPECT_EQ(loop->run(HOUR), 0);

    EXPECT_THAT(events, ElementsAre("inner run", "wait"));
    EXPECT_FALSE(loop->isRunning());
    EXPECT_FALSE(loop->isWaiting());
}

TEST_F(WaitingLoopTest, LoopsInsideOneAnotherDoNotEndOneAnother)
{
    std::vector<std::string> events;
    WaitingLoop middle;
    WaitingLoop inner;
    const CallInTurn turns{[&] {
                               EXPECT_EQ(middle.wait(), 0);
                               events.emplace_back("middle");
                           },
                           [&] {
                               EXPECT_EQ(inner.run(3), 0);
                               events.emplace_back("inner");
                               EXPECT_TRUE(middle.isWaiting());
                               EXPECT_TRUE(loop->isRunning());
                               middle.go();
                               EXPECT_TRUE(loop->isRunning());
                               const CallLater quitter(3ms, [&] { loop->quit(); });
                               EXPECT_EQ(inner.wait(6), 0);
                           }};

    EXPECT_EQ(loop->run(), 0);

    EXPECT_THAT(events, ElementsAre("inner", "middle"));
}

TEST_P(WaitingLoopModeTest, AnOuterLoopThatIsToldFirstReturnsAfterTheInnerOne)
{
    std::vector<std::string> events;
    WaitingLoop inner;
    const CallInTurn turns{[&] {
                               EXPECT_EQ(mode.enter(inner), 0);
                               events.emplace_back("inner");
                           },
                           [&] {
                               mode.leave(*loop);
                               EXPECT_FALSE(mode.isActive(*loop));
                               events.emplace_back("outer told");
                           },
                           [&] {
                               EXPECT_TRUE(mode.isActive(inner));
                               events.emplace_back("inner told");
                               mode.leave(inner);
                           }};

    EXPECT_EQ(mode.enter(*loop), 0);

    EXPECT_THAT(events, ElementsAre("outer told", "inner told", "inner"));
}

// ---- Predicates that deal with their own loop ---------------------------------------------------

TEST_P(WaitingLoopModeTest, APredicateMayReplaceItselfAndStillUseWhatItCaptured)
{
    std::weak_ptr<std::string> shared;
    std::string seen;
    bool held = false;
    Predicate callers;
    callers = [&, text = std::make_shared<std::string>("shared"), own = std::string(100, 'x')] {
        shared = text;
        callers = nullptr;  // what runs is the copy
        EXPECT_EQ(mode.enterTimed(*loop, 2), 0);
        held = shared.use_count() == 1;
        seen += own + *text;
        return false;
    };

    EXPECT_EQ(mode.enterPolled(*loop, 1, callers), 0);

    EXPECT_EQ(seen, std::string(100, 'x') + "shared");
    EXPECT_TRUE(held);
    EXPECT_TRUE(shared.expired()) << "it goes once it has returned";
    EXPECT_FALSE(mode.isActive(*loop));
}

TEST_P(WaitingLoopModeTest, APredicateMayReplaceItselfWithAnotherPredicate)
{
    std::string seen;
    int asked = 0;

    EXPECT_EQ(mode.enterPolled(*loop, 1,
                               [&, own = std::string(100, 'x')] {
                                   EXPECT_EQ(
                                       mode.enterPolled(*loop, 1, [&] { return ++asked == 3; }), 0);
                                   seen += own;
                                   return true;
                               }),
              0);

    EXPECT_EQ(asked, 3);
    EXPECT_EQ(seen, std::string(100, 'x'));
    EXPECT_FALSE(mode.isActive(*loop));
}

TEST_P(WaitingLoopModeTest, APredicateThatThrowsEndsTheProcess)
{
    const auto end = [this] {
        std::set_terminate([] { std::_Exit(TERMINATED); });
        mode.enterPolled(*loop, 1, []() -> bool { throw std::runtime_error("from a predicate"); });
    };

    EXPECT_EXIT(end(), testing::ExitedWithCode(TERMINATED), "");
}

/** A predicate that can be copied so often, and throws then; true whenever it is asked. */
struct Uncopyable {
    explicit Uncopyable(int copies) : left(copies) {}
    Uncopyable(const Uncopyable& from) : left(from.left - 1)
    {
        if (left < 0) {
            throw std::runtime_error("from a copy");
        }
    }
    bool operator()() const { return true; }

    int left;
};

TEST_P(WaitingLoopModeTest, APredicateThatCannotBeCopiedLeavesTheLoopIdle)
{
    const Predicate uncopyable{Uncopyable(1)};  // it is copied into its place here

    EXPECT_THROW(mode.enterPolled(*loop, 1, uncopyable), std::runtime_error);

    EXPECT_FALSE(mode.isActive(*loop));
    EXPECT_FALSE(mode.isOtherActive(*loop));
    EXPECT_EQ(calls.timeoutCount(), 0U);
    EXPECT_EQ(mode.enterPolled(*loop, 1, [] { return true; }), 0) << "it can be used again";
}

TEST_P(WaitingLoopModeTest, APredicateThatCannotBeCopiedLeavesAStayGoOn)
{
    const Predicate uncopyable{Uncopyable(1)};
    bool tried = false;
    const CallInTurn turns{[&] {
                               EXPECT_THROW(mode.enterPolled(*loop, 1, uncopyable),
                                            std::runtime_error);
                               EXPECT_TRUE(mode.isActive(*loop));
                               tried = true;
                           },
                           [&] { mode.leave(*loop); }};

    EXPECT_EQ(mode.enter(*loop), 0);

    EXPECT_TRUE(tried);
    EXPECT_FALSE(mode.isActive(*loop));
}

// ---- Without memory for a timer -----------------------------------------------------------------

TEST_P(WaitingLoopModeTest, WithoutMemoryForItsTimerATimedStayIsLoggedAndEnteredAllTheSame)
{
    loop.reset();
    {
        const AllocationFailure failure(Allocation::NothrowNew, mode.timerAllocation);
        loop = std::make_unique<WaitingLoop>();
        ASSERT_TRUE(failure.happened());
    }
    calls.clear();
    std::weak_ptr<int> kept;

    {
        bool ended = false;
        const CallLater ender(8ms, [&] {
            ended = true;
            EXPECT_TRUE(mode.isActive(*loop));
            mode.leave(*loop);
        });
        LogCapture log;
        EXPECT_EQ(mode.enterTimed(*loop, 2), 0);
        EXPECT_TRUE(ended) << "it does not time out";
        EXPECT_THAT(log.lines(),
                    ElementsAre(LoggedIn("OxWaitingLoop.cpp", mode.starter, "Invalid state.")));
    }
    {
        const auto captured = std::make_shared<int>(0);
        kept = captured;
        const CallLater ender(8ms, [&] { mode.leave(*loop); });
        LogCapture log;
        EXPECT_EQ(mode.enterPolled(*loop, 2,
                                   [captured] {
                                       ADD_FAILURE() << "asked";
                                       return true;
                                   }),
                  0);
        EXPECT_THAT(log.lines(),
                    ElementsAre(LoggedIn("OxWaitingLoop.cpp", mode.starter, "Invalid state.")));
    }
    EXPECT_EQ(kept.use_count(), 1) << "the predicate is kept all the same";
    EXPECT_EQ(calls.timeoutCount(), 0U);

    const CallLater ender(2ms, [&] { mode.leave(*loop); });
    EXPECT_EQ(mode.enter(*loop), 0);  // and logs nothing
    EXPECT_TRUE(kept.expired());

    EXPECT_EQ(other.enterTimed(*loop, 2), 0) << "the other mode has its timer";
    EXPECT_EQ(calls.timeoutCount(), 1U);
    loop->quit();
    loop->go();
}

TEST_P(WaitingLoopModeTest, WithoutATimerOfItsOwnAStayCanStillBeEndedByTheOther)
{
    loop.reset();
    {
        const AllocationFailure failure(Allocation::NothrowNew, mode.timerAllocation);
        loop = std::make_unique<WaitingLoop>();
    }
    const CallLater nester(0ms, [&] { EXPECT_EQ(other.enterTimed(*loop, 2), 0); });

    EXPECT_EQ(mode.enter(*loop), 0);

    EXPECT_FALSE(loop->isRunning());
    EXPECT_FALSE(loop->isWaiting());
}

// ---- Destruction --------------------------------------------------------------------------------

TEST_F(WaitingLoopTest, DestructionTakesItsPartsInAFixedOrder)
{
    std::vector<std::string> lines;
    Predicate runPredicate = never("run predicate gone");
    Predicate waitPredicate = never("wait predicate gone");
    const CallInTurn turns{[&] { EXPECT_EQ(loop->wait(HOUR, waitPredicate), 0); },
                           [&] {
                               runPredicate = nullptr;  // the loop has copies
                               waitPredicate = nullptr;
                               calls.clear();
                               loop.reset();
                               lines = calls.lines();
                               quitOrphan();
                           }};

    EXPECT_EQ(loop->run(HOUR, runPredicate), 0);

    EXPECT_THAT(lines, ElementsAre("unref loop", "remove #2", "remove #1", "wait predicate gone",
                                   "run predicate gone"));
}

TEST_F(WaitingLoopTest, DestroyingAnIdleLoopLetsGoOfBothPredicates)
{
    const CallLater quitter(0ms, [&] { loop->quit(); });
    EXPECT_EQ(loop->run(-1, never("run predicate gone")), 0);
    const CallLater goer(0ms, [&] { loop->go(); });
    EXPECT_EQ(loop->wait(-1, never("wait predicate gone")), 0);
    calls.clear();

    loop.reset();

    EXPECT_THAT(calls.lines(),
                ElementsAre("unref loop", "wait predicate gone", "run predicate gone"));
}

TEST_F(WaitingLoopTest, DestroyingTheLoopEndsItsWait)
{
    for (const int interval : {-1, HOUR}) {
        SCOPED_TRACE(interval);
        loop = std::make_unique<WaitingLoop>();
        const CallLater destroyer(2ms, [&] { loop.reset(); });

        EXPECT_EQ(loop->wait(interval), 0);

        EXPECT_EQ(loop, nullptr);
    }
}

TEST_F(WaitingLoopTest, DestroyingTheLoopEndsAllItsNestedWaits)
{
    std::vector<std::string> events;
    const CallInTurn turns{[&] {
                               EXPECT_EQ(loop->wait(HOUR), 0);
                               events.emplace_back("inner");
                           },
                           [&] { loop.reset(); }};

    EXPECT_EQ(loop->wait(HOUR), 0);

    EXPECT_THAT(events, ElementsAre("inner"));
}

TEST_F(WaitingLoopTest, DestroyingTheLoopDoesNotEndItsRun)
{
    bool stillBlocked = false;
    const CallInTurn turns{[&] { loop.reset(); },
                           [&] {
                               stillBlocked = true;
                               quitOrphan();
                           }};

    EXPECT_EQ(loop->run(), 0);

    EXPECT_TRUE(stillBlocked);
}

TEST_F(WaitingLoopTest, ARunThatWasQuitReturnsAlsoWhenTheLoopIsDestroyed)
{
    for (const int interval : {-1, HOUR}) {
        SCOPED_TRACE(interval);
        loop = std::make_unique<WaitingLoop>();
        const CallLater destroyer(2ms, [&] {
            loop->quit();
            loop.reset();
        });

        EXPECT_EQ(loop->run(interval), 0);

        EXPECT_EQ(loop, nullptr);
    }
}

TEST_P(WaitingLoopModeTest, APredicateMayDestroyItsLoopAndStillUseWhatItCaptured)
{
    for (const bool answer : {false, true}) {
        SCOPED_TRACE(answer);
        loop = std::make_unique<WaitingLoop>();
        std::weak_ptr<std::string> shared;
        std::string seen;
        bool held = false;
        Predicate callers;
        callers = [&, answer = answer, text = std::make_shared<std::string>("shared"),
                   own = std::string(100, 'x')] {
            shared = text;
            callers = nullptr;  // what runs is the copy
            loop->quit();
            loop.reset();
            held = shared.use_count() == 1;
            seen += own + *text;
            return answer;
        };

        EXPECT_EQ(mode.enterPolled(*loop, 1, callers), 0);

        EXPECT_EQ(seen, std::string(100, 'x') + "shared");
        EXPECT_TRUE(held);
        EXPECT_TRUE(shared.expired());
    }
}

TEST_F(WaitingLoopTest, ALoopDestroyedInAWaitInsideItsRunEndsTheWaitOnly)
{
    std::vector<std::string> events;
    const CallInTurn turns{[&] {
                               EXPECT_EQ(loop->wait(), 0);
                               events.emplace_back("wait");
                           },
                           [&] { loop.reset(); },
                           [&] {
                               events.emplace_back("later");
                               quitOrphan();
                           }};

    EXPECT_EQ(loop->run(), 0);

    EXPECT_THAT(events, ElementsAre("wait", "later"));
}

TEST_F(WaitingLoopTest, AnotherLoopMayBeMadeInPlaceOfOneThatWasDestroyedWhileWaiting)
{
    // Whoever still looked at the old loop would see the new one wait.
    bool entered = false;
    const CallLater replacer(1ms, [&] {
        loop->~WaitingLoop();
        new (loop.get()) WaitingLoop;
        entered = true;
        EXPECT_EQ(loop->wait(3), 0);
    });

    EXPECT_EQ(loop->wait(), 0);

    EXPECT_TRUE(entered);
}

}  // namespace
}  // namespace oxil::test
