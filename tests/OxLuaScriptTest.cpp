#include "OxLuaScript.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <lua.hpp>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "LoadedScript.h"
#include "LogCapture.h"
#include "LuaCalls.h"
#include "NativeApi.h"
#include "OxStatus.h"
#include "ScriptFile.h"
#include "VirtualSlot.h"

namespace oxil::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Property;
using testing::StartsWith;
using testing::StrEq;
using testing::Throws;

static_assert(std::is_base_of_v<Script, LuaScript> && std::is_convertible_v<LuaScript*, Script*>);
static_assert(!std::is_copy_constructible_v<LuaScript> && !std::is_copy_assignable_v<LuaScript>);
static_assert(std::is_same_v<decltype(std::declval<const LuaScript&>().getLuaState()), lua_State*>);

/** The number of values that a script with an empty file has on its stack: the built-in tables. */
constexpr int BUILT_IN = 3;

/** More values than lua_checkstack() agrees to, fewer than any Lua holds. */
constexpr int MANY = 20000;

const std::string CALLING_NIL = "attempt to call a nil value";

testing::Matcher<const LogLine&> logged(const std::string& function, const std::string& message)
{
    return LoggedIn("OxLuaScript.cpp", function, message);
}

testing::Matcher<const LogLine&> refusedCall()
{
    return LoggedIn("OxScript.cpp", "callMethod", "Invalid state.");
}

testing::Matcher<const LogLine&> failedLoad(const std::string& path, const std::string& reason)
{
    return logged("onLoading", "filePath(" + path + ") (1) (" + reason + ").");
}

testing::Matcher<const LogLine&> unknownState()
{
    return logged("getLuaScript", "Invalid state");
}

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

