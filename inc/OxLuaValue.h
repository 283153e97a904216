#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "OxExport.h"
#include "OxKeyValues.h"
#include "OxVariant.h"

struct lua_State;

namespace oxil {

namespace internal {

/** What a single value is in C++. */
enum class LuaType : unsigned char {
    NONE,
    BOOL,
    INT,
    UINT,
    LONGLONG,
    ULONGLONG,
    FLOAT,
    DOUBLE,
    TEXT,
    VIEW,
    C_TEXT,
    VALUE,
    RECORD
};

/** How many lists are within each other at most. */
inline constexpr int MAX_LUA_LISTS = 4;

/** What a value is to look like in Lua. */
struct LuaShape {
    LuaType type;         ///< of the value, or of what is in the lists
    unsigned char lists;  ///< within each other, around it
    bool isOptional;      ///< whether it may be left out
};

/** Pushes something, may raise a Lua error and must leave nothing with a destructor behind then;
 *  returns how many values it has pushed. */
using LuaPusher = int (*)(lua_State* state, const void* source);

template <typename T>
constexpr LuaType getLuaType()
{
    if constexpr (std::is_same_v<T, bool>) {
        return LuaType::BOOL;
    } else if constexpr (std::is_same_v<T, int>) {
        return LuaType::INT;
    } else if constexpr (std::is_same_v<T, unsigned int>) {
        return LuaType::UINT;
    } else if constexpr (std::is_same_v<T, long long>) {
        return LuaType::LONGLONG;
    } else if constexpr (std::is_same_v<T, unsigned long long>) {
        return LuaType::ULONGLONG;
    } else if constexpr (std::is_same_v<T, float>) {
        return LuaType::FLOAT;
    } else if constexpr (std::is_same_v<T, double>) {
        return LuaType::DOUBLE;
    } else if constexpr (std::is_same_v<T, std::string>) {
        return LuaType::TEXT;
    } else if constexpr (std::is_same_v<T, std::string_view>) {
        return LuaType::VIEW;
    } else if constexpr (std::is_same_v<std::decay_t<T>, const char*> ||
                         std::is_same_v<std::decay_t<T>, char*>) {
        return LuaType::C_TEXT;
    } else if constexpr (std::is_same_v<T, Variant>) {
        return LuaType::VALUE;
    } else if constexpr (std::is_same_v<T, KeyValues>) {
        return LuaType::RECORD;
    } else {
        return LuaType::NONE;
    }
}

template <typename T>
struct LuaShapeOf {
    static constexpr LuaShape SHAPE = {getLuaType<T>(), 0, false};
    static_assert(SHAPE.type != LuaType::NONE,
                  "scripts take and give bool, int, unsigned int, long long, unsigned long long, "
                  "float, double, std::string, std::string_view, const char*, Variant, KeyValues, "
                  "and std::vector and std::optional of them");
};

template <typename Item>
struct LuaShapeOf<std::vector<Item>> {
    static constexpr LuaShape ITEM = LuaShapeOf<Item>::SHAPE;
    static constexpr LuaShape SHAPE = {ITEM.type, static_cast<unsigned char>(ITEM.lists + 1),
                                       false};
    static_assert(!ITEM.isOptional, "a list in a script has no gaps");
    static_assert(SHAPE.lists <= MAX_LUA_LISTS, "lists are within each other up to 4 times");
};

template <typename Value>
struct LuaShapeOf<std::optional<Value>> {
    static constexpr LuaShape VALUE = LuaShapeOf<Value>::SHAPE;
    static constexpr LuaShape SHAPE = {VALUE.type, VALUE.lists, true};
    static_assert(!VALUE.isOptional, "what may be left out is so or not");
};

/** Whether a T lies in memory of Lua's. */
template <typename T>
inline constexpr bool IS_LUA_TEXT =
    LuaShapeOf<T>::SHAPE.type == LuaType::VIEW || LuaShapeOf<T>::SHAPE.type == LuaType::C_TEXT;

/** Whether pushing a T needs no memory, and so can't fail. */
template <typename T>
inline constexpr bool IS_PLAIN_IN_LUA = LuaShapeOf<T>::SHAPE.lists == 0 &&
                                        (LuaShapeOf<T>::SHAPE.type <= LuaType::UINT ||
                                         LuaShapeOf<T>::SHAPE.type == LuaType::FLOAT ||
                                         LuaShapeOf<T>::SHAPE.type == LuaType::DOUBLE);

}  // namespace internal

/**
 * Values, records and lists of them as Lua values, and back.
 *
 * LuaApi::bind() and LuaScript::call() use these by themselves; here they are for an application's
 * own `lua_CFunction`s:
 * @snippet inventory/main.cpp native
 *
 * | in C++                                         | in Lua                                         |
 * |------------------------------------------------|------------------------------------------------|
 * | `bool`                                         | boolean                                        |
 * | `int`, `unsigned int`, `long long`,            | number; on the way back without its fraction,  |
 * | `unsigned long long`                           | at the type's limit if beyond it, 0 for NaN    |
 * | `float`, `double`                              | number                                         |
 * | `std::string`, with any bytes                  | string                                         |
 * | `std::string_view`, `const char*` (up to its   | string; back only as a parameter of a bound    |
 * | first NUL, null is nil)                        | function, until that returns                   |
 * | Variant                                        | nil, boolean, number or string, see below      |
 * | KeyValues                                      | table with a field for each entry              |
 * | `std::vector` of any of them, or of lists      | table with the items at 1, 2, 3 ...            |
 * | `std::optional` of any of them                 | what it holds, or nil                          |
 *
 * No `long`, which differs from machine to machine; so does `std::int64_t`, which is one on many hosts
 * and a `long long` on the device.
 *
 * Where a number is wanted, a string that reads as one will do, and a number where a string is, as
 * everywhere in Lua. Nothing else becomes something else: a boolean is neither nil nor a number.
 *
 * @par Variants
 * From Lua, nil has kind VARIANT_TYPE_NONE, a boolean VARIANT_TYPE_BOOL, a string
 * VARIANT_TYPE_STRING, and a number the first of these that it is: VARIANT_TYPE_INT if it has no
 * fraction and fits, VARIANT_TYPE_LONGLONG if it has none and is not beyond 2^53, where Lua no longer
 * tells one integer from the next, else VARIANT_TYPE_DOUBLE (so is -0). It comes back to Lua as the
 * same number. To Lua every kind goes with its value and not with its kind, which Lua doesn't know:
 * 5u comes back as a 5, 2.0 as a 2. So ask for a number that may be either as a `double`.
 *
 * A 64-bit integer that a Lua number can't hold exactly is refused, wherever it stands.
 *
 * @par Records
 * The fields of a table have no order: a record has them in the order of their keys by bytes, the
 * same on every machine. All keys are strings, none of them empty, and all values booleans, numbers
 * or strings. An entry of kind VARIANT_TYPE_NONE is no field, as nil is none.
 *
 * @par Lists
 * A table is a list if its keys are 1 to n and no others; an empty one is an empty list, and an empty
 * record. The items are of one type and none of them is nil. Lists may be in lists up to 4 times
 * (`std::vector<std::vector<int>>` is twice), and how deep a table is looked into depends on the
 * type alone: one that goes deeper, that contains itself say, has a table where there is to be none.
 *
 * @par Metatables
 * Are not looked at: no script runs while a table is read.
 *
 * @par Threads
 * The thread of the script.
 */
class OXIL_API LuaValue {
public:
    /**
     * Raises the Lua error for a wrong argument if it is no T, as `luaL_checknumber` does: "bad
     * argument #1 to 'show' (number expected, got table at [2].size)".
     *
     * For the part of a function that comes before its LuaGuard. Needs 12 free places on the Lua
     * stack, as everything here, of the 20 that each function has.
     *
     * @param state     a state of a LuaScript, or a coroutine in it, as everywhere here
     * @param argument  counted from 1
     */
    template <typename T>
    static void check(lua_State* state, int argument)
    {
        __check(state, argument, internal::LuaShapeOf<T>::SHAPE);
    }

