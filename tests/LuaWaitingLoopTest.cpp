#include "OxBaseLuaApi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <lua.hpp>
#include <string>
#include <tuple>

#include "AllocationFailure.h"
#include "BaseLuaApiFixture.h"
#include "LuaChunk.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

using Clock = std::chrono::steady_clock;

class LuaWaitingLoopTest : public BaseLuaApiFixture {};

TEST_F(LuaWaitingLoopTest, WithoutMemoryForALoopThereIsNone)
{
    Host host("function f() handle = WaitingLoop.create() end");
    lua_getglobal(host.state(), "f");
    {
        AllocationFailure failure(Allocation::NothrowNew);
        EXPECT_EQ(lua_pcall(host.state(), 0, 0, 0), 0);
        EXPECT_TRUE(failure.happened());
    }
    EXPECT_EQ(host.number("handle"), -1);
    EXPECT_EQ(host.run("return WaitingLoop.create() - loop0"), "0");
}

TEST_F(LuaWaitingLoopTest, ALoopWithoutMemoryForATimeOutEndsOnlyWhenTold)
{
    struct Case {
        int nth;
        const char* functions;
        const char* starter;
    };
    for (const Case& loop : {Case{2, "WaitingLoop.runTime, WaitingLoop.quit", "__startRunTimer"},
                             Case{3, "WaitingLoop.waitTime, WaitingLoop.go", "__startWaitTimer"}}) {
        Host host("enterTime, leave = " + std::string(loop.functions) + R"(
            function f() handle = WaitingLoop.create() end
            function tell() told = true leave(handle) end
        )");
        lua_getglobal(host.state(), "f");
        {
            AllocationFailure failure(Allocation::NothrowNew, loop.nth);
            EXPECT_EQ(lua_pcall(host.state(), 0, 0, 0), 0);
            EXPECT_TRUE(failure.happened());
        }
        EXPECT_EQ(host.number("handle"), host.number("loop0"));

        LogCapture log;
        EXPECT_EQ(host.run(R"(
            local timer = Timer.start(5, 'tell')
            enterTime(handle, 0)
            Timer.stop(timer) WaitingLoop.destroy(handle)
            return told
        )"),
                  "true");
        EXPECT_THAT(log.lines(),
                    ElementsAre(LoggedIn("OxWaitingLoop.cpp", loop.starter, "Invalid state.")));
    }
}

// What holds for run mode and for wait mode.
class LuaLoopModeTest : public BaseLuaApiFixture, public testing::WithParamInterface<const char*> {
protected:
    // A script with the functions of the mode in globals, and a loop of its own.
    std::string with(const std::string& content) const
    {
        return "local mine = '" + std::string(GetParam()) + R"('
            local W = WaitingLoop
            local modes = {run = {W.run, W.runTime, W.quit, W.isRunning},
                           wait = {W.wait, W.waitTime, W.go, W.isWaiting}}
            enter, enterTime, leave, isIn = unpack(modes[mine])
            otherEnter, otherEnterTime, otherLeave, otherIsIn =
              unpack(modes[mine == 'run' and 'wait' or 'run'])
            loop, trace = W.create(), {}
            function note(what) trace[#trace + 1] = what end
            function state() note(tostring(isIn(loop)) .. ' ' .. tostring(otherIsIn(loop))) end
        )" + content;
    }

    // Calls the function f and returns what it noted.
    static std::string traceOf(Host& host)
    {
        const int top = host.top();
        EXPECT_EQ(host.call("f"), STATUS_SUCCESS);
        EXPECT_EQ(host.top(), top) << host.message();
        return host.run("return table.concat(trace, ', ')");
    }
};

INSTANTIATE_TEST_SUITE_P(Modes, LuaLoopModeTest, testing::Values("run", "wait"),
                         [](const auto& mode) { return std::string(mode.param); });

