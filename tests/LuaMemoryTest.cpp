// Scripts whose memory comes to its end, wherever that is: calls fail, the process goes on.

#include <OxLuaScript.h>
#include <OxStatus.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <lua.hpp>
#include <set>
#include <string>
#include <tuple>

#include "LuaCalls.h"
#include "LuaMemory.h"
#include "OxLogMatchers.h"
#include "OxLuaApi.h"
#include "ScriptFile.h"
#include "ScriptLog.h"

namespace oxil::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSubsetOf;
using testing::IsSupersetOf;

constexpr int MORE_THAN_ENOUGH = 100000;

/** An application's table. */
class TableApi : public LuaApi {
public:
    int onLoading() override
    {
        static const luaL_Reg functions[] = {{"nothing", [](lua_State*) { return 0; }},
                                             {nullptr, nullptr}};
        registerApiTable("A.table.of.the.application", functions);
        return STATUS_SUCCESS;
    }
};

TEST(LuaMemoryTest, LoadingFailsWhereverMemoryEnds)
{
#ifdef LUAJIT_VERSION
    GTEST_SKIP() << "LuaJIT asks for memory to take a pointer";
#endif
    const ScriptFile file("text = 'a' .. 1 function f() return text end");
    LuaMemory memory;
    LuaStates states;
    int failures = 0;
    for (int nth = 1; nth < MORE_THAN_ENOUGH; ++nth) {
        TableApi api;
        LuaScript script(file.path());
        script.addLuaApi(&api);
        states.whenOpened([&](lua_State* state) {
            memory.attach(state);
            memory.refuseFrom(nth);
        });
        LogCapture log;

        const int r = script.load();
        const bool refused = memory.refused();
        memory.refuseNothing();

        if (r != STATUS_SUCCESS) {
            ++failures;
            EXPECT_EQ(r, STATUS_INVALID_STATE);
            EXPECT_TRUE(refused);
            EXPECT_EQ(script.getLuaState(), nullptr);
            EXPECT_THAT(log.lines(), testing::Not(IsEmpty()));
        } else {
            EXPECT_FALSE(refused);
            EXPECT_THAT(log.lines(), IsEmpty());
            break;
        }
    }
    EXPECT_GT(failures, 100);
    // What Lua 5.1 closes if memory ends while it opens its own library of files.
    EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1);
    EXPECT_NE(fcntl(STDOUT_FILENO, F_GETFD), -1);
}

TEST(LuaMemoryTest, CallsFailWhereverMemoryEnds)
{
    const ScriptFile file("function f(text, number) return text .. number, number, 0.5 end");
    LuaMemory memory;
    LuaStates states;
    states.whenOpened([&](lua_State* state) { memory.attach(state); });
    int failures = 0;
    int messages = 0;
    for (int nth = 1; nth < MORE_THAN_ENOUGH; ++nth) {
        LuaScript script(file.path());
        ASSERT_EQ(script.load(), STATUS_SUCCESS);
        LogCapture log;
        std::string text;
        int number = 0;
        std::string half;

        memory.refuseFrom(nth);
        const int r = script.callMethod("f", std::tie(text, number, half),
                                        "a text " + std::to_string(nth), 7);
        const bool refused = memory.refused();
        memory.refuseNothing();

        if (r != STATUS_SUCCESS) {
            ++failures;
            EXPECT_EQ(r, STATUS_INVALID_STATE);
            EXPECT_THAT(log.lines(), ElementsAre(refusedCall()));
        } else {
            EXPECT_THAT(log.lines(), IsEmpty());
            messages += half == "not enough memory" ? 1 : 0;
        }
        if (!refused) {
            EXPECT_EQ(text, "a text " + std::to_string(nth) + "7");
            EXPECT_EQ(half, "0.5");
            break;
        }
        EXPECT_EQ(script.callMethod("f", std::tie(text), "b", 1), STATUS_SUCCESS);
        EXPECT_EQ(text, "b1");
    }
    EXPECT_GT(failures, 0);
    EXPECT_GT(messages, 0);
}

