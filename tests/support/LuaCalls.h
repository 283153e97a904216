#pragma once

#include <functional>
#include <vector>

struct lua_State;

namespace oxil::test {

/**
 * Watches the Lua states that are opened and closed while it lives, and meddles with them.
 *
 * At most one lives at a time.
 */
class LuaStates {
public:
    LuaStates();

    /** Closes what reuse() kept. */
    ~LuaStates();

    LuaStates(const LuaStates&) = delete;
    LuaStates& operator=(const LuaStates&) = delete;

    /** Makes the next luaL_newstate() return null. */
    void refuseNext();

    /**
     * From now on a state that is closed is kept, and the next luaL_newstate() hands it out again:
     * a new state at the address of an old one.
     */
    void reuse();

    /** Calls this with each new state, before anything is done in it. */
    void whenOpened(const std::function<void(lua_State*)>& function) { __whenOpened = function; }

    /** The states given to lua_close() so far. */
    const std::vector<lua_State*>& closed() const { return __closed; }

    lua_State* open(lua_State* (*newState)());
    void close(lua_State* state, void (*closeState)(lua_State*));

private:
    bool __refusing = false;
    bool __reusing = false;
    lua_State* __kept = nullptr;
    std::vector<lua_State*> __closed;
    std::function<void(lua_State*)> __whenOpened;
};

}  // namespace oxil::test
