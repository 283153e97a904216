// What the scripting classes do where Lua refuses: without memory, and while finalizers fail.

#include <OxLuaApi.h>
#include <OxLuaGuard.h>
#include <OxLuaLimits.h>
#include <OxLuaScript.h>
#include <OxStatus.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <lua.hpp>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "AllocationFailure.h"
#include "LoadedScript.h"
#include "LuaCalls.h"
#include "LuaMemory.h"
#include "NativeApi.h"
#include "OxLogMatchers.h"
#include "ScriptFile.h"
#include "ScriptLog.h"

namespace oxil::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSubsetOf;
using testing::IsSupersetOf;

constexpr int MORE_THAN_ENOUGH = 10000;

/** Does something while a script is loaded, between its other APIs. */
class Step : public LuaApi {
public:
    explicit Step(std::function<void(lua_State*)> function) : __function(std::move(function)) {}

    int onLoading() override
    {
        __function(getLuaScript()->getLuaState());
        return STATUS_SUCCESS;
    }

private:
    std::function<void(lua_State*)> __function;
};

/** Leaves finalizers that fail to the next collection, which comes with the next bit of memory. */
const std::string FAILING_FINALIZERS =
    "collectgarbage('setstepmul', 1000000) collectgarbage() collectgarbage('stop')\n"
    "finalized = 0\n"
    "local function fail() finalized = finalized + 1 error('finalized', 0) end\n"
    "for i = 1, 20 do getmetatable(newproxy(true)).__gc = fail end\n"
    "collectgarbage('restart')\n";

// ---- Calls

TEST(LuaRefusalTest, NamesAreLookedForAlthoughFinalizersFail)
{
    LoadedScript loaded("function prepare()\n" + FAILING_FINALIZERS + "end");
    ASSERT_EQ(loaded.script.callMethod("prepare", 0), STATUS_SUCCESS);
    lua_settop(loaded.state(), 0);

    // Each name is a new text, and one of them comes with the collection.
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(loaded.script.callMethod("no function " + std::to_string(i), 0), STATUS_SUCCESS);
        ASSERT_EQ(loaded.message(), CALLING_NIL);
        lua_settop(loaded.state(), 0);
    }
    EXPECT_GT(std::stoi(globalText(loaded, "finalized")), 0);
}

TEST(LuaRefusalTest, ANameThatThereIsNoMemoryForIsNotCalled)
{
    LuaMemory memory;
    LuaStates states;
    states.whenOpened([&](lua_State* state) { memory.attach(state); });
    LoadedScript loaded("");
    const int top = loaded.top();
    LogCapture log;

    memory.refuseFrom(1);
    const int r = loaded.script.callMethod("a name that no script has had before", 0);
    memory.refuseNothing();

    EXPECT_EQ(r, STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(refusedCall()));
    EXPECT_EQ(loaded.top(), top);
    EXPECT_EQ(loaded.script.callMethod("a name that no script has had before", 0), STATUS_SUCCESS);
    EXPECT_EQ(loaded.message(), CALLING_NIL);
}

TEST(LuaRefusalTest, AnErrorOfTheGlobalsThatCannotBeKeptIsNoFunctionEither)
{
#ifdef LUAJIT_VERSION
    GTEST_SKIP() << "LuaJIT takes its memory elsewhere";
#endif
    std::set<std::string> messages;
    for (int nth = 1; nth < MORE_THAN_ENOUGH; ++nth) {
        LoadedScript loaded(
            "setmetatable(_G, {__index = function(_, name) error('no ' .. name, 0) end})");
        LogCapture log;
        int r = STATUS_SUCCESS;
        bool refused = false;
        {
            const AllocationFailure failure(Allocation::Realloc, nth);
            r = loaded.script.callMethod("song", 0);
            refused = failure.happened();
        }
        if (r == STATUS_SUCCESS) {
            EXPECT_EQ(loaded.top(), BUILT_IN + 1);
            messages.insert(loaded.message());
        } else {
            EXPECT_EQ(r, STATUS_INVALID_STATE);
            EXPECT_THAT(log.lines(), ElementsAre(refusedCall()));
        }
        if (!refused) {
            EXPECT_EQ(loaded.message(), "no song");
            break;
        }
    }
    EXPECT_THAT(messages, IsSubsetOf({"no song", "attempt to call a string value"}));
    EXPECT_THAT(messages, IsSupersetOf({"no song", "attempt to call a string value"}));
}

