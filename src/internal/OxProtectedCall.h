#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "internal/OxLua.h"

namespace oxil::internal {

/**
 * A call into a Lua state, and the exception that a native function met inside it.
 *
 * Whatever may run code of a script, be it a finalizer only, happens while one of these lives. They
 * nest, on the C stack, so that it is known which states are in use further up.
 *
 * An exception belongs to the innermost call. It comes back out only if the error that it was
 * raised as is the one that ended the call: a script may have handled it, and failed later for
 * another reason.
 */
class ProtectedCall {
public:
    explicit ProtectedCall(lua_State* state) noexcept;

    /** Closes the state if that had to wait for this. */
    ~ProtectedCall();

    ProtectedCall(const ProtectedCall&) = delete;
    ProtectedCall& operator=(const ProtectedCall&) = delete;

    lua_State* getState() const noexcept { return __state; }

    /**
     * Does what `lua_pcall` does. Needs one place more on the Lua stack.
     *
     * Refuses the 200th call within another with the error that Lua 5.1 has for it, because LuaJIT
     * has none and leaves the C stack at its end.
     */
    int run(int parameterCount, int returnCount) noexcept;

    /** Has run() describe what led to an error, which needs a place in which it finds room. */
    void traceErrors(std::string& traceback) noexcept { __traceback = &traceback; }

    /** The same for a function of the library, when nobody asks what its error was raised for. */
    int runOwn(int parameterCount, int returnCount) noexcept;

    /** Throws what the error on top of the stack was raised for, if that was an exception. */
    void rethrowIfKept() const;

    /** The exception that the error on top of the stack was raised as, or none. */
    std::exception_ptr getException() const;

    /** Whether the state was given up meanwhile: the script that it belonged to has another one, or
     *  is no more. */
    bool isAbandoned() const noexcept { return __abandoned; }

    /** Whether there is a call into this state further up the C stack. */
    static bool isActive(lua_State* state) noexcept;

    /** Closes a state: at once, or when the outermost call into it comes to its end. */
    static void close(lua_State* state) noexcept;

    /** Keeps the current exception for the innermost call, if there is one. */
    static void keep() noexcept;

    /** Tells the innermost call that its exception is raised now by the native function that runs
     *  in this state, as a Lua error with the message on top. */
    static void raising(lua_State* state);

    /** Tells the innermost call of an error in this state that nobody in it handles: the message
     *  handler of run(). */
    static int onError(lua_State* state);

    /** How many instructions the innermost call has taken, as far as they are limited; null if there
     *  is no call. */
    static std::uint64_t* getInstructions() noexcept
    {
        return __innermost != nullptr ? &__innermost->__instructions : nullptr;
    }

private:
    static inline ProtectedCall* __innermost = nullptr;

    void __checkLevel(int place) noexcept;
    bool __isCarriedTo(lua_State* state) const;
    void __trace(lua_State* state) const noexcept;

    lua_State* __state;
    ProtectedCall* __outer;
    int __level;  // of calls into this state within each other
    bool __abandoned = false;
    bool __closing = false;
    bool __raised = false;
    bool __carried = false;  // the error came out of coroutines, as their own errors
    lua_State* __raisedIn = nullptr;
    const void* __raisedBy = nullptr;
    std::uint64_t __instructions = 0;
    std::string* __traceback = nullptr;
    std::exception_ptr __exception;
    char __message[384];  // more than a position and the text of a LuaGuard; if raised
};

}  // namespace oxil::internal
