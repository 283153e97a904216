#pragma once

#include <exception>
#include <type_traits>

#include "OxExport.h"

struct lua_State;

namespace oxil {

/**
 * Keeps C++ exceptions and Lua errors apart in a native function.
 *
 * Lua is C: an exception must not pass through its frames (on the device that ends the process),
 * and a Lua error leaves a function by `longjmp`, past all destructors. So a native function that
 * calls C++ does it inside run(), and turns a failure into a Lua error with raise() when nothing
 * with a destructor is alive any more. LuaApi::bind() does that for a C++ function; by hand it is:
 * @snippet inventory/main.cpp native
 *
 * The script sees an ordinary Lua error and may handle it. Its text is the position in the script
 * and the first 255 bytes of the exception's own text ("unknown exception" if it is no
 * std::exception). If that very error gets as far as LuaScript::load() or Script::callMethod(),
 * they throw the exception itself to their caller, after everything that they do for any Lua error:
 * also through functions of `coroutine.wrap`, which put a position in front, and if a script caught
 * the error and raises it again as it was.
 * In a protected call of the application's own only the Lua error remains.
 */
class OXIL_API LuaGuard {
public:
    /** @param state  the state that the native function was called with */
    explicit LuaGuard(lua_State* state) noexcept : __state(state) {}

    /**
     * Calls a function that may throw.
     *
     * @param function  must call nothing that raises a Lua error
     * @return false if it threw; raise() is to be called then
     */
    template <typename Function>
    bool run(const Function& function) noexcept
    {
        try {
            function();
            return true;
        } catch (const std::exception& exception) {
            __keep(exception.what());
        } catch (...) {
            __keep("unknown exception");
        }
        return false;
    }

    /** Raises the Lua error for the exception that run() met. Does not return; the type is for
     *  `return guard.raise();`. Needs two free places on the Lua stack. */
    int raise();

private:
    void __keep(const char* reason) noexcept;

    lua_State* __state;
    char __reason[256];  // if the function threw
};

static_assert(std::is_trivially_destructible_v<LuaGuard>, "a Lua error may leave it behind");

}  // namespace oxil
