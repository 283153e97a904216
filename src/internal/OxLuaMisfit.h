#pragma once

#include <type_traits>

#include "OxLuaValue.h"

namespace oxil::internal {

/** Looks whether a value has a shape, and says what is wrong if it hasn't: the same of the same value
 *  on every machine, however its tables lie in memory. */
class LuaMisfit {
public:
    LuaMisfit() noexcept : __depth(0) {}

    /** Raises no Lua error, and asks Lua for no memory. */
    bool check(lua_State* state, int index, LuaShape shape) noexcept;

    /** As it stands in Lua's own messages: "number expected, got no value". */
    const char* getText() const noexcept { return __text; }

private:
    bool __checkRecord(lua_State* state, int table) noexcept;
    bool __checkList(lua_State* state, int table, LuaShape item) noexcept;
    bool __refuse(const char* expected, const char* got, const char* key = nullptr) noexcept;

    int __depth;  // of the list that is looked at
    int __positions[MAX_LUA_LISTS];
    char __text[192];  // if there is a misfit
};

static_assert(std::is_trivially_destructible_v<LuaMisfit>, "a Lua error may leave it behind");

}  // namespace oxil::internal
