#pragma once

#include "OxLuaAnswer.h"
#include "internal/OxLua.h"
#include "internal/OxProtectedCall.h"

namespace oxil::internal {

/** What LuaScript::call() does, in the state of the script. That may end meanwhile. */
void callLua(lua_State* state, const LuaCall& wanted, LuaOutcome& outcome);

/** The message of the error on top, "(null)" if it is no text; of a number, its text is pushed. */
const char* getLuaMessage(ProtectedCall& call);

}  // namespace oxil::internal
