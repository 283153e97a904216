#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <lua.hpp>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "LoadedScript.h"
#include "MainLoop.h"
#include "NativeApi.h"
#include "OxLogMatchers.h"
#include "OxLuaLimits.h"
#include "OxLuaScript.h"
#include "OxStatus.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* CONTENT = R"(
function inner(x) return x.y end
function outer() inner(nil) end
function number() error(12, 0) end
function table() error({}) end
function fine() return 7 end
)";

struct Report {
    std::string methodName;
    std::string message;
    std::string traceback;
};

class LuaErrorHandlerTest : public testing::Test {
protected:
    explicit LuaErrorHandlerTest() { loaded.script.setErrorHandler(handler); }

    std::vector<Report> reports;
    const LuaScript::ErrorHandler handler =
        [this](const std::string& name, const std::string& message, const std::string& traceback) {
            reports.push_back({name, message, traceback});
        };
    NativeApi api;
    LoadedScript loaded{CONTENT, {&api}};
};

TEST_F(LuaErrorHandlerTest, ItIsToldOfFunctionMessageAndTraceback)
{
    EXPECT_EQ(loaded.script.callMethod("outer"), STATUS_SUCCESS);

    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].methodName, "outer");
    EXPECT_THAT(reports[0].message, HasSubstr(":2: attempt to index local 'x' (a nil value)"));
    EXPECT_THAT(reports[0].traceback, StartsWith("stack traceback:\n\t"));
    EXPECT_THAT(reports[0].traceback, HasSubstr(loaded.file.path() + ":2: in function 'inner'"));
    EXPECT_THAT(reports[0].traceback, HasSubstr(loaded.file.path() + ":3: in function"));
    // The first line is the first that the script knows of.
    EXPECT_LT(reports[0].traceback.find(":2: in"), loaded.file.path().size() + 24);
}

TEST_F(LuaErrorHandlerTest, NothingElseChanges)
{
    NativeApi otherApi;
    LoadedScript other(CONTENT, {&otherApi});
    for (const char* name : {"outer", "number", "table", "missing", "fine"}) {
        for (const int count : {0, 1, 3}) {
            SCOPED_TRACE(name);
            EXPECT_EQ(loaded.script.callMethod(name, count), other.script.callMethod(name, count));

            EXPECT_EQ(loaded.top(), other.top());
            for (int i = 1; i <= count; ++i) {
                EXPECT_EQ(lua_type(loaded.state(), -i), lua_type(other.state(), -i));
            }
        }
    }
}

TEST_F(LuaErrorHandlerTest, AnErrorValueThatIsNoTextIsToldAsInTheLog)
{
    loaded.script.callMethod("number");
    loaded.script.callMethod("table");

    ASSERT_EQ(reports.size(), 2U);
    EXPECT_EQ(reports[0].message, "12");
    EXPECT_EQ(reports[1].message, "(null)");
    EXPECT_EQ(lua_type(loaded.state(), -2), LUA_TNUMBER) << "it is still what it was";
}

TEST_F(LuaErrorHandlerTest, ATypedCallThatFailsIsTold)
{
    int result = 0;
    EXPECT_EQ(loaded.script.callMethod("missing", std::tie(result), 1, "two"), STATUS_SUCCESS);
    EXPECT_EQ(loaded.script.callMethod("fine", std::tie(result)), STATUS_SUCCESS);

    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].methodName, "missing");
    EXPECT_EQ(reports[0].message, "attempt to call a nil value");
    EXPECT_EQ(result, 7);
}

TEST_F(LuaErrorHandlerTest, ATimersFunctionThatFailsIsTold)
{
    LoadedScript timed(
        "function tick() error('broken') end timer = Timer.start(0, 'tick')"
        " function stop() Timer.stop(timer) end");
    timed.script.setErrorHandler(handler);

    EXPECT_TRUE(iterateUntil([this] { return !reports.empty(); }, std::chrono::seconds(5)));

    EXPECT_EQ(reports[0].methodName, "tick");
    EXPECT_THAT(reports[0].message, EndsWith(":1: broken"));
    EXPECT_EQ(timed.script.callMethod("stop"), STATUS_SUCCESS);
}

TEST_F(LuaErrorHandlerTest, LoadingLogsAndTellsNothing)
{
    loaded.file.write("error('broken')");
    LogCapture log;

    EXPECT_EQ(loaded.script.load(), STATUS_INVALID_STATE);

    EXPECT_THAT(reports, IsEmpty());
    EXPECT_EQ(log.lines().size(), 1U);
    loaded.file.write(CONTENT);
    EXPECT_EQ(loaded.script.load(), STATUS_SUCCESS);
    EXPECT_EQ(loaded.script.callMethod("outer"), STATUS_SUCCESS);
    EXPECT_EQ(reports.size(), 1U) << "it stays when the state is another";
}

