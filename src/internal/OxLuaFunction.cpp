#include "internal/OxLuaFunction.h"

#include "OxLuaGuard.h"
#include "internal/OxLuaStack.h"
#include "internal/OxLuaTable.h"

namespace oxil::internal {
namespace {

constexpr const char* METATABLE = "oxil.LuaFunction";

/** What Lua has of a bound function: a userdata, which is the upvalue of call(). */
struct Place {
    const LuaFunction* function;
    void* object;  // null when it is destroyed
};

/** The Lua function. May raise errors, which leave by longjmp, so it holds plain values only; what is
 *  C++ is behind LuaFunction::call. */
int call(lua_State* state)
{
    const auto* place = static_cast<const Place*>(lua_touserdata(state, lua_upvalueindex(1)));
    if (place->object == nullptr) {  // by a finalizer, when the state is closed
        return luaL_error(state, "the function is no more");
    }
    const LuaFunction& function = *place->function;
    for (int i = 0; i < function.parameterCount; ++i) {
        LuaValue::__check(state, i + 1, function.parameters[i]);
    }

    int count = 0;
    LuaGuard guard(state);
    if (!guard.run([&] { count = function.call(state, place->object); })) {
        return guard.raise();
    }
    if (count >= 0) {
        return count;
    }
    if (count == -LUA_ERRRUN && lua_isstring(state, -1) != 0) {
        luaL_where(state, 1);
        lua_insert(state, -2);
        lua_concat(state, 2);
    }
    return lua_error(state);
}

/** A finalizer. */
int destroy(lua_State* state)
{
    auto* place = static_cast<Place*>(lua_touserdata(state, 1));
    void* object = place->object;
    place->object = nullptr;
    if (object != nullptr) {
        place->function->destroy(object);
    }
    return 0;
}

int bind(lua_State* state, const void* data)
{
    const auto& wanted = *static_cast<const NewLuaFunction*>(data);

    auto* place = static_cast<Place*>(lua_newuserdata(state, sizeof(Place)));
    *place = {&wanted.function, nullptr};
    luaL_newmetatable(state, METATABLE);
    lua_pushcfunction(state, destroy);  // also if it is not new: it may have been left without
    lua_setfield(state, -2, "__gc");
    lua_setmetatable(state, -2);
    place->object = wanted.object.release();

    lua_pushcclosure(state, call, 1);
    registerLuaFunction(state, *wanted.table != '\0' ? wanted.table : nullptr, wanted.name);
    return 0;
}

}  // namespace

bool bindLuaFunction(ProtectedCall& call, const NewLuaFunction& wanted)
{
    lua_State* state = call.getState();
    const LuaRequest request = {bind, &wanted};
    pushLuaRequest(state, &request);
    if (call.runOwn(1, 0) != 0) {
        lua_pop(state, 1);
        return false;
    }
    return true;
}

}  // namespace oxil::internal