std::string globalText(const LoadedScript& loaded, const char* name)
{
    lua_getglobal(loaded.state(), name);
    const char* text = lua_tostring(loaded.state(), -1);
    const std::string result = text != nullptr ? text : "(no text)";
    lua_pop(loaded.state(), 1);
    return result;
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

TEST(LuaScriptTest, AddsNoVirtualFunctions)
{
    EXPECT_EQ(virtualSlot(&LuaScript::addLuaApi), -1);
    EXPECT_EQ(virtualSlot(&LuaScript::removeLuaApi), -1);
    EXPECT_EQ(virtualSlot(&LuaScript::getLuaState), -1);
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
    const ScriptFile file("answer = 42");
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
        EXPECT_EXIT(std::_Exit(useRegistryWithoutMemory(missing) ? 0 : 1),
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

// ---- Calls ---------------------------------------------------------------------------------------

TEST(LuaScriptTest, TypedCallPassesParametersAndReadsResults)
{
    LoadedScript loaded(
        "function add(a, b) return a + b end\n"
        "function describe(...)\n"
        "  local types = {}\n"
        "  for i = 1, select('#', ...) do types[i] = type((select(i, ...))) end\n"
        "  return table.concat(types, ' ')\n"
        "end\n"
        "function all() return 'text', true, -3, 0.5 end");
    int sum = 0;
    EXPECT_EQ(loaded.script.callMethod("add", std::tie(sum), 2, 3), STATUS_SUCCESS);
    EXPECT_EQ(sum, 5);
    float ratio = 0;
    EXPECT_EQ(loaded.script.callMethod("add", std::tie(ratio), 0.25F, 1), STATUS_SUCCESS);
    EXPECT_EQ(ratio, 1.25F);

    std::string types;
    EXPECT_EQ(loaded.script.callMethod("describe", std::tie(types), "a", std::string("b"), true, 1,
                                       2.0F, 3.0),
              STATUS_SUCCESS);
    EXPECT_EQ(types, "string string boolean number number number");
    EXPECT_EQ(loaded.script.callMethod("describe", std::tie(types)), STATUS_SUCCESS);
    EXPECT_EQ(types, "");

    std::string text;
    bool flag = false;
    int number = 0;
    EXPECT_EQ(loaded.script.callMethod("all", std::tie(text, flag, number, ratio)), STATUS_SUCCESS);
    EXPECT_EQ(std::tie(text, flag, number, ratio), std::make_tuple("text", true, -3, 0.5F));

    EXPECT_EQ(loaded.top(), BUILT_IN);
    EXPECT_EQ(loaded.script.getMethodName(), "all");
    EXPECT_EQ(loaded.script.getReturnCount(), 4);
    EXPECT_EQ(loaded.script.getParameterCount(), 0);
}

TEST(LuaScriptTest, ResultsAreCutOrFilledUpToTheNumberAskedFor)
{
    LoadedScript loaded("function two() return 1, 2 end");
    int first = -1;
    int second = -1;
    bool third = true;

    EXPECT_EQ(loaded.script.callMethod("two", std::tie()), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN);
    EXPECT_EQ(loaded.script.callMethod("two", std::tie(first)), STATUS_SUCCESS);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(loaded.script.callMethod("two", std::tie(first, second, third)), STATUS_SUCCESS);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
    EXPECT_FALSE(third);
    EXPECT_EQ(loaded.top(), BUILT_IN);
}

TEST(LuaScriptTest, ParametersArriveAsLuaValues)
{
    struct Case {
        std::string name;
        std::function<int(LuaScript&)> push;
        std::function<void(lua_State*)> check;
    };
    const auto isNumber = [](double expected) {
        return [expected](lua_State* state) {
            EXPECT_EQ(lua_type(state, -1), LUA_TNUMBER);
            EXPECT_EQ(lua_tonumber(state, -1), expected);
        };
    };
    const auto isBool = [](int expected) {
        return [expected](lua_State* state) {
            EXPECT_EQ(lua_type(state, -1), LUA_TBOOLEAN);
            EXPECT_EQ(lua_toboolean(state, -1), expected);
        };
    };
    const auto isText = [](const std::string& expected) {
        return [expected](lua_State* state) {
            EXPECT_EQ(lua_type(state, -1), LUA_TSTRING);
            std::size_t length = 0;
            const char* text = lua_tolstring(state, -1, &length);
            EXPECT_EQ(std::string(text, length), expected);
        };
    };
    const auto pushing = [](auto value) {
        return [value](LuaScript& script) { return script.onMethodParameterAdded(value); };
    };
    const std::vector<Case> cases = {
        {"int", pushing(7), isNumber(7)},
        {"smallest int", pushing(INT_MIN), isNumber(INT_MIN)},
        {"largest int", pushing(INT_MAX), isNumber(INT_MAX)},
        {"float", pushing(0.1F), isNumber(static_cast<double>(0.1F))},
        {"negative float", pushing(-2.5F), isNumber(-2.5)},
        {"true", pushing(true), isBool(1)},
        {"false", pushing(false), isBool(0)},
        {"text", pushing(std::string("text")), isText("text")},
        {"number as text", pushing(std::string("12")), isText("12")},
        {"empty text", pushing(std::string()), isText("")},
        {"text with NUL", pushing(std::string("a\0b", 3)), isText("a")},
    };
    LoadedScript loaded("");
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        EXPECT_EQ(test.push(loaded.script), 0);
        EXPECT_EQ(loaded.top(), BUILT_IN + 1);
        test.check(loaded.state());
        lua_settop(loaded.state(), BUILT_IN);
    }
}

TEST(LuaScriptTest, TypedCallPassesDoublesAsFloatAndCTextAsText)
{
    LoadedScript loaded("function f(...) received = {...} end");
    const double real = 0.1;
    const char* text = "text";

    EXPECT_EQ(loaded.script.callMethod("f", std::tie(), real, text, std::string("a\0b", 3)),
              STATUS_SUCCESS);

    lua_State* state = loaded.state();
    lua_getglobal(state, "received");
    lua_rawgeti(state, -1, 1);
    EXPECT_EQ(lua_tonumber(state, -1), static_cast<double>(0.1F));
    lua_rawgeti(state, -2, 2);
    EXPECT_EQ(lua_type(state, -1), LUA_TSTRING);
    EXPECT_STREQ(lua_tostring(state, -1), "text");
    lua_rawgeti(state, -3, 3);
    EXPECT_EQ(lua_objlen(state, -1), 1U);
    EXPECT_STREQ(lua_tostring(state, -1), "a");
}

TEST(LuaScriptTest, ResultsConvertAsInLua)
{
    struct Case {
        std::string expression;
        bool flag;
        int number;
        float ratio;
    };
    const std::vector<Case> cases = {
        {"nil", false, 0, 0},
        {"false", false, 0, 0},
        {"true", true, 0, 0},
        {"0", true, 0, 0},
        {"1.25", true, 1, 1.25F},
        {"-3", true, -3, -3},
        {"'12'", true, 12, 12},
        {"' 0x10 '", true, 16, 16},
        {"'1.25'", true, 1, 1.25F},
        {"'abc'", true, 0, 0},
        {"''", true, 0, 0},
        {"{}", true, 0, 0},
        {"print", true, 0, 0},
        {"2147483647", true, INT_MAX, 2147483648.0F},
        {"-2147483648", true, INT_MIN, -2147483648.0F},
        {"0.1", true, 0, 0.1F},
        {"3000000000", true, INT_MAX, 3e9F},
        {"-3000000000", true, INT_MIN, -3e9F},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.expression);
        LoadedScript loaded("function f() return " + test.expression + " end");
        bool flag = !test.flag;
        int number = -99;
        float ratio = -99;

        EXPECT_EQ(loaded.script.callMethod("f", std::tie(flag)), STATUS_SUCCESS);
        EXPECT_EQ(loaded.script.callMethod("f", std::tie(number)), STATUS_SUCCESS);
        EXPECT_EQ(loaded.script.callMethod("f", std::tie(ratio)), STATUS_SUCCESS);

        EXPECT_EQ(flag, test.flag);
        EXPECT_EQ(number, test.number);
        EXPECT_EQ(ratio, test.ratio);
        EXPECT_EQ(loaded.top(), BUILT_IN);
    }
}

TEST(LuaScriptTest, TextsAndNumbersAreReadAsText)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"'text'", "text"}, {"''", ""},       {"12", "12"},
        {"-1.5", "-1.5"},   {"'a\\0b'", "a"}, {"('x'):rep(5000)", std::string(5000, 'x')},
    };
    for (const auto& [expression, expected] : cases) {
        SCOPED_TRACE(expression);
        LoadedScript loaded("function f() return " + expression + " end");
        std::string text = "before";

        EXPECT_EQ(loaded.script.callMethod("f", std::tie(text)), STATUS_SUCCESS);
        EXPECT_EQ(text, expected);
        EXPECT_EQ(loaded.top(), BUILT_IN);
    }
}

TEST(LuaScriptTest, ResultHooksReadUpwardsFromTheFirstValue)
{
    LoadedScript loaded("");
    lua_State* state = loaded.state();
    lua_settop(state, 0);
    lua_pushinteger(state, 5);
    lua_pushboolean(state, 1);
    lua_pushnumber(state, 1.5);
    lua_pushliteral(state, "text");
    int number = 0;
    bool flag = false;
    float ratio = 0;
    std::string text;

    const LuaScript& script = loaded.script;
    EXPECT_EQ(script.onGetReturnValue(number), 0);
    EXPECT_EQ(script.onGetReturnValue(flag), 0);
    EXPECT_EQ(script.onGetReturnValue(ratio), 0);
    EXPECT_EQ(script.onGetReturnValue(text), 0);

    EXPECT_EQ(std::tie(number, flag, ratio, text), std::make_tuple(5, true, 1.5F, "text"));
    EXPECT_EQ(loaded.top(), 4);
}

