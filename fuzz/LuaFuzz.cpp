// Scripts that use the tables of the API while the main loop runs, with limits or without: handles are
// what they should be, timers fire once, nothing stays busy, limits hold, and a script does the same
// each time. It may end itself or be loaded again in the middle of anything.
//
// A script is made of letters, so that each seed can be read: see Grammar.

#include <OxLuaApi.h>
#include <OxLuaGuard.h>
#include <OxLuaLimits.h>
#include <OxLuaScript.h>
#include <OxObjectManager.h>
#include <OxStatus.h>
#include <OxWaitingLoop.h>
#include <glib.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

#include "Fuzz.h"
#include "Input.h"
#include "MemoryFile.h"
#include "VirtualTime.h"

namespace {

using namespace oxil;
using fuzz::Input;

constexpr std::size_t MOST_BYTES = 512 * 1024;
constexpr std::uint64_t MOST_INSTRUCTIONS = 40 * 1000;

// In the time of the main loop. What waits then is ended.
constexpr guint MOST_MILLISECONDS = 50;

// Timers that start timers would soon do nothing else.
constexpr int MOST_OBJECTS = 12;

// A script without limits, or one whose instructions take long, has to come to its end as well.
constexpr std::size_t MOST_LETTERS = 512;
constexpr int MOST_EFFORTS = 300;

// ---- The script

/** Writes Lua, statement by statement, each a letter and what it is about. */
class Grammar {
public:
    Grammar(std::string_view letters, bool isLimited)
        : __input(letters.substr(0, MOST_LETTERS)),
          __isLimited(isLimited),
          // In coroutines and finalizers nobody counts instructions.
          __isCounted(isLimited && letters.find_first_of("{[") == std::string_view::npos)
    {
    }

    /** The text of the script: its functions, which timers call, and then what it does itself. */
    std::string write()
    {
        for (const char* name : {"tick", "tock"}) {
            __script += std::string("function ") + name + "(count)\nHost.begin()\n";
            __block(0);
            __script += "return count\nend\n";
        }
        __block(0);
        return __script;
    }

private:
    static constexpr int DEEPEST = 4;

    /** Statements up to the end of the block, a full stop. */
    void __block(int depth)
    {
        while (!__input.isAtEnd()) {
            const char letter = __next();
            if (letter == '.') {
                return;
            }
            __statement(letter, depth);
        }
    }

    char __next() { return static_cast<char>(__input.byte()); }

    void __nested(const std::string& head, const std::string& tail, int depth)
    {
        if (depth < DEEPEST) {
            __script += head + "\n";
            __block(depth + 1);
            __script += tail + "\n";
        }
    }

    void __statement(char letter, int depth)
    {
        switch (letter) {
            case 'p':
                __say("Log.print(#, #)");
                break;
            case 't':
                __say("Timer.start(#, &)");
                break;
            case 'T':
                __say("Timer.start(#, &, true)");
                break;
            case 's':
                __say("Timer.stop(#)");
                break;
            case 'c':
                __say("WaitingLoop.create()");
                break;
            case 'd':
                __say("WaitingLoop.destroy(#)");
                break;
            case 'w':
                __say("WaitingLoop.wait(#)");
                break;
            case 'W':
                __say("WaitingLoop.waitTime(#, #)");
                break;
            case 'r':
                __say("WaitingLoop.run(#)");
                break;
            case 'R':
                __say("WaitingLoop.runTime(#, #)");
                break;
            case 'q':
                __say("WaitingLoop.quit(#)");
                break;
            case 'g':
                __say("WaitingLoop.go(#)");
                break;
            case 'i':
                __say("Log.print(tostring(WaitingLoop.isRunning(#)))");
                break;
            case 'j':
                __say("Log.print(tostring(WaitingLoop.isWaiting(#)))");
                break;
            case 'h':
                __say("Host.call(&)");
                break;
            case 'l':
                __say("Host.load()");
                break;
            case 'k':
                __say("Host.destroy()");
                break;
            case 'x':
                __say("Host.throw()");
                break;
            case 'e':
                __say("error(#)");
                break;
            case 'm':
                __say(__isLimited ? "" : "Host.spend()");
                __say("do n = (n or 0) + 1 local s = 'x' .. n for i = 1, 16 do s = s .. s end");
                __say("kept = {kept, s} end");
                break;
            case 'o':
                __say(__isCounted ? "while true do end" : "count = nil");
                break;
            case 'G':
                __say("Host.spend() collectgarbage()");
                break;
            case 'f':
                __nested("for i = 1, 3 do Host.spend()", "end", depth);
                break;
            case '?':
                __nested("if WaitingLoop.isWaiting(0) then", "end", depth);
                break;
            case '(':
                __nested("pcall(function()", "end)", depth);
                break;
            case '{':
                __nested("coroutine.wrap(function()", "end)()", depth);
                break;
            case '[':
                __nested("getmetatable(newproxy(true)).__gc = function()", "end", depth);
                break;
            default:
                break;
        }
    }

