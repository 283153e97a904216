// What finalizers of a script do, at the moments when Lua happens to run them.

#include <OxLuaScript.h>
#include <OxStatus.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <initializer_list>
#include <lua.hpp>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>

#include "LoadedScript.h"
#include "MainLoop.h"
#include "NativeApi.h"
#include "OxLogMatchers.h"
#include "ScriptFile.h"
#include "ScriptLog.h"

namespace oxil::test {
namespace {

/** Collects its garbage when results are read: with the first that asks for memory. */
class CollectingScript : public LuaScript {
public:
    using LuaScript::LuaScript;

    void onReturnValueEvaluateBegin() override
    {
        LuaScript::onReturnValueEvaluateBegin();
        lua_gc(getLuaState(), LUA_GCRESTART, 0);
    }
};

TEST(LuaFinalizerTest, TypedCallReadsItsOwnResultsAfterACallFromAFinalizer)
{
    const ScriptFile file(
        "collectgarbage('setstepmul', 1000000) collectgarbage() collectgarbage('stop')\n"
        "function numbers()\n"
        "  getmetatable(newproxy(true)).__gc = function() native.run() end\n"
        "  return 1.5, 2.5, 3.5\n"
        "end\n"
        "function add(a, b) return a + b, a end");
    CollectingScript script(file.path());
    int sum = 0;
    NativeApi api([&](lua_State*, const std::string&) {
        int first = 0;
        EXPECT_EQ(script.callMethod("add", std::tie(sum, first), 20, 22), 0);
    });
    script.addLuaApi(&api);
    ASSERT_EQ(script.load(), STATUS_SUCCESS);
    const int top = lua_gettop(script.getLuaState());
    std::string first;
    std::string second;
    float third = 0;

    EXPECT_EQ(script.callMethod("numbers", std::tie(first, second, third)), 0);

    EXPECT_EQ(sum, 42);
    EXPECT_EQ(first, "1.5");
    EXPECT_EQ(second, "2.5");
    EXPECT_EQ(third, 3.5F);
    EXPECT_EQ(lua_gettop(script.getLuaState()), top);
    EXPECT_EQ(script.getMethodName(), "numbers");
}

TEST(LuaFinalizerTest, ItsExceptionsAreNotThoseOfTheFunctionThatClosesTheState)
{
    std::unique_ptr<LoadedScript> other;
    NativeApi api([&](lua_State*, const std::string& what) {
        if (what == "close") {
            other.reset();
        } else if (what == "finalize") {
            throw std::logic_error("of the finalizer");
        } else {
            throw std::runtime_error("of the function");
        }
    });
    other = std::make_unique<LoadedScript>(
        "getmetatable(newproxy(true)).__gc = function() native.run('finalize') end",
        std::initializer_list<LuaApi*>{&api});
    LoadedScript loaded(
        "function f() local ok, reason = pcall(native.run) native.run('close') error(reason, 0) "
        "end",
        {&api});

    EXPECT_THROW(loaded.script.callMethod("f"), std::runtime_error);
    EXPECT_EQ(other, nullptr);
}

// What a finalizer does while the name of a function is looked up, which needs memory once.

const char* const LOOKED_UP =
    "collectgarbage('setstepmul', 1000000) collectgarbage() collectgarbage('stop')\n"
    "calls = ''\n"
    "getmetatable(newproxy(true)).__gc = function() native.run() end\n"
    "function another() calls = calls .. 'another ' end\n"
    "function aFunctionWithALongName() calls = calls .. 'its own' end";

TEST(LuaFinalizerTest, ACallFindsItsFunctionAfterACallFromAFinalizer)
{
    NativeApi api;
    LoadedScript loaded(LOOKED_UP, {&api});
    api.body = [&](lua_State*, const std::string&) {
        EXPECT_EQ(loaded.script.callMethod("another"), STATUS_SUCCESS);
    };

    lua_gc(loaded.state(), LUA_GCRESTART, 0);
    EXPECT_EQ(loaded.script.callMethod("aFunctionWithALongName"), STATUS_SUCCESS);

    EXPECT_EQ(globalText(loaded, "calls"), "another its own");
}

TEST(LuaFinalizerTest, ACallFindsItsFunctionAfterTheStackHasGrown)
{
    NativeApi api;
    LoadedScript loaded(LOOKED_UP, {&api});
    api.body = [&](lua_State*, const std::string&) {
        EXPECT_EQ(loaded.script.callMethod("another"), STATUS_SUCCESS);
    };
    lua_settop(loaded.state(), LUA_MINSTACK);  // so that room has to be made

    lua_gc(loaded.state(), LUA_GCRESTART, 0);
    EXPECT_EQ(loaded.script.callMethod("aFunctionWithALongName"), STATUS_SUCCESS);

    EXPECT_EQ(globalText(loaded, "calls"), "another its own");
}

TEST(LuaFinalizerTest, AFinalizerEndsTheScriptWhoseFunctionIsLookedUp)
{
    NativeApi api;
    auto loaded = std::make_unique<LoadedScript>(LOOKED_UP, std::initializer_list<LuaApi*>{&api});
    api.body = [&](lua_State*, const std::string&) { loaded.reset(); };
    LuaScript& script = loaded->script;
    LogCapture log;

    lua_gc(script.getLuaState(), LUA_GCRESTART, 0);
    EXPECT_EQ(script.callMethod("aFunctionWithALongName", 0), STATUS_INVALID_STATE);

    EXPECT_EQ(loaded, nullptr);
    EXPECT_THAT(log.lines(), testing::ElementsAre(refusedCall()));
}

TEST(LuaFinalizerTest, AFinalizerStopsTheTimerWhoseFunctionIsLookedUp)
{
    NativeApi api;
    LoadedScript loaded(
        "collectgarbage('setstepmul', 1000000) collectgarbage() collectgarbage('stop')\n"
        "local timer = Timer.start(1, 'theFunctionOfATimerThatHasALongName')\n"
        "getmetatable(newproxy(true)).__gc = function() Timer.stop(timer) native.run() end\n"
        "function another() calls = 'another ' end\n"
        "function theFunctionOfATimerThatHasALongName() calls = calls .. 'its own' end",
        {&api});
    bool isFinalized = false;
    api.body = [&](lua_State*, const std::string&) {
        EXPECT_EQ(loaded.script.callMethod("another"), STATUS_SUCCESS);
        isFinalized = true;
    };

    lua_gc(loaded.script.getLuaState(), LUA_GCRESTART, 0);
    ASSERT_TRUE(iterateUntil([&] { return isFinalized; }, std::chrono::seconds(5)));

    EXPECT_EQ(globalText(loaded, "calls"), "another its own");
}

/** Collects its garbage when a function is about to run: with the first that asks for memory. */
class CollectingCall : public LuaScript {
public:
    using LuaScript::LuaScript;