TEST(LuaScriptTest, ResultsOfAnUntypedCallCanBeReadByHand)
{
    LoadedScript loaded("function f() return 'a', 2, true end");
    std::string text;
    int number = 0;
    bool flag = false;

    ASSERT_EQ(loaded.script.callMethod("f", 3), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + 3);
    loaded.script.onReturnValueEvaluateBegin();
    EXPECT_EQ(loaded.script.onGetReturnValue(text), 0);
    EXPECT_EQ(loaded.script.onGetReturnValue(number), 0);
    EXPECT_EQ(loaded.script.onGetReturnValue(flag), 0);
    EXPECT_EQ(loaded.top(), BUILT_IN + 3);
    loaded.script.onReturnValueEvaluateEnd();

    EXPECT_EQ(std::tie(text, number, flag), std::make_tuple("a", 2, true));
    EXPECT_EQ(loaded.top(), BUILT_IN);
}

TEST(LuaScriptTest, ReadingWithoutResultsIsLogged)
{
    LuaScript unloaded;
    LoadedScript loaded("function f() return 1 end");
    ASSERT_EQ(loaded.script.callMethod("f"), STATUS_SUCCESS);
    for (LuaScript* script : {&unloaded, &loaded.script}) {
        LogCapture log;
        script->onReturnValueEvaluateBegin();
        script->onReturnValueEvaluateEnd();
        EXPECT_THAT(log.lines(), ElementsAre(logged("onReturnValueEvaluateBegin", "retCount (0)"),
                                             logged("onReturnValueEvaluateEnd", "retCount (0)")));
    }
    EXPECT_EQ(loaded.top(), BUILT_IN);

    // The place to read from is that of a new script still.
    int number = -1;
    lua_pushinteger(loaded.state(), 9);
    lua_replace(loaded.state(), 1);
    EXPECT_EQ(loaded.script.onGetReturnValue(number), 0);
    EXPECT_EQ(number, 9);
}

TEST(LuaScriptTest, UntypedCallLeavesItsResultsOnTheStack)
{
    LoadedScript loaded("function f(...) return select('#', ...), 'b' end");

    EXPECT_EQ(loaded.script.callMethod("f", 2), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + 2);
    EXPECT_EQ(lua_tointeger(loaded.state(), -2), 0);
    EXPECT_STREQ(lua_tostring(loaded.state(), -1), "b");

    EXPECT_EQ(loaded.script.callMethod("f", 4), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + 6);
    EXPECT_TRUE(lua_isnil(loaded.state(), -1));

    EXPECT_EQ(loaded.script.callMethod("f"), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + 6);
}

TEST(LuaScriptTest, CallMayAskForThousandsOfResults)
{
    LoadedScript loaded("function f() return 1 end");
    constexpr int RESULTS = 5000;

    EXPECT_EQ(loaded.script.callMethod("f", RESULTS), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + RESULTS);
    EXPECT_EQ(lua_tointeger(loaded.state(), BUILT_IN + 1), 1);
    EXPECT_TRUE(lua_isnil(loaded.state(), -1));

    LogCapture log;
    EXPECT_EQ(loaded.script.callMethod("f", INT_MAX), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(refusedCall()));
}

TEST(LuaScriptTest, AnythingThatCanBeCalledIsCalled)
{
    LoadedScript loaded(
        "callable = setmetatable({}, {__call = function(self, x) return x * 2 end})\n"
        "_G['odd name.x'] = function(x) return x * 3 end\n"
        "setmetatable(_G, {__index = function(_, name) return function(x) return name .. x end "
        "end})");
    int number = 0;
    EXPECT_EQ(loaded.script.callMethod("callable", std::tie(number), 4), STATUS_SUCCESS);
    EXPECT_EQ(number, 8);
    EXPECT_EQ(loaded.script.callMethod("odd name.x", std::tie(number), 4), STATUS_SUCCESS);
    EXPECT_EQ(number, 12);
    std::string text;
    EXPECT_EQ(loaded.script.callMethod("anything", std::tie(text), 4), STATUS_SUCCESS);
    EXPECT_EQ(text, "anything4");
    EXPECT_EQ(loaded.top(), BUILT_IN);
}

TEST(LuaScriptTest, CallingHookPushesTheGlobal)
{
    LoadedScript loaded("function f() end; number = 5");
    lua_State* state = loaded.state();

    EXPECT_EQ(loaded.script.onMethodCalling("f"), 0);
    EXPECT_TRUE(lua_isfunction(state, -1));
    EXPECT_EQ(loaded.script.onMethodCalling("number"), 0);
    EXPECT_EQ(lua_tointeger(state, -1), 5);
    EXPECT_EQ(loaded.script.onMethodCalling("missing"), 0);
    EXPECT_TRUE(lua_isnil(state, -1));
    EXPECT_EQ(loaded.top(), BUILT_IN + 3);
}

// ---- Failing calls -------------------------------------------------------------------------------

