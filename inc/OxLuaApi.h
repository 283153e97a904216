#pragma once

#include <string>

#include "OxExport.h"

struct luaL_Reg;

namespace oxil {

class LuaScript;

/**
 * A set of native functions that a LuaScript offers to its script as global tables.
 *
 * An application derives from it, registers its tables in onLoading() and hands the object to
 * LuaScript::addLuaApi(). Native functions that run C++ code keep exceptions away from Lua with a
 * LuaGuard.
 *
 * The order of the virtual functions is part of the binary interface.
 *
 * @par Threads
 * The thread of the script that it is loaded into.
 *
 * @par Example
 * @snippet inventory/main.cpp api
 */
class OXIL_API LuaApi {
public:
    /** Makes an API that is loaded into no script. */
    LuaApi();

    LuaApi(const LuaApi&) = delete;
    LuaApi& operator=(const LuaApi&) = delete;

    /** Does not unload it: say LuaScript::removeLuaApi() first. */
    virtual ~LuaApi();

    /** Registers the tables, with registerApiTable(). Returns 0 or a negative code. It is not called
     *  by Lua: what may raise a Lua error belongs into a `lua_cpcall` of its own here. */
    virtual int onLoading() = 0;

    /** Undoes what onLoading() did. Returns 0, the default, or a negative code. */
    virtual int onUnloading();

    /**
     * Loads the functions into a script; meant for LuaScript.
     *
     * @param script  remembered, also when loading fails
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Invalid parameter" for null;
     *         what onLoading() returned after logging "%d" with it
     */
    int load(LuaScript* script);

    /**
     * Unloads the functions; meant for LuaScript. The script stays remembered.
     *
     * @return STATUS_SUCCESS; what onUnloading() returned after logging "%d" with it: it stays
     *         loaded then
     */
    int unload();

    /** Whether it is loaded: from a successful load() to a successful unload(). */
    bool isLoaded() const;

    /** The script it was last loaded into, null before. It stays the answer after unload(), and
     *  after the script was destroyed: do not use it then. */
    LuaScript* getLuaScript() const;

    /**
     * Makes a global table of native functions in the script, or adds to it; meant for onLoading().
     *
     * The table stays on the Lua stack as well. Logs "Invalid parameter" for an empty name or no
     * functions, and "Invalid state" when there is no script, the script is not loaded, or Lua
     * refuses (the name is taken by something that is no table, or there is no memory); then
     * everything is as it was.
     *
     * @param name       a dot in it makes tables within tables
     * @param functions  ended by an entry with null, as for `luaL_register` (Lua 5.1 manual); they
     *                   are copied
     */
    void registerApiTable(const std::string& name, const luaL_Reg* functions);

private:
    LuaScript* __luaScript = nullptr;
    bool __loaded = false;
};

}  // namespace oxil
