#pragma once

#include <memory>

#include "OxLuaBinding.h"
#include "internal/OxProtectedCall.h"

namespace oxil::internal {

/** A function that is to be bound. */
struct NewLuaFunction {
    const LuaFunction& function;
    std::unique_ptr<void, void (*)(void*)>& object;  ///< of the Lua state, once it has been taken
    const char* table;                               ///< empty if it is to be a global
    const char* name;
};

/** Binds a function; false if Lua fails. Whether the object was taken is another question: the state
 *  may be left to destroy it. Needs 4 free places on the Lua stack. */
bool bindLuaFunction(ProtectedCall& call, const NewLuaFunction& wanted);

}  // namespace oxil::internal