TEST(LuaScriptTest, LuaErrorIsNotReportedButLeavesItsMessage)
{
    LoadedScript loaded(
        "number = 5\n"
        "function f() error('boom', 0) end\n"
        "function again() return 1 + again() end\n"
        "function odd() error({}) end");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"f", "boom"},
        {"missing", CALLING_NIL},
        {"number", "attempt to call a number value"},
        {"again", "stack overflow"},
        {"odd", "(no text)"},
    };
    int expectedTop = BUILT_IN;
    for (const auto& [name, message] : cases) {
        for (const int returnCount : {0, 1, 4}) {
            SCOPED_TRACE(name);
            EXPECT_EQ(loaded.script.callMethod(name, returnCount), STATUS_SUCCESS);
            EXPECT_EQ(loaded.top(), ++expectedTop);
            EXPECT_THAT(loaded.message(), HasSubstr(message));
        }
    }
    EXPECT_EQ(loaded.script.callMethod("f"), STATUS_SUCCESS);
    EXPECT_EQ(loaded.script.callMethod("f", std::tie(), 1, "text"), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), expectedTop + 2);
    EXPECT_EQ(loaded.message(), "boom");
}

TEST(LuaScriptTest, MessageOfAFailedCallIsReadAsItsResult)
{
    LoadedScript loaded(
        "function boom() error('boom', 0) end\n"
        "function number() error(12, 0) end");
    struct Case {
        std::string name;
        std::string text;
        int number;
    };
    for (const Case& test :
         {Case{"missing", CALLING_NIL, 0}, Case{"boom", "boom", 0}, Case{"number", "12", 12}}) {
        SCOPED_TRACE(test.name);
        std::string text;
        bool flag = false;
        int number = -1;
        float ratio = -1;

        EXPECT_EQ(loaded.script.callMethod(test.name, std::tie(text)), STATUS_SUCCESS);
        EXPECT_EQ(loaded.script.callMethod(test.name, std::tie(flag), 1), STATUS_SUCCESS);
        EXPECT_EQ(loaded.script.callMethod(test.name, std::tie(number), "a"), STATUS_SUCCESS);
        EXPECT_EQ(loaded.script.callMethod(test.name, std::tie(ratio)), STATUS_SUCCESS);

        EXPECT_EQ(text, test.text);
        EXPECT_TRUE(flag);
        EXPECT_EQ(number, test.number);
        EXPECT_EQ(ratio, static_cast<float>(test.number));
        EXPECT_EQ(loaded.top(), BUILT_IN);
    }
}

TEST(LuaScriptTest, MessageOfAFailedCallIsTheLastOfSeveralResults)
{
    LoadedScript loaded("");
    lua_pushinteger(loaded.state(), 5);
    int number = 0;
    std::string text;

    EXPECT_EQ(loaded.script.callMethod("missing", std::tie(number, text)), STATUS_SUCCESS);
    EXPECT_EQ(number, 5);  // whatever lay below it
    EXPECT_EQ(text, CALLING_NIL);
    EXPECT_EQ(loaded.top(), BUILT_IN);
}

TEST(LuaScriptTest, FailedCallNeverTakesMoreThanIsThere)
{
    LoadedScript loaded("function add(a, b) return a + b end");
    constexpr int RESULTS = 4;
    for (int below = 0; below < 6; ++below) {
        SCOPED_TRACE(below);
        lua_settop(loaded.state(), 0);
        lua_settop(loaded.state(), below);
        int number = -1;
        bool flag = true;
        float ratio = -1;
        std::string text;

        EXPECT_EQ(loaded.script.callMethod("missing", std::tie(number, flag, ratio, text)),
                  STATUS_SUCCESS);
        EXPECT_EQ(std::tie(number, flag, ratio, text),
                  std::make_tuple(0, false, 0.0F, CALLING_NIL));
        EXPECT_EQ(loaded.top(), std::max(below + 1 - RESULTS, 0));

        EXPECT_EQ(loaded.script.callMethod("add", std::tie(number), 2, 3), STATUS_SUCCESS);
        EXPECT_EQ(number, 5);
    }
    lua_settop(loaded.state(), 0);
    for (int i = 0; i < 100; ++i) {
        int first = -1;
        int second = -1;
        EXPECT_EQ(loaded.script.callMethod("missing", std::tie(first, second)), STATUS_SUCCESS);
        EXPECT_EQ(loaded.top(), 0);
    }
}

TEST(LuaScriptTest, ResultThatIsNoTextIsReadAsEmptyText)
{
    for (const char* expression : {"nil", "true", "{}", "print"}) {
        SCOPED_TRACE(expression);
        LoadedScript loaded(std::string("function f() return ") + expression + ", 'next' end");
        std::string text = "before";
        std::string next;

        EXPECT_EQ(loaded.script.callMethod("f", std::tie(text, next)), STATUS_SUCCESS);
        EXPECT_EQ(text, "");
        EXPECT_EQ(next, "next");
    }
}

TEST(LuaScriptTest, ThousandsOfFailedCallsLeaveTheirMessages)
{
    LoadedScript loaded(
        "function add(a, b) return a + b end\n"
        "function pair() return 'a', 'b' end\n"
        "function again() return 1 + again() end");
    for (int i = 0; i < MANY; ++i) {
        ASSERT_EQ(loaded.script.callMethod("missing"), STATUS_SUCCESS);
    }
    EXPECT_EQ(loaded.top(), BUILT_IN + MANY);
    EXPECT_THAT(loaded.message(), HasSubstr(CALLING_NIL));

    int sum = 0;
    EXPECT_EQ(loaded.script.callMethod("add", std::tie(sum), 2, 3), STATUS_SUCCESS);
    EXPECT_EQ(sum, 5);
    std::string first;
    std::string second;
    EXPECT_EQ(loaded.script.callMethod("pair", std::tie(first, second)), STATUS_SUCCESS);
    EXPECT_EQ(first + second, "ab");
    EXPECT_EQ(loaded.script.callMethod("missing", std::tie(first), 1, "x"), STATUS_SUCCESS);
    EXPECT_EQ(first, CALLING_NIL);
    EXPECT_EQ(loaded.top(), BUILT_IN + MANY);

    EXPECT_EQ(loaded.script.callMethod("again"), STATUS_SUCCESS);
    EXPECT_THAT(loaded.message(), HasSubstr("stack overflow"));
    NativeApi api;
    EXPECT_EQ(loaded.script.addLuaApi(&api), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + MANY + 2);
}

