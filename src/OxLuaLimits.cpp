#include "OxLuaLimits.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>

#include "OxLog.h"
#include "OxLuaScript.h"
#include "OxStatus.h"
#include "internal/OxLua.h"
#include "internal/OxProtectedCall.h"

namespace oxil {
namespace {

constexpr const char* TAKEN_AWAY[] = {
    // reaches the process and its files
    "io", "print", "require", "module", "package", "dofile", "loadfile", "os.execute", "os.exit",
    "os.getenv", "os.remove", "os.rename", "os.setlocale", "os.tmpname", "Timer", "WaitingLoop",
    // gets round the limits
    "debug", "load", "loadstring", "newproxy", "collectgarbage", "xpcall", "coroutine", "jit",
    // goes on for ever
    "string.find", "string.match", "string.gmatch", "string.gfind", "string.gsub", "string.rep",
    "table.foreach", "table.foreachi"};

/** How many instructions are counted at once. */
constexpr int STEP = 1000;

/** How much memory can be asked for, and moved there, in the time of an instruction. */
constexpr std::size_t BYTES_PER_INSTRUCTION = 64;

/** The limits of one state. They lie in a userdata of that state, which goes last of all. */
struct Limits {
    std::uint64_t instructions;
    std::uint64_t usedOutside;  // of these, by calls that are not the library's
    std::size_t bytes;
    std::size_t usedBytes;
    lua_Alloc allocator;  // the one that the state came with
    void* allocatorData;
};

/** What the innermost call has used of its instructions. */
std::uint64_t& getUsed(Limits* limits)
{
    std::uint64_t* used = internal::ProtectedCall::getInstructions();
    return used != nullptr ? *used : limits->usedOutside;
}

// ---- Instructions

/** A count hook for a state that has no limits yet. */
void refuse(lua_State* state, lua_Debug*)
{
    luaL_error(state, "script refused");
}

void* getKey()
{
    static const char key = 0;
    return const_cast<char*>(&key);
}

/** The limits of a state, null if it has none. */
Limits* getLimits(lua_State* state)
{
    lua_pushlightuserdata(state, getKey());
    lua_rawget(state, LUA_REGISTRYINDEX);
    auto* limits = static_cast<Limits*>(lua_touserdata(state, -1));
    lua_pop(state, 1);
    return limits;
}

/** A count hook. */
void count(lua_State* state, lua_Debug*)
{
    Limits* limits = getLimits(state);
    std::uint64_t& used = getUsed(limits);

    used += static_cast<std::uint64_t>(lua_gethookcount(state));
    if (used <= limits->instructions) {
        lua_sethook(state, count, LUA_MASKCOUNT, STEP);
        return;
    }
    // From now on at each instruction: a script that handles the error must not get any further.
    lua_sethook(state, count, LUA_MASKCOUNT, 1);
    luaL_where(state, 0);
    lua_pushliteral(state, "instruction limit reached");
    lua_concat(state, 2);
    lua_error(state);
}

// ---- Memory

/** An allocator that knows its limits. */
void* allocate(void* data, void* block, std::size_t oldSize, std::size_t newSize)
{
    auto* limits = static_cast<Limits*>(data);
    getUsed(limits) += newSize / BYTES_PER_INSTRUCTION;
    if (newSize > oldSize && (limits->usedBytes > limits->bytes ||
                              newSize - oldSize > limits->bytes - limits->usedBytes)) {
        return nullptr;
    }
    void* place = limits->allocator(limits->allocatorData, block, oldSize, newSize);
    if (place != nullptr || newSize == 0) {
        limits->usedBytes += newSize - oldSize;
    }
    return place;
}

/** Gives the state its own allocator back, when it is closed. */
int giveBack(lua_State* state)
{
    const auto* limits = static_cast<const Limits*>(lua_touserdata(state, 1));
    void* data = nullptr;
    if (lua_getallocf(state, &data) == allocate && data == limits) {
        lua_setallocf(state, limits->allocator, limits->allocatorData);
    }
    return 0;
}

/** Makes the limits of a state. They are never collected before it is closed. */
Limits* makeLimits(lua_State* state)
{
    lua_pushlightuserdata(state, getKey());
    auto* limits = static_cast<Limits*>(lua_newuserdata(state, sizeof(Limits)));
    *limits = Limits();
    limits->allocator = lua_getallocf(state, &limits->allocatorData);
    lua_createtable(state, 0, 1);
    lua_pushcfunction(state, giveBack);
    lua_setfield(state, -2, "__gc");
    lua_setmetatable(state, -2);
    lua_rawset(state, LUA_REGISTRYINDEX);

    limits->usedBytes = static_cast<std::size_t>(lua_gc(state, LUA_GCCOUNT, 0)) * 1024 +
                        static_cast<std::size_t>(lua_gc(state, LUA_GCCOUNTB, 0));
    lua_setallocf(state, allocate, limits);
    return limits;
}

// ---- What is taken away

/** Makes LuaJIT interpret: what it compiles does not count its instructions. */
void turnCompilerOff(lua_State* state)
{
    lua_pushliteral(state, "jit");
    lua_rawget(state, LUA_GLOBALSINDEX);
    if (lua_istable(state, -1)) {
        lua_getfield(state, -1, "off");
        lua_call(state, 0, 0);
    }
    lua_pop(state, 1);
}

/** Clears a field of the table on top of the stack, and pops that. */
void clear(lua_State* state, const char* field)
{
    lua_pushstring(state, field);
    lua_pushnil(state);
    lua_rawset(state, -3);
    lua_pop(state, 1);
}

void takeAway(lua_State* state, const char* name)
{
    lua_pushvalue(state, LUA_GLOBALSINDEX);
    const char* dot = std::strchr(name, '.');
    if (dot == nullptr) {
        clear(state, name);
        // Where registerApiTable() would find it again.
        lua_getfield(state, LUA_REGISTRYINDEX, "_LOADED");
        clear(state, name);
        return;
    }
    lua_pushlstring(state, name, static_cast<std::size_t>(dot - name));
    lua_rawget(state, -2);
    lua_remove(state, -2);
    if (lua_istable(state, -1)) {
        clear(state, dot + 1);
    } else {
        lua_pop(state, 1);
    }
}

// ---- What is bounded

constexpr const char* BOUNDED[] = {"insert", "remove", "sort"};

/**
 * Stands in for a function of the table library, which is its upvalue.
 *
 * They go through all positions up to the length of the table, or down to the one that they are
 * given, within one instruction. Few values in the right places make a table thousands of millions
 * long, so no more positions are taken than there is memory for values in them.
 */
int callBounded(lua_State* state)
{
    const Limits* limits = getLimits(state);
    if (limits == nullptr) {  // there was no memory for them
        return luaL_error(state, "script refused");
    }
    const auto most = static_cast<lua_Number>(limits->bytes / sizeof(lua_Number));
    luaL_checktype(state, 1, LUA_TTABLE);
    luaL_argcheck(state, static_cast<lua_Number>(lua_objlen(state, 1)) <= most, 1, "too long");
    if (lua_gettop(state) > 2) {
        const lua_Number position = luaL_checknumber(state, 2);
        luaL_argcheck(state, position >= 0 && position <= most, 2, "no such position");
    }
    lua_pushvalue(state, lua_upvalueindex(1));
    lua_insert(state, 1);
    lua_call(state, lua_gettop(state) - 1, LUA_MULTRET);
    return lua_gettop(state);
}

void boundTableFunctions(lua_State* state)
{
    lua_pushliteral(state, "table");
    lua_rawget(state, LUA_GLOBALSINDEX);
    for (const char* name : BOUNDED) {
        if (lua_istable(state, -1)) {
            lua_pushstring(state, name);
            lua_pushvalue(state, -1);
            lua_rawget(state, -3);
            lua_pushcclosure(state, callBounded, 1);
            lua_rawset(state, -3);
        }
    }
    lua_pop(state, 1);
}

// ---- All of it

struct Wanted {
    const std::vector<std::string>& takenAway;
    std::uint64_t instructions;
    std::size_t bytes;
};

/** May raise an error, which leaves by longjmp: nothing with a destructor is alive. */
int apply(lua_State* state)
{
    const auto& wanted = *static_cast<const Wanted*>(lua_touserdata(state, 1));

    turnCompilerOff(state);
    for (const std::string& name : wanted.takenAway) {
        takeAway(state, name.c_str());
    }
    Limits* limits = getLimits(state);
    if (limits == nullptr) {
        boundTableFunctions(state);
        limits = makeLimits(state);
    }
    limits->instructions = wanted.instructions;
    limits->bytes = wanted.bytes;
    return 0;
}

/** Whether Lua would take the file for compiled. */
bool isCompiled(const std::string& path)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                               std::fclose);
    if (file == nullptr) {
        return false;
    }
    int c = std::getc(file.get());
    if (c == '#') {  // Lua passes over such a line
        while (c != EOF && c != '\n') {
            c = std::getc(file.get());
        }
        c = std::getc(file.get());
    }
    return c == LUA_SIGNATURE[0];
}

}  // namespace

