#include "internal/OxLuaTable.h"

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace oxil::internal {
namespace {

/**
 * What is going to be changed, in a list on the Lua stack. It is prepared in full, which may fail,
 * before anything is touched; taking it back needs no memory, and so can't fail.
 */
class Changes {
public:
    /** Pushes the list. */
    explicit Changes(lua_State* state) : __state(state)
    {
        lua_newtable(state);
        __list = lua_gettop(state);
    }

    /** Adds a change of the table at an index, and pops the key and the value. */
    void add(int table)
    {
        lua_pushvalue(__state, table);
        lua_rawseti(__state, __list, __size + TABLE);
        lua_pushvalue(__state, -2);
        lua_rawget(__state, table);
        lua_rawseti(__state, __list, __size + OLD_VALUE);
        lua_rawseti(__state, __list, __size + VALUE);
        lua_rawseti(__state, __list, __size + KEY);
        __size += COLUMNS;
    }

    /** Makes the changes; if one fails, takes back the others and raises the error. */
    void make()
    {
        lua_pushcfunction(__state, __apply);
        lua_pushvalue(__state, __list);
        lua_pushinteger(__state, __size);
        if (lua_pcall(__state, 2, 0, 0) != 0) {
            __takeBack();
            lua_error(__state);
        }
    }

private:
    enum Column { TABLE = 1, KEY, VALUE, OLD_VALUE, COLUMNS = OLD_VALUE };

    static int __apply(lua_State* state)
    {
        const int size = static_cast<int>(lua_tointeger(state, 2));
        for (int i = 0; i < size; i += COLUMNS) {
            lua_rawgeti(state, 1, i + TABLE);
            lua_rawgeti(state, 1, i + KEY);
            lua_rawgeti(state, 1, i + VALUE);
            lua_settable(state, -3);
            lua_pop(state, 1);
        }
        return 0;
    }

    void __takeBack() const
    {
        for (int i = 0; i < __size; i += COLUMNS) {
            lua_rawgeti(__state, __list, i + TABLE);
            lua_rawgeti(__state, __list, i + KEY);
            lua_pushvalue(__state, -1);
            lua_rawget(__state, -3);
            lua_rawgeti(__state, __list, i + OLD_VALUE);
            // A key that is not there would have to be made first.
            if (lua_rawequal(__state, -1, -2) != 0) {
                lua_pop(__state, 4);
                continue;
            }
            lua_remove(__state, -2);
            lua_rawset(__state, -3);
            lua_pop(__state, 1);
        }
    }

    lua_State* __state;
    int __list;
    int __size = 0;
};

static_assert(std::is_trivially_destructible_v<Changes>, "a Lua error may leave it behind");

/**
 * Pushes the global table of a name, which may have dots. What is missing of it is made, and linked
 * by the changes; returns whether anything is.
 */
bool pushGlobalTable(lua_State* state, const char* name, Changes& changes)
{
    bool isMissing = false;
    lua_pushvalue(state, LUA_GLOBALSINDEX);
    const int table = lua_gettop(state);
    for (const char* part = name; part != nullptr;) {
        const char* dot = std::strchr(part, '.');
        lua_pushlstring(state, part,
                        dot != nullptr ? static_cast<std::size_t>(dot - part) : std::strlen(part));
        lua_pushvalue(state, -1);
        lua_rawget(state, table);
        if (lua_isnil(state, -1)) {
            lua_pop(state, 1);
            lua_newtable(state);
            lua_pushvalue(state, -2);
            lua_pushvalue(state, -2);
            if (isMissing) {
                lua_rawset(state, table);  // nobody sees this table yet
            } else {
                changes.add(table);
            }
            isMissing = true;
        } else if (!lua_istable(state, -1)) {
            luaL_error(state, "name conflict for module '%s'", name);
        }
        lua_replace(state, table);
        lua_pop(state, 1);
        part = dot != nullptr ? dot + 1 : nullptr;
    }
    return isMissing;
}

/** Pushes the table that luaL_register() has for a name, and returns its place. What is missing is made,
 *  and linked by the changes. */
int pushRegisteredTable(lua_State* state, const char* name, Changes& changes, bool& isNew)
{
    lua_getfield(state, LUA_REGISTRYINDEX, "_LOADED");
    const int loaded = lua_gettop(state);
    lua_getfield(state, loaded, name);
    isNew = false;
    if (!lua_istable(state, -1)) {
        lua_pop(state, 1);
        isNew = pushGlobalTable(state, name, changes);
        lua_pushstring(state, name);
        lua_pushvalue(state, -2);
        changes.add(loaded);
    }
    return lua_gettop(state);
}

/** Sets the field of a table, by the changes unless it is new, and pops the key and the value. */
void set(lua_State* state, int table, bool isNew, Changes& changes)
{
    if (isNew) {
        lua_rawset(state, table);
    } else {
        changes.add(table);
    }
}

}  // namespace

void registerLuaTable(lua_State* state, const char* name, const luaL_Reg* functions)
{
    Changes changes(state);
    bool isNew = false;
    const int table = pushRegisteredTable(state, name, changes, isNew);
    for (; functions->name != nullptr; ++functions) {
        lua_pushstring(state, functions->name);
        lua_pushcfunction(state, functions->func);
        set(state, table, isNew, changes);
    }
    changes.make();
}

void registerLuaFunction(lua_State* state, const char* table, const char* name)
{
    const int function = lua_gettop(state);
    Changes changes(state);
    bool isNew = false;
    int place = 0;
    if (table != nullptr) {
        place = pushRegisteredTable(state, table, changes, isNew);
    } else {
        lua_pushvalue(state, LUA_GLOBALSINDEX);
        place = lua_gettop(state);
    }
    lua_pushstring(state, name);
    lua_pushvalue(state, function);
    set(state, place, isNew, changes);
    changes.make();
}

}  // namespace oxil::internal
