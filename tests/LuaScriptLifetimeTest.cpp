// Scripts that are destroyed, or loaded again, while their functions are on the C stack.

#include <OxLuaScript.h>
#include <OxStatus.h>
#include <OxTimer.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <lua.hpp>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>

#include "LuaCalls.h"
#include "MainLoop.h"
#include "NativeApi.h"
#include "OxLogMatchers.h"
#include "ScriptFile.h"
#include "ScriptLog.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::SizeIs;
using testing::Values;

const char FUNCTIONS[] = R"(
    function works() return 42 end
    function f() native.run() return string.rep('after', 100), 1 end
    function nests() native.run('call') return 'nested', 1 end
    function inCoroutine() return coroutine.wrap(f)() end
    function blocks()
        local loop = WaitingLoop.create()
        WaitingLoop.runTime(loop, 50)
        WaitingLoop.destroy(loop)
        native.run('unblocked')
        return 'unblocked', 1
    end
    function blocksInCoroutine() return coroutine.wrap(blocks)() end
)";

auto failedLoad()
{
    return LoggedIn("OxLuaScript.cpp", "onLoading", "Invalid state.");
}

/** A script that may be destroyed, and what native.run() does with it. */
class Meddling {
protected:
    Meddling() : file(FUNCTIONS), script(new LuaScript(file.path()))
    {
        api.body = [this](lua_State*, const std::string& what) {
            if (what == "call") {
                script->callMethod("f");
            } else if (what == "unblocked") {
                found = LuaScript::getLuaScript(state);
                ++unblocked;
            } else {
                meddle();
            }
        };
        script->addLuaApi(&api);
    }

    void load()
    {
        ASSERT_EQ(script->load(), STATUS_SUCCESS);
        state = script->getLuaState();
    }

    void destroy()
    {
        ++meddled;
        const std::size_t closed = states.closed().size();
        script.reset();
        EXPECT_EQ(states.closed().size(), closed);
    }

    void loadAgain()
    {
        ++meddled;
        const std::size_t closed = states.closed().size();
        EXPECT_TRUE(script->isBusy());
        EXPECT_EQ(script->load(), STATUS_SUCCESS);
        EXPECT_FALSE(script->isBusy());
        EXPECT_NE(script->getLuaState(), state);
        EXPECT_EQ(states.closed().size(), closed);
    }

    ScriptFile file;
    LuaStates states;
    NativeApi api;
    std::unique_ptr<LuaScript> script;
    lua_State* state = nullptr;
    std::function<void()> meddle = [] {};
    int meddled = 0;
    int unblocked = 0;
    LuaScript* found = nullptr;
};

class LuaScriptLifetimeTest : public testing::Test, protected Meddling {};

class LuaScriptRunningTest : public testing::TestWithParam<const char*>, protected Meddling {
protected:
    /** Does it from native.run(), or from a timer if the function blocks. */
    void whileItRuns(const std::function<void()>& doIt)
    {
        if (std::string(GetParam()).find("blocks") == 0) {
            __timer.start(0, doIt);
        } else {
            meddle = doIt;
        }
    }

private:
    Timer __timer;
};

INSTANTIATE_TEST_SUITE_P(Functions, LuaScriptRunningTest,
                         Values("f", "nests", "inCoroutine", "blocks", "blocksInCoroutine"),
                         [](const auto& function) { return std::string(function.param); });

TEST_P(LuaScriptRunningTest, MayBeDestroyedWhileItsFunctionRuns)
{
    load();
    std::string text = "before";
    int number = 7;
    LogCapture log;
    whileItRuns([this] { destroy(); });

    EXPECT_EQ(script->callMethod(GetParam(), std::tie(text, number), "parameter"),
              STATUS_INVALID_STATE);

    EXPECT_EQ(meddled, 1);
    EXPECT_EQ(text, "before");
    EXPECT_EQ(number, 7);
    EXPECT_THAT(states.closed(), ElementsAre(state));
    // A function that goes on finds no script.
    EXPECT_EQ(found, nullptr);
    ASSERT_FALSE(log.lines().empty());
    EXPECT_THAT(log.lines().back(), refusedCall());
    for (std::size_t i = 0; i + 1 < log.lines().size(); ++i) {
        EXPECT_THAT(log.lines()[i], AnyOf(unknownState(), refusedCall(),
                                          LoggedIn("OxScript.cpp", "callMethod", "(-524271)")));
    }
}

