#pragma once

#include <string>
#include <type_traits>
#include <utility>

#include "OxExport.h"
#include "OxLuaBinding.h"

struct luaL_Reg;

namespace oxil {

class LuaScript;

/**
 * A set of native functions that a LuaScript offers to its script as global tables.
 *
 * An application derives from it, says in onLoading() what there is, with bind() or
 * registerApiTable(), and hands the object to LuaScript::addLuaApi().
 *
 * Native functions that are `lua_CFunction`s keep exceptions away from Lua with a LuaGuard.
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

    /**
     * Makes a C++ function a global of the script, or a field of a global table; meant for
     * onLoading().
     *
     * Its parameters and results are bool, numbers, texts, values, records and lists, as LuaValue
     * says; several results are an `std::tuple`. A parameter that is an `std::optional` may be left
     * out, and so may a Variant.
     *
     * The script that gives a wrong argument has Lua's own error, "bad argument #2 to 'put' (number
     * expected, got no value)", before the function is called; what it gives in addition is passed
     * over. What the function throws is met by the rules of LuaGuard. A result that Lua can't hold,
     * or has no memory for, is a Lua error.
     *
     * It may do with the script what any function may: call it, load it again or destroy it, bind
     * something else in its own place. It is there until that is over. Nothing is left on the Lua
     * stack.
     *
     * @param name      "put" for a global; "Shelf.put" for a field, whose table is made, or added
     *                  to, as registerApiTable() does
     * @param function  a lambda, a function object with one `operator()`, or a function; copied or
     *                  moved, and destroyed at the latest when the state of the script is closed: on
     *                  failure as well. It must not throw when it is destroyed.
     * @return STATUS_SUCCESS; with nothing changed, STATUS_INVALID_PARAMETER after logging "Invalid
     *         parameter" if there is no name, or nothing before or behind its last dot;
     *         STATUS_INVALID_STATE after logging "Invalid state", for the reasons that
     *         registerApiTable() has
     */
    template <typename Function>
    int bind(const std::string& name, Function&& function)
    {
        using Bound = std::decay_t<Function>;
        using Binding = internal::LuaBinding<Bound, internal::LuaSignature<Bound>>;
        return __bind(name, Binding::FUNCTION, new Bound(std::forward<Function>(function)));
    }

    /** The same for a member function: `bind("Shelf.put", &shelf, &Shelf::put);`.
     *
     * @param object  has to live as long as the script can call the function
     */
    template <typename Object, typename Class, typename Result, typename... Parameters>
    int bind(const std::string& name, Object* object, Result (Class::*member)(Parameters...))
    {
        return bind(name, [object, member](Parameters... parameters) -> Result {
            return (object->*member)(std::forward<Parameters>(parameters)...);
        });
    }

    /** The same for a member function that changes nothing. */
    template <typename Object, typename Class, typename Result, typename... Parameters>
    int bind(const std::string& name, Object* object, Result (Class::*member)(Parameters...) const)
    {
        return bind(name, [object, member](Parameters... parameters) -> Result {
            return (object->*member)(std::forward<Parameters>(parameters)...);
        });
    }

private:
    /** Takes over the function object. */
    int __bind(const std::string& name, const internal::LuaFunction& function, void* object);

    LuaScript* __luaScript = nullptr;
    bool __loaded = false;
};

}  // namespace oxil
