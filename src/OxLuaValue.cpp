#include "OxLuaValue.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <type_traits>

#include "OxLog.h"
#include "OxStatus.h"
#include "internal/OxLua.h"
#include "internal/OxLuaMisfit.h"
#include "internal/OxLuaStack.h"
#include "internal/OxSaturate.h"

namespace oxil {

using internal::LuaMisfit;
using internal::LuaShape;
using internal::LuaStackTop;
using internal::LuaType;

namespace {

/** Beyond it Lua does not tell an integer from the next one. */
constexpr double LAST_INTEGER = 9007199254740992.0;

bool isNumber(LuaType type)
{
    return type >= LuaType::INT && type <= LuaType::DOUBLE;
}

// ---- From Lua: raises no error, asks Lua for no memory

std::string_view getText(lua_State* state, int index)
{
    std::size_t length = 0;
    const char* text = lua_tolstring(state, index, &length);
    return {text, length};
}

/** A text, or a number as Lua writes it, which Lua would need memory for. */
std::string readText(lua_State* state, int index)
{
    if (lua_type(state, index) == LUA_TNUMBER) {
        char digits[32];
        std::snprintf(digits, sizeof digits, LUA_NUMBER_FMT, lua_tonumber(state, index));
        return digits;
    }
    return std::string(getText(state, index));
}

Variant readNumber(double number)
{
    if (std::fabs(number) > LAST_INTEGER || number != std::floor(number) ||
        (number == 0 && std::signbit(number))) {
        return number;
    }
    if (number >= INT_MIN && number <= INT_MAX) {
        return static_cast<int>(number);
    }
    return static_cast<long long>(number);
}

Variant readValue(lua_State* state, int index)
{
    switch (lua_type(state, index)) {
        case LUA_TBOOLEAN:
            return lua_toboolean(state, index) != 0;
        case LUA_TNUMBER:
            return readNumber(lua_tonumber(state, index));
        case LUA_TSTRING:
            return std::string(getText(state, index));
        default:
            return Variant();
    }
}

struct Field {
    std::string_view key;
    std::size_t position;  // of its value
};

int compareFields(const void* one, const void* other)
{
    return static_cast<const Field*>(one)->key.compare(static_cast<const Field*>(other)->key);
}

KeyValues readRecord(lua_State* state, int index)
{
    const LuaStackTop top(state);
    lua_pushvalue(state, index);
    const int table = lua_gettop(state);

    std::vector<Field> fields;
    std::vector<Variant> values;
    for (lua_pushnil(state); lua_next(state, table) != 0; lua_pop(state, 1)) {
        fields.push_back({getText(state, -2), values.size()});
        values.push_back(readValue(state, -1));
    }
    if (!fields.empty()) {
        std::qsort(fields.data(), fields.size(), sizeof(Field), compareFields);
    }
    KeyValues record;
    record.__reserve(fields.size());
    for (const Field& field : fields) {
        record.add(KeyValue(std::string(field.key), std::move(values[field.position])));
    }
    return record;
}

// ---- To Lua: may raise errors, which leave by longjmp

template <typename Integer>
void pushInteger(lua_State* state, Integer value)
{
    // END is 2^63 or 2^64, which a large one may be rounded up to.
    constexpr double END = 2.0 * static_cast<double>(std::numeric_limits<Integer>::max() / 2 + 1);
    const auto number = static_cast<double>(value);
    if (number >= END || static_cast<Integer>(number) != value) {
        char digits[32];
        std::snprintf(digits, sizeof digits, std::is_signed_v<Integer> ? "%lld" : "%llu", value);
        luaL_error(state, "no number of Lua is %s", digits);
    }
    lua_pushnumber(state, number);
}

void pushText(lua_State* state, std::string_view text)
{
    lua_pushlstring(state, text.data(), text.size());
}

void pushValue(lua_State* state, const Variant& value)
{
    switch (value.getType()) {
        case VARIANT_TYPE_NONE:
            lua_pushnil(state);
            break;
        case VARIANT_TYPE_LONGLONG:
            pushInteger(state, value.get<long long>());
            break;
        case VARIANT_TYPE_ULONGLONG:
            pushInteger(state, value.get<unsigned long long>());
            break;
        case VARIANT_TYPE_BOOL:
            lua_pushboolean(state, value.get<bool>());
            break;
        case VARIANT_TYPE_STRING:
            pushText(state, value.__getText());
            break;
        default:
            lua_pushnumber(state, value.toDouble());  // which all others can be, exactly
    }
}

void pushRecord(lua_State* state, const KeyValues& record)
{
    lua_createtable(state, 0, record.getCount());
    for (const auto& [key, value] : record) {
        pushText(state, key);
        pushValue(state, value);
        lua_rawset(state, -3);  // nil, and there is no such field
    }
}

}  // namespace

void LuaValue::__check(lua_State* state, int argument, LuaShape shape)
{
    // With this a bound function of two numbers takes 0.88 of the instructions (callgrind).
    if (isNumber(shape.type) && shape.lists == 0 && lua_type(state, argument) == LUA_TNUMBER) {
        return;
    }
    LuaMisfit misfit;
    if (!misfit.check(state, argument, shape)) {
        luaL_argerror(state, argument, misfit.getText());
    }
    if (shape.type == LuaType::VIEW || shape.type == LuaType::C_TEXT) {
        lua_tostring(state, argument);  // of a number, in its place
    }
}

int LuaValue::__fit(lua_State* state, int index, LuaShape shape)
{
    LuaMisfit misfit;
    if (!misfit.check(state, index, shape)) {
        OX_ERROR_AS("get", "Invalid value (%s).", misfit.getText());
        return STATUS_INVALID_PARAMETER;
    }
    return STATUS_SUCCESS;
}

bool LuaValue::__readPlain(lua_State* state, int index, LuaType type, void* target)
{
    // What is no number reads as 0, so most need not be asked whether they are: with this order a bound
    // function of two numbers takes 0.94 of the instructions (callgrind).
    const double number = isNumber(type) ? lua_tonumber(state, index) : 0;
    if (number == 0 && lua_isnoneornil(state, index) && type != LuaType::VALUE) {
        return false;
    }
    switch (type) {
        // GCOVR_EXCL_START: what is none of these types does not compile.
        case LuaType::NONE:
            break;
        // GCOVR_EXCL_STOP
        case LuaType::BOOL:
            *static_cast<bool*>(target) = lua_toboolean(state, index) != 0;
            break;
        case LuaType::INT:
            *static_cast<int*>(target) = internal::saturate(number);
            break;
        case LuaType::UINT:
            *static_cast<unsigned int*>(target) = internal::saturate<unsigned int>(number);
            break;
        case LuaType::LONGLONG:
            *static_cast<long long*>(target) = internal::saturate<long long>(number);
            break;
        case LuaType::ULONGLONG:
            *static_cast<unsigned long long*>(target) =
                internal::saturate<unsigned long long>(number);
            break;
        case LuaType::FLOAT:
            *static_cast<float*>(target) = static_cast<float>(number);
            break;
        case LuaType::DOUBLE:
            *static_cast<double*>(target) = number;
            break;
        case LuaType::TEXT:
            *static_cast<std::string*>(target) = readText(state, index);
            break;
        case LuaType::VIEW:
            *static_cast<std::string_view*>(target) = getText(state, index);
            break;
        case LuaType::C_TEXT:
            *static_cast<const char**>(target) = lua_tostring(state, index);
            break;
        case LuaType::VALUE:
            *static_cast<Variant*>(target) = readValue(state, index);
            return !lua_isnoneornil(state, index);
        case LuaType::RECORD:
            *static_cast<KeyValues*>(target) = readRecord(state, index);
            break;
    }
    return true;
}

bool LuaValue::__readItems(lua_State* state, int index, ItemReader readItem, void* list)
{
    if (lua_isnoneornil(state, index)) {
        return false;
    }
    const LuaStackTop top(state);
    lua_pushvalue(state, index);
    const int table = lua_gettop(state);
    const std::size_t size = lua_objlen(state, table);
    for (std::size_t i = 1; i <= size; ++i) {
        lua_rawgeti(state, table, static_cast<int>(i));
        readItem(state, list, size);
        lua_pop(state, 1);
    }
    return true;
}

void LuaValue::__pushPlain(lua_State* state, LuaType type, const void* source)
{
    switch (type) {
        case LuaType::NONE:
            lua_pushnil(state);
            break;
        case LuaType::BOOL:
            lua_pushboolean(state, *static_cast<const bool*>(source));
            break;
        case LuaType::INT:
            lua_pushnumber(state, *static_cast<const int*>(source));
            break;
        case LuaType::UINT:
            lua_pushnumber(state, *static_cast<const unsigned int*>(source));
            break;
        case LuaType::LONGLONG:
            pushInteger(state, *static_cast<const long long*>(source));
            break;
        case LuaType::ULONGLONG:
            pushInteger(state, *static_cast<const unsigned long long*>(source));
            break;
        case LuaType::FLOAT:
            lua_pushnumber(state, static_cast<double>(*static_cast<const float*>(source)));
            break;
        case LuaType::DOUBLE:
            lua_pushnumber(state, *static_cast<const double*>(source));
            break;
        case LuaType::TEXT:
            pushText(state, *static_cast<const std::string*>(source));
            break;
        case LuaType::VIEW:
            pushText(state, *static_cast<const std::string_view*>(source));
            break;
        case LuaType::C_TEXT:
            lua_pushstring(state, *static_cast<const char* const*>(source));
            break;
        case LuaType::VALUE:
            pushValue(state, *static_cast<const Variant*>(source));
            break;
        case LuaType::RECORD:
            pushRecord(state, *static_cast<const KeyValues*>(source));
            break;
    }
}

void LuaValue::__pushItems(lua_State* state, std::size_t size, ItemPusher pushItem,
                           const void* list)
{
    lua_createtable(state, static_cast<int>(size), 0);
    for (std::size_t i = 0; i < size; ++i) {
        const int position = static_cast<int>(i) + 1;
        pushItem(state, list, i);
        if (lua_isnil(state, -1)) {
            luaL_error(state, "no value at [%d]", position);
        }
        lua_rawseti(state, -2, position);
    }
}

int LuaValue::__pushProtected(lua_State* state, internal::LuaPusher pusher, const void* source)
{
    const int top = lua_gettop(state);
    const internal::LuaRequest request = {pusher, source};
    internal::pushLuaRequest(state, &request);
    const int status = lua_pcall(state, 1, LUA_MULTRET, 0);
    return status == 0 ? lua_gettop(state) - top : -status;
}

int LuaValue::__pushOrLog(lua_State* state, internal::LuaPusher pusher, const void* source)
{
    const int count = __pushProtected(state, pusher, source);
    if (count >= 0) {
        return STATUS_SUCCESS;
    }
    int r = STATUS_INVALID_PARAMETER;
    if (count == -LUA_ERRMEM) {
        OX_ERROR_AS("push", "Memory allocation failed.");
        r = STATUS_OUT_OF_MEMORY;
    } else {
        const bool isText = lua_type(state, -1) == LUA_TSTRING;
        OX_ERROR_AS("push", "Invalid value (%s).", isText ? lua_tostring(state, -1) : "(null)");
    }
    lua_pop(state, 1);
    return r;
}

}  // namespace oxil
