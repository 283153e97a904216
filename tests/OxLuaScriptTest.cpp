#include "OxLuaScript.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <lua.hpp>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "LoadedScript.h"
#include "LuaCalls.h"
#include "NativeApi.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "ScriptFile.h"
#include "ScriptLog.h"

namespace oxil::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

static_assert(std::is_base_of_v<Script, LuaScript> && std::is_convertible_v<LuaScript*, Script*>);
static_assert(!std::is_copy_constructible_v<LuaScript> && !std::is_copy_assignable_v<LuaScript>);
static_assert(std::is_same_v<decltype(std::declval<const LuaScript&>().getLuaState()), lua_State*>);

const LoggedBy logged("OxLuaScript.cpp");

/** What Lua itself says when it loads and runs the file. */
std::string luaMessage(const std::string& path)
{
    const std::unique_ptr<lua_State, void (*)(lua_State*)> state(luaL_newstate(), lua_close);
    luaL_openlibs(state.get());
    if (luaL_loadfile(state.get(), path.c_str()) == 0 &&
        lua_pcall(state.get(), 0, LUA_MULTRET, 0) == 0) {
        ADD_FAILURE() << path << " is fine";
        return {};
    }
    return lua_tostring(state.get(), -1);
}

/** Looks a state up that has no script. */
void expectUnknown(lua_State* state)
{
    LogCapture log;
    EXPECT_EQ(LuaScript::getLuaScript(state), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(unknownState()));
}

std::string addressOf(const LuaApi& api)
{
    char text[32];
    std::snprintf(text, sizeof text, "%p", static_cast<const void*>(&api));
    return text;
}

// ---- Construction and loading --------------------------------------------------------------------

TEST(LuaScriptTest, StartsUnloaded)
{
    const LuaScript script("no/such/file");

    EXPECT_EQ(script.getFilePath(), "no/such/file");
    EXPECT_EQ(script.getLuaState(), nullptr);
    EXPECT_EQ(script.getMethodName(), "");
    EXPECT_EQ(script.getReturnCount(), 0);
    EXPECT_EQ(script.getParameterCount(), 0);
    EXPECT_EQ(LuaScript().getFilePath(), "");
    EXPECT_EQ(LuaScript().getLuaState(), nullptr);
}

TEST(LuaScriptTest, LoadedScriptHasTheBuiltInTablesOnItsStack)
{
    LoadedScript loaded("");

    EXPECT_EQ(loaded.top(), BUILT_IN);
    const char* names[] = {"Log", "Timer", "WaitingLoop"};
    for (int i = 0; i < BUILT_IN; ++i) {
        SCOPED_TRACE(names[i]);
        lua_getglobal(loaded.state(), names[i]);
        EXPECT_TRUE(lua_istable(loaded.state(), -1));
        EXPECT_TRUE(lua_rawequal(loaded.state(), -1, i + 1));
        lua_pop(loaded.state(), 1);
    }
}

TEST(LuaScriptTest, ValuesThatTheFileReturnsStayOnTheStack)
{
    LoadedScript loaded("return 'a', nil, 3");

    EXPECT_EQ(loaded.top(), BUILT_IN + 3);
    EXPECT_STREQ(lua_tostring(loaded.state(), BUILT_IN + 1), "a");
    EXPECT_TRUE(lua_isnil(loaded.state(), BUILT_IN + 2));
    EXPECT_EQ(lua_tointeger(loaded.state(), BUILT_IN + 3), 3);
}

TEST(LuaScriptTest, AllStandardLibrariesAreThere)
{
    LoadedScript loaded(
        "for _, name in ipairs{'coroutine', 'debug', 'io', 'math', 'os', 'package', 'string', "
        "'table'} do\n"
        "  assert(type(_G[name]) == 'table', name)\n"
        "end\n"
        "assert(print and require and dofile)");
}

TEST(LuaScriptTest, GlobalsOfTheFileStay)
{
    LoadedScript loaded("assert(Log and Timer and WaitingLoop)\nanswer = 42");

    EXPECT_EQ(globalText(loaded, "answer"), "42");
}