TEST_P(LuaScriptRunningTest, MayBeDestroyedWhileAnUntypedCallRuns)
{
    load();
    LogCapture log;
    whileItRuns([this] { destroy(); });

    EXPECT_EQ(script->callMethod(GetParam(), 2), STATUS_INVALID_STATE);

    EXPECT_EQ(meddled, 1);
    EXPECT_THAT(states.closed(), ElementsAre(state));
}

TEST_P(LuaScriptRunningTest, MayBeLoadedAgainWhileItsFunctionRuns)
{
    load();
    const int top = lua_gettop(state);
    std::string text = "before";
    int number = 7;
    LogCapture log;
    whileItRuns([this] { loadAgain(); });

    EXPECT_EQ(script->callMethod(GetParam(), std::tie(text, number)), STATUS_INVALID_STATE);

    EXPECT_EQ(meddled, 1);
    EXPECT_EQ(text, "before");
    EXPECT_THAT(log.lines(), Contains(refusedCall()));
    EXPECT_THAT(states.closed(), ElementsAre(state));
    EXPECT_EQ(found, unblocked > 0 ? script.get() : nullptr);

    // The new state has nothing of the old call.
    EXPECT_EQ(lua_gettop(script->getLuaState()), top);
    EXPECT_EQ(script->callMethod("works", std::tie(number)), STATUS_SUCCESS);
    EXPECT_EQ(number, 42);
}

TEST_P(LuaScriptRunningTest, MayBeUnloadedWhileItsFunctionRuns)
{
    load();
    LogCapture log;
    whileItRuns([this] {
        ++meddled;
        file.write("this is no Lua");
        EXPECT_EQ(script->load(), STATUS_INVALID_STATE);
        EXPECT_EQ(script->getLuaState(), nullptr);
        EXPECT_THAT(states.closed(), Not(Contains(state)));
    });

    EXPECT_EQ(script->callMethod(GetParam()), STATUS_INVALID_STATE);

    EXPECT_EQ(meddled, 1);
    EXPECT_THAT(states.closed(), Contains(state));
    EXPECT_THAT(states.closed(), SizeIs(2));
}

TEST_P(LuaScriptRunningTest, SaysWhetherItIsBusy)
{
    bool busy = false;
    LuaScript other("");
    EXPECT_FALSE(script->isBusy());
    load();
    EXPECT_FALSE(script->isBusy());
    whileItRuns([&] {
        busy = script->isBusy();
        EXPECT_FALSE(other.isBusy());
    });

    EXPECT_EQ(script->callMethod(GetParam()), STATUS_SUCCESS);

    EXPECT_TRUE(busy);
    EXPECT_FALSE(script->isBusy());
}

TEST_F(LuaScriptLifetimeTest, AnExceptionComesOutOfADestroyedScript)
{
    load();
    meddle = [this] {
        destroy();
        throw std::runtime_error("on its way");
    };

    EXPECT_THROW(script->callMethod("f"), std::runtime_error);
    EXPECT_THAT(states.closed(), ElementsAre(state));
}

TEST_F(LuaScriptLifetimeTest, MayBeDestroyedOrLoadedByItsOwnFile)
{
    LogCapture log;
    file.write("state = native.run()");
    meddle = [this] {
        state = script->getLuaState();
        destroy();
    };
    EXPECT_EQ(script->load(), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(failedLoad()));
    EXPECT_THAT(states.closed(), ElementsAre(state));

    // The inner state is the one that stays.
    log.clear();
    script = std::make_unique<LuaScript>(file.path());
    script->addLuaApi(&api);
    meddle = [this] {
        state = script->getLuaState();
        file.write(FUNCTIONS);
        loadAgain();
    };
    EXPECT_EQ(script->load(), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(failedLoad()));
    EXPECT_THAT(states.closed(), Contains(state));
    int number = 0;
    EXPECT_EQ(script->callMethod("works", std::tie(number)), STATUS_SUCCESS);
    EXPECT_EQ(number, 42);
}

/** Does something when it is loaded, and looks for its script no more. */
class DoingApi : public LuaApi {
public:
    explicit DoingApi(const std::function<void()>& whenLoading) : __whenLoading(whenLoading) {}

    int onLoading() override
    {
        __whenLoading();
        return STATUS_SUCCESS;
    }

private:
    std::function<void()> __whenLoading;
};