// ---- Errors

/** What a handler is told of an error. */
struct Told {
    std::string message;
    std::string traceback;
};

const std::string REASON(100, 'x');

/** Lets a function fail: after this was done to the memory, until the handler is called and that is. */
Told tellOfError(const std::function<void(lua_State*)>& before, const std::function<void()>& after)
{
    LoadedScript loaded("function fail() error('" + REASON + "', 0) end");
    Told told;
    loaded.script.setErrorHandler(
        [&](const std::string&, const std::string& message, const std::string& traceback) {
            after();
            told = {message, traceback};
        });
    before(loaded.state());
    try {
        EXPECT_EQ(loaded.script.callMethod("fail", 0), STATUS_SUCCESS);
    } catch (const std::bad_alloc&) {
        // There was none for the handler.
    }
    after();
    return told;
}

TEST(LuaRefusalTest, AHandlerIsToldOfAnErrorWithoutMemoryForItsTraceback)
{
    const Told whole = tellOfError([](lua_State*) {}, [] {});
    EXPECT_EQ(whole.message, REASON);
    EXPECT_THAT(whole.traceback, HasSubstr("stack traceback"));

    int told = 0;
    for (int nth = 1; nth < 20; ++nth) {
        std::optional<AllocationFailure> failure;
        const Told without =
            tellOfError([&](lua_State*) { failure.emplace(Allocation::ThrowingNew, nth); },
                        [&] { failure.reset(); });
        EXPECT_THAT(without.traceback.size(), AnyOf(0u, whole.traceback.size()));
        told += without.message == REASON && without.traceback.empty() ? 1 : 0;
    }
    EXPECT_GT(told, 0);
}

TEST(LuaRefusalTest, AHandlerIsToldOfAnErrorThatLuaHasNoTracebackFor)
{
    LuaMemory memory;
    const Told told = tellOfError(
        [&](lua_State* state) {
            memory.attach(state);
            memory.refuseFrom(1);
        },
        [&] { memory.refuseNothing(); });

#ifdef LUAJIT_VERSION
    EXPECT_EQ(told.message, "not enough memory");  // already for what would make the traceback
#else
    EXPECT_EQ(told.message, REASON);
#endif
    EXPECT_EQ(told.traceback, "");
}

TEST(LuaRefusalTest, ACoroutineThatCouldNotStartDidNotRaiseAnEarlierException)
{
#ifdef LUAJIT_VERSION
    GTEST_SKIP() << "LuaJIT takes its memory elsewhere";
#endif
    std::optional<AllocationFailure> failure;
    NativeApi native([&](lua_State*, const std::string& what) {
        if (what == "throw") {
            throw std::runtime_error("not enough memory");
        }
        failure.emplace(Allocation::Realloc);
    });
    // It has more variables than there is room for in a new coroutine.
    std::string large = "local v0";
    for (int i = 1; i < 150; ++i) {
        large += ", v" + std::to_string(i);
    }
    LoadedScript loaded("local large = loadstring('" + large +
                            "')\n"
                            "function start()\n"
                            "  coroutine.wrap(function() pcall(native.run, 'throw') end)()\n"
                            "  local other = coroutine.wrap(large)\n"
                            "  native.run('fail')\n"
                            "  other()\n"
                            "end",
                        {&native});

    EXPECT_EQ(loaded.script.callMethod("start", 0), STATUS_SUCCESS);

    EXPECT_TRUE(failure->happened());
    EXPECT_THAT(loaded.message(), HasSubstr("not enough memory"));
}