TEST(LuaScriptTest, FileThatCannotBeRunLeavesNoState)
{
    const std::vector<std::string> contents = {
        "x = = 1",
        "function f(",
        "local text = 'unfinished",
        "error('boom')",
        "error('boom', 0)",
        "error('100%s %d', 0)",
        "error(42, 0)",
        "missing()",
        "local t = nil; return t.field",
        "assert(false)",
        "local function again() return 1 + again() end again()",
        "error('" + std::string(2000, 'x') + "', 0)",
    };
    for (const std::string& content : contents) {
        SCOPED_TRACE(content);
        const ScriptFile file(content);
        const std::string reason = luaMessage(file.path());
        LuaScript script(file.path());
        LogCapture log;

        EXPECT_EQ(script.load(), STATUS_INVALID_STATE);
        EXPECT_THAT(log.lines(), ElementsAre(failedLoad(file.path(), reason)));
        EXPECT_EQ(script.getLuaState(), nullptr);
    }
}

TEST(LuaScriptTest, SyntaxErrorNamesItsLine)
{
    const ScriptFile file("x = 1\ny = = 2\n");
    LuaScript script(file.path());
    LogCapture log;

    EXPECT_EQ(script.load(), STATUS_INVALID_STATE);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_THAT(log.lines()[0].message,
                AllOf(StartsWith("filePath(" + file.path() + ") (1) ("),
                      HasSubstr(":2: unexpected symbol near '='"), EndsWith(").")));
}

TEST(LuaScriptTest, UnreadableFileIsAFailedLoad)
{
    for (const std::string& path : {std::string("/no/such/file"), testing::TempDir()}) {
        SCOPED_TRACE(path);
        const std::string reason = luaMessage(path);
        EXPECT_THAT(reason, StartsWith("cannot "));
        LuaScript script(path);
        LogCapture log;

        EXPECT_EQ(script.load(), STATUS_INVALID_STATE);
        EXPECT_THAT(log.lines(), ElementsAre(failedLoad(path, reason)));
        EXPECT_EQ(script.getLuaState(), nullptr);
    }
}

TEST(LuaScriptTest, EmptyPathIsNotTheStandardInput)
{
    const std::string reason = luaMessage("");
    EXPECT_THAT(reason, StartsWith("cannot open "));
    LuaScript script;
    LogCapture log;

    EXPECT_EQ(script.load(), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(failedLoad("", reason)));
    EXPECT_EQ(script.getLuaState(), nullptr);
}

TEST(LuaScriptTest, ErrorThatIsNoTextIsLoggedAsNull)
{
    for (const std::string value : {"nil", "true", "{}", "print",
                                    "setmetatable({}, {__tostring = "
                                    "function() return 'x' end})"}) {
        SCOPED_TRACE(value);
        const ScriptFile file("error(" + value + ")");
        LuaScript script(file.path());
        LogCapture log;

        EXPECT_EQ(script.load(), STATUS_INVALID_STATE);
        EXPECT_THAT(log.lines(), ElementsAre(failedLoad(file.path(), "(null)")));
        EXPECT_EQ(script.getLuaState(), nullptr);
    }
}

TEST(LuaScriptTest, FailedLoadLogsBeforeItClosesTheState)
{
    LogCapture log;
    std::size_t linesAtClosing = 99;
    NativeApi api([&](lua_State*, const std::string&) { linesAtClosing = log.lines().size(); });
    const ScriptFile file(
        "local sentinel = newproxy(true)\n"
        "getmetatable(sentinel).__gc = function() native.run() end\n"
        "kept = sentinel\n"
        "error('boom', 0)");
    LuaScript script(file.path());
    ASSERT_EQ(script.addLuaApi(&api), STATUS_SUCCESS);
    LuaStates states;

    EXPECT_EQ(script.load(), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(failedLoad(file.path(), "boom")));
    EXPECT_EQ(linesAtClosing, 1U);
    EXPECT_EQ(states.closed().size(), 1U);
}

TEST(LuaScriptTest, NoMemoryForAStateIsAnInvalidState)
{
    const ScriptFile file("answer = 42");
    LuaScript script(file.path());
    LuaStates states;
    states.refuseNext();
    LogCapture log;

    EXPECT_EQ(script.load(), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(logged("onLoading", "Invalid state.")));
    EXPECT_EQ(script.getLuaState(), nullptr);

    log.clear();
    EXPECT_EQ(script.load(), STATUS_SUCCESS);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_NE(script.getLuaState(), nullptr);
}