LuaLimits::LuaLimits(std::uint64_t instructions, std::size_t bytes)
    : __instructions(instructions),
      __bytes(bytes),
      __takenAway(std::begin(TAKEN_AWAY), std::end(TAKEN_AWAY))
{
}

LuaLimits::~LuaLimits() = default;

int LuaLimits::keep(const std::string& name)
{
    const auto place = std::find(__takenAway.begin(), __takenAway.end(), name);
    if (place == __takenAway.end()) {
        OX_ERROR("Not found (%s).", name.c_str());
        return STATUS_NOT_FOUND;
    }
    __takenAway.erase(place);
    return STATUS_SUCCESS;
}

void LuaLimits::takeAway(const std::string& name)
{
    __takenAway.push_back(name);
}

int LuaLimits::onLoading()
{
    const LuaScript* script = getLuaScript();
    lua_State* state = script != nullptr ? script->getLuaState() : nullptr;
    if (state == nullptr) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    // What loads scripts goes on whatever is returned here. Nothing is to run without its limits.
    lua_sethook(state, refuse, LUA_MASKCOUNT, 1);

    const std::string path = script->getFilePath();
    if (isCompiled(path)) {
        OX_ERROR("Compiled script (%s).", path.c_str());
        return STATUS_INVALID_STATE;
    }
    Wanted wanted = {__takenAway, __instructions, __bytes};
    // Which needs no more room on the stack than Lua keeps in reserve.
    if (lua_cpcall(state, apply, &wanted) != 0) {
        lua_pop(state, 1);
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    lua_sethook(state, count, LUA_MASKCOUNT, STEP);
    return STATUS_SUCCESS;
}

}  // namespace oxil