TEST(LuaScriptTest, ThousandsOfUnreadResultsStayToo)
{
    LoadedScript loaded("function f() return 1, 2 end");
    for (int i = 0; i < MANY / 2; ++i) {
        ASSERT_EQ(loaded.script.callMethod("f", 2), STATUS_SUCCESS);
    }
    EXPECT_EQ(loaded.top(), BUILT_IN + MANY);
    EXPECT_EQ(lua_tointeger(loaded.state(), -1), 2);
    EXPECT_EQ(lua_tointeger(loaded.state(), BUILT_IN + 1), 1);
}

TEST(LuaScriptTest, StrictGlobalsMakeAMissingFunctionALuaError)
{
    LoadedScript loaded(
        "function add(a, b) return a + b end\n"
        "setmetatable(_G, {__index = function(_, name) error('no ' .. name, 0) end})");
    int sum = 0;
    std::string text;

    EXPECT_EQ(loaded.script.callMethod("unknown"), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + 1);
    EXPECT_TRUE(lua_isstring(loaded.state(), -1));
    EXPECT_EQ(loaded.script.callMethod("unknown", std::tie(text), 1, 2), STATUS_SUCCESS);
    EXPECT_NE(text, "");
    EXPECT_EQ(loaded.top(), BUILT_IN + 1);
    EXPECT_EQ(loaded.script.callMethod("add", std::tie(sum), 2, 3), STATUS_SUCCESS);
    EXPECT_EQ(sum, 5);
}

TEST(LuaScriptTest, HooksOfAnUnloadedScriptFail)
{
    LuaScript fresh;
    const ScriptFile file("error('boom', 0)");
    LuaScript failed(file.path());
    {
        LogCapture log;
        ASSERT_EQ(failed.load(), STATUS_INVALID_STATE);
    }
    for (LuaScript* script : {&fresh, &failed}) {
        LogCapture log;
        bool flag = true;
        int number = 1;
        float ratio = 1;
        std::string text = "text";

        EXPECT_LT(script->onMethodCalling("f"), 0);
        EXPECT_LT(script->onMethodParameterAdded(text), 0);
        EXPECT_LT(script->onMethodParameterAdded(true), 0);
        EXPECT_LT(script->onMethodParameterAdded(1), 0);
        EXPECT_LT(script->onMethodParameterAdded(1.0F), 0);
        EXPECT_LT(script->onMethodCalled("f"), 0);
        EXPECT_THAT(log.lines(), IsEmpty());

        // There is nothing to read, so the results are neutral.
        script->onGetReturnValue(flag);
        script->onGetReturnValue(number);
        script->onGetReturnValue(ratio);
        script->onGetReturnValue(text);
        EXPECT_EQ(std::tie(flag, number, ratio, text), std::make_tuple(false, 0, 0.0F, ""));
    }
}

TEST(LuaScriptTest, CallOfAnUnloadedScriptIsAnInvalidState)
{
    LuaScript script;
    int number = 1;
    LogCapture log;

    EXPECT_EQ(script.callMethod("f", 1), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(refusedCall()));
    // Nothing to read, nothing to crash on.
    script.onReturnValueEvaluateBegin();
    script.onReturnValueEvaluateEnd();

    log.clear();
    EXPECT_EQ(script.callMethod("f"), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(),
                ElementsAre(refusedCall(), LoggedIn("OxScript.cpp", "callMethod", "(-524271)")));

    log.clear();
    EXPECT_EQ(script.callMethod("f", std::tie(number), 1, "text"), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(refusedCall()));
    EXPECT_EQ(number, 1);
}

// ---- Calls within calls --------------------------------------------------------------------------

TEST(LuaScriptTest, TypedCallReadsItsOwnResultsAfterCallsFromWithin)
{
    LuaScript* script = nullptr;
    NativeApi api([&](lua_State*, const std::string& text) {
        if (text == "typed") {
            int sum = 0;
            EXPECT_EQ(script->callMethod("add", std::tie(sum), 2, 3), STATUS_SUCCESS);
            EXPECT_EQ(sum, 5);
        } else {
            EXPECT_EQ(script->callMethod(text, 3), STATUS_SUCCESS);
        }
    });
    LoadedScript loaded(
        "function add(a, b) return a + b end\n"
        "function three() return 7, 8, 9 end\n"
        "function outer(what) native.run(what) return what, 2 end",
        {&api});
    script = &loaded.script;

    for (const char* what : {"typed", "three", "missing"}) {
        SCOPED_TRACE(what);
        std::string text;
        int number = 0;
        EXPECT_EQ(script->callMethod("outer", std::tie(text, number), what), STATUS_SUCCESS);
        EXPECT_EQ(text, what);
        EXPECT_EQ(number, 2);
        EXPECT_EQ(script->getMethodName(), "outer");
        EXPECT_EQ(script->getReturnCount(), 2);
        EXPECT_EQ(script->getParameterCount(), 1);
        EXPECT_EQ(loaded.top(), BUILT_IN + 1);
    }
}