    /** Writes a statement, with values and names of functions where the marks are. */
    void __say(std::string_view statement)
    {
        for (const char c : statement) {
            if (c == '#') {
                __script += __value();
            } else if (c == '&') {
                __script += __name();
            } else {
                __script += c;
            }
        }
        __script += "\n";
    }

    std::string __name()
    {
        switch (__next()) {
            case 'i':
                return "'tick'";
            case 'o':
                return "'tock'";
            case 'n':
                return "'nobody'";
            case '0':
                return "''";
            default:
                return "7";
        }
    }

    std::string __value()
    {
        const char letter = __next();
        if (std::isdigit(static_cast<unsigned char>(letter)) != 0) {
            return std::string(1, letter);
        }
        switch (letter) {
            case '-':
                return "-1";
            case '~':
                return "-1e300";
            case '^':
                return "1e300";
            case '/':
                return "1.75";
            case '\'':
                return "'1'";
            case '"':
                return "'a text'";
            case '%':
                return "0/0";
            case '@':
                return "{}";
            case '!':
                return "false";
            default:
                return "nil";
        }
    }

    Input __input;
    bool __isLimited;
    bool __isCounted;
    std::string __script;
};

// ---- What scripts have made, as they should know it

struct World {
    int loops = 0;
    int timers = 0;
    int efforts = 0;  // which take a while
    int calls = 0;    // of the functions
    int causes = 0;   // of such calls, unless a timer repeats
    bool repeats = false;
    int hostCalls = 0;  // by which the script calls itself
    int loads = 0;
    int blocks = 0;       // calls that block, one in the other
    bool isOver = false;  // time is up: nobody waits any more
    bool hasFinalizers = false;
    bool isUnsure = false;  // nobody knows any more how many loops and timers there are
    std::unique_ptr<LuaScript> script;
};

World world;

/** The kinds of functions that get a handle or return one. */
enum Function { CREATE, START, STOP, DESTROY, BLOCK, ASK, TELL };

/** A number as a handle; false if it is none. */
bool toHandle(lua_State* state, int& handle)
{
    if (lua_isnumber(state, 1) == 0) {
        return false;
    }
    const double number = lua_tonumber(state, 1);
    handle =
        std::isnan(number) ? 0 : static_cast<int>(std::fmin(std::fmax(number, INT_MIN), INT_MAX));
    return true;
}

/** Whether the arguments are those that a function takes. */
bool areGood(lua_State* state, Function function)
{
    switch (function) {
        case CREATE:
            return true;
        case START:
            return lua_isnumber(state, 1) != 0 && lua_isstring(state, 2) != 0;
        default:
            // Of a call with a time, the time is looked at, too.
            return lua_isnumber(state, 1) != 0 &&
                   (lua_gettop(state) < 2 || lua_isnumber(state, 2) != 0);
    }
}

/** Whether the error on top of the stack says that a function was not called at all. */
bool isRefused(lua_State* state, int status)
{
    // A number as a text would take memory, and where calls are too deep within a message handler,
    // there is no message of that.
    return status != LUA_ERRRUN ||
           (lua_type(state, -1) == LUA_TSTRING &&
            std::strstr(lua_tostring(state, -1), "stack overflow") != nullptr);
}

/** Stands in for a function of the API, which is its first upvalue, and looks at what it does. */
int check(lua_State* state)
{
    const auto function = static_cast<Function>(lua_tointeger(state, lua_upvalueindex(2)));
    const bool makes = function == CREATE || function == START;
    if (function == BLOCK && world.isOver) {
        return luaL_error(state, "time is over");
    }
    if (world.isUnsure) {
        return luaL_error(state, "the objects are no longer known");
    }
    if (makes && std::max(world.timers, world.loops) >= MOST_OBJECTS) {
        return luaL_error(state, "too many objects");
    }
    luaL_checkstack(state, 4, "check");
    if (function == START && lua_isnumber(state, 2) != 0) {
        lua_tostring(state, 2);  // now, because a finalizer may run then
    }
    int& count = function == START || function == STOP ? world.timers : world.loops;
    int handle = -1;
    const bool hasHandle = !makes && toHandle(state, handle);
    const bool isKnown = hasHandle && handle >= 0 && handle < count;
    const bool succeeds = areGood(state, function) && (makes || handle < count);
    const int expectedHandle = count;
    const bool repeats = function == START && lua_toboolean(state, 3) != 0;
    int change = 0;
    if (succeeds && makes) {
        change = 1;
    } else if (succeeds && isKnown && (function == STOP || function == DESTROY)) {
        change = -1;
    }
    count += change;

    lua_pushvalue(state, lua_upvalueindex(1));
    lua_insert(state, 1);
    world.blocks += function == BLOCK ? 1 : 0;
    const int status = lua_pcall(state, lua_gettop(state) - 1, LUA_MULTRET, 0);
    world.blocks -= function == BLOCK ? 1 : 0;
    if (status != 0 && isRefused(state, status)) {
        count -= change;
        // It may have been a finalizer that was refused, after the call had done its work.
        world.isUnsure = world.isUnsure || (change != 0 && world.hasFinalizers);
        return lua_error(state);
    }
    if (world.isUnsure) {
        return status == 0 ? lua_gettop(state) : lua_error(state);
    }
    // Lua collects when a call has returned, and what a finalizer raises comes out of that call.
    const bool isFinalizers = status != 0 && succeeds && world.hasFinalizers;
    FUZZ_REQUIRE(succeeds == (status == 0 || isFinalizers));
    if (succeeds && function == START) {
        ++world.causes;
        world.repeats = world.repeats || repeats;
    }
    if (status != 0) {
        return lua_error(state);
    }

    if (makes) {
        FUZZ_REQUIRE(lua_gettop(state) == 1 && lua_tointeger(state, 1) == expectedHandle);
    } else if (function == ASK) {
        FUZZ_REQUIRE(lua_gettop(state) == 1 && lua_isboolean(state, 1));
        // Nothing runs where nobody waits.
        const bool isPossible = isKnown && (world.blocks > 0 || world.isOver);
        FUZZ_REQUIRE(isPossible || lua_toboolean(state, 1) == 0);
    } else {
        FUZZ_REQUIRE(lua_gettop(state) == 0);
    }
    return lua_gettop(state);
}

// ---- What the application adds

int spendEffort(lua_State* state)
{
    return ++world.efforts < MOST_EFFORTS ? 0 : luaL_error(state, "too much effort");
}

int beginCall(lua_State* state)
{
    ++world.calls;
    return spendEffort(state);
}

int callScript(lua_State* state)
{
    const char* name = luaL_checkstring(state, 1);
    LuaGuard guard(state);
    const bool done = guard.run([&] {
        if (world.script != nullptr && ++world.hostCalls < 20) {
            ++world.causes;
            world.script->callMethod(name, 0);
        }
    });
    return done ? 0 : guard.raise();
}

int loadScript(lua_State* state)
{
    LuaGuard guard(state);
    const bool done = guard.run([&] {
        if (world.script != nullptr && ++world.loads < 3) {
            static_cast<void>(world.script->load());
        }
    });
    return done ? 0 : guard.raise();
}

int destroyScript(lua_State*)
{
    world.script.reset();
    return 0;
}

int throwException(lua_State* state)
{
    spendEffort(state);
    LuaGuard guard(state);
    guard.run([] { throw std::runtime_error("thrown by the application"); });
    return guard.raise();
}

class HostApi : public LuaApi {
public:
    int onLoading() override
    {
        static const luaL_Reg functions[] = {{"begin", beginCall},       {"spend", spendEffort},
                                             {"call", callScript},       {"load", loadScript},
                                             {"destroy", destroyScript}, {"throw", throwException},
                                             {nullptr, nullptr}};
        registerApiTable("Host", functions);
        return lua_cpcall(getLuaScript()->getLuaState(), checkAll, nullptr);
    }

private:
    /** Has all functions with handles checked. */
    static int checkAll(lua_State* state)
    {
        constexpr struct {
            const char* table;
            const char* name;
            Function function;
        } FUNCTIONS[] = {{"Timer", "start", START},         {"Timer", "stop", STOP},
                         {"WaitingLoop", "create", CREATE}, {"WaitingLoop", "destroy", DESTROY},
                         {"WaitingLoop", "wait", BLOCK},    {"WaitingLoop", "waitTime", BLOCK},
                         {"WaitingLoop", "run", BLOCK},     {"WaitingLoop", "runTime", BLOCK},
                         {"WaitingLoop", "quit", TELL},     {"WaitingLoop", "go", TELL},
                         {"WaitingLoop", "isRunning", ASK}, {"WaitingLoop", "isWaiting", ASK}};
        for (const auto& each : FUNCTIONS) {
            lua_getfield(state, LUA_GLOBALSINDEX, each.table);
            lua_getfield(state, -1, each.name);
            lua_pushinteger(state, each.function);
            lua_pushcclosure(state, check, 2);
            lua_setfield(state, -2, each.name);
            lua_pop(state, 1);
        }
        return 0;
    }
};

// ---- The end of everything

/** Does something with each loop that scripts have made. */
template <typename Action>
void forEachLoop(const Action& action)
{
    try {
        for (int i = 0;; ++i) {
            action(*ObjectManager<WaitingLoop>::getInstance()->getObject(i));
        }
    } catch (const std::out_of_range&) {
        // That was the last one.
    }
}

/** Ends all that waits, when time is up, and from then on. */
gboolean endAll(gpointer)
{
    world.isOver = true;
    forEachLoop([](WaitingLoop& loop) {
        loop.quit();
        loop.go();
    });
    fuzz::quitMainLoops();
    return G_SOURCE_CONTINUE;
}

/** Destroys what scripts have left behind, in the order that leaves the handles alone. */
void cleanUp()
{
    static const fuzz::MemoryFile file(
        "function cleanUp(timers, loops, unsure)\n"
        "for i = timers - 1, 0, -1 do Timer.stop(i) end\n"
        "for i = loops - 1, 0, -1 do WaitingLoop.destroy(i) end\n"
        "while unsure and pcall(Timer.stop, 0) do end\n"
        "while unsure and pcall(WaitingLoop.destroy, 0) do end\n"
        "return not pcall(Timer.stop, 0) and not pcall(WaitingLoop.destroy, 0)\n"
        "end\n");
    static LuaScript script(file.path());
    static const int status = script.load();
    FUZZ_REQUIRE(status == STATUS_SUCCESS);
    bool isClean = false;
    const int timers = world.isUnsure ? 0 : world.timers;
    const int loops = world.isUnsure ? 0 : world.loops;
    FUZZ_REQUIRE(script.callMethod("cleanUp", std::tie(isClean), timers, loops, world.isUnsure) ==
                 STATUS_SUCCESS);
    FUZZ_REQUIRE(isClean);
}

std::size_t memoryOf(lua_State* state)
{
    return static_cast<std::size_t>(lua_gc(state, LUA_GCCOUNT, 0)) * 1024 +
           static_cast<std::size_t>(lua_gc(state, LUA_GCCOUNTB, 0));
}

// ---- A run

struct Choice {
    bool isLimited;
    bool areTablesKept;
    int turns;  // of the main loop, before the functions are called
    bool hasFinalizers;
};

template <typename Call>
void tolerate(const Call& call)
{
    try {
        call();
    } catch (const std::out_of_range&) {
        // a handle past the end
    } catch (const std::runtime_error& error) {
        FUZZ_REQUIRE(std::string_view(error.what()) == "thrown by the application");
    }
}

/** Calls a function with a result, which must leave the stack as it was. */
void callTyped(const char* name)
{
    if (world.script == nullptr || world.script->getLuaState() == nullptr) {
        return;
    }
    lua_State* state = world.script->getLuaState();
    const int loads = world.loads;
    const int top = lua_gettop(state);
    ++world.causes;
    int result = -1;
    const int status = world.script->callMethod(name, std::tie(result), 42);
    const bool isThere = world.script != nullptr && world.loads == loads;
    // A script that has nearly all the memory it may have leaves none for a call.
    const bool isFull = isThere && memoryOf(state) > MOST_BYTES / 2;
    FUZZ_REQUIRE(!isThere || status == STATUS_SUCCESS ||
                 (isFull && status == STATUS_INVALID_STATE));
    FUZZ_REQUIRE(!isThere || world.script->getLuaState() == state);
    // Functions that were called inside without results leave their messages.
    FUZZ_REQUIRE(!isThere || lua_gettop(state) >= top);
}

void run(const std::string& path, const Choice& choice)
{
    world = World();
    world.hasFinalizers = choice.hasFinalizers;
    HostApi host;
    LuaLimits limits(MOST_INSTRUCTIONS, MOST_BYTES);
    if (choice.areTablesKept) {
        for (const char* name :
             {"Timer", "WaitingLoop", "coroutine", "newproxy", "collectgarbage"}) {
            FUZZ_REQUIRE(limits.keep(name) == STATUS_SUCCESS);
        }
    }
    const guint end = g_timeout_add(MOST_MILLISECONDS, endAll, nullptr);
    world.script = std::make_unique<LuaScript>(path);
    world.script->addLuaApi(&host);
    if (choice.isLimited) {
        world.script->addLuaApi(&limits);
    }
    world.script->setErrorHandler(
        [](const std::string& method, const std::string& message, const std::string& traceback) {
            FUZZ_REQUIRE(!method.empty() && !message.empty());
            FUZZ_REQUIRE(traceback.empty() || traceback.compare(0, 16, "stack traceback:") == 0);
        });

    int status = STATUS_FAILURE;  // if it throws
    tolerate([&] { status = world.script->load(); });
    if (world.script != nullptr && world.loads == 0) {
        FUZZ_REQUIRE((world.script->getLuaState() != nullptr) == (status == STATUS_SUCCESS));
    }
    for (int i = 0; i < choice.turns; ++i) {
        g_main_context_iteration(nullptr, TRUE);
    }
    for (const char* name : {"tick", "tock"}) {
        tolerate([&] { callTyped(name); });
    }
    FUZZ_REQUIRE(world.blocks == 0);
    FUZZ_REQUIRE(world.isUnsure || world.repeats || world.calls <= world.causes);
    if (world.script != nullptr) {
        FUZZ_REQUIRE(!world.script->isBusy());
        lua_State* state = world.script->getLuaState();
        FUZZ_REQUIRE(state == nullptr || !choice.isLimited || memoryOf(state) <= MOST_BYTES);
    }
    world.isOver = true;  // also for finalizers
    world.script.reset();
    g_source_remove(end);
    cleanUp();
}

/** What was logged, without addresses. How much of a long log is kept depends on their length. */
std::string getLog()
{
    constexpr std::size_t MOST_COMPARED = 32768;

    std::string log;
    const std::string& all = fuzz::getLog();
    for (std::size_t i = 0; i < all.size();) {
        if (all.compare(i, 2, "0x") == 0) {
            i += 2;
            while (i < all.size() && std::isxdigit(static_cast<unsigned char>(all[i])) != 0) {
                ++i;
            }
        } else {
            log += all[i++];
        }
    }
    return log.substr(0, MOST_COMPARED);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    [[maybe_unused]] static const bool isStarted = (fuzz::startVirtualTime(), true);

    Input input(bytes, size);
    const char limits = static_cast<char>(input.byte());
    Choice choice = {limits != '0', limits != '2', input.below(16), false};
    const std::string script = Grammar(input.rest(), choice.isLimited).write();
    choice.hasFinalizers = script.find("__gc") != std::string::npos;
    fuzz::explain(script);
    const fuzz::MemoryFile file(script);

    fuzz::clearLog();
    run(file.path(), choice);
    const std::string log = getLog();
    fuzz::clearLog();
    run(file.path(), choice);
    // Finalizers run when there is much to collect. Where tables have objects as keys, how much that
    // is depends on addresses.
    FUZZ_REQUIRE(choice.hasFinalizers || getLog() == log);
    return 0;
}
