// Calls from C++ into Lua, and from Lua into C++.

#include "OxLuaScript.h"

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
}

#include <memory>
#include <string>
#include <tuple>

#ifdef HAS_TOLUAPP
#include <tolua++.h>
#endif

#include "Contender.h"
#include "OxLuaApi.h"
#include "OxLuaGuard.h"
#include "OxStatus.h"
#include "TemporaryFile.h"

namespace oxil::bench {
namespace {

const char SCRIPT[] = R"(
function answerOne(flag, count, ratio, text)
    return count
end

function answerThree(flag, count, ratio, text)
    return count, ratio, text
end

function callNative(times)
    local sum = 0
    for i = 1, times do
        sum = Native.add(sum, i)
    end
    return sum
end

function callBound(times)
    local sum = 0
    for i = 1, times do
        sum = Native.addBound(sum, i)
    end
    return sum
end

function callGuarded(times)
    local sum = 0
    for i = 1, times do
        sum = Native.addGuarded(sum, i)
    end
    return sum
end
)";

// ---- Native functions

/** What the functions below are a way to. */
int sumOf(int a, int b)
{
    return a + b;
}

int addNumbers(lua_State* state)
{
    const int a = static_cast<int>(luaL_checkinteger(state, 1));
    const int b = static_cast<int>(luaL_checkinteger(state, 2));
    lua_pushinteger(state, sumOf(a, b));
    return 1;
}

/** As a function is written that calls C++ which may throw. */
int addNumbersGuarded(lua_State* state)
{
    const int a = static_cast<int>(luaL_checkinteger(state, 1));
    const int b = static_cast<int>(luaL_checkinteger(state, 2));
    int sum = 0;
    LuaGuard guard(state);
    if (!guard.run([&] { sum = sumOf(a, b); })) {
        return guard.raise();
    }
    lua_pushinteger(state, sum);
    return 1;
}

class NativeApi : public LuaApi {
public:
    int onLoading() override
    {
        const luaL_Reg functions[] = {
            {"add", addNumbers}, {"addGuarded", addNumbersGuarded}, {nullptr, nullptr}};
        registerApiTable("Native", functions);
        return bind("Native.addBound", sumOf);
    }
};

#ifdef HAS_TOLUAPP
/** The function that the generator writes for "int add(int a, int b);". */
int addNumbersTolua(lua_State* state)
{
    tolua_Error error;
    if (!tolua_isnumber(state, 1, 0, &error) || !tolua_isnumber(state, 2, 0, &error) ||
        !tolua_isnoobj(state, 3, &error)) {
        tolua_error(state, "#ferror in function 'add'.", &error);
        return 0;
    }
    const int a = static_cast<int>(tolua_tonumber(state, 1, 0));
    const int b = static_cast<int>(tolua_tonumber(state, 2, 0));
    tolua_pushnumber(state, static_cast<lua_Number>(sumOf(a, b)));
    return 1;
}

void openTolua(lua_State* state)
{
    tolua_open(state);
    tolua_module(state, nullptr, 0);
    tolua_beginmodule(state, nullptr);
    tolua_module(state, "Native", 0);
    tolua_beginmodule(state, "Native");
    tolua_function(state, "add", addNumbersTolua);
    tolua_endmodule(state);
    tolua_endmodule(state);
}
#endif

// ---- Scripts

using State = std::shared_ptr<lua_State>;

/** The script in a plain state. */
State makeState()
{
    const State state(luaL_newstate(), lua_close);
    require(state != nullptr, "Lua");
    luaL_openlibs(state.get());
    require(luaL_dostring(state.get(), SCRIPT) == 0, "the script");
    return state;
}

/** The script in the library's hands. */
std::shared_ptr<LuaScript> makeScript()
{
    static NativeApi api;
    const TemporaryFile file(SCRIPT);

    const auto script = std::make_shared<LuaScript>(file.path());
    script->addLuaApi(&api);
    require(script->load() == STATUS_SUCCESS, "the script");
    return script;
}

// ---- From C++ into Lua

const std::string ANSWER_ONE = "answerOne";
const std::string ANSWER_THREE = "answerThree";

constexpr bool FLAG = true;
constexpr int COUNT = 42;
constexpr float RATIO = 0.5f;
const std::string TEXT = "what a caption is like";

using Three = std::tuple<int, float, std::string>;
const Three THREE(COUNT, RATIO, TEXT);

void pushCall(lua_State* state, const std::string& name)
{
    lua_getglobal(state, name.c_str());
    lua_pushboolean(state, FLAG);
    lua_pushinteger(state, COUNT);
    lua_pushnumber(state, static_cast<lua_Number>(RATIO));
    lua_pushstring(state, TEXT.c_str());
}

/** Calls with the four parameters, and leaves the results on the stack. A failure of Lua before the
 *  call, of its memory say, ends the process. */
bool callBarely(lua_State* state, const std::string& name, int resultCount)
{
    pushCall(state, name);
    return lua_pcall(state, 4, resultCount, 0) == 0;
}

struct Call {
    const std::string& name;
    int resultCount;
};

int callInside(lua_State* state)
{
    const Call* call = static_cast<const Call*>(lua_touserdata(state, 1));
    pushCall(state, call->name);
    lua_call(state, 4, call->resultCount);
    return call->resultCount;
}

int onError(lua_State*)
{
    return 1;
}

// Where the plain state has them, so that getting them can't fail.
constexpr int ERROR_HANDLER = 1;
constexpr int CALL_INSIDE = 2;

/** The same when whatever may fail does so inside one protected call, with a message handler. */
bool callSafely(lua_State* state, const std::string& name, int resultCount)
{
    Call call = {name, resultCount};
    lua_pushvalue(state, CALL_INSIDE);
    lua_pushlightuserdata(state, &call);
    return lua_pcall(state, 1, resultCount, ERROR_HANDLER) == 0;
}

/** Registers the two calls done with the plain interface. */
template <typename Function>
void addPlainCalls(const std::string& operation, const std::string& contender, const State& state,
                   const Function& function)
{
    compete(
        operation + ": 1 result", contender,
        [=] {
            int count = 0;
            if (function(state.get(), ANSWER_ONE, 1)) {
                count = static_cast<int>(lua_tointeger(state.get(), -1));
            }
            lua_pop(state.get(), 1);
            return count;
        },
        COUNT);
    compete(
        operation + ": 3 results", contender,
        [=] {
            Three three;
            if (function(state.get(), ANSWER_THREE, 3)) {
                std::get<0>(three) = static_cast<int>(lua_tointeger(state.get(), -3));
                std::get<1>(three) = static_cast<float>(lua_tonumber(state.get(), -2));
                std::get<2>(three) = lua_tostring(state.get(), -1);
            }
            lua_pop(state.get(), 3);
            return three;
        },
        THREE);
}

void addCallsIntoLua()
{
    const State state = makeState();
    lua_pushcfunction(state.get(), onError);
    lua_pushcfunction(state.get(), callInside);
    addPlainCalls("call into Lua", "floor", state, callSafely);
    addPlainCalls("call into Lua", "Lua, unprotected", state, callBarely);
    addPlainCalls("call for an answer", "floor", state, callSafely);

    const std::shared_ptr<LuaScript> script = makeScript();
    compete(
        "call into Lua: 1 result", "oxil",
        [=] {
            int count = 0;
            script->callMethod(ANSWER_ONE, std::tie(count), FLAG, COUNT, RATIO, TEXT);
            return count;
        },
        COUNT);

    compete(
        "call into Lua: 3 results", "oxil",
        [=] {
            Three three;
            script->callMethod(ANSWER_THREE,
                               std::tie(std::get<0>(three), std::get<1>(three), std::get<2>(three)),
                               FLAG, COUNT, RATIO, TEXT);
            return three;
        },
        THREE);

    compete(
        "call for an answer: 1 result", "oxil",
        [=] { return *script->call<int>(ANSWER_ONE, FLAG, COUNT, RATIO, TEXT); }, COUNT);
    compete(
        "call for an answer: 3 results", "oxil",
        [=] {
            return *script->call<int, float, std::string>(ANSWER_THREE, FLAG, COUNT, RATIO, TEXT);
        },
        THREE);
}

// ---- From Lua into C++

constexpr int TIMES = 1000;

/** One call of a function that calls the native one so many times. */
int callBack(lua_State* state, const char* name)
{
    lua_getglobal(state, name);
    lua_pushinteger(state, TIMES);
    if (lua_pcall(state, 1, 1, 0) != 0) {
        return -1;
    }
    const int sum = static_cast<int>(lua_tointeger(state, -1));
    lua_pop(state, 1);
    return sum;
}

void addCallsFromLua()
{
    const int expected = TIMES * (TIMES + 1) / 2;

    const State plain = makeState();
    const luaL_Reg functions[] = {{"add", addNumbers}, {nullptr, nullptr}};
    luaL_register(plain.get(), "Native", functions);
    lua_pop(plain.get(), 1);
    const auto floor = [=] { return callBack(plain.get(), "callNative"); };

    const std::shared_ptr<LuaScript> script = makeScript();

    compete("call from Lua: native function", "floor", floor, expected, TIMES);
    compete(
        "call from Lua: native function", "oxil",
        [=] { return callBack(script->getLuaState(), "callNative"); }, expected, TIMES);
#ifdef HAS_TOLUAPP
    const State bound = makeState();
    openTolua(bound.get());
    compete(
        "call from Lua: native function", "tolua++",
        [=] { return callBack(bound.get(), "callNative"); }, expected, TIMES);
#endif

    compete("call from Lua: bound function", "floor", floor, expected, TIMES);
    compete(
        "call from Lua: bound function", "oxil",
        [=] { return callBack(script->getLuaState(), "callBound"); }, expected, TIMES);

    compete("call from Lua: guarded function", "floor", floor, expected, TIMES);
    compete(
        "call from Lua: guarded function", "oxil",
        [=] { return callBack(script->getLuaState(), "callGuarded"); }, expected, TIMES);
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    oxil::bench::addCallsIntoLua();
    oxil::bench::addCallsFromLua();
    return oxil::bench::run(argc, argv);
}