TEST(LuaScriptTest, TypedCallReadsItsOwnResultsAfterATimerInAWaitingLoop)
{
    LoadedScript loaded(
        "ticks = 0\n"
        "function tick() ticks = ticks + 1 WaitingLoop.quit(loop) end\n"
        "function outer(a)\n"
        "  loop = WaitingLoop.create()\n"
        "  local timer = Timer.start(0, 'tick', false)\n"
        "  WaitingLoop.run(loop)\n"
        "  Timer.stop(timer)\n"
        "  WaitingLoop.destroy(loop)\n"
        "  return a + 1, 'done', ticks\n"
        "end");
    int number = 0;
    std::string text;
    int ticks = 0;

    EXPECT_EQ(loaded.script.callMethod("outer", std::tie(number, text, ticks), 4), STATUS_SUCCESS);
    EXPECT_EQ(std::tie(number, text, ticks), std::make_tuple(5, "done", 1));
    EXPECT_EQ(loaded.top(), BUILT_IN);
    EXPECT_EQ(loaded.script.getMethodName(), "outer");
}

TEST(LuaScriptTest, CallFromWithinOverwritesTheBookkeepingOfAnUntypedCall)
{
    LuaScript* script = nullptr;
    NativeApi api([&](lua_State*, const std::string&) {
        EXPECT_EQ(script->callMethod("inner", std::tie(), 1, 2, 3), STATUS_SUCCESS);
    });
    LoadedScript loaded(
        "function inner() end\n"
        "function outer() native.run() return 1, 2 end",
        {&api});
    script = &loaded.script;

    EXPECT_EQ(script->callMethod("outer", 2), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + 1 + 2);
    EXPECT_EQ(script->getMethodName(), "inner");
    EXPECT_EQ(script->getReturnCount(), 0);
    EXPECT_EQ(script->getParameterCount(), 3);
}

// ---- Exceptions ----------------------------------------------------------------------------------

struct OwnException {
    int number;
};

const char* const NO_SHELF = "no such shelf";

void throwSomething(lua_State*, const std::string& what)
{
    if (what == "out_of_range") {
        throw std::out_of_range(NO_SHELF);
    }
    if (what == "own") {
        throw OwnException{5};
    }
    if (what == "int") {
        throw 7;
    }
}

testing::Matcher<std::function<void()>> throwsOutOfRange()
{
    return Throws<std::out_of_range>(AllOf(Property(&std::out_of_range::what, StrEq(NO_SHELF)),
                                           testing::ResultOf(
                                               [](const std::out_of_range& exception) {
                                                   return typeid(exception) ==
                                                          typeid(std::out_of_range);
                                               },
                                               true)));
}

const char* const THROWING =
    "function f(what) native.run(what) return 'returned' end\n"
    "function handled(what) local ok, message = pcall(native.run, what) return tostring(ok), "
    "type(message), message end\n"
    "function later(what) pcall(native.run, what) error('another', 0) end\n";

TEST(LuaScriptTest, ExceptionOfANativeFunctionComesOutOfACall)
{
    NativeApi api(throwSomething);
    LoadedScript loaded(THROWING, {&api});
    LuaScript& script = loaded.script;
    const int top = loaded.top();

    EXPECT_THAT([&] { script.callMethod("f", std::tie(), "out_of_range"); }, throwsOutOfRange());
    EXPECT_EQ(loaded.top(), top + 1);
    EXPECT_THAT(loaded.message(), HasSubstr(NO_SHELF));

    // A typed call reads nothing then.
    std::string text = "before";
    EXPECT_THAT([&] { script.callMethod("f", std::tie(text), "own"); },
                Throws<OwnException>(Field(&OwnException::number, 5)));
    EXPECT_EQ(text, "before");
    EXPECT_EQ(loaded.top(), top + 2);
    EXPECT_THAT(loaded.message(), HasSubstr("unknown exception"));

    EXPECT_THAT([&] { script.callMethod("f", std::tie(text), "int"); }, Throws<int>(7));
    EXPECT_EQ(loaded.top(), top + 3);

    EXPECT_EQ(script.callMethod("f", std::tie(text), ""), STATUS_SUCCESS);
    EXPECT_EQ(text, "returned");
    EXPECT_EQ(loaded.top(), top + 3);
}

TEST(LuaScriptTest, ExceptionComesOutOfUntypedCallsToo)
{
    NativeApi api(throwSomething);
    LoadedScript loaded("function f() native.run('out_of_range') end", {&api});
    const int top = loaded.top();

    EXPECT_THAT([&] { loaded.script.callMethod("f"); }, throwsOutOfRange());
    EXPECT_THAT([&] { loaded.script.callMethod("f", 3); }, throwsOutOfRange());
    EXPECT_EQ(loaded.top(), top + 2);
    EXPECT_THAT(loaded.message(), HasSubstr(NO_SHELF));
}

TEST(LuaScriptTest, ExceptionThatTheScriptHandlesIsAnOrdinaryLuaError)
{
    NativeApi api(throwSomething);
    LoadedScript loaded(THROWING, {&api});
    for (const auto& [what, reason] :
         {std::pair("out_of_range", NO_SHELF), std::pair("own", "unknown exception"),
          std::pair("int", "unknown exception")}) {
        SCOPED_TRACE(what);
        std::string ok;
        std::string type;
        std::string message;

        EXPECT_EQ(loaded.script.callMethod("handled", std::tie(ok, type, message), what),
                  STATUS_SUCCESS);
        EXPECT_EQ(ok, "false");
        EXPECT_EQ(type, "string");
        EXPECT_THAT(message, HasSubstr(reason));
        EXPECT_EQ(loaded.top(), BUILT_IN + 1);
    }
}

