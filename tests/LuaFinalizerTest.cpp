// What finalizers of a script do, at the moments when Lua happens to run them.

#include <OxLuaScript.h>
#include <OxStatus.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <lua.hpp>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>

#include "LoadedScript.h"
#include "NativeApi.h"
#include "ScriptFile.h"

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

}  // namespace
}  // namespace oxil::test
