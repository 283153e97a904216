#include "OxLuaScript.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <lua.hpp>
#include <stdexcept>
#include <string>
#include <tuple>
#include <typeinfo>
#include <utility>

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
using testing::Field;
using testing::HasSubstr;
using testing::Property;
using testing::StartsWith;
using testing::StrEq;
using testing::Throws;

const LoggedBy logged("OxLuaScript.cpp");

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

TEST(LuaExceptionTest, ExceptionOfANativeFunctionComesOutOfACall)
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

TEST(LuaExceptionTest, ExceptionComesOutOfUntypedCallsToo)
{
    NativeApi api(throwSomething);
    LoadedScript loaded("function f() native.run('out_of_range') end", {&api});
    const int top = loaded.top();

    EXPECT_THAT([&] { loaded.script.callMethod("f"); }, throwsOutOfRange());
    EXPECT_THAT([&] { loaded.script.callMethod("f", 3); }, throwsOutOfRange());
    EXPECT_EQ(loaded.top(), top + 2);
    EXPECT_THAT(loaded.message(), HasSubstr(NO_SHELF));
}

TEST(LuaExceptionTest, ExceptionThatTheScriptHandlesIsAnOrdinaryLuaError)
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

TEST(LuaExceptionTest, HandledExceptionIsNotThrownForALaterError)
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

TEST(LuaExceptionTest, LaterOneOfTwoExceptionsIsThrown)
{
    NativeApi api(throwSomething);
    LoadedScript loaded("function f() pcall(native.run, 'out_of_range') native.run('own') end",
                        {&api});

    EXPECT_THAT([&] { loaded.script.callMethod("f"); },
                Throws<OwnException>(Field(&OwnException::number, 5)));
}

TEST(LuaExceptionTest, ExceptionWhileTheFileRunsComesOutOfLoad)
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

TEST(LuaExceptionTest, ExceptionPassesThroughNestedCallsOneByOne)
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

TEST(LuaExceptionTest, ExceptionBelongsToTheInnermostCall)
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

TEST(LuaExceptionTest, ErrorOfTheOuterCallIsItsOwnWhateverItSays)
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

TEST(LuaExceptionTest, HandledExceptionIsNotThrownByACallFromWithin)
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

TEST(LuaExceptionTest, CallWithinAHandlerKeepsTheException)
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

TEST(LuaExceptionTest, ExceptionBehindAMissingGlobalComesOutOfTheCall)
{
    NativeApi api(throwSomething);
    LoadedScript loaded("setmetatable(_G, {__index = function() native.run('out_of_range') end})",
                        {&api});
    const int top = loaded.top();

    EXPECT_THAT([&] { loaded.script.callMethod("unknown"); }, throwsOutOfRange());
    EXPECT_EQ(loaded.top(), top + 1);
    EXPECT_THAT(loaded.message(), HasSubstr(NO_SHELF));
}

TEST(LuaExceptionTest, ErrorBehindAMissingGlobalIsTheMessageThatIsLeft)
{
    LoadedScript loaded(
        "setmetatable(_G, {__index = function(_, name) error('no ' .. name, 0) end})");
    std::string text;

    EXPECT_EQ(loaded.script.callMethod("unknown", std::tie(text)), STATUS_SUCCESS);
    EXPECT_EQ(text, "no unknown");
}

TEST(LuaExceptionTest, ErrorBehindAMissingGlobalIsNeverCalled)
{
    LoadedScript loaded(
        "called = 'no'\n"
        "setmetatable(_G, {__index = function() error(function() called = 'yes' end) end})");

    EXPECT_EQ(loaded.script.callMethod("unknown"), STATUS_SUCCESS);
    EXPECT_EQ(globalText(loaded, "called"), "no");
}

}  // namespace
}  // namespace oxil::test