TEST(LuaScriptTest, HandledExceptionIsNotThrownForALaterError)
{
    NativeApi api(throwSomething);
    LoadedScript loaded(THROWING, {&api});
    std::string text;

    EXPECT_EQ(loaded.script.callMethod("later", std::tie(text), "out_of_range"), STATUS_SUCCESS);
    EXPECT_EQ(text, "another");

    // Neither in the next call.
    EXPECT_EQ(loaded.script.callMethod("handled", std::tie(), "out_of_range"), STATUS_SUCCESS);
    EXPECT_EQ(loaded.script.callMethod("missing", std::tie(text)), STATUS_SUCCESS);
    EXPECT_EQ(text, CALLING_NIL);
}

TEST(LuaScriptTest, LaterOneOfTwoExceptionsIsThrown)
{
    NativeApi api(throwSomething);
    LoadedScript loaded("function f() pcall(native.run, 'out_of_range') native.run('own') end",
                        {&api});

    EXPECT_THAT([&] { loaded.script.callMethod("f"); },
                Throws<OwnException>(Field(&OwnException::number, 5)));
}

TEST(LuaScriptTest, ExceptionWhileTheFileRunsComesOutOfLoad)
{
    lua_State* old = nullptr;
    NativeApi api([&](lua_State* state, const std::string& what) {
        old = state;
        throwSomething(state, what);
    });
    const ScriptFile file("native.run('out_of_range')");
    LuaScript script(file.path());
    ASSERT_EQ(script.addLuaApi(&api), STATUS_SUCCESS);
    LogCapture log;
    LuaStates states;

    EXPECT_THAT([&] { script.load(); }, throwsOutOfRange());

    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_THAT(log.lines()[0], logged("onLoading", log.lines()[0].message));
    EXPECT_THAT(log.lines()[0].message, AllOf(StartsWith("filePath(" + file.path() + ") (1) ("),
                                              HasSubstr(NO_SHELF), EndsWith(").")));
    EXPECT_EQ(script.getLuaState(), nullptr);
    EXPECT_THAT(states.closed(), ElementsAre(old));
    EXPECT_EQ(LuaScript::getLuaScript(old), &script);

    file.write("pcall(native.run, 'out_of_range')");
    log.clear();
    EXPECT_EQ(script.load(), STATUS_SUCCESS);
    file.write("pcall(native.run, 'out_of_range') error('boom', 0)");
    EXPECT_EQ(script.load(), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(failedLoad(file.path(), "boom")));
}

TEST(LuaScriptTest, ExceptionPassesThroughNestedCallsOneByOne)
{
    LoadedScript* inner = nullptr;
    int throughOuter = 0;
    NativeApi innerApi(throwSomething);
    LoadedScript innerScript(THROWING, {&innerApi});
    NativeApi outerApi([&](lua_State*, const std::string& what) {
        try {
            inner->script.callMethod("f", std::tie(), what);
        } catch (...) {
            ++throughOuter;
            throw;
        }
    });
    LoadedScript outerScript(THROWING, {&outerApi});
    const int innerTop = innerScript.top();
    const int outerTop = outerScript.top();

    for (LoadedScript* callee : {&innerScript, &innerScript}) {
        inner = callee;
        EXPECT_THAT([&] { outerScript.script.callMethod("f", std::tie(), "out_of_range"); },
                    throwsOutOfRange());
    }
    EXPECT_EQ(throughOuter, 2);
    EXPECT_EQ(innerScript.top(), innerTop + 2);
    EXPECT_EQ(outerScript.top(), outerTop + 2);

    std::string ok;
    EXPECT_EQ(outerScript.script.callMethod("handled", std::tie(ok), "out_of_range"),
              STATUS_SUCCESS);
    EXPECT_EQ(ok, "false");
}

TEST(LuaScriptTest, ExceptionBelongsToTheInnermostCall)
{
    // Within one script, and from one to another.
    for (const bool same : {true, false}) {
        SCOPED_TRACE(same);
        LuaScript* callee = nullptr;
        int caught = 0;
        NativeApi api([&](lua_State* state, const std::string& what) {
            if (what != "call") {
                throwSomething(state, what);
                return;
            }
            try {
                callee->callMethod("f", std::tie(), "out_of_range");
                ADD_FAILURE() << "nothing thrown";
            } catch (const std::out_of_range&) {
                ++caught;
            }
        });
        LoadedScript other(THROWING, {&api});
        LoadedScript loaded(
            std::string(THROWING) + "function afterwards() native.run('call') error('boom', 0) end",
            {&api});
        callee = same ? &loaded.script : &other.script;
        std::string text;

        EXPECT_EQ(loaded.script.callMethod("f", std::tie(text), "call"), STATUS_SUCCESS);
        EXPECT_EQ(text, "returned");
        EXPECT_EQ(loaded.script.callMethod("afterwards", std::tie(text)), STATUS_SUCCESS);
        EXPECT_EQ(text, "boom");
        EXPECT_EQ(caught, 2);
    }
}

TEST(LuaScriptTest, ErrorOfTheOuterCallIsItsOwnWhateverItSays)
{
    LuaScript* script = nullptr;
    std::string message;
    NativeApi api([&](lua_State* state, const std::string& what) {
        if (what == "call") {
            EXPECT_THAT([&] { script->callMethod("inner"); }, throwsOutOfRange());
            message = lua_tostring(state, -1);
            lua_setglobal(state, "message");
        } else {
            throwSomething(state, what);
        }
    });
    LoadedScript loaded(
        "function inner() native.run('out_of_range') end\n"
        "function outer() native.run('call') error(message, 0) end",
        {&api});
    script = &loaded.script;
    std::string text;

    EXPECT_EQ(script->callMethod("outer", std::tie(text)), STATUS_SUCCESS);
    EXPECT_THAT(text, HasSubstr(NO_SHELF));
    EXPECT_EQ(text, message);
}

