// What each allocation that fails leaves of scripts: those of Lua, and the library's own.

#include <OxLuaApi.h>
#include <OxLuaLimits.h>
#include <OxLuaScript.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>

#include "AllocationSweep.h"
#include "LoadedScript.h"
#include "NativeApi.h"
#include "ScriptFile.h"

namespace oxil::test {
namespace {

using testing::AnyOf;

const std::string LONG(100, 'x');
const std::string NO_MEMORY = "not enough memory";

/** What a script refuses for lack of memory. */
const std::vector<int> REFUSED = {STATUS_INVALID_STATE};

/** An application's table. */
class TableApi : public LuaApi {
public:
    int onLoading() override
    {
        static const luaL_Reg functions[] = {{"nothing", [](lua_State*) { return 0; }},
                                             {nullptr, nullptr}};
        registerApiTable("native", functions);
        return STATUS_SUCCESS;
    }
};

TEST(LuaAllocationTest, AScriptIsMadeWithItsTablesOrSaysSo)
{
    failEachAllocation([](Attempt& attempt) {
        std::optional<LuaScript> script;
        const std::string path = LONG;
        attempt.mayGoOn();

        const int r = attempt.run([&] {
            script.emplace(path);
            return STATUS_SUCCESS;
        });

        EXPECT_EQ(script.has_value(), r == STATUS_SUCCESS);
        if (script.has_value()) {
            EXPECT_EQ(script->getFilePath(), path);
            EXPECT_EQ(attempt.lines().size(), attempt.hasFailed() ? 1u : 0u);
        }
    });
}

TEST(LuaAllocationTest, AScriptIsLoadedOrHasNoState)
{
    const ScriptFile file("text = 'a' .. 1 function f() return text end");
    const int failures = failEachAllocation([&](Attempt& attempt) {
        TableApi api;
        LuaScript script(file.path());
        script.addLuaApi(&api);
        attempt.mayGoOn();  // without one of its tables, which is logged

        const int r = attempt.run([&] { return script.load(); }, REFUSED);

        EXPECT_EQ(script.getLuaState() != nullptr, r == STATUS_SUCCESS);
        if (r != STATUS_SUCCESS) {
            EXPECT_EQ(script.load(), STATUS_SUCCESS);
        }
        std::string text;
        EXPECT_EQ(script.callMethod("f", std::tie(text)), STATUS_SUCCESS);
        EXPECT_EQ(text, "a1");
    });
#ifdef LUAJIT_VERSION
    EXPECT_GT(failures, 0);  // it takes its own memory elsewhere
#else
    EXPECT_GT(failures, 100);
#endif
}

TEST(LuaAllocationTest, ACallIsMadeOrLeavesNothingOnTheStack)
{
    const ScriptFile file("function f(text, number) return text .. number, number, 0.5 end");
    failEachAllocation([&](Attempt& attempt) {
        LuaScript script(file.path());
        EXPECT_EQ(script.load(), STATUS_SUCCESS);
        const int top = lua_gettop(script.getLuaState());
        std::string text;
        int number = 0;
        std::string half = "before";

        const int r = attempt.run(
            [&] { return script.callMethod("f", std::tie(text, number, half), LONG, 7); }, REFUSED);

        // A function that fails leaves one value, and as many as results are removed.
        EXPECT_LE(lua_gettop(script.getLuaState()), top);
        if (r == STATUS_SUCCESS) {
            EXPECT_THAT(text + half, AnyOf(LONG + "70.5", NO_MEMORY, LONG + "7"));
        }
        EXPECT_EQ(script.callMethod("f", std::tie(text, number, half), LONG, 7), STATUS_SUCCESS);
        EXPECT_EQ(text, LONG + "7");
        EXPECT_EQ(half, "0.5");
    });
}

TEST(LuaAllocationTest, AnErrorReachesItsHandlerOrTheCaller)
{
    const ScriptFile file("function fail() error('" + LONG + "', 0) end");
    failEachAllocation([&](Attempt& attempt) {
        LuaScript script(file.path());
        EXPECT_EQ(script.load(), STATUS_SUCCESS);
        const int top = lua_gettop(script.getLuaState());
        std::string message;
        message.reserve(LONG.size());
        script.setErrorHandler([&, kept = LONG](const std::string&, const std::string& told,
                                                const std::string&) { message = told; });

        const int r =
            attempt.run([&] { return script.callMethod("fail", std::tie(), 1, 2); }, REFUSED);

        if (r == STATUS_SUCCESS) {
            EXPECT_THAT(message, AnyOf(LONG, NO_MEMORY));
        }
        // The message stays on the stack, as it does without a handler.
        EXPECT_LE(lua_gettop(script.getLuaState()), top + 1);
        EXPECT_EQ(script.callMethod("fail", 0), STATUS_SUCCESS);
        EXPECT_EQ(message, LONG);
    });
}

TEST(LuaAllocationTest, AHandlerIsSetOrTheOldOneStays)
{
    failEachAllocation([](Attempt& attempt) {
        LoadedScript loaded("function fail() error('x', 0) end");
        int calls = 0;
        int otherCalls = 0;
        loaded.script.setErrorHandler(
            [&](const std::string&, const std::string&, const std::string&) { ++calls; });

        const int r = attempt.run([&] {
            loaded.script.setErrorHandler([&, kept = LONG](const std::string&, const std::string&,
                                                           const std::string&) { ++otherCalls; });
            return STATUS_SUCCESS;
        });

        EXPECT_EQ(loaded.script.callMethod("fail", 0), STATUS_SUCCESS);
        EXPECT_EQ(calls, r == STATUS_SUCCESS ? 0 : 1);
        EXPECT_EQ(otherCalls, 1 - calls);
    });
}

TEST(LuaAllocationTest, AnExceptionOfANativeFunctionReachesTheCaller)
{
    NativeApi api([](lua_State*, const std::string&) { throw std::runtime_error(LONG); });
    failEachAllocation([&](Attempt& attempt) {
        LoadedScript loaded("function f() native.run('x') end", {&api});
        bool threw = false;

        attempt.run(
            [&] {
                try {
                    return loaded.script.callMethod("f", 0);
                } catch (const std::runtime_error& error) {
                    threw = error.what() == LONG;
                    return STATUS_SUCCESS;
                }
            },
            REFUSED);

        EXPECT_TRUE(threw || attempt.hasFailed());
        EXPECT_THROW(loaded.script.callMethod("f", 0), std::runtime_error);
    });
}

TEST(LuaAllocationTest, AnObjectOfAScriptIsThereOrHasNoHandle)
{
    const ScriptFile file(
        "handle = -2\n"
        "function timer() handle = Timer.start(3600000, 'none', false) end\n"
        "function loop() handle = WaitingLoop.create() end\n"
        "function stop() Timer.stop(handle) end\n"
        "function destroy() WaitingLoop.destroy(handle) end\n"
        "function get() local h = handle handle = -2 return h end");
    for (const auto& [make, destroy] : {std::pair("timer", "stop"), std::pair("loop", "destroy")}) {
        failEachAllocation([&, begin = make, end = destroy](Attempt& attempt) {
            LuaScript script(file.path());
            EXPECT_EQ(script.load(), STATUS_SUCCESS);
            attempt.mayGoOn();

            attempt.run([&] { return script.callMethod(begin, 0); }, REFUSED);

            lua_getglobal(script.getLuaState(), "handle");
            const lua_Integer handle = lua_tointeger(script.getLuaState(), -1);
            EXPECT_GE(handle, attempt.hasFailed() ? -2 : 0);
            if (handle >= 0) {
                EXPECT_EQ(script.callMethod(end, 0), STATUS_SUCCESS);
            }
        });
    }
}

TEST(LuaAllocationTest, LimitsAreSetOrNothingRuns)
{
    const ScriptFile file("ran = 1");
    failEachAllocation([&](Attempt& attempt) {
        std::optional<LuaLimits> limits;
        LuaScript script(file.path());
        attempt.mayGoOn();

        const int r = attempt.run(
            [&] {
                limits.emplace(1000000, 1000000);
                limits->takeAway(LONG);
                script.addLuaApi(&*limits);
                return script.load();
            },
            REFUSED);

        if (r == STATUS_SUCCESS) {
            lua_getglobal(script.getLuaState(), "io");
            EXPECT_TRUE(lua_isnil(script.getLuaState(), -1));
        } else {
            EXPECT_EQ(script.getLuaState(), nullptr);
        }
    });
}

TEST(LuaAllocationTest, AnApiOfALoadedScriptIsAddedOrSaysSo)
{
    failEachAllocation([](Attempt& attempt) {
        TableApi api;
        LoadedScript loaded("function f() return type(native) end");
        attempt.mayGoOn();

        const int r = attempt.run([&] { return loaded.script.addLuaApi(&api); });

        std::string type;
        EXPECT_EQ(loaded.script.callMethod("f", std::tie(type)), STATUS_SUCCESS);
        if (r == STATUS_SUCCESS) {
            EXPECT_EQ(type == "table", attempt.lines().empty());
        }
        EXPECT_EQ(loaded.script.addLuaApi(&api), STATUS_SUCCESS);
        EXPECT_EQ(loaded.script.callMethod("f", std::tie(type)), STATUS_SUCCESS);
        EXPECT_EQ(type, "table");
    });
}

}  // namespace
}  // namespace oxil::test