TEST_P(LuaLoopModeTest, BlocksUntilItIsTold)
{
    Host host(with(R"(
        function tell() state() note('results ' .. select('#', leave(loop))) state() end
        function f() state() Timer.start(0, 'tell')
          note('results ' .. select('#', enter(loop))) state() end
    )"));
    EXPECT_EQ(traceOf(host),
              "false false, true false, results 0, false false, results 0, false false");
}

TEST_P(LuaLoopModeTest, BlocksUntilTheTimeIsOver)
{
    Host host(with(R"(
        function look() state() end
        function f() Timer.start(5, 'look')
          note('results ' .. select('#', enterTime(loop, 30))) state() end
    )"));
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(traceOf(host), "true false, results 0, false false");
    EXPECT_GE(Clock::now() - start, 29ms);
}

TEST_P(LuaLoopModeTest, AnyIntervalButMinusOneIsATimeOut)
{
    Host host(with(R"(
        function tell() note('told') leave(loop) end
        function f()
          enterTime(loop, 0) note('zero')
          enterTime(loop, '1') note('text')
          enterTime(loop, 0.25) note('fraction')
          Timer.start(10, 'tell') enterTime(loop, -1) note('minus one') end
    )"));
    EXPECT_EQ(traceOf(host), "zero, text, fraction, told, minus one");
}

TEST_P(LuaLoopModeTest, ToldToLeaveTheOtherModeItStays)
{
    Host host(with(R"(
        function other() otherLeave(loop) state() end
        function tell() leave(loop) end
        function f() Timer.start(0, 'other') Timer.start(5, 'tell') enter(loop) state()
        end
    )"));
    EXPECT_EQ(traceOf(host), "true false, false false");
}

TEST_P(LuaLoopModeTest, AnIdleLoopMayBeToldAnything)
{
    Host host(with(R"(
        function f() leave(loop) otherLeave(loop) leave(loop) state()
        enterTime(loop, 0) state() end
    )"));
    EXPECT_EQ(traceOf(host), "false false, false false");
}

TEST_P(LuaLoopModeTest, TimersGoOnInTheSameState)
{
    Host host(with(R"(
        calls = 0
        function tick() calls = calls + 1 if calls == 5 then leave(loop) end end
        function f() local own = 'kept'
          local timer = Timer.start(0, 'tick', true) enter(loop) Timer.stop(timer)
          note(own .. ' ' .. calls) end
    )"));
    EXPECT_EQ(traceOf(host), "kept 5");
}

TEST_P(LuaLoopModeTest, TheTimeOutOfTheInnerModeEndsBoth)
{
    Host host(with(R"(
        function inner() state() otherEnterTime(loop, 1) note('inner') end
        function look() state() end
        function f() Timer.start(0, 'inner') Timer.start(0, 'look')
          enter(loop) note('outer') state() end
    )"));
    EXPECT_EQ(traceOf(host), "true false, true true, inner, outer, false false");
}

TEST_P(LuaLoopModeTest, TheTimeOutOfTheOuterModeEndsBoth)
{
    Host host(with(R"(
        function inner() otherEnter(loop) note('inner') end
        function f() Timer.start(0, 'inner') enterTime(loop, 5) note('outer') state()
        end
    )"));
    EXPECT_EQ(traceOf(host), "inner, outer, false false");
}

TEST_P(LuaLoopModeTest, TheModesAreToldOneByOne)
{
    Host host(with(R"(
        function inner() Timer.start(0, 'tellInner') otherEnter(loop) note('inner')
          state() leave(loop) end
        function tellInner() state() otherLeave(loop) state() end
        function f() Timer.start(0, 'inner') enter(loop) note('outer') state() end
    )"));
    EXPECT_EQ(traceOf(host), "true true, true false, inner, true false, outer, false false");
}

TEST_P(LuaLoopModeTest, EachLoopIsItsOwn)
{
    Host host(with(R"(
        second = WaitingLoop.create()
        function inner() enterTime(second, 1) note(tostring(isIn(second))) state()
          leave(second) leave(loop) end
        function f() Timer.start(0, 'inner') enter(loop) state() end
    )"));
    EXPECT_EQ(traceOf(host), "false, true false, false false");
}

TEST_P(LuaLoopModeTest, BlocksWhileTheScriptIsLoaded)
{
    const Host host(with(R"(
        calls = 0 function tick() calls = calls + 1
          if calls == 3 then leave(loop) end end
        timer = Timer.start(0, 'tick', true) enter(loop) Timer.stop(timer)
        note('calls ' .. calls)
    )"));
    EXPECT_EQ(host.run("return table.concat(trace, ', ')"), "calls 3");
}

TEST_P(LuaLoopModeTest, BlocksInACoroutine)
{
    Host host(with(R"(
        function tell() leave(loop) end
        function f() Timer.start(0, 'tell')
          coroutine.wrap(function() enter(loop) coroutine.yield(note('yield')) end)()
          note('resumed') end
    )"));
    EXPECT_EQ(traceOf(host), "yield, resumed");
}

TEST_P(LuaLoopModeTest, ACallWithResultsIsNotDisturbedByThoseOfTimers)
{
    Host host(with(R"(
        calls = 0
        function tick() calls = calls + 1 if calls == 3 then leave(loop) end
          return 'not this' end
        function ask(question) local timer = Timer.start(0, 'tick', true) enter(loop)
          Timer.stop(timer) return calls, question .. '!' end
    )"));
    const int top = host.top();
    int number = 0;
    std::string text;
    EXPECT_EQ(host.script.callMethod("ask", std::tie(number, text), "why"), STATUS_SUCCESS);
    EXPECT_EQ(number, 3);
    EXPECT_EQ(text, "why!");
    EXPECT_EQ(host.top(), top);
}

TEST_P(LuaLoopModeTest, ALoopMayBeDestroyedByAFunctionThatItDispatches)
{
    Host host(with(R"(
        later = WaitingLoop.create()
        function tell() leave(loop) WaitingLoop.destroy(loop) note('destroyed') end
        function f() Timer.start(0, 'tell') enter(loop) note('left') state() end
    )"));
    // What is looked at afterwards is the later loop, which has moved down.
    EXPECT_EQ(traceOf(host), "destroyed, left, false false");
    EXPECT_EQ(host.run("return WaitingLoop.create() - loop0"), "1");
}

TEST_F(LuaWaitingLoopTest, DestroyingALoopEndsItsWait)
{
    Host host(
        R"(
        loop = WaitingLoop.create()
        function tell() WaitingLoop.destroy(loop) end
        function f() Timer.start(0, 'tell') WaitingLoop.wait(loop) left = 1 end
        function g() loop = WaitingLoop.create() Timer.start(0, 'tell')
          WaitingLoop.waitTime(loop, 3600000) left = 2 end
    )");
    EXPECT_EQ(host.call("f"), STATUS_SUCCESS);
    EXPECT_EQ(host.number("left"), 1);
    EXPECT_EQ(host.call("g"), STATUS_SUCCESS);
    EXPECT_EQ(host.number("left"), 2);
    EXPECT_EQ(host.run("return WaitingLoop.create() - loop0"), "0");
}

TEST_F(LuaWaitingLoopTest, LoopsNestInTurn)
{
    // A run in a wait in a run, and so on, each ended after the one inside it.
    Host host(
        R"(
        depth, trace = 0, {}
        function go()
          depth = depth + 1 local mine = depth
          local loop = WaitingLoop.create()
          if mine < 7 then Timer.start(0, 'go') end
          local enter = mine % 2 == 1 and WaitingLoop.runTime or WaitingLoop.waitTime
          enter(loop, 2)
          trace[#trace + 1] = mine
        end
    )");
    const int top = host.top();
    EXPECT_EQ(host.call("go"), STATUS_SUCCESS);
    EXPECT_EQ(host.top(), top) << host.message();
    EXPECT_EQ(host.run("return table.concat(trace, ' ')"), "7 6 5 4 3 2 1");
}

TEST_F(LuaWaitingLoopTest, NestingTooDeepIsALuaErrorAtMost)
{
    struct Case {
        int depth;
        bool mustSucceed;
    };
    // Lua refuses about 200 native calls within each other.
    for (const Case& nesting : {Case{50, true}, Case{400, false}}) {
        Host host("limit = " + std::to_string(nesting.depth) + R"(
            started, finished = 0, 0
            function nest()
              started = started + 1
              if started < limit then
                local loop = WaitingLoop.create()
                Timer.start(0, 'nest')
                WaitingLoop.runTime(loop, 1)
              end
              finished = finished + 1
            end
            function works() return 42 end
        )");
        const int top = host.top();
        EXPECT_EQ(host.call("nest"), STATUS_SUCCESS);
        const int errors = host.top() - top;
        EXPECT_GE(host.number("started"), 50);
        if (nesting.mustSucceed) {
            EXPECT_EQ(errors, 0) << host.message();
            EXPECT_EQ(host.number("started"), nesting.depth);
        }
        // Whoever was refused a deeper call left one message, and everybody else came back.
        EXPECT_LE(host.number("started") - host.number("finished"), errors);
        for (int i = 1; i <= errors; ++i) {
            EXPECT_THAT(inWords(host.state(), top + i), HasSubstr("stack overflow"));
        }
        lua_settop(host.state(), top);
        int answer = 0;
        EXPECT_EQ(host.script.callMethod("works", std::tie(answer)), STATUS_SUCCESS);
        EXPECT_EQ(answer, 42);
        EXPECT_EQ(host.run(R"(
        local last = Timer.start(3600000, '')
        for handle = last, timer0, -1 do Timer.stop(handle) end
    )"),
                  "");
    }
}

}  // namespace
}  // namespace oxil::test