// ---- Hooks that end the script

/** A script that is no more after its first parameter. */
class ShortScript : public Script {
public:
    using Script::onMethodParameterAdded;

    int onLoading() override { return STATUS_SUCCESS; }

    int onMethodParameterAdded(int) override
    {
        delete this;
        return STATUS_SUCCESS;
    }
};

TEST(LuaRefusalTest, AHookThatEndsTheScriptIsTheLastOne)
{
    auto* script = new ShortScript;
    LogCapture log;

    EXPECT_EQ(script->callMethod("f", std::tie(), 1, 2), STATUS_INVALID_STATE);

    EXPECT_THAT(log.lines(), ElementsAre(refusedCall()));
}

// ---- Limits

/** Calls table.insert() as native code of an application may; the message of its error. */
std::string insert(lua_State* state)
{
    lua_getglobal(state, "table");
    lua_getfield(state, -1, "insert");
    lua_newtable(state);
    lua_pushinteger(state, 1);
    const bool failed = lua_pcall(state, 2, 0, 0) != 0;
    const std::string message = failed ? lua_tostring(state, -1) : "";
    lua_pop(state, failed ? 2 : 1);
    return message;
}

TEST(LuaLimitsRefusalTest, NothingRunsThatThereWasNoMemoryToLimit)
{
#ifdef LUAJIT_VERSION
    GTEST_SKIP() << "LuaJIT asks for memory to take a pointer";
#endif
    const ScriptFile file("ran = true");
    LuaMemory memory;
    LuaStates states;
    states.whenOpened([&](lua_State* state) { memory.attach(state); });
    std::set<std::string> messages;
    int failures = 0;
    for (int nth = 1; nth < MORE_THAN_ENOUGH; ++nth) {
        LuaScript script(file.path());
        Step before([&](lua_State*) { memory.refuseFrom(nth); });
        LuaLimits limits(1000000, 1000000);
        bool refused = false;
        std::string message;
        Step after([&](lua_State* state) {
            refused = memory.refused();
            memory.refuseNothing();
            message = insert(state);
        });
        for (LuaApi* api : {static_cast<LuaApi*>(&before), static_cast<LuaApi*>(&limits),
                            static_cast<LuaApi*>(&after)}) {
            script.addLuaApi(api);
        }
        LogCapture log;

        const int r = script.load();

        if (!refused) {
            EXPECT_EQ(r, STATUS_SUCCESS);
            EXPECT_EQ(message, "");
            break;
        }
        ++failures;
        EXPECT_EQ(r, STATUS_INVALID_STATE);
        EXPECT_THAT(log.lines(),
                    ElementsAre(LoggedIn("OxLuaLimits.cpp", "onLoading", "Invalid state."),
                                LoggedIn("OxLuaApi.cpp", "load", "-524271"), testing::_,
                                failedLoad(file.path(), "script refused")));
        messages.insert(message);
    }
    EXPECT_GT(failures, 5);
    EXPECT_THAT(messages, IsSubsetOf({"", "script refused"}));
    EXPECT_THAT(messages, IsSupersetOf({"", "script refused"}));
}

TEST(LuaLimitsRefusalTest, MemoryThatIsNotThereIsNotCounted)
{
#ifdef LUAJIT_VERSION
    GTEST_SKIP() << "LuaJIT takes its memory elsewhere";
#endif
    LuaMemory memory;
    LuaStates states;
    states.whenOpened([&](lua_State* state) { memory.attach(state); });
    LuaLimits limits(1000000, 1000000);
    LoadedScript loaded("function make() local list = {} for i = 1, 30000 do list[i] = i end end",
                        {&limits});

    // More often than its limit would last.
    for (int i = 0; i < 100; ++i) {
        memory.refuseFrom(14);
        ASSERT_EQ(loaded.script.callMethod("make", 0), STATUS_SUCCESS);
        memory.refuseNothing();
        ASSERT_EQ(loaded.message(), "not enough memory");
        lua_settop(loaded.state(), 0);
    }
    EXPECT_TRUE(memory.refused());
    ASSERT_EQ(loaded.script.callMethod("make", 0), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), 0);
}

