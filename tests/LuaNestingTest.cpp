// Calls of a script within each other: as many as the C stack is for, with every interpreter.

#include <OxStatus.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <lua.hpp>
#include <string>
#include <tuple>

#include "LoadedScript.h"
#include "LuaChunk.h"
#include "NativeApi.h"
#include "OxLogMatchers.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;

constexpr int LEVELS = 199;  // the next one is refused
constexpr int ENOUGH = 1000;

/** Functions that lead to calls of themselves, from native.run(). */
class LuaNestingTest : public testing::Test {
protected:
    LuaNestingTest()
        : api([this](lua_State*, const std::string& name) { onRun(name); }),
          loaded(
              "function direct() native.run('direct') end\n"
              "function inCoroutine() coroutine.wrap(function() native.run('inCoroutine') end)() "
              "end\n"
              "function works() return 42 end",
              {&api}),
          top(loaded.top())
    {
    }

    void onRun(const std::string& name)
    {
        if (++depth < ENOUGH) {
            const int before = lua_gettop(loaded.state());
            EXPECT_EQ(loaded.script.callMethod(name), STATUS_SUCCESS);
            if (lua_gettop(loaded.state()) > before) {
                ++failures;
                message = inWords(loaded.state(), -1);
            }
        }
    }

    void expectThatItWorks()
    {
        int number = 0;
        EXPECT_EQ(loaded.script.callMethod("works", std::tie(number)), STATUS_SUCCESS);
        EXPECT_EQ(number, 42);
        EXPECT_EQ(loaded.top(), top);
    }

    NativeApi api;
    LoadedScript loaded;
    int top;
    int depth = 0;
    int failures = 0;
    std::string message;
};

TEST_F(LuaNestingTest, TheInnermostOfTooManyCallsFailsAsInLua51)
{
    for (const char* name : {"direct", "inCoroutine"}) {
        SCOPED_TRACE(name);
        depth = 0;
        failures = 0;

        EXPECT_EQ(loaded.script.callMethod(name), STATUS_SUCCESS);

        EXPECT_EQ(depth, LEVELS);
        EXPECT_EQ(failures, 1);
        EXPECT_EQ(message, "C stack overflow");
        expectThatItWorks();
    }
}

TEST_F(LuaNestingTest, TheInnermostOfTooManyTypedCallsReadsTheMessage)
{
    std::string innermost;
    api.body = [&](lua_State*, const std::string&) {
        if (++depth < ENOUGH) {
            std::string text;
            EXPECT_EQ(loaded.script.callMethod("direct", std::tie(text), 1), STATUS_SUCCESS);
            innermost += text;
        }
    };

    EXPECT_EQ(loaded.script.callMethod("direct"), STATUS_SUCCESS);

    EXPECT_EQ(depth, LEVELS);
    EXPECT_EQ(innermost, "C stack overflow");
    expectThatItWorks();
}

TEST_F(LuaNestingTest, TheInnermostOfTooManyCallsWithATextIsRefused)
{
    LogCapture log;
    int refused = 0;
    api.body = [&](lua_State*, const std::string&) {
        if (++depth < ENOUGH && loaded.script.callMethod("direct", std::tie(), "text") != 0) {
            ++refused;
        }
    };

    EXPECT_EQ(loaded.script.callMethod("direct"), STATUS_SUCCESS);

    EXPECT_EQ(depth, LEVELS);
    EXPECT_EQ(refused, 1);
    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxScript.cpp", "callMethod", "Invalid state.")));
    expectThatItWorks();
}

TEST_F(LuaNestingTest, ScriptsCountTheirCallsEachForItself)
{
    LoadedScript other("function direct() native.run('direct') end", {&api});
    int otherDepth = 0;
    api.body = [&](lua_State* state, const std::string&) {
        LoadedScript& next = state == loaded.state() ? other : loaded;
        ++(state == loaded.state() ? depth : otherDepth);
        if (depth < ENOUGH) {
            EXPECT_EQ(next.script.callMethod("direct"), STATUS_SUCCESS);
        }
    };

    EXPECT_EQ(loaded.script.callMethod("direct"), STATUS_SUCCESS);

    EXPECT_EQ(depth, LEVELS);
    EXPECT_EQ(otherDepth, LEVELS);
}

}  // namespace
}  // namespace oxil::test