TEST(LuaScriptTest, NoMemoryForAnotherStateKeepsTheOneBefore)
{
    LoadedScript loaded("function answer() return 42 end");
    lua_State* state = loaded.state();
    {
        LuaStates states;
        states.refuseNext();
        LogCapture log;

        EXPECT_EQ(loaded.script.load(), STATUS_INVALID_STATE);
        EXPECT_THAT(log.lines(), ElementsAre(logged("onLoading", "Invalid state.")));
        EXPECT_THAT(states.closed(), IsEmpty());
    }
    EXPECT_EQ(loaded.state(), state);
    int answer = 0;
    EXPECT_EQ(loaded.script.callMethod("answer", std::tie(answer)), STATUS_SUCCESS);
    EXPECT_EQ(answer, 42);
}

TEST(LuaScriptTest, LoadingAgainReplacesTheState)
{
    NativeApi api;
    LoadedScript loaded("count = (count or 0) + 1", {&api});
    lua_State* before = loaded.state();
    ASSERT_EQ(loaded.script.callMethod("missing"), STATUS_SUCCESS);
    loaded.file.write("other = 'new'");
    LuaStates states;

    EXPECT_EQ(loaded.script.load(), STATUS_SUCCESS);

    EXPECT_NE(loaded.state(), before);
    EXPECT_THAT(states.closed(), ElementsAre(before));
    EXPECT_EQ(loaded.top(), BUILT_IN + 1);
    EXPECT_EQ(globalText(loaded, "count"), "(no text)");
    EXPECT_EQ(globalText(loaded, "other"), "new");
    EXPECT_EQ(api.loads, 2);
    EXPECT_EQ(api.unloads, 0);
    EXPECT_EQ(LuaScript::getLuaScript(loaded.state()), &loaded.script);
    // The entry of the closed state stays as long as the script.
    EXPECT_EQ(LuaScript::getLuaScript(before), &loaded.script);
}

TEST(LuaScriptTest, OldStateIsClosedWhenTheNewOneIsInPlaceButNotYetKnown)
{
    LuaScript* script = nullptr;
    lua_State* owned = nullptr;
    LuaScript* oldOwner = nullptr;
    LuaScript* newOwner = nullptr;
    LogCapture log;
    NativeApi api([&](lua_State* state, const std::string&) {
        owned = script->getLuaState();
        oldOwner = LuaScript::getLuaScript(state);
        newOwner = LuaScript::getLuaScript(owned);
    });
    LoadedScript loaded(
        "kept = newproxy(true)\n"
        "getmetatable(kept).__gc = function() native.run() end",
        {&api});
    script = &loaded.script;
    lua_State* before = loaded.state();
    loaded.file.write("");

    EXPECT_EQ(loaded.script.load(), STATUS_SUCCESS);

    EXPECT_NE(owned, before);
    EXPECT_EQ(owned, loaded.state());
    EXPECT_EQ(oldOwner, script);
    EXPECT_EQ(newOwner, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(unknownState()));
    EXPECT_EQ(LuaScript::getLuaScript(loaded.state()), script);
}

TEST(LuaScriptTest, FailedLoadAfterASuccessfulOneUnloads)
{
    LoadedScript loaded("");
    lua_State* first = loaded.state();
    loaded.file.write("error('boom', 0)");
    LogCapture log;
    LuaStates states;

    EXPECT_EQ(loaded.script.load(), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(failedLoad(loaded.file.path(), "boom")));
    EXPECT_EQ(loaded.state(), nullptr);
    ASSERT_EQ(states.closed().size(), 2U);
    EXPECT_EQ(states.closed()[0], first);

    loaded.file.write("");
    EXPECT_EQ(loaded.script.load(), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN);
}