/** An application's own allocator; tells what it released last. */
void* allocate(void* released, void* block, std::size_t, std::size_t size)
{
    if (size > 0) {
        return std::realloc(block, size);
    }
    *static_cast<void**>(released) = block;
    std::free(block);
    return nullptr;
}

TEST(LuaLimitsRefusalTest, AnAllocatorThatCameLaterStays)
{
#ifdef LUAJIT_VERSION
    GTEST_SKIP() << "LuaJIT takes its memory elsewhere";
#endif
    void* released = nullptr;
    const void* state = nullptr;
    {
        LuaLimits limits(1000000, 1000000);
        const LoadedScript loaded("", {&limits});
        lua_setallocf(loaded.state(), allocate, &released);
        state = loaded.state();
    }
    EXPECT_EQ(released, state);
}

TEST(LuaLimitsRefusalTest, ACompilerIsTurnedOffBeforeItIsTakenAway)
{
    int calls = 0;
    Step compiler([&](lua_State* state) {
        lua_newtable(state);
        lua_pushlightuserdata(state, &calls);
        lua_pushcclosure(
            state,
            [](lua_State* caller) {
                ++*static_cast<int*>(lua_touserdata(caller, lua_upvalueindex(1)));
                return 0;
            },
            1);
        lua_setfield(state, -2, "off");
        lua_setglobal(state, "jit");
    });
    LuaLimits limits(1000000, 1000000);

    const LoadedScript loaded("assert(jit == nil)", {&compiler, &limits});

    EXPECT_EQ(calls, 1);
}

TEST(LuaLimitsRefusalTest, LibrariesMayBeMissing)
{
    Step without([&](lua_State* state) {
        for (const char* name : {"table", "string", "os"}) {
            lua_pushnil(state);
            lua_setglobal(state, name);
        }
    });
    LuaLimits limits(1000000, 1000000);

    const LoadedScript loaded("answer = 42", {&without, &limits});

    EXPECT_EQ(globalText(loaded, "answer"), "42");
}

TEST(LuaLimitsRefusalTest, AFileThatIsNotThereIsReportedAsWithoutLimits)
{
    LuaLimits limits(1000000, 1000000);
    LuaScript script("/no such file.lua");
    script.addLuaApi(&limits);
    LogCapture log;

    EXPECT_EQ(script.load(), STATUS_INVALID_STATE);

    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_THAT(log.lines()[0].message, HasSubstr("No such file or directory"));
}

TEST(LuaLimitsRefusalTest, AFileOfOneLineForTheShellIsEmpty)
{
    for (const char* content : {"#", "#!/usr/bin/lua", "#!/usr/bin/lua\n"}) {
        LuaLimits limits(1000000, 1000000);
        const LoadedScript loaded(content, {&limits});
        EXPECT_NE(loaded.state(), nullptr) << content;
    }
}

// ---- Registries

/** Runs a script in whose process no script has made an object, with the registry's memory failing. */
[[noreturn]] void useObjectsWithoutRegistry(const std::string& content)
{
    LoadedScript loaded("function f() " + content + " end");
    LogCapture log;
    bool threw = false;
    {
        const AllocationFailure failure(Allocation::NothrowNew);
        try {
            loaded.script.callMethod("f", 0);
        } catch (const std::bad_alloc&) {
            threw = true;
        }
    }
    const bool logged = testing::Value(
        log.lines(),
        ElementsAre(LoggedIn("OxObjectManager.h", "__initInstance", "Memory allocation failed")));
    std::exit(threw && logged ? 0 : 1);
}

TEST(LuaObjectsDeathTest, WithoutRegistryThereAreNoObjects)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // for the rest of this test
    EXPECT_EXIT(useObjectsWithoutRegistry("Timer.stop(0)"), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(useObjectsWithoutRegistry("WaitingLoop.go(0)"), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace oxil::test
