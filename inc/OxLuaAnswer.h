#pragma once

#include <string>
#include <tuple>
#include <utility>

#include "OxLuaValue.h"
#include "OxStatus.h"

struct lua_State;

namespace oxil {

namespace internal {

/** How a call of a script's function has ended. */
struct LuaOutcome {
    int status = STATUS_INVALID_STATE;
    std::string message;
    std::string traceback;
};

/** A call of a script's function, for the library. */
struct LuaCall {
    const std::string& functionName;
    LuaPusher pushParameters;
    const void* parameters;
    int parameterCount;
    const LuaShape* resultShapes;
    int resultCount;
    void (*readResults)(lua_State* state, int first, void* results);
    void* results;
};

}  // namespace internal

/**
 * What came out of LuaScript::call(): results, or the reason why there are none.
 * @snippet inventory/main.cpp call
 *
 * @tparam Results  types of the results, of those that LuaValue lists
 */
template <typename... Results>
class LuaAnswer {
public:
    /** Whether the function has returned what was asked for. */
    explicit operator bool() const noexcept { return __outcome.status == STATUS_SUCCESS; }

    /** STATUS_SUCCESS; STATUS_NOT_FOUND if the script has no such global; STATUS_FAILURE if the
     *  function has failed or returned something else, or could not be given its parameters;
     *  STATUS_INVALID_STATE if the script has no state, or lost it meanwhile. */
    int getStatus() const noexcept { return __outcome.status; }

    /** What is wrong: Lua's message, "(null)" if the error value is no text; empty if nothing is. */
    const std::string& getMessage() const noexcept { return __outcome.message; }

    /** Which functions led to the error, a line each below "stack traceback:"; empty if none did, or
     *  there was no memory for it. */
    const std::string& getTraceback() const noexcept { return __outcome.traceback; }

    /** The result, or an `std::tuple` if it is not one: `auto [count, last] = *answer;`. After a
     *  failure these are zeros, false, and empty texts and lists. */
    const auto& operator*() const& noexcept
    {
        if constexpr (sizeof...(Results) == 1) {
            return std::get<0>(__results);
        } else {
            return __results;
        }
    }

    /** The same of an answer that is not kept: `int count = *script.call<int>("count");`. */
    auto operator*() &&
    {
        if constexpr (sizeof...(Results) == 1) {
            return std::get<0>(std::move(__results));
        } else {
            return std::move(__results);
        }
    }

    /** A member of what `*` gives. */
    const auto* operator->() const noexcept { return &**this; }

    /// @cond
    LuaAnswer(internal::LuaOutcome&& outcome, std::tuple<Results...>&& results)
        : __outcome(std::move(outcome)), __results(std::move(results))
    {
    }
    /// @endcond

private:
    internal::LuaOutcome __outcome;
    std::tuple<Results...> __results;
};

}  // namespace oxil
