#include "OxLuaGuard.h"

#include <cstring>

#include "internal/OxLua.h"
#include "internal/OxProtectedCall.h"

namespace oxil {

int LuaGuard::raise()
{
    // As luaL_error() would, but the message has to be known before it is on its way.
    luaL_where(__state, 1);
    lua_pushstring(__state, __reason);
    lua_concat(__state, 2);
    internal::ProtectedCall::raising(__state);
    return lua_error(__state);
}

void LuaGuard::__keep(const char* reason) noexcept
{
    std::strncpy(__reason, reason, sizeof __reason - 1);
    __reason[sizeof __reason - 1] = '\0';
    internal::ProtectedCall::keep();
}

}  // namespace oxil
