#include "internal/OxLuaStack.h"

#include <cstddef>
#include <cstring>

#include "OxLog.h"
#include "internal/OxLuaTable.h"

namespace oxil::internal {
namespace {

int reserve(lua_State* state)
{
    int* count = static_cast<int*>(lua_touserdata(state, 1));
    if (lua_checkstack(state, *count) == 0) {
        *count = 0;
    }
    return 0;
}

// ---- What is kept in each state
//
// Its places in the registry are the first ones that luaL_ref() would give: to find it takes 0.4 of the
// instructions that any other key takes (callgrind).

enum Kept {
    NAMES = 1,
    TEXT,
    ERROR_HANDLER,
    TEXT_OF,
    GLOBAL,
    FILE_CHUNK,
    RAISE,
    TABLE,
    OVERFLOW,
    REQUEST,
    TRACEBACK
};

void pushKept(lua_State* state, Kept kept)
{
    lua_rawgeti(state, LUA_REGISTRYINDEX, kept);
}

/** How many names are known: the next one with the same slot takes the place of another. To find one
 *  takes 0.4 of the instructions that making its text takes, in a protected call (callgrind). */
constexpr std::size_t NAME_SLOTS = 64;

int getNameSlot(const char* name)
{
    const std::size_t length = std::strlen(name);
    const auto first = static_cast<unsigned char>(name[0]);
    const auto middle = static_cast<unsigned char>(name[length / 2]);
    return static_cast<int>((length + 7U * first + 31U * middle) % NAME_SLOTS) + 1;
}

// ---- Functions that are kept
//
// They are given pointers as light userdata, which needs no memory.

const char* toText(lua_State* state, int argument)
{
    return static_cast<const char*>(lua_touserdata(state, argument));
}

int makeText(lua_State* state)
{
    lua_pushstring(state, toText(state, 1));
    return 1;
}

int makeTextOf(lua_State* state)
{
    lua_tostring(state, 1);  // in place
    return 1;
}

int getGlobal(lua_State* state)
{
    getLuaGlobal(state, toText(state, 1));
    return 1;
}

/** Raises the error that is its upvalue. */
int raise(lua_State* state)
{
    lua_pushvalue(state, lua_upvalueindex(1));
    return lua_error(state);
}

int makeRaise(lua_State* state)
{
    lua_pushcclosure(state, raise, 1);
    return 1;
}

int loadFile(lua_State* state)
{
    return luaL_loadfile(state, toText(state, 1)) == 0 ? 1 : lua_error(state);
}

int registerTable(lua_State* state)
{
    registerLuaTable(state, toText(state, 1),
                     static_cast<const luaL_Reg*>(lua_touserdata(state, 2)));
    return 1;
}

// GCOVR_EXCL_START: Lua 5.1 fails by itself before it calls this, and LuaJIT is not counted.
int overflow(lua_State* state)
{
    return luaL_error(state, "C stack overflow");
}
// GCOVR_EXCL_STOP

int runRequest(lua_State* state)
{
    const auto* request = static_cast<const LuaRequest*>(lua_touserdata(state, 1));
    return request->run(state, request->data);
}

/** Pushes the key with this name, if the table at an index has it. Asks for no memory. */
bool findKey(lua_State* state, int index, const char* name)
{
    lua_pushnil(state);
    while (lua_next(state, index) != 0) {
        lua_pop(state, 1);
        if (lua_type(state, -1) == LUA_TSTRING && std::strcmp(lua_tostring(state, -1), name) == 0) {
            return true;
        }
    }
    return false;
}

/**
 * Takes their finalizer from the files of a state.
 *
 * Lua 5.1 gives the standard streams away as files that are to be closed, and takes that back a
 * little later. Without memory in between, the standard streams of the process would be closed
 * together with the state.
 */
void spareStandardStreams(lua_State* state)
{
    if (!findKey(state, LUA_REGISTRYINDEX, LUA_FILEHANDLE)) {
        return;
    }
    lua_rawget(state, LUA_REGISTRYINDEX);
    if (lua_istable(state, -1) && findKey(state, lua_gettop(state), "__gc")) {
        lua_pushnil(state);
        lua_rawset(state, -3);
    }
}

/** Comes last, when Lua ends the process: an error that nothing protects from. */
int panic(lua_State* state)
{
    const bool isText = lua_type(state, -1) == LUA_TSTRING;  // which needs no memory to be told
    OX_ERROR("Lua panic (%s).", isText ? lua_tostring(state, -1) : "(null)");
    return 0;
}

void keepFunction(lua_State* state, Kept place, lua_CFunction function)
{
    lua_pushcfunction(state, function);
    lua_rawseti(state, LUA_REGISTRYINDEX, place);
}

int prepare(lua_State* state)
{
    // First of all: if memory ends while Lua moves numbered places of a table into its array part, and
    // there are others, walking through that table never ends.
    lua_createtable(state, NAME_SLOTS, 0);
    lua_rawseti(state, LUA_REGISTRYINDEX, NAMES);
    keepFunction(state, TEXT, makeText);
    keepFunction(state, ERROR_HANDLER, ProtectedCall::onError);
    keepFunction(state, TEXT_OF, makeTextOf);
    keepFunction(state, GLOBAL, getGlobal);
    keepFunction(state, FILE_CHUNK, loadFile);
    keepFunction(state, RAISE, makeRaise);
    keepFunction(state, TABLE, registerTable);
    keepFunction(state, OVERFLOW, overflow);
    keepFunction(state, REQUEST, runRequest);
    luaL_openlibs(state);
    // The script may replace its own, or have none.
    lua_getglobal(state, "debug");
    lua_getfield(state, -1, "traceback");
    lua_rawseti(state, LUA_REGISTRYINDEX, TRACEBACK);
    return 0;
}

void pushPointer(lua_State* state, const void* pointer)
{
    lua_pushlightuserdata(state, const_cast<void*>(pointer));
}

// A finalizer that fails interrupts what happens to run. It has had its turn then, so there is a
// point in trying that again. A hundred at once are more than a script has that means no harm, and
// those that leave others like themselves behind never come to an end.
constexpr int ATTEMPTS = 100;

/** Calls a kept function with one argument; false, with nothing left, if it failed. */
template <typename PushArgument>
bool callKept(ProtectedCall& call, Kept function, const PushArgument& pushArgument)
{
    lua_State* state = call.getState();
    for (int i = 0; i < ATTEMPTS; ++i) {
        pushKept(state, function);
        pushArgument(state);
        const int status = call.runOwn(1, 1);
        if (status == 0) {
            return true;
        }
        lua_pop(state, 1);
        if (status != LUA_ERRRUN) {
            break;
        }
    }
    return false;
}

/** Pushes a kept function and a text for it. */
void pushKeptWithText(lua_State* state, Kept function, const char* text)
{
    pushKept(state, function);
    pushPointer(state, text);
}

}  // namespace

bool prepareLuaState(lua_State* state)
{
    lua_atpanic(state, panic);
    if (lua_cpcall(state, prepare, nullptr) != 0) {
        spareStandardStreams(state);
        return false;
    }
    return true;
}

bool growLuaStack(ProtectedCall& call, int count)
{
    lua_State* state = call.getState();
    // Growing asks for memory, so it is done in a protected call, which has what it needs itself in
    // the places that Lua always keeps in reserve. Its limit counts from its own frame, so it goes
    // on where lua_checkstack() refuses at 8000 values, which a script with failing functions
    // reaches: each failed call leaves a message behind.
    int there = count;
    int status = LUA_ERRRUN;
    for (int i = 0; i < ATTEMPTS && status == LUA_ERRRUN; ++i) {
        status = lua_cpcall(state, reserve, &there);
        if (status != 0) {
            lua_pop(state, 1);
        }
    }
    if (status != 0 || there == 0) {
        return false;
    }
    lua_checkstack(state, count);  // which tells Lua, below its limit, that the room is in use
    return true;
}

bool pushLuaText(ProtectedCall& call, const char* text)
{
    return callKept(call, TEXT, [=](lua_State* state) { pushPointer(state, text); });
}

bool pushLuaTextOf(ProtectedCall& call, lua_Number number)
{
    return callKept(call, TEXT_OF, [=](lua_State* state) { lua_pushnumber(state, number); });
}

bool pushKnownLuaGlobal(lua_State* state, const char* name)
{
    pushKept(state, NAMES);
    lua_rawgeti(state, -1, getNameSlot(name));
    if (lua_type(state, -1) == LUA_TSTRING && std::strcmp(lua_tostring(state, -1), name) == 0) {
        lua_rawget(state, LUA_GLOBALSINDEX);
        if (!lua_isnil(state, -1)) {  // or a metatable may know more
            lua_replace(state, -2);
            return true;
        }
    }
    lua_pop(state, 2);
    return false;
}

int pushLuaGlobal(ProtectedCall& call, const char* name)
{
    lua_State* state = call.getState();
    if (lua_getmetatable(state, LUA_GLOBALSINDEX) != 0) {
        lua_pop(state, 1);
        pushKeptWithText(state, GLOBAL, name);
        return call.run(1, 1);
    }
    // Without a metatable nothing but a finalizer fails here.
    pushKeptWithText(state, GLOBAL, name);
    int status = call.runOwn(1, 1);
    for (int i = 1; i < ATTEMPTS && status == LUA_ERRRUN; ++i) {
        lua_pop(state, 1);
        pushKeptWithText(state, GLOBAL, name);
        status = call.runOwn(1, 1);
    }
    return status;
}

bool pushLuaFile(ProtectedCall& call, const char* filePath)
{
    pushKeptWithText(call.getState(), FILE_CHUNK, filePath);
    return call.runOwn(1, 1) == 0;
}

bool makeLuaRaise(ProtectedCall& call)
{
    if (!callKept(call, RAISE, [](lua_State* state) { lua_pushvalue(state, -2); })) {
        return false;
    }
    lua_remove(call.getState(), -2);
    return true;
}

bool pushLuaTable(ProtectedCall& call, const char* name, const luaL_Reg* functions)
{
    lua_State* state = call.getState();
    pushKept(state, TABLE);
    pushPointer(state, name);
    pushPointer(state, functions);
    if (call.runOwn(2, 1) != 0) {
        lua_pop(state, 1);
        return false;
    }
    return true;
}

void pushLuaRequest(lua_State* state, const LuaRequest* request)
{
    pushKept(state, REQUEST);
    pushPointer(state, request);
}

void getLuaGlobal(lua_State* state, const char* name)
{
    lua_pushstring(state, name);
    pushKept(state, NAMES);
    lua_pushvalue(state, -2);
    lua_rawseti(state, -2, getNameSlot(name));  // which is there, and needs no memory
    lua_pop(state, 1);
    lua_gettable(state, LUA_GLOBALSINDEX);
}

void pushLuaErrorHandler(lua_State* state)
{
    pushKept(state, ERROR_HANDLER);
}

void pushLuaTraceback(lua_State* state)
{
    pushKept(state, TRACEBACK);
}

void pushLuaOverflow(lua_State* state)
{
    pushKept(state, OVERFLOW);
}

}  // namespace oxil::internal