TEST(LuaScriptTest, NoMemoryForTheBuiltInTablesMeansNoTablesAtAll)
{
    expectUnknown(nullptr);  // the registry has its memory already
    const ScriptFile file("assert(not Log and not Timer and not WaitingLoop and not native)");
    NativeApi early;
    NativeApi late;
    LogCapture log;

    std::unique_ptr<AllocationFailure> failure(
        std::make_unique<AllocationFailure>(Allocation::NothrowNew));
    LuaScript script(file.path());
    const bool happened = failure->happened();
    failure.reset();
    ASSERT_TRUE(happened);
    EXPECT_THAT(log.lines(), ElementsAre(logged("LuaScript", "Memory allocation failed")));
    EXPECT_EQ(script.addLuaApi(&early), STATUS_SUCCESS);

    for (int i = 0; i < 2; ++i) {
        log.clear();
        EXPECT_EQ(script.load(), STATUS_SUCCESS);
        EXPECT_THAT(log.lines(), ElementsAre(logged("__loadLuaApi", "Invalid state.")));
        EXPECT_EQ(lua_gettop(script.getLuaState()), 0);
    }

    // Its APIs count as not loaded from here on.
    log.clear();
    EXPECT_EQ(script.addLuaApi(&late), STATUS_SUCCESS);
    EXPECT_EQ(script.removeLuaApi(&early), STATUS_SUCCESS);
    EXPECT_EQ(script.removeLuaApi(&late), STATUS_SUCCESS);
    EXPECT_EQ(early.loads + early.unloads + late.loads + late.unloads, 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(LuaScriptTest, WhatATableThrowsLeavesNoStateBehind)
{
    NativeApi api;
    api.whenLoading = [] { throw std::runtime_error("from onLoading()"); };
    const ScriptFile file("x = 1");
    LuaScript script(file.path());
    script.addLuaApi(&api);

    EXPECT_THROW(script.load(), std::runtime_error);

    EXPECT_EQ(script.getLuaState(), nullptr);
    api.whenLoading = [] {};
    EXPECT_EQ(script.load(), STATUS_SUCCESS);
    EXPECT_EQ(api.loads, 2);
}

TEST(LuaScriptTest, WithoutMemoryThereIsNoStateHalfMade)
{
    const ScriptFile file("x = 1");
    int failures = 0;
    for (int nth = 1;; ++nth) {
        LuaScript script(file.path());
        LogCapture log;
        bool happened = false;
        bool thrown = false;
        int status = STATUS_SUCCESS;
        {
            const AllocationFailure failure(Allocation::ThrowingNew, nth);
            try {
                status = script.load();
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
            happened = failure.happened();
        }
        if (!happened) {
            break;
        }
        ++failures;
        EXPECT_EQ(script.getLuaState() == nullptr, thrown || status != STATUS_SUCCESS) << nth;
    }
    EXPECT_GT(failures, 0);
}

// ---- Destruction ---------------------------------------------------------------------------------

TEST(LuaScriptTest, DestructionClosesTheStateAndLeavesTheApisAlone)
{
    NativeApi api;
    lua_State* state = nullptr;
    LuaStates states;
    {
        LoadedScript loaded("", {&api});
        state = loaded.state();
        EXPECT_THAT(states.closed(), IsEmpty());
    }

    EXPECT_THAT(states.closed(), ElementsAre(state));
    EXPECT_TRUE(api.isLoaded());
    EXPECT_EQ(api.loads, 1);
    EXPECT_EQ(api.unloads, 0);
    expectUnknown(state);
}

TEST(LuaScriptTest, StateIsForgottenBeforeItIsClosed)
{
    LuaScript* found = nullptr;
    int calls = 0;
    NativeApi api([&](lua_State* state, const std::string&) {
        ++calls;
        found = LuaScript::getLuaScript(state);
    });
    LogCapture log;
    {
        LoadedScript loaded(
            "kept = newproxy(true)\n"
            "getmetatable(kept).__gc = function() native.run() end",
            {&api});
        found = &loaded.script;
    }

    EXPECT_EQ(calls, 1);
    EXPECT_EQ(found, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(unknownState()));
}

TEST(LuaScriptTest, DestructionOfAnUnloadedScriptIsQuiet)
{
    LuaStates states;
    {
        LuaScript script("no/such/file");
        LuaScript pathless;
    }
    EXPECT_THAT(states.closed(), IsEmpty());
}

// ---- The registry --------------------------------------------------------------------------------

TEST(LuaScriptTest, StateLeadsToItsScript)
{
    LoadedScript first("");
    LoadedScript second("");

    EXPECT_EQ(LuaScript::getLuaScript(first.state()), &first.script);
    EXPECT_EQ(LuaScript::getLuaScript(second.state()), &second.script);
}

TEST(LuaScriptTest, NativeFunctionFindsTheScriptThatItRunsIn)
{
    std::vector<LuaScript*> found;
    NativeApi api([&](lua_State* state, const std::string&) {
        LuaScript* script = LuaScript::getLuaScript(state);
        found.push_back(script);
        EXPECT_EQ(script->getLuaState(), state);
    });
    LoadedScript loaded("native.run()\nfunction f() native.run() end", {&api});

    EXPECT_EQ(loaded.script.callMethod("f"), STATUS_SUCCESS);
    EXPECT_THAT(found, ElementsAre(&loaded.script, &loaded.script));
}

TEST(LuaScriptTest, StateWithoutScriptIsUnknownEachTime)
{
    const std::unique_ptr<lua_State, void (*)(lua_State*)> state(luaL_newstate(), lua_close);

    expectUnknown(state.get());
    expectUnknown(state.get());
    expectUnknown(nullptr);
}

TEST(LuaScriptTest, CoroutineIsNotTheStateOfItsScript)
{
    LuaScript* found = nullptr;
    NativeApi api([&](lua_State* state, const std::string&) {
        LogCapture log;
        found = LuaScript::getLuaScript(state);
        EXPECT_THAT(log.lines(), ElementsAre(unknownState()));
    });
    LoadedScript loaded("coroutine.wrap(function() native.run() end)()", {&api});

    EXPECT_EQ(found, nullptr);
}

TEST(LuaScriptTest, LookingAnUnknownStateUpKeepsAnEmptyEntry)
{
    const std::unique_ptr<lua_State, void (*)(lua_State*)> state(luaL_newstate(), lua_close);
    LogCapture log;
    LuaScript::getLuaScript(nullptr);  // room for a line
    long allocations[2];
    for (long& count : allocations) {
        log.clear();
        const long before = allocationCount();
        LuaScript::getLuaScript(state.get());
        count = allocationCount() - before;
    }

    EXPECT_GT(allocations[0], allocations[1]);
    EXPECT_THAT(log.lines(), ElementsAre(unknownState()));
}

TEST(LuaScriptTest, FailedLoadLeavesItsEntryAsLongAsTheScript)
{
    lua_State* old = nullptr;
    NativeApi api([&](lua_State* state, const std::string&) { old = state; });
    {
        const ScriptFile file("native.run() error('boom', 0)");
        LuaScript script(file.path());
        ASSERT_EQ(script.addLuaApi(&api), STATUS_SUCCESS);
        {
            LogCapture log;
            ASSERT_EQ(script.load(), STATUS_INVALID_STATE);
        }
        ASSERT_NE(old, nullptr);
        EXPECT_EQ(LuaScript::getLuaScript(old), &script);
    }
    expectUnknown(old);
}

TEST(LuaScriptTest, DestructionForgetsAllStatesOfTheScript)
{
    std::vector<lua_State*> old;
    LoadedScript other("");
    {
        LoadedScript loaded("");
        old.push_back(loaded.state());
        for (int i = 0; i < 3; ++i) {
            ASSERT_EQ(loaded.script.load(), STATUS_SUCCESS);
            old.push_back(loaded.state());
        }
        for (lua_State* state : old) {
            EXPECT_EQ(LuaScript::getLuaScript(state), &loaded.script);
        }
    }
    for (lua_State* state : old) {
        expectUnknown(state);
    }
    EXPECT_EQ(LuaScript::getLuaScript(other.state()), &other.script);
}

TEST(LuaScriptTest, NewStateAtAnOldAddressBelongsToItsNewScript)
{
    LuaStates states;
    states.reuse();
    const ScriptFile broken("error('boom', 0)");
    auto first = std::make_unique<LuaScript>(broken.path());
    {
        LogCapture log;
        ASSERT_EQ(first->load(), STATUS_INVALID_STATE);
    }
    ASSERT_EQ(states.closed().size(), 1U);
    lua_State* address = states.closed()[0];
    ASSERT_EQ(LuaScript::getLuaScript(address), first.get());
    {
        LoadedScript second("");
        ASSERT_EQ(second.state(), address);
        EXPECT_EQ(LuaScript::getLuaScript(address), &second.script);

        first.reset();
        EXPECT_EQ(LuaScript::getLuaScript(address), &second.script);
    }
    expectUnknown(address);
    {
        // The empty entry that the look-up left is written over too.
        LoadedScript third("");
        ASSERT_EQ(third.state(), address);
        EXPECT_EQ(LuaScript::getLuaScript(address), &third.script);
    }
}

/** Whether the first use of the registry, without memory for it, goes as it should. */
bool useRegistryWithoutMemory(Allocation missing)
{
    LogCapture log;
    bool happened = false;
    {
        const AllocationFailure failure(missing);
        LuaScript::getLuaScript(nullptr);
        happened = failure.happened();
    }
    if (!happened ||
        !testing::Value(
            log.lines(),
            ElementsAre(logged("__initInstance", "Memory allocation failed"), unknownState()))) {
        return false;
    }

    // It is not tried again: scripts run, and are not found.
    log.clear();
    const ScriptFile file("timer = Timer.start(3600000, 'tick', false)");
    LuaScript script(file.path());
    return script.load() == STATUS_SUCCESS &&
           LuaScript::getLuaScript(script.getLuaState()) == nullptr &&
           testing::Value(log.lines(), ElementsAre(unknownState()));
}

TEST(LuaScriptDeathTest, NoMemoryForTheRegistryLeavesNoneForTheWholeProcess)
{
    // Runs in a process of its own, where the registry was not used before.
    const std::string style = GTEST_FLAG_GET(death_test_style);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The registry itself, and the buckets in it.
    for (const Allocation missing : {Allocation::NothrowNew, Allocation::ThrowingNew}) {
        EXPECT_EXIT(std::exit(useRegistryWithoutMemory(missing) ? 0 : 1),
                    testing::ExitedWithCode(0), "");
    }
    GTEST_FLAG_SET(death_test_style, style);
}

// ---- APIs ----------------------------------------------------------------------------------------

TEST(LuaScriptTest, ApisAreLoadedInOrderBeforeTheFileRuns)
{
    std::vector<std::string> order;
    NativeApi first([&](lua_State*, const std::string& text) { order.push_back(text); }, "first");
    NativeApi second([](lua_State*, const std::string&) {}, "second");
    for (NativeApi* api : {&first, &second}) {
        api->whenLoading = [&order, api] {
            order.push_back(api->table + " " +
                            std::to_string(lua_gettop(api->getLuaScript()->getLuaState())));
        };
    }
    LoadedScript loaded("assert(second) first.run('file')", {&second, &first});

    EXPECT_THAT(order, ElementsAre("second 3", "first 4", "file"));
    EXPECT_EQ(loaded.top(), BUILT_IN + 2);
    EXPECT_EQ(first.getLuaScript(), &loaded.script);
    EXPECT_TRUE(first.isLoaded());
}

TEST(LuaScriptTest, ApiAddedBeforeLoadingWaitsForIt)
{
    NativeApi api;
    LuaScript script;

    EXPECT_EQ(script.addLuaApi(&api), STATUS_SUCCESS);
    EXPECT_EQ(api.loads, 0);
    EXPECT_FALSE(api.isLoaded());
    EXPECT_EQ(api.getLuaScript(), nullptr);
}

TEST(LuaScriptTest, ApiAddedAfterLoadingIsLoadedAtOnce)
{
    std::string ran;
    NativeApi api([&](lua_State*, const std::string& text) { ran = text; });
    LoadedScript loaded("function f(text) native.run(text) end");

    EXPECT_EQ(loaded.script.addLuaApi(&api), STATUS_SUCCESS);
    EXPECT_EQ(api.loads, 1);
    EXPECT_TRUE(api.isLoaded());
    EXPECT_EQ(loaded.top(), BUILT_IN + 1);
    EXPECT_EQ(loaded.script.callMethod("f", std::tie(), "now"), STATUS_SUCCESS);
    EXPECT_EQ(ran, "now");

    EXPECT_EQ(loaded.script.load(), STATUS_SUCCESS);
    EXPECT_EQ(api.loads, 2);
}

TEST(LuaScriptTest, ApiAddedByTheFileItselfIsLoadedAtOnce)
{
    NativeApi added([](lua_State*, const std::string&) {}, "added");
    NativeApi native([&](lua_State* state, const std::string&) {
        LuaScript::getLuaScript(state)->addLuaApi(&added);
    });
    LoadedScript loaded("native.run() added.run()", {&native});

    EXPECT_EQ(added.loads, 1);
}

TEST(LuaScriptTest, FailingApiAddedAfterLoadingIsAddedAllTheSame)
{
    NativeApi api;
    api.loadResult = -5;
    LoadedScript loaded("");
    LogCapture log;

    EXPECT_EQ(loaded.script.addLuaApi(&api), STATUS_SUCCESS);
    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxLuaApi.cpp", "load", "-5")));
    EXPECT_FALSE(api.isLoaded());

    EXPECT_EQ(loaded.script.removeLuaApi(&api), STATUS_SUCCESS);
    EXPECT_EQ(api.unloads, 1);
}

TEST(LuaScriptTest, FailingApisDoNotStopTheOthers)
{
    NativeApi first;
    NativeApi second([](lua_State*, const std::string&) {}, "second");
    NativeApi third([](lua_State*, const std::string&) {}, "third");
    first.loadResult = -5;
    third.loadResult = 6;
    const ScriptFile file("native.run() second.run() third.run()");
    LuaScript script(file.path());
    for (NativeApi* api : {&first, &second, &third}) {
        ASSERT_EQ(script.addLuaApi(api), STATUS_SUCCESS);
    }
    LogCapture log;

    EXPECT_EQ(script.load(), STATUS_SUCCESS);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(LoggedIn("OxLuaApi.cpp", "load", "-5"),
                    logged("__loadLuaApi", "Invalid state. luaApi (" + addressOf(first) + ")"),
                    LoggedIn("OxLuaApi.cpp", "load", "6"),
                    logged("__loadLuaApi", "Invalid state. luaApi (" + addressOf(third) + ")")));
    EXPECT_FALSE(first.isLoaded());
    EXPECT_TRUE(second.isLoaded());
    EXPECT_FALSE(third.isLoaded());

    // The APIs count as loaded nevertheless.
    log.clear();
    NativeApi late([](lua_State*, const std::string&) {}, "late");
    EXPECT_EQ(script.addLuaApi(&late), STATUS_SUCCESS);
    EXPECT_EQ(late.loads, 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(LuaScriptTest, ApisCountAsLoadedAfterAFailedLoad)
{
    const ScriptFile file("error('boom', 0)");
    LuaScript script(file.path());
    NativeApi early([](lua_State*, const std::string&) {}, "early");
    NativeApi late;
    ASSERT_EQ(script.addLuaApi(&early), STATUS_SUCCESS);
    LogCapture log;
    ASSERT_EQ(script.load(), STATUS_INVALID_STATE);
    EXPECT_TRUE(early.isLoaded());
    log.clear();

    EXPECT_EQ(script.addLuaApi(&late), STATUS_SUCCESS);
    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxLuaApi.cpp", "registerApiTable", "Invalid state")));
    EXPECT_EQ(late.loads, 1);
    EXPECT_TRUE(late.isLoaded());
    EXPECT_EQ(script.removeLuaApi(&early), STATUS_SUCCESS);
    EXPECT_EQ(early.unloads, 1);
}

TEST(LuaScriptTest, ApiMayBeAddedTwice)
{
    NativeApi api;
    LoadedScript loaded("", {&api, &api});
    EXPECT_EQ(api.loads, 2);
    EXPECT_EQ(loaded.top(), BUILT_IN + 2);

    EXPECT_EQ(loaded.script.removeLuaApi(&api), STATUS_SUCCESS);
    EXPECT_EQ(api.unloads, 1);
    EXPECT_FALSE(api.isLoaded());

    EXPECT_EQ(loaded.script.load(), STATUS_SUCCESS);
    EXPECT_EQ(api.loads, 3);
    EXPECT_EQ(loaded.top(), BUILT_IN + 1);

    EXPECT_EQ(loaded.script.removeLuaApi(&api), STATUS_SUCCESS);
    EXPECT_EQ(api.unloads, 2);
    LogCapture log;
    EXPECT_EQ(loaded.script.removeLuaApi(&api), STATUS_NOT_FOUND);
    EXPECT_THAT(log.lines(), ElementsAre(logged("removeLuaApi", "Invalid state.")));
}

TEST(LuaScriptTest, FirstOfEqualApisIsRemoved)
{
    std::string order;
    NativeApi a([](lua_State*, const std::string&) {}, "a");
    NativeApi b([](lua_State*, const std::string&) {}, "b");
    for (NativeApi* api : {&a, &b}) {
        api->whenLoading = [&order, api] { order += api->table; };
    }
    LoadedScript loaded("", {&a, &b, &a});
    EXPECT_EQ(order, "aba");

    order.clear();
    EXPECT_EQ(loaded.script.removeLuaApi(&a), STATUS_SUCCESS);
    EXPECT_EQ(loaded.script.load(), STATUS_SUCCESS);
    EXPECT_EQ(order, "ba");
}

TEST(LuaScriptTest, NoApiIsAnInvalidParameter)
{
    LuaScript unloaded;
    LoadedScript loaded("");
    for (LuaScript* script : {&unloaded, &loaded.script}) {
        LogCapture log;
        EXPECT_EQ(script->addLuaApi(nullptr), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(script->removeLuaApi(nullptr), STATUS_INVALID_PARAMETER);
        EXPECT_THAT(log.lines(), ElementsAre(logged("addLuaApi", "Invalid parameter."),
                                             logged("removeLuaApi", "Invalid parameter.")));
    }
    EXPECT_EQ(loaded.script.load(), STATUS_SUCCESS);
}

TEST(LuaScriptTest, ApiThatWasNotAddedIsNotFound)
{
    NativeApi added;
    NativeApi api;
    LuaScript empty;
    LuaScript unloaded;
    LoadedScript loaded("", {&added});
    ASSERT_EQ(unloaded.addLuaApi(&added), STATUS_SUCCESS);
    for (LuaScript* script : {&empty, &unloaded, &loaded.script}) {
        LogCapture log;
        EXPECT_EQ(script->removeLuaApi(&api), STATUS_NOT_FOUND);
        EXPECT_THAT(log.lines(), ElementsAre(logged("removeLuaApi", "Invalid state.")));
    }
    EXPECT_EQ(added.unloads + api.unloads, 0);
}

TEST(LuaScriptTest, RemovedApiLeavesItsTableBehind)
{
    int runs = 0;
    NativeApi api([&](lua_State*, const std::string&) { ++runs; });
    LoadedScript loaded("function f() native.run() end", {&api});

    EXPECT_EQ(loaded.script.removeLuaApi(&api), STATUS_SUCCESS);
    EXPECT_EQ(api.unloads, 1);
    EXPECT_FALSE(api.isLoaded());
    EXPECT_EQ(api.getLuaScript(), &loaded.script);
    EXPECT_EQ(loaded.top(), BUILT_IN + 1);
    EXPECT_EQ(loaded.script.callMethod("f"), STATUS_SUCCESS);
    EXPECT_EQ(runs, 1);

    EXPECT_EQ(loaded.script.load(), STATUS_SUCCESS);
    EXPECT_EQ(api.loads, 1);
    EXPECT_EQ(loaded.top(), BUILT_IN);
}

TEST(LuaScriptTest, ApiRemovedBeforeLoadingIsNotUnloaded)
{
    NativeApi api;
    api.unloadResult = -3;
    LuaScript script;
    ASSERT_EQ(script.addLuaApi(&api), STATUS_SUCCESS);

    EXPECT_EQ(script.removeLuaApi(&api), STATUS_SUCCESS);
    EXPECT_EQ(api.unloads, 0);
}

TEST(LuaScriptTest, ApiThatFailsToUnloadIsRemovedAllTheSame)
{
    for (const int code : {-3, 8}) {
        NativeApi api;
        api.unloadResult = code;
        LoadedScript loaded("", {&api});
        LogCapture log;

        EXPECT_EQ(loaded.script.removeLuaApi(&api), code);
        EXPECT_THAT(log.lines(),
                    ElementsAre(LoggedIn("OxLuaApi.cpp", "unload", std::to_string(code)),
                                logged("removeLuaApi", std::to_string(code))));
        EXPECT_TRUE(api.isLoaded());

        log.clear();
        EXPECT_EQ(loaded.script.removeLuaApi(&api), STATUS_NOT_FOUND);
        EXPECT_THAT(log.lines(), ElementsAre(logged("removeLuaApi", "Invalid state.")));
    }
}

TEST(LuaScriptTest, ApiMayAddAnotherWhileItIsLoaded)
{
    NativeApi added([](lua_State*, const std::string&) {}, "added");
    NativeApi first;
    NativeApi last([](lua_State*, const std::string&) {}, "last");
    first.whenLoading = [&] {
        if (first.loads == 1) {
            first.getLuaScript()->addLuaApi(&added);
        }
    };
    LoadedScript loaded("native.run() last.run() added.run()", {&first, &last});

    EXPECT_EQ(first.loads, 1);
    EXPECT_EQ(last.loads, 1);
    EXPECT_EQ(added.loads, 1);
}

}  // namespace
}  // namespace oxil::test