    /**
     * Reads a value. Raises no Lua error.
     *
     * @param index  where it is on the Lua stack
     * @param value  replaced; not `std::string_view` or `const char*`
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Invalid value (%s)." with what
     *         is wrong, with nothing changed
     * @throws std::bad_alloc  if there is no memory for it, with nothing changed
     */
    template <typename T>
    static int get(lua_State* state, int index, T& value)
    {
        static_assert(!internal::IS_LUA_TEXT<T>, "a text is kept as a std::string");
        const int r = __fit(state, index, internal::LuaShapeOf<T>::SHAPE);
        if (r == 0) {
            __read(state, index, value);
        }
        return r;
    }

    /**
     * Pushes a value. Raises no Lua error, so that there may be objects with destructors.
     *
     * @return STATUS_SUCCESS; with nothing pushed, STATUS_INVALID_PARAMETER after logging "Invalid
     *         value (%s)." with what is wrong (an integer beyond the numbers of Lua, a value of kind
     *         VARIANT_TYPE_NONE in a list), or STATUS_OUT_OF_MEMORY after logging "Memory allocation
     *         failed."
     */
    template <typename T>
    static int push(lua_State* state, const T& value)
    {
        return __pushOrLog(state, __pushOne<T>, &value);
    }

    /// @cond
    // For the library itself, and for what is inline in its headers.

