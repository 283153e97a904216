#pragma once

#include <cstddef>
#include <functional>
#include <tuple>
#include <type_traits>
#include <utility>

#include "OxLuaValue.h"

struct lua_State;

namespace oxil::internal {

/** What the library has to know of a bound function; the function itself is an object of its own. */
struct LuaFunction {
    /** Calls it with the arguments on the stack, which are checked, and pushes the results. Returns
     *  what LuaValue::__pushProtected() does, and may throw. */
    int (*call)(lua_State* state, void* function);
    void (*destroy)(void* function);
    const LuaShape* parameters;
    int parameterCount;
};

/** Results of a function, or parameters of one, to push one behind the other. */
template <typename Tuple>
struct LuaTuple {
    static constexpr auto POSITIONS = std::make_index_sequence<std::tuple_size_v<Tuple>>();

    static int push(lua_State* state, const void* values)
    {
        push(state, *static_cast<const Tuple*>(values), POSITIONS);
        return static_cast<int>(std::tuple_size_v<Tuple>);
    }

    template <std::size_t... POSITION>
    static void push([[maybe_unused]] lua_State* state, [[maybe_unused]] const Tuple& values,
                     std::index_sequence<POSITION...>)
    {
        (LuaValue::__push(state, std::get<POSITION>(values)), ...);
    }

    static void read(lua_State* state, int first, void* values)
    {
        read(state, first, *static_cast<Tuple*>(values), POSITIONS);
    }

    template <std::size_t... POSITION>
    static void read([[maybe_unused]] lua_State* state, [[maybe_unused]] int first,
                     [[maybe_unused]] Tuple& values, std::index_sequence<POSITION...>)
    {
        (LuaValue::__read(state, first + static_cast<int>(POSITION), std::get<POSITION>(values)),
         ...);
    }
};

/** The same for the single result of a function, whether it is one or several. */
template <typename Result>
struct LuaResult {
    using Values = std::tuple<Result>;
    static constexpr bool IS_PLAIN = IS_PLAIN_IN_LUA<Result>;
};

template <typename... Results>
struct LuaResult<std::tuple<Results...>> {
    using Values = std::tuple<Results...>;
    static constexpr bool IS_PLAIN = (IS_PLAIN_IN_LUA<Results> && ...);
};

template <typename Function, typename Signature>
struct LuaBinding;

template <typename Function, typename Result, typename... Parameters>
struct LuaBinding<Function, std::function<Result(Parameters...)>> {
    using Arguments = std::tuple<std::decay_t<Parameters>...>;
    static_assert(sizeof...(Parameters) <= 10, "a bound function has up to 10 parameters");
    static_assert(((!std::is_lvalue_reference_v<Parameters> ||
                    std::is_const_v<std::remove_reference_t<Parameters>>)&&...),
                  "a bound function has no parameters to write to");
    static_assert((!std::is_same_v<std::decay_t<Parameters>, char*> && ...),
                  "a text of Lua is a const char*");
    static_assert((!(IS_LUA_TEXT<std::decay_t<Parameters>> &&
                     LuaShapeOf<std::decay_t<Parameters>>::SHAPE.lists > 0) &&
                   ...),
                  "a text in a list is kept as a std::string");

    static int call(lua_State* state, void* function)
    {
        Arguments arguments;
        LuaTuple<Arguments>::read(state, 1, &arguments);
        return call(state, *static_cast<Function*>(function), arguments,
                    LuaTuple<Arguments>::POSITIONS);
    }

    template <std::size_t... POSITION>
    static int call(lua_State* state, Function& function, Arguments& arguments,
                    std::index_sequence<POSITION...>)
    {
        if constexpr (std::is_void_v<Result>) {
            function(std::forward<Parameters>(std::get<POSITION>(arguments))...);
            return 0;
        } else {
            using Kind = LuaResult<std::decay_t<Result>>;
            using Values = typename Kind::Values;
            static_assert(std::tuple_size_v<Values> <= 10, "a function has up to 10 results");
            const Values values(
                function(std::forward<Parameters>(std::get<POSITION>(arguments))...));
            if constexpr (Kind::IS_PLAIN) {
                return LuaTuple<Values>::push(state, &values);
            } else {
                return LuaValue::__pushProtected(state, LuaTuple<Values>::push, &values);
            }
        }
    }

    static void destroy(void* function) { delete static_cast<Function*>(function); }

    static constexpr LuaShape PARAMETERS[] = {LuaShapeOf<std::decay_t<Parameters>>::SHAPE...,
                                              LuaShape()};
    static constexpr LuaFunction FUNCTION = {call, destroy, PARAMETERS, sizeof...(Parameters)};
};

/** What a function or function object takes and gives. */
template <typename Function>
using LuaSignature = decltype(std::function(std::declval<Function>()));

}  // namespace oxil::internal
