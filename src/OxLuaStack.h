#pragma once

#include <algorithm>
#include <limits>

#include "OxLua.h"

namespace oxil::internal {

/**
 * Makes room for values on the Lua stack; false if there can't be any.
 *
 * `lua_checkstack` alone refuses at 8000 values, which a script with failing functions reaches:
 * each failed call leaves a message behind.
 */
bool reserveLuaStack(lua_State* state, int count);

/**
 * A Lua integer as an `int`, at the limits where it does not fit.
 *
 * Where Lua's integer has 32 bits, it is limited like this by its conversion from a number.
 */
inline int toInt(lua_Integer value)
{
    constexpr lua_Integer LEAST = std::numeric_limits<int>::min();
    constexpr lua_Integer MOST = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp(value, LEAST, MOST));
}

}  // namespace oxil::internal