TEST(LuaMemoryTest, AFullStackThatCannotGrowRefusesTheCall)
{
    const ScriptFile file("function f(...) return select('#', ...) end");
    LuaMemory memory;
    LuaStates states;
    states.whenOpened([&](lua_State* state) { memory.attach(state); });
    int refusals = 0;
    for (int filling = 0; filling < 200; ++filling) {
        LuaScript script(file.path());
        ASSERT_EQ(script.load(), STATUS_SUCCESS);
        LogCapture log;
        ASSERT_EQ(script.callMethod("f", filling), STATUS_SUCCESS);

        memory.refuseFrom(1);
        const int r = script.callMethod("f", 100);
        memory.refuseNothing();

        EXPECT_TRUE(r == STATUS_SUCCESS || r == STATUS_INVALID_STATE);
        refusals += r == STATUS_INVALID_STATE ? 1 : 0;
        EXPECT_THAT(log.lines(), AnyOf(IsEmpty(), ElementsAre(refusedCall())));
    }
    EXPECT_GT(refusals, 100);
}

TEST(LuaMemoryTest, ANumberAsTheErrorOfAFileIsLoggedWhileFinalizersFail)
{
    const ScriptFile file(
        "collectgarbage('setstepmul', 1000000) collectgarbage() collectgarbage('stop')\n"
        "local function fail() error(42.5, 0) end\n"
        "for i = 1, 20 do getmetatable(newproxy(true)).__gc = fail end\n"
        "collectgarbage('restart') error(42.5, 0)");
    LuaScript script(file.path());
    LogCapture log;

    EXPECT_EQ(script.load(), STATUS_INVALID_STATE);

    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxLuaScript.cpp", "onLoading",
                                                  "filePath(" + file.path() + ") (1) (42.5).")));
}

TEST(LuaMemoryTest, ANumberAsTheErrorOfAFileWithoutMemoryForItsTextIsNull)
{
    const ScriptFile file("runsOut() error(42.5, 0)");
    LuaMemory memory;
    LuaStates states;
    int nth = 1;
    std::function<void()> runOut = [&] { memory.refuseFrom(nth); };
    states.whenOpened([&](lua_State* state) {
        memory.attach(state);
        lua_pushlightuserdata(state, &runOut);
        lua_pushcclosure(
            state,
            [](lua_State* caller) {
                (*static_cast<std::function<void()>*>(
                    lua_touserdata(caller, lua_upvalueindex(1))))();
                return 0;
            },
            1);
        lua_setglobal(state, "runsOut");
    });
    std::set<std::string> messages;
    for (; nth < 20; ++nth) {
        LuaScript script(file.path());
        LogCapture log;

        EXPECT_EQ(script.load(), STATUS_INVALID_STATE);
        memory.refuseNothing();

        ASSERT_EQ(log.lines().size(), 1U);
        const std::string& line = log.lines()[0].message;
        messages.insert(line.substr(line.find(" (1) ")));
    }
    EXPECT_THAT(messages,
                IsSubsetOf({" (1) (42.5).", " (1) ((null)).", " (1) (not enough memory)."}));
    EXPECT_THAT(messages, IsSupersetOf({" (1) (42.5).", " (1) ((null))."}));
}

// ---- The last line of defence

/** What an application must not do: a Lua error that nothing catches. */
void raiseOutside(const std::string& value)
{
    static LogCapture log;  // until the process has ended
    std::atexit([] {
        for (const LogLine& line : log.lines()) {
            std::fprintf(stderr, "%s: %d: %s: %s\n", line.file.c_str(), line.priority,
                         line.function.c_str(), line.message.c_str());
        }
    });
    const ScriptFile file("");
    LuaScript script(file.path());
    script.load();
    luaL_loadstring(script.getLuaState(), value.c_str());
    lua_call(script.getLuaState(), 0, 0);
}

TEST(LuaMemoryDeathTest, APanicIsLoggedBeforeTheProcessEnds)
{
#ifdef LUAJIT_VERSION
    GTEST_SKIP() << "LuaJIT throws it to a C++ handler further up, if there is one";
#endif
    EXPECT_EXIT(raiseOutside("error('all is lost', 0)"), testing::ExitedWithCode(EXIT_FAILURE),
                "OxLuaStack.cpp: 6: panic: Lua panic \\(all is lost\\)\\.");
    EXPECT_EXIT(raiseOutside("error({})"), testing::ExitedWithCode(EXIT_FAILURE),
                "Lua panic \\(\\(null\\)\\)\\.");
}

}  // namespace
}  // namespace oxil::test