TEST_F(LuaErrorHandlerTest, ItCanBeReplacedAndTakenAway)
{
    int others = 0;
    loaded.script.setErrorHandler(
        [&](const std::string&, const std::string&, const std::string&) { ++others; });
    loaded.script.callMethod("outer");
    loaded.script.setErrorHandler(nullptr);
    loaded.script.callMethod("outer");

    EXPECT_EQ(others, 1);
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(LuaErrorHandlerTest, AScriptHasOnlyItsOwn)
{
    {
        LoadedScript other(CONTENT);
        other.script.callMethod("outer");
    }
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(LuaErrorHandlerTest, ItMayDestroyTheScript)
{
    auto shortLived = std::make_unique<LoadedScript>(CONTENT);
    std::string name;
    shortLived->script.setErrorHandler(
        [&, kept = std::make_shared<int>(1)](const std::string& methodName, const std::string&,
                                             const std::string&) {
            shortLived.reset();
            name = methodName;
            EXPECT_EQ(*kept, 1);
        });
    LogCapture log;

    EXPECT_EQ(shortLived->script.callMethod("outer", 0), STATUS_INVALID_STATE);

    EXPECT_EQ(name, "outer");
    EXPECT_THAT(log.lines(), ElementsAre(Logged("callMethod", "Invalid state.")));
}

TEST_F(LuaErrorHandlerTest, ItMayCallTheScript)
{
    int result = 0;
    loaded.script.setErrorHandler(
        [&](const std::string& name, const std::string&, const std::string&) {
            EXPECT_EQ(loaded.script.callMethod("fine", std::tie(result)), STATUS_SUCCESS);
            EXPECT_EQ(name, "outer");
        });
    const int top = loaded.top();

    EXPECT_EQ(loaded.script.callMethod("outer"), STATUS_SUCCESS);

    EXPECT_EQ(result, 7);
    EXPECT_EQ(loaded.top(), top + 1) << "the message";
}

TEST_F(LuaErrorHandlerTest, ACallOfItsOwnThatFailsChangesNothingForTheOther)
{
    api.body = [](lua_State*, const std::string&) { throw std::out_of_range("too far"); };
    LoadedScript throwing("function f() native.run() end function g() error('of g') end", {&api});
    std::string result;
    for (const char* function : {"f", "g"}) {
        int depth = 0;
        throwing.script.setErrorHandler(
            [&](const std::string&, const std::string&, const std::string&) {
                if (++depth == 1) {
                    throwing.script.callMethod("missing");
                }
            });
        const int top = throwing.top();
        if (function == std::string("f")) {
            EXPECT_THROW(throwing.script.callMethod(function), std::out_of_range);
            EXPECT_EQ(throwing.top(), top + 1) << "the message";
        } else {
            EXPECT_EQ(throwing.script.callMethod(function, std::tie(result)), STATUS_SUCCESS);
            EXPECT_THAT(result, EndsWith("of g"));
            EXPECT_EQ(throwing.top(), top);
        }
        EXPECT_EQ(depth, 2);
    }
}

TEST_F(LuaErrorHandlerTest, WhatItThrowsComesOutOfTheCall)
{
    loaded.script.setErrorHandler([](const std::string&, const std::string& message,
                                     const std::string&) { throw std::runtime_error(message); });

    EXPECT_THROW(loaded.script.callMethod("outer"), std::runtime_error);
}

TEST_F(LuaErrorHandlerTest, AnExceptionOfANativeFunctionIsToldAndThrown)
{
    api.body = [](lua_State*, const std::string&) { throw std::out_of_range("too far"); };
    LoadedScript throwing("function f() native.run() end", {&api});
    throwing.script.setErrorHandler(handler);

    EXPECT_THROW(throwing.script.callMethod("f"), std::out_of_range);

    ASSERT_EQ(reports.size(), 1U);
    EXPECT_THAT(reports[0].message, EndsWith("too far"));
}

TEST_F(LuaErrorHandlerTest, ItDoesNotNeedTheLibrariesOfTheScript)
{
    LuaLimits limits(1000 * 1000, 1024 * 1024);
    LoadedScript limited("function f() while true do end end", {&limits});
    limited.script.setErrorHandler(handler);

    EXPECT_EQ(limited.script.callMethod("f"), STATUS_SUCCESS);

    ASSERT_EQ(reports.size(), 1U);
    EXPECT_THAT(reports[0].message, EndsWith(":1: instruction limit reached"));
    EXPECT_THAT(reports[0].traceback, HasSubstr(":1: in function"));
}

TEST_F(LuaErrorHandlerTest, WithoutMemoryThereIsNoTraceback)
{
    LuaLimits limits(1000 * 1000 * 1000, 1024 * 1024);
    LoadedScript limited("local t = {} function f() while true do t[#t + 1] = {} end end",
                         {&limits});
    limited.script.setErrorHandler(handler);

    EXPECT_EQ(limited.script.callMethod("f"), STATUS_SUCCESS);

    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].message, "not enough memory");
    EXPECT_EQ(reports[0].traceback, "");
}

}  // namespace
}  // namespace oxil::test
