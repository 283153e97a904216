#include "internal/OxLuaCall.h"

#include <algorithm>
#include <cstdio>

#include "internal/OxLuaMisfit.h"
#include "internal/OxLuaStack.h"

namespace oxil::internal {
namespace {

/** What a call needs on the stack beside parameters or results: the function and a message handler,
 *  or what it takes to look into a result. */
constexpr int ROOM = 12;

struct Beginning {
    const LuaCall& call;
    bool& isFound;
};

/** Pushes a function and its parameters; a LuaRequest. */
int begin(lua_State* state, const void* data)
{
    const auto& beginning = *static_cast<const Beginning*>(data);
    const char* name = beginning.call.functionName.c_str();
    if (!pushKnownLuaGlobal(state, name)) {
        getLuaGlobal(state, name);
        if (lua_isnil(state, -1)) {
            beginning.isFound = false;
            return luaL_error(state, "attempt to call global '%s' (a nil value)", name);
        }
    }
    return 1 + beginning.call.pushParameters(state, beginning.call.parameters);
}

}  // namespace

void callLua(lua_State* state, const LuaCall& wanted, LuaOutcome& outcome)
{
    outcome.status = STATUS_INVALID_STATE;
    if (state == nullptr) {
        outcome.message = "the script is not loaded";
        return;
    }
    // The state stays open until this is over, and the stack is put back, also if something is thrown.
    ProtectedCall call(state);
    const LuaStackTop top(state);
    if (!reserveLuaStack(call, ROOM + std::max(wanted.parameterCount, wanted.resultCount))) {
        outcome.status = STATUS_FAILURE;
        outcome.message = "stack overflow";
        return;
    }
    call.traceErrors(outcome.traceback);
    const int place = lua_gettop(state) + 1;  // of the function, and then of its results
    bool isFound = true;
    const Beginning beginning = {wanted, isFound};
    const LuaRequest request = {begin, &beginning};
    pushLuaRequest(state, &request);
    int status = call.run(1, LUA_MULTRET);
    if (status == 0 && !call.isAbandoned()) {
        status = call.run(lua_gettop(state) - place, wanted.resultCount);
    }
    if (status != 0) {
        call.rethrowIfKept();
        outcome.status = STATUS_FAILURE;
        outcome.message = getLuaMessage(call);
        if (!isFound) {
            outcome.status = STATUS_NOT_FOUND;
            outcome.traceback.clear();  // which is not of the script
        }
        return;
    }
    if (call.isAbandoned()) {
        outcome.message = "the script was destroyed or loaded again";
        return;
    }

    for (int i = 0; i < wanted.resultCount; ++i) {
        LuaMisfit misfit;
        if (!misfit.check(state, place + i, wanted.resultShapes[i])) {
            char message[256];
            std::snprintf(message, sizeof message, "bad result #%d (%s)", i + 1, misfit.getText());
            outcome.status = STATUS_FAILURE;
            outcome.message = message;
            return;
        }
    }
    wanted.readResults(state, place, wanted.results);
    outcome.status = STATUS_SUCCESS;
}

const char* getLuaMessage(ProtectedCall& call)
{
    lua_State* state = call.getState();
    if (lua_type(state, -1) == LUA_TNUMBER && reserveLuaStack(call, 4)) {
        pushLuaTextOf(call, lua_tonumber(state, -1));
    }
    return lua_type(state, -1) == LUA_TSTRING ? lua_tostring(state, -1) : "(null)";
}

}  // namespace oxil::internal
