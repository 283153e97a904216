#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "OxLua.h"

namespace oxil::internal {

/**
 * A protected call into Lua, and the exception that a native function met inside it.
 *
 * Calls nest; an exception belongs to the innermost one. It comes back out only if the error that
 * it was raised as is the one that ended the call: a script may have handled it, and failed later
 * for another reason.
 */
class ProtectedCall {
public:
    ProtectedCall() noexcept : __raised(false), __outer(innermost) { innermost = this; }
    ~ProtectedCall() { innermost = __outer; }

    ProtectedCall(const ProtectedCall&) = delete;
    ProtectedCall& operator=(const ProtectedCall&) = delete;

    /** Keeps the current exception for the innermost call, if there is one. */
    static void keep() noexcept;

    /** Tells the innermost call the message of the Lua error that its exception is raised as. */
    static void raising(const char* message) noexcept;

    /** The exception that the error on top of the stack was raised as, or none. */
    std::exception_ptr getException(lua_State* state) const;

    /** How many instructions the innermost call has taken, as far as they are limited; null if there
     *  is no call. */
    static std::uint64_t* getInstructions() noexcept
    {
        return innermost != nullptr ? &innermost->__instructions : nullptr;
    }

private:
    static inline ProtectedCall* innermost = nullptr;

    std::exception_ptr __exception;
    std::string __message;
    bool __raised;
    std::uint64_t __instructions = 0;
    ProtectedCall* __outer;
};

}  // namespace oxil::internal