    int onMethodCalled(const std::string& methodName) override
    {
        lua_gc(getLuaState(), LUA_GCRESTART, 0);
        return LuaScript::onMethodCalled(methodName);
    }
};

TEST(LuaFinalizerTest, TheErrorHandlerIsToldTheCallAfterACallFromAFinalizer)
{
    const ScriptFile file(
        "collectgarbage('setstepmul', 1000000) collectgarbage() collectgarbage('stop')\n"
        "getmetatable(newproxy(true)).__gc = function() native.run() end\n"
        "function another() finalized = true end\n"
        "function fail() error('failed', 0) end");
    CollectingCall script(file.path());
    NativeApi api([&](lua_State*, const std::string&) {
        EXPECT_EQ(script.callMethod("another"), STATUS_SUCCESS);
    });
    script.addLuaApi(&api);
    ASSERT_EQ(script.load(), STATUS_SUCCESS);
    std::string told;
    script.setErrorHandler([&](const std::string& function, const std::string& message,
                               const std::string&) { told = function + ": " + message; });

    // So many results that the stack has to grow before the call.
    EXPECT_EQ(script.callMethod("fail", 1000), STATUS_SUCCESS);

    lua_getglobal(script.getLuaState(), "finalized");
    EXPECT_TRUE(lua_toboolean(script.getLuaState(), -1));
    EXPECT_EQ(told, "fail: failed");
}

// Finalizers that fail, and a collector that sets to work with the next piece of memory.
const char* const LITTER =
    "collectgarbage('setpause', 0) collectgarbage('setstepmul', 1000000)\n"
    "function litter()\n"
    "    collectgarbage('stop')\n"
    "    for i = 1, 3 do\n"
    "        local thing = newproxy(true)\n"
    "        getmetatable(thing).__gc = function()\n"
    "            finalized = (finalized or 0) + 1\n"
    "            error('gone', 0)\n"
    "        end\n"
    "    end\n"
    "    collectgarbage('restart')\n"
    "end\n"
    "function join(a, b, c) return #a + #b + #c end\n"
    "function number() return 0.5 end\n"
    "function finalizers() return finalized end\n";

TEST(LuaFinalizerTest, FailingFinalizersStayInsideTheState)
{
    LoadedScript loaded(LITTER);
    const int top = loaded.top();
    int joined = 0;

    for (int i = 0; i < 200; ++i) {
        loaded.script.callMethod("litter", std::tie());
        const std::string text(1000, static_cast<char>('a' + i % 26));
        int length = 0;
        std::string number;
        EXPECT_EQ(loaded.script.callMethod("join", std::tie(length), text + std::to_string(i),
                                           text + "b", text + "c"),
                  0);
        EXPECT_EQ(loaded.script.callMethod("number", std::tie(number)), 0);
        joined += length > 3000 ? 1 : 0;
    }

    // The functions of the script are interrupted where a finalizer fails in them, each of which
    // leaves a message; the texts got there all the same.
    EXPECT_GE(loaded.top(), top);
    EXPECT_GT(joined, 0);
    int finalized = 0;
    EXPECT_EQ(loaded.script.callMethod("finalizers", std::tie(finalized)), 0);
    EXPECT_GT(finalized, 100);
}

// Calls the host's function from Lua, so that a call of the library is nested in another one.
TEST(LuaFinalizerTest, FailingFinalizersStayInsideANestedCall)
{
    NativeApi api;
    LoadedScript loaded(std::string(LITTER) + "function outer() native.run() return 7 end", {&api});
    int inner = 0;
    bool destroyed = false;
    api.body = [&](lua_State*, const std::string&) {
        struct Guard {
            ~Guard() { flag = true; }
            bool& flag;
        };
        const Guard guard{destroyed};
        for (int i = 0; i < 50; ++i) {
            loaded.script.callMethod("litter", std::tie());
            int length = 0;
            const std::string text(1000, static_cast<char>('a' + i % 26));
            loaded.script.callMethod("join", std::tie(length), text, std::to_string(i), "c");
            ++inner;
        }
    };
    int outer = 0;

    loaded.script.callMethod("outer", std::tie(outer));

    EXPECT_EQ(inner, 50);
    EXPECT_TRUE(destroyed);
}

TEST(LuaFinalizerTest, ThoseThatFailAndLeaveOthersDoNotKeepACallForEver)
{
    const ScriptFile file(
        "collectgarbage('setstepmul', 1000000) collectgarbage() collectgarbage('stop')\n"
        "local inner = false\n"
        "local function leaveTwo(finalizer)\n"
        "  for i = 1, 2 do getmetatable(newproxy(true)).__gc = finalizer end\n"
        "end\n"
        "local function fail()\n"
        "  if not inner then\n"
        "    native.run() leaveTwo(fail)\n"
        "    inner = true pcall(collectgarbage) inner = false\n"
        "  end\n"
        "  collectgarbage('restart') error('gone', 0)\n"
        "end\n"
        "function number() leaveTwo(fail) return 0.5 end");
    CollectingScript script(file.path());
    int failures = 0;
    NativeApi api([&](lua_State*, const std::string&) {
        if (++failures >= 1000) {  // or Lua would never have closed the state
            throw std::runtime_error("the last one");
        }
    });
    script.addLuaApi(&api);
    ASSERT_EQ(script.load(), STATUS_SUCCESS);
    std::string number;

    script.callMethod("number", std::tie(number));

    EXPECT_LT(failures, 1000);
}

}  // namespace
}  // namespace oxil::test