TEST_F(LuaScriptLifetimeTest, MayBeDestroyedWhenItsTablesAreRegistered)
{
    LogCapture log;
    DoingApi destroying([this] {
        state = script->getLuaState();
        destroy();
    });
    NativeApi another;
    script->addLuaApi(&destroying);
    script->addLuaApi(&another);

    EXPECT_EQ(script->load(), STATUS_INVALID_STATE);

    EXPECT_THAT(log.lines(), ElementsAre(failedLoad()));
    EXPECT_THAT(states.closed(), ElementsAre(state));
    EXPECT_EQ(another.loads, 0);
}

TEST_F(LuaScriptLifetimeTest, MayBeDestroyedWhenATableIsAdded)
{
    load();
    DoingApi destroying([this] { script.reset(); });

    EXPECT_EQ(script->addLuaApi(&destroying), STATUS_SUCCESS);

    EXPECT_EQ(script, nullptr);
    EXPECT_THAT(states.closed(), ElementsAre(state));
}

TEST_F(LuaScriptLifetimeTest, MayBeDestroyedByATimersFunction)
{
    file.write("function tick() native.run() end handle = Timer.start(0, 'tick', true)");
    load();
    lua_getglobal(state, "handle");
    const int handle = static_cast<int>(lua_tointeger(state, -1));
    lua_pop(state, 1);
    LogCapture log;
    meddle = [this] { destroy(); };

    EXPECT_TRUE(iterateUntil([&] { return log.lines().size() >= 3; }, 10s));

    EXPECT_EQ(meddled, 1);
    EXPECT_THAT(log.lines()[0], refusedCall());
    EXPECT_THAT(log.lines()[1], unknownState());
    EXPECT_THAT(states.closed(), ElementsAre(state));

    const ScriptFile cleaner("Timer.stop(" + std::to_string(handle) + ")");
    EXPECT_EQ(LuaScript(cleaner.path()).load(), STATUS_SUCCESS);
}

/** Collects its garbage, with a finalizer in it, when a result is read or a parameter is passed. */
class CollectingScript : public LuaScript {
public:
    using LuaScript::LuaScript;
    using LuaScript::onMethodParameterAdded;

    int onMethodParameterAdded(const std::string& value) override
    {
        lua_gc(getLuaState(), LUA_GCRESTART, 0);
        return LuaScript::onMethodParameterAdded(value);
    }

    void onReturnValueEvaluateBegin() override
    {
        LuaScript::onReturnValueEvaluateBegin();
        lua_gc(getLuaState(), LUA_GCRESTART, 0);
    }
};

TEST_F(LuaScriptLifetimeTest, MayBeDestroyedByAFinalizer)
{
    file.write(
        "collectgarbage('setstepmul', 1000000) collectgarbage() collectgarbage('stop')\n"
        "function litter()\n"
        "  getmetatable(newproxy(true)).__gc = function() native.run() end\n"
        "  return 1.5, 2.5\n"
        "end\n"
        "function join(a, b) return a .. b end");
    for (const bool whenReading : {true, false}) {
        SCOPED_TRACE(whenReading);
        script = std::make_unique<CollectingScript>(file.path());
        script->addLuaApi(&api);
        load();
        meddled = 0;
        meddle = [this] { destroy(); };
        LogCapture log;
        std::string first;
        std::string second = "before";

        if (whenReading) {
            EXPECT_EQ(script->callMethod("litter", std::tie(first, second)), STATUS_INVALID_STATE);
        } else {
            EXPECT_EQ(script->callMethod("litter", 0), STATUS_SUCCESS);
            EXPECT_EQ(script->callMethod("join", std::tie(second), "a", "b"), STATUS_INVALID_STATE);
        }

        EXPECT_EQ(meddled, 1);
        EXPECT_EQ(second, "before");
        EXPECT_THAT(log.lines(), ElementsAre(refusedCall()));
        EXPECT_THAT(states.closed(), Contains(state));
    }
}

TEST_F(LuaScriptLifetimeTest, MayBeDestroyedByAFinalizerOfTheStateThatItsLoadingCloses)
{
    file.write("getmetatable(newproxy(true)).__gc = function() native.run() end");
    load();
    LogCapture log;
    meddle = [this] {
        ++meddled;
        script.reset();
    };

    EXPECT_EQ(script->load(), STATUS_INVALID_STATE);

    EXPECT_EQ(meddled, 1);
    EXPECT_THAT(log.lines(), ElementsAre(failedLoad()));
    EXPECT_THAT(states.closed(), SizeIs(2));
}

}  // namespace
}  // namespace oxil::test