    static void __check(lua_State* state, int argument, internal::LuaShape shape);

    static int __fit(lua_State* state, int index, internal::LuaShape shape);

    /** Reads what fits, and false if it is nil. */
    static bool __readPlain(lua_State* state, int index, internal::LuaType type, void* target);

    using ItemReader = void (*)(lua_State* state, void* list, std::size_t size);

    /** Has each item of a list read from the top of the stack, and tells how many there are in all;
     *  false if there is no list. */
    static bool __readItems(lua_State* state, int index, ItemReader readItem, void* list);

    template <typename T>
    static bool __read(lua_State* state, int index, T& value)
    {
        return __readPlain(state, index, internal::getLuaType<T>(), &value);
    }

    template <typename Value>
    static bool __read(lua_State* state, int index, std::optional<Value>& value)
    {
        Value held{};
        value.reset();
        if (__read(state, index, held)) {
            value.emplace(std::move(held));
        }
        return true;
    }

    template <typename Item>
    static bool __read(lua_State* state, int index, std::vector<Item>& list)
    {
        std::vector<Item> items;
        const bool isList = __readItems(
            state, index,
            [](lua_State* from, void* target, std::size_t size) {
                auto& all = *static_cast<std::vector<Item>*>(target);
                all.reserve(size);
                Item item{};
                __read(from, -1, item);
                all.push_back(std::move(item));
            },
            &items);
        list = std::move(items);
        return isList;
    }

    // May raise a Lua error.
    static void __pushPlain(lua_State* state, internal::LuaType type, const void* source);

    using ItemPusher = void (*)(lua_State* state, const void* list, std::size_t position);

    static void __pushItems(lua_State* state, std::size_t size, ItemPusher pushItem,
                            const void* list);

    template <typename T>
    static void __push(lua_State* state, const T& value)
    {
        constexpr internal::LuaType TYPE = internal::LuaShapeOf<T>::SHAPE.type;
        if constexpr (TYPE == internal::LuaType::C_TEXT) {
            const char* text = value;
            __pushPlain(state, TYPE, &text);
        } else {
            __pushPlain(state, TYPE, &value);
        }
    }

    template <typename Value>
    static void __push(lua_State* state, const std::optional<Value>& value)
    {
        if (value.has_value()) {
            __push(state, *value);
        } else {
            __pushPlain(state, internal::LuaType::NONE, nullptr);
        }
    }

    template <typename Item>
    static void __push(lua_State* state, const std::vector<Item>& list)
    {
        static_assert(internal::LuaShapeOf<std::vector<Item>>::SHAPE.lists > 0);
        __pushItems(
            state, list.size(),
            [](lua_State* to, const void* source, std::size_t position) {
                const Item& item = (*static_cast<const std::vector<Item>*>(source))[position];
                __push(to, item);
            },
            &list);
    }

    template <typename T>
    static int __pushOne(lua_State* state, const void* value)
    {
        __push(state, *static_cast<const T*>(value));
        return 1;
    }

    /** Pushes in a protected call. Returns how many values these are, or the status of `lua_pcall`,
     *  negative, with the error on top. */
    static int __pushProtected(lua_State* state, internal::LuaPusher pusher, const void* source);

    static int __pushOrLog(lua_State* state, internal::LuaPusher pusher, const void* source);
    /// @endcond
};

}  // namespace oxil