TEST(LuaScriptTest, HandledExceptionIsNotThrownByACallFromWithin)
{
    for (const bool same : {true, false}) {
        SCOPED_TRACE(same);
        LuaScript* callee = nullptr;
        NativeApi api([&](lua_State* state, const std::string& what) {
            if (what != "call") {
                throwSomething(state, what);
                return;
            }
            std::string text;
            EXPECT_EQ(callee->callMethod("missing", std::tie(text)), STATUS_SUCCESS);
            EXPECT_EQ(text, CALLING_NIL);
        });
        LoadedScript other(THROWING, {&api});
        LoadedScript loaded(
            "function both() pcall(native.run, 'out_of_range') native.run('call') return 1 end",
            {&api});
        callee = same ? &loaded.script : &other.script;
        int number = 0;

        EXPECT_EQ(loaded.script.callMethod("both", std::tie(number)), STATUS_SUCCESS);
        EXPECT_EQ(number, 1);
    }
}

TEST(LuaScriptTest, CallWithinAHandlerKeepsTheException)
{
    // The exception is on its way out while another call succeeds.
    LuaScript* script = nullptr;
    NativeApi api([&](lua_State* state, const std::string& what) {
        if (what == "call") {
            EXPECT_EQ(script->callMethod("quiet"), STATUS_SUCCESS);
            return;
        }
        throwSomething(state, what);
    });
    LoadedScript loaded(
        "function quiet() end\n"
        "function f()\n"
        "  local ok, message = xpcall(function() native.run('out_of_range') end, function(m) "
        "native.run('call') return m end)\n"
        "  error('other: ' .. message, 0)\n"
        "end",
        {&api});
    script = &loaded.script;
    std::string text;

    EXPECT_EQ(script->callMethod("f", std::tie(text)), STATUS_SUCCESS);
    EXPECT_THAT(text, AllOf(StartsWith("other: "), HasSubstr(NO_SHELF)));
}

TEST(LuaScriptTest, ExceptionBehindAMissingGlobalComesOutOfTheCall)
{
    NativeApi api(throwSomething);
    LoadedScript loaded("setmetatable(_G, {__index = function() native.run('out_of_range') end})",
                        {&api});
    const int top = loaded.top();

    EXPECT_THAT([&] { loaded.script.callMethod("unknown"); }, throwsOutOfRange());
    EXPECT_EQ(loaded.top(), top + 1);
    EXPECT_THAT(loaded.message(), HasSubstr(NO_SHELF));
}

TEST(LuaScriptTest, ErrorBehindAMissingGlobalIsTheMessageThatIsLeft)
{
    LoadedScript loaded(
        "setmetatable(_G, {__index = function(_, name) error('no ' .. name, 0) end})");
    std::string text;

    EXPECT_EQ(loaded.script.callMethod("unknown", std::tie(text)), STATUS_SUCCESS);
    EXPECT_EQ(text, "no unknown");
}

TEST(LuaScriptTest, ErrorBehindAMissingGlobalIsNeverCalled)
{
    LoadedScript loaded(
        "called = 'no'\n"
        "setmetatable(_G, {__index = function() error(function() called = 'yes' end) end})");

    EXPECT_EQ(loaded.script.callMethod("unknown"), STATUS_SUCCESS);
    EXPECT_EQ(globalText(loaded, "called"), "no");
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

// ---- What the script does behind the back of a call

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

TEST(LuaScriptTest, FailingFinalizersStayInsideTheState)
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
TEST(LuaScriptTest, FailingFinalizersStayInsideANestedCall)
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

TEST(LuaScriptTest, ACallThatLooksForItsFunctionKeepsItsBookkeeping)
{
    NativeApi api;
    LoadedScript loaded(
        "function two(a, b) return a + b end\n"
        "setmetatable(_G, {__index = function() native.run() return function(...)\n"
        "    return select('#', ...), ... end end})",
        {&api});
    int nested = 0;
    api.body = [&](lua_State*, const std::string&) {
        EXPECT_EQ(loaded.script.callMethod("two", std::tie(nested), 20, 22), 0);
    };
    int count = 0;
    int value = 0;

    EXPECT_EQ(loaded.script.callMethod("missing", std::tie(count, value), 9), 0);

    EXPECT_EQ(nested, 42);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(value, 9);
    EXPECT_EQ(loaded.script.getMethodName(), "missing");
    EXPECT_EQ(loaded.script.getParameterCount(), 1);
    EXPECT_EQ(loaded.script.getReturnCount(), 2);
}

TEST(LuaScriptTest, ANumberFarOutOfRangeIsTheLimit)
{
    LoadedScript loaded("function f() return 1e300, -1e300, 0/0, 1.9, -1.9 end");
    int most = 0;
    int least = 0;
    int none = 1;
    int up = 0;
    int down = 0;

    EXPECT_EQ(loaded.script.callMethod("f", std::tie(most, least, none, up, down)), 0);

    EXPECT_EQ(most, INT_MAX);
    EXPECT_EQ(least, INT_MIN);
    EXPECT_EQ(none, 0);
    EXPECT_EQ(up, 1);
    EXPECT_EQ(down, -1);
}

TEST(LuaScriptTest, ACallWithoutItsFunctionOnTheStackIsRefused)
{
    LoadedScript loaded("");
    lua_settop(loaded.state(), 0);

    EXPECT_LT(loaded.script.onMethodCalled("f"), 0);
    EXPECT_EQ(loaded.top(), 0);
}

}  // namespace
}  // namespace oxil::test
