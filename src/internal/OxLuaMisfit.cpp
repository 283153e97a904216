#include "internal/OxLuaMisfit.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <string_view>

#include "internal/OxLua.h"

namespace oxil::internal {
namespace {

constexpr const char* VALUE = "boolean, number or string";

bool isValue(int type)
{
    return type == LUA_TBOOLEAN || type == LUA_TNUMBER || type == LUA_TSTRING;
}

/** Whether the keys of a table are 1 to its size, each of them once as all keys are. */
bool isList(lua_State* state, int table, std::size_t size)
{
    std::size_t count = 0;
    for (lua_pushnil(state); lua_next(state, table) != 0; lua_pop(state, 1)) {
        const lua_Number key = lua_type(state, -2) == LUA_TNUMBER ? lua_tonumber(state, -2) : 0;
        if (key < 1 || key > static_cast<lua_Number>(size) || key != std::floor(key)) {
            lua_pop(state, 2);
            return false;
        }
        ++count;
    }
    return count == size;
}

}  // namespace

bool LuaMisfit::check(lua_State* state, int index, LuaShape shape) noexcept
{
    const int type = lua_type(state, index);
    const bool isTable = shape.lists > 0 || shape.type == LuaType::RECORD;
    if (type <= LUA_TNIL && (shape.isOptional || (shape.type == LuaType::VALUE && !isTable))) {
        return true;
    }
    if (isTable) {
        if (type != LUA_TTABLE) {
            return __refuse("table", lua_typename(state, type));
        }
        const int table = index > 0 ? index : lua_gettop(state) + index + 1;
        if (shape.lists == 0) {
            return __checkRecord(state, table);
        }
        --shape.lists;
        return __checkList(state, table, shape);
    }
    switch (shape.type) {
        case LuaType::BOOL:
            return type == LUA_TBOOLEAN || __refuse("boolean", lua_typename(state, type));
        case LuaType::TEXT:
        case LuaType::VIEW:
        case LuaType::C_TEXT:
            return type == LUA_TSTRING || type == LUA_TNUMBER ||
                   __refuse("string", lua_typename(state, type));
        case LuaType::VALUE:
            return isValue(type) || __refuse(VALUE, lua_typename(state, type));
        default:
            return type == LUA_TNUMBER || lua_isnumber(state, index) != 0 ||
                   __refuse("number", lua_typename(state, type));
    }
}

bool LuaMisfit::__checkRecord(lua_State* state, int table) noexcept
{
    std::string_view first;  // of the keys with wrong values, by bytes
    int firstType = LUA_TNONE;
    for (lua_pushnil(state); lua_next(state, table) != 0; lua_pop(state, 1)) {
        if (lua_type(state, -2) != LUA_TSTRING || lua_objlen(state, -2) == 0) {
            lua_pop(state, 2);
            return __refuse("record", "table with other keys");
        }
        const int type = lua_type(state, -1);
        const std::string_view key(lua_tostring(state, -2), lua_objlen(state, -2));
        if (!isValue(type) && (firstType == LUA_TNONE || key < first)) {
            first = key;
            firstType = type;
        }
    }
    return firstType == LUA_TNONE || __refuse(VALUE, lua_typename(state, firstType), first.data());
}

bool LuaMisfit::__checkList(lua_State* state, int table, LuaShape item) noexcept
{
    const std::size_t size = lua_objlen(state, table);
    if (!isList(state, table, size)) {
        return __refuse("list", "table with other keys");
    }
    const int place = __depth++;
    for (std::size_t i = 1; i <= size; ++i) {
        __positions[place] = static_cast<int>(i);
        lua_rawgeti(state, table, __positions[place]);
        const bool fits = check(state, -1, item);
        lua_pop(state, 1);
        if (!fits) {
            return false;
        }
    }
    --__depth;
    return true;
}

/** Returns false. */
bool LuaMisfit::__refuse(const char* expected, const char* got, const char* key) noexcept
{
    char positions[12 * MAX_LUA_LISTS + 1] = "";
    std::size_t length = 0;
    for (int i = 0; i < __depth; ++i) {
        length += static_cast<std::size_t>(
            std::snprintf(positions + length, sizeof positions - length, "[%d]", __positions[i]));
    }
    std::snprintf(__text, sizeof __text, "%s expected, got %s%s%s%s%.64s", expected, got,
                  length > 0 || key != nullptr ? " at " : "", positions,
                  length > 0 && key != nullptr ? "." : "", key != nullptr ? key : "");
    return false;
}

}  // namespace oxil::internal
