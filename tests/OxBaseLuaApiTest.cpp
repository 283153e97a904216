#include "OxBaseLuaApi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <lua.hpp>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "CallLater.h"
#include "LoadedScript.h"
#include "LogCapture.h"
#include "LuaCalls.h"
#include "LuaChunk.h"
#include "MainLoop.h"
#include "OxLuaScript.h"
#include "OxStatus.h"
#include "ScriptFile.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

using Clock = std::chrono::steady_clock;

static_assert(std::is_base_of_v<LuaApi, BaseLuaApi>);
static_assert(sizeof(BaseLuaApi) == sizeof(LuaApi), "adds no fields");

constexpr std::chrono::milliseconds LIMIT = 10s;  // far more than anything here takes

// The handles that the next timer and the next loop get. The registries are the process's: what
// earlier tests left there stays below.
constexpr const char* NEXT_HANDLES =
    "timer0 = Timer.start(3600000, '') Timer.stop(timer0) "
    "loop0 = WaitingLoop.create() WaitingLoop.destroy(loop0) ";

// A script that finds the next handles in the globals timer0 and loop0.
class Host : public LoadedScript {
public:
    explicit Host(const std::string& content = "") : LoadedScript(NEXT_HANDLES + content) {}

    /** Runs a chunk past LuaScript; see runChunk(). */
    std::string run(const std::string& chunk) const { return runChunk(state(), chunk); }

    /** Calls a function as applications do, without results. */
    int call(const std::string& name) { return script.callMethod(name, 0); }

    int number(const char* name) const
    {
        lua_getglobal(state(), name);
        const int value = static_cast<int>(lua_tointeger(state(), -1));
        lua_pop(state(), 1);
        return value;
    }

    /** Dispatches the main loop until a global number has become as large as this. */
    bool reaches(const char* name, int value) const
    {
        return iterateUntil([&] { return number(name) >= value; }, LIMIT);
    }
};

// Stops and destroys what a test has left, and guards against loops that nobody ends.
class BaseLuaApiTest : public testing::Test {
protected:
    BaseLuaApiTest() : __watchdog(60s) {}

    ~BaseLuaApiTest() override
    {
        EXPECT_EQ(__before.run(R"(
            for handle = Timer.start(3600000, ''), timer0, -1 do Timer.stop(handle) end
            for handle = WaitingLoop.create(), loop0, -1 do WaitingLoop.destroy(handle) end
        )"),
                  "");
    }

private:
    Watchdog __watchdog;
    Host __before;
};

auto information(const std::string& message)
{
    return AllOf(Field("logId", &LogLine::logId, 0), Field("priority", &LogLine::priority, 4),
                 Field("tag", &LogLine::tag, "OX"), Field("framed", &LogLine::framed, true),
                 Field("file", &LogLine::file, "OxBaseLuaApi.cpp"),
                 Field("function", &LogLine::function, "print"),
                 Field("line", &LogLine::line, testing::Gt(0)),
                 Field("message", &LogLine::message, message));
}

auto invalidHandle()
{
    return LoggedIn("OxObjectManager.h", "getObject", "Invalid parameter.");
}

auto unknownState()
{
    return LoggedIn("OxLuaScript.cpp", "getLuaScript", "Invalid state");
}

auto expiredWithoutScript(const lua_State* state)
{
    char message[64];
    std::snprintf(message, sizeof message, "Invalid state (0x%x).",
                  static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(state)));
    return LoggedIn("OxBaseLuaApi.cpp", "onTimerExpired", message);
}

// What the bounds-checked access to so many objects says.
std::string rangeError(int size, int handle)
{
    try {
        static_cast<void>(std::vector<void*>(static_cast<std::size_t>(size))
                              .at(static_cast<std::size_t>(handle)));
    } catch (const std::out_of_range& exception) {
        return exception.what();
    }
    return "no error";
}

// A function that takes a handle.
struct HandleFunction {
    std::string table;
    std::string name;
    bool takesInterval;
    std::string forNoObject;  // its results in words

    std::string qualifiedName() const { return table + "." + name; }

    std::string call(const std::string& handle) const
    {
        return qualifiedName() + "(" + handle + (takesInterval ? ", 0)" : ")");
    }

    int size(const Host& host) const { return host.number(table == "Timer" ? "timer0" : "loop0"); }
};

const std::vector<HandleFunction> HANDLE_FUNCTIONS = {{"Timer", "stop", false, ""},
                                                      {"WaitingLoop", "destroy", false, ""},
                                                      {"WaitingLoop", "wait", false, ""},
                                                      {"WaitingLoop", "waitTime", true, ""},
                                                      {"WaitingLoop", "run", false, ""},
                                                      {"WaitingLoop", "runTime", true, ""},
                                                      {"WaitingLoop", "quit", false, ""},
                                                      {"WaitingLoop", "go", false, ""},
                                                      {"WaitingLoop", "isRunning", false, "false"},
                                                      {"WaitingLoop", "isWaiting", false, "false"}};

// ---- The tables ---------------------------------------------------------------------------------

// The global tables with what is in them, in words; everything else has an empty set.
std::map<std::string, std::set<std::string>> globalsOf(lua_State* state, bool nativeOnly)
{
    std::map<std::string, std::set<std::string>> globals;
    lua_pushvalue(state, LUA_GLOBALSINDEX);
    for (lua_pushnil(state); lua_next(state, -2) != 0; lua_pop(state, 1)) {
        std::set<std::string>& entries = globals[inWords(state, -2)];
        if (!lua_istable(state, -1) || lua_rawequal(state, -1, -3) != 0) {
            continue;
        }
        for (lua_pushnil(state); lua_next(state, -2) != 0; lua_pop(state, 1)) {
            const bool proper = nativeOnly ? lua_iscfunction(state, -1) : lua_isfunction(state, -1);
            entries.insert(inWords(state, -2) + (proper ? "" : " (no function)"));
        }
    }
    lua_pop(state, 1);
    return globals;
}

// What a script has beside the standard libraries.
std::map<std::string, std::set<std::string>> registeredTables()
{
    const std::unique_ptr<lua_State, void (*)(lua_State*)> standard(luaL_newstate(), lua_close);
    luaL_openlibs(standard.get());
    const LoadedScript host("");

    auto tables = globalsOf(host.state(), true);
    for (const auto& [name, entries] : globalsOf(standard.get(), true)) {
        EXPECT_EQ(tables.erase(name), 1u) << name;
    }
    return tables;
}

TEST_F(BaseLuaApiTest, TablesLieOnTheStackInTheOrderOfTheirRegistration)
{
    const LoadedScript host("");
    ASSERT_EQ(host.top(), 3);
    int index = 0;
    for (const char* table : {"Log", "Timer", "WaitingLoop"}) {
        ++index;
        lua_getglobal(host.state(), table);
        EXPECT_TRUE(lua_istable(host.state(), -1)) << table;
        EXPECT_NE(lua_rawequal(host.state(), -1, index), 0) << table;
        lua_pop(host.state(), 1);
    }
}

TEST_F(BaseLuaApiTest, AddsThreeTablesOfNativeFunctionsToTheStandardLibraries)
{
    const std::map<std::string, std::set<std::string>> expected = {
        {"Log", {"print"}},
        {"Timer", {"start", "stop"}},
        {"WaitingLoop",
         {"create", "destroy", "wait", "waitTime", "run", "runTime", "quit", "go", "isRunning",
          "isWaiting"}}};
    EXPECT_EQ(registeredTables(), expected);
}

TEST_F(BaseLuaApiTest, FunctionsAreSetInTheOrderOfTheirDocumentation)
{
    Host host;
    EXPECT_EQ(host.run(R"(
        order = {}
        for _, name in ipairs{'Log', 'Timer', 'WaitingLoop'} do
          package.loaded[name] = setmetatable({}, {__newindex = function(_, key)
            order[#order + 1] = name .. '.' .. key end})
        end
    )"),
              "");
    const int top = host.top();

    BaseLuaApi api;
    EXPECT_EQ(api.load(&host.script), STATUS_SUCCESS);

    EXPECT_EQ(host.run("return table.concat(order, ' ')"),
              "Log.print Timer.start Timer.stop WaitingLoop.create WaitingLoop.destroy "
              "WaitingLoop.wait WaitingLoop.waitTime WaitingLoop.run WaitingLoop.runTime "
              "WaitingLoop.quit WaitingLoop.go WaitingLoop.isRunning WaitingLoop.isWaiting");
    EXPECT_EQ(host.top(), top + 3);
    EXPECT_TRUE(api.isLoaded());
    EXPECT_EQ(api.getLuaScript(), &host.script);
    EXPECT_EQ(api.unload(), STATUS_SUCCESS);
    EXPECT_FALSE(api.isLoaded());
}

TEST_F(BaseLuaApiTest, WithoutAScriptNothingIsRegistered)
{
    BaseLuaApi api;
    EXPECT_FALSE(api.isLoaded());
    EXPECT_EQ(api.getLuaScript(), nullptr);

    LogCapture log;
    EXPECT_EQ(api.onLoading(), 0);
    EXPECT_THAT(
        log.lines(),
        AllOf(SizeIs(3), Each(LoggedIn("OxLuaApi.cpp", "registerApiTable", "Invalid state"))));

    log.clear();
    EXPECT_EQ(api.onUnloading(), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(BaseLuaApiTest, TopLevelCodeMayUseTheTables)
{
    LogCapture log;
    const LoadedScript host("Log.print('loading')");
    EXPECT_THAT(log.lines(), ElementsAre(information("loading")));
}

// ---- The definitions for editors ----------------------------------------------------------------

constexpr const char* STUB_PATH = OXIL_SOURCE_DIR "/tools/lua/oxil.lua";

// Reads the annotations of the stub, and holds them against the functions that there are:
// `names` is a list of the functions that are defined, `complaints` of what is wrong with them.
constexpr const char* READ_STUB = R"(
    names, complaints = {}, {}
    local examples = {integer = -1, string = '', boolean = false, ['string|number'] = 1}
    local luaTypes = {integer = 'number', boolean = 'boolean'}

    local function check(name, written, about)
      local function complain(what) complaints[#complaints + 1] = name .. ': ' .. what end
      local tableName, key = name:match('^(%w+)%.(%w+)$')
      local native = _G[tableName][key]

      if not about.described then complain('no description') end
      if table.concat(about.parameters, ', ') ~= written then
        complain('parameters are ' .. written .. ', not ' .. table.concat(about.parameters, ', '))
      end
      -- Without one of the parameters it fails, with all that are not optional it does not.
      local given = {}
      for i = 1, about.required do
        local ok, message = pcall(function() native(unpack(given)) end)
        if ok or not message:find('bad argument #' .. i .. ' to', 1, true) then
          complain('parameter ' .. i .. ' is not required: ' .. tostring(message))
        end
        given[i] = examples[about.types[i]]
      end
      local results = {pcall(function() return native(unpack(given)) end)}
      if #results - 1 ~= #about.results then complain(#results - 1 .. ' results') end
      if not results[1] then complain(results[2]) end
      for i, resultType in ipairs(about.results) do
        if type(results[i + 1]) ~= luaTypes[resultType] then complain('result ' .. i) end
      end
    end

    local function nothing() return {parameters = {}, types = {}, required = 0, results = {}} end
    local about = nothing()
    for line in io.lines(path) do
      local parameter, optional, parameterType = line:match('^%-%-%-@param ([%w.]+)(%??) (%S+)')
      local result = line:match('^%-%-%-@return (%S+) %w+')
      local name, written = line:match('^function ([%w.]+)%((.*)%) end$')
      if parameter then
        table.insert(about.parameters, parameter)
        table.insert(about.types, parameterType)
        if optional == '' and parameter ~= '...' then about.required = #about.types end
      elseif result then
        table.insert(about.results, result)
      elseif name then
        names[#names + 1] = name
        check(name, written, about)
        about = nothing()
      elseif line:find('^%-%-%-[^@ ]') then
        about.described = true
      elseif not line:find('^%-%-') then
        if line ~= '' and not line:find('^%w+ = {}$') then complaints[#complaints + 1] = line end
        about = nothing()
      end
    end
    table.sort(names)
)";

TEST_F(BaseLuaApiTest, TheEditorsKnowEveryTableAndFunctionAndNoOther)
{
    const std::unique_ptr<lua_State, void (*)(lua_State*)> stub(luaL_newstate(), lua_close);
    ASSERT_EQ(luaL_loadfile(stub.get(), STUB_PATH), 0) << inWords(stub.get(), -1);
    ASSERT_EQ(lua_pcall(stub.get(), 0, 0, 0), 0) << inWords(stub.get(), -1);

    EXPECT_EQ(globalsOf(stub.get(), false), registeredTables());
}

TEST_F(BaseLuaApiTest, TheEditorsKnowEveryParameterAndResult)
{
    const Host host;
    LogCapture log;  // of the calls that try them out
    EXPECT_EQ(host.run("path = '" + std::string(STUB_PATH) + "'" + READ_STUB), "");
    EXPECT_EQ(host.run("return table.concat(complaints, '; ')"), "");

    std::string names;
    for (const auto& [table, functions] : registeredTables()) {
        for (const std::string& function : functions) {
            names.append(names.empty() ? "" : " ").append(table).append(".").append(function);
        }
    }
    EXPECT_EQ(host.run("return table.concat(names, ' ')"), names);
}

// ---- Log ----------------------------------------------------------------------------------------

TEST_F(BaseLuaApiTest, PrintJoinsTextsAndNumbersWithSingleBlanks)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"'a', 1, 'b'", "a 1 b"},
        {"", ""},
        {"'only'", "only"},
        {"''", ""},
        {"'', ''", " "},
        {"'', 'x', ''", " x "},
        {"' a ', ' b '", " a   b "},
        {"1", "1"},
        {"-2, 1.5, 0.1, 1e15, 1e100, 1 / 0, 1 / 3", "-2 1.5 0.1 1e+15 1e+100 inf 0.33333333333333"},
        {"'two\\nlines\\tand a tab'", "two\nlines\tand a tab"},
        {"'100%', '%s%d%n', '%%'", "100% %s%d%n %%"},
        {"'\\195\\188 \\237\\149\\156', '\\128\\255'", "\xc3\xbc \xed\x95\x9c \x80\xff"},
        {"'1', 2, '3', 4, '5', 6, '7', 8, '9', 10, '11'", "1 2 3 4 5 6 7 8 9 10 11"},
        {"tostring(nil), tostring(true)", "nil true"},
        {"nil", "(null)"},
        {"'a', nil", "a (null)"},
        {"nil, nil, 'b'", "(null) (null) b"},
        {"true, false, {}, print, coroutine.create(function() end), io.stdout",
         "(null) (null) (null) (null) (null) (null)"}};
    const Host host;
    for (const auto& [arguments, message] : cases) {
        LogCapture log;
        EXPECT_EQ(host.run("return Log.print(" + arguments + ")"), "") << arguments;
        EXPECT_THAT(log.lines(), ElementsAre(information(message))) << arguments;
    }
}

TEST_F(BaseLuaApiTest, PrintHasNoResultsAlsoForAnotherPrint)
{
    const Host host;
    LogCapture log;
    EXPECT_EQ(host.run("return select('#', Log.print(1, 2, 3))"), "0");
    EXPECT_EQ(host.run("Log.print('outer', Log.print('inner'))"), "");
    EXPECT_THAT(log.lines(),
                ElementsAre(information("1 2 3"), information("inner"), information("outer")));
}

TEST_F(BaseLuaApiTest, PrintLeavesItsArgumentsToTheScript)
{
    const Host host;
    LogCapture log;
    EXPECT_EQ(host.run(R"(
        local number, text = 7, '8' Log.print(number, text)
        return type(number), number, type(text), text
    )"),
              "number, 7, string, 8");
    EXPECT_THAT(log.lines(), ElementsAre(information("7 8")));
}

TEST_F(BaseLuaApiTest, PrintTakesLongTexts)
{
    const Host host;
    LogCapture log;
    EXPECT_EQ(host.run("local text = string.rep('x', 100000) Log.print(text, 'and', text)"), "");
    const std::string text(100000, 'x');
    EXPECT_THAT(log.lines(), ElementsAre(information(text + " and " + text)));
}

TEST_F(BaseLuaApiTest, PrintTakesAsManyArgumentsAsLuaDoes)
{
    constexpr int COUNT = 7000;  // Lua has room for 8000 on the stack of a function
    const Host host;
    LogCapture log;
    EXPECT_EQ(host.run("local all = {} for i = 1, " + std::to_string(COUNT) +
                       " do all[i] = i end return Log.print(unpack(all))"),
              "");
    std::string message = "1";
    for (int i = 2; i <= COUNT; ++i) {
        message += ' ' + std::to_string(i);
    }
    EXPECT_THAT(log.lines(), ElementsAre(information(message)));
}

TEST_F(BaseLuaApiTest, PrintWorksInACoroutine)
{
    const Host host;
    LogCapture log;
    EXPECT_EQ(host.run("coroutine.wrap(function(...) Log.print('in', ...) end)('a', 1)"), "");
    EXPECT_THAT(log.lines(), ElementsAre(information("in a 1")));
}

// ---- Handles ------------------------------------------------------------------------------------

TEST_F(BaseLuaApiTest, LoopHandlesArePositions)
{
    Host host;
    const int first = host.number("loop0");
    const std::string zero = std::to_string(first);
    const std::string one = std::to_string(first + 1);

    EXPECT_EQ(host.run("return WaitingLoop.create(), WaitingLoop.create()"), zero + ", " + one);
    EXPECT_EQ(host.run("return WaitingLoop.destroy(loop0)"), "");
    EXPECT_EQ(host.run("return WaitingLoop.isRunning(loop0)"), "false");
    EXPECT_EQ(host.run("WaitingLoop.isRunning(loop0 + 1)"),
              "error: chunk:1: " + rangeError(first + 1, first + 1));
    EXPECT_EQ(host.run("return WaitingLoop.create()"), one);
    EXPECT_EQ(host.run(R"(
        WaitingLoop.destroy(loop0 + 1) WaitingLoop.destroy(loop0)
        return WaitingLoop.create()
    )"),
              zero);
}

TEST_F(BaseLuaApiTest, DestroyingALoopMovesTheLaterOnesDown)
{
    // Told apart by which of them is running.
    Host host(
        R"(
        function look() seen = ''
          for i = loop0, last do seen = seen .. tostring(WaitingLoop.isRunning(i)) .. ' ' end
        end
        function step() look() before = seen
          WaitingLoop.destroy(loop0 + 1) last = last - 1 look()
          WaitingLoop.quit(loop0 + 1)
        end
        function f()
          for i = 1, 4 do last = WaitingLoop.create() end
          Timer.start(0, 'step') WaitingLoop.run(loop0 + 2) look()
        end
    )");
    const int top = host.top();
    EXPECT_EQ(host.call("f"), STATUS_SUCCESS);
    EXPECT_EQ(host.top(), top) << host.message();
    EXPECT_EQ(host.run("return before"), "false false true false ");
    EXPECT_EQ(host.run("return seen"), "false false false ");
    EXPECT_EQ(host.run("return last - loop0"), "2");
}

TEST_F(BaseLuaApiTest, StoppingATimerMovesTheLaterOnesDown)
{
    Host host(
        R"(
        a, b, c = 0, 0, 0
        function onA() a = a + 1 end function onB() b = b + 1 end
        function onC() c = c + 1 end
    )");
    EXPECT_EQ(host.run(R"(
        return Timer.start(1, 'onA', true) - timer0,
        Timer.start(1, 'onB', true) - timer0,
        Timer.start(1, 'onC', true) - timer0
    )"),
              "0, 1, 2");
    EXPECT_EQ(host.run("return Timer.stop(timer0)"), "");
    EXPECT_TRUE(host.reaches("b", 2) && host.reaches("c", 2));
    EXPECT_EQ(host.number("a"), 0);

    EXPECT_EQ(host.run("Timer.stop(timer0) b, c = 0, 0"), "");
    EXPECT_TRUE(host.reaches("c", 2));
    EXPECT_EQ(host.number("b"), 0);

    EXPECT_EQ(host.run("return Timer.start(1, 'onA', true) - timer0"), "1");
    EXPECT_EQ(host.run("Timer.stop(timer0) a, c = 0, 0"), "");
    EXPECT_TRUE(host.reaches("a", 2));
    EXPECT_EQ(host.number("c"), 0);
}

TEST_F(BaseLuaApiTest, ANegativeHandleIsLoggedAndDoesNothing)
{
    const Host host;
    for (const HandleFunction& function : HANDLE_FUNCTIONS) {
        for (const char* handle : {"-1", "-2", "-2147483648"}) {
            const std::string call = function.call(handle);
            LogCapture log;
            EXPECT_EQ(host.run("return " + call), function.forNoObject) << call;
            EXPECT_THAT(log.lines(), ElementsAre(invalidHandle())) << call;
        }
    }
    EXPECT_EQ(host.run("return Timer.start(3600000, '') - timer0, WaitingLoop.create() - loop0"),
              "0, 0");
}

TEST_F(BaseLuaApiTest, AHandlePastTheEndIsALuaErrorThatAScriptMayHandle)
{
    const Host host;
    for (const HandleFunction& function : HANDLE_FUNCTIONS) {
        const int size = function.size(host);
        for (const int handle : {size, size + 1, size + 1000, std::numeric_limits<int>::max()}) {
            const std::string call = function.call(std::to_string(handle));
            EXPECT_EQ(host.run("return pcall(function() " + call + " end)"),
                      "false, chunk:1: " + rangeError(size, handle))
                << call;
            EXPECT_EQ(host.run(call), "error: chunk:1: " + rangeError(size, handle)) << call;
        }
    }
}

TEST_F(BaseLuaApiTest, AnUnhandledHandlePastTheEndComesOutOfACall)
{
    Host host;
    for (const HandleFunction& function : HANDLE_FUNCTIONS) {
        const int size = function.size(host);
        const std::string call = function.call(std::to_string(size));
        EXPECT_EQ(host.run("function f() " + call + " end"), "");
        const int top = host.top();

        try {
            host.call("f");
            ADD_FAILURE() << call;
        } catch (const std::out_of_range& exception) {
            EXPECT_EQ(exception.what(), rangeError(size, size)) << call;
        }
        EXPECT_EQ(host.top(), top + 1) << call;
        EXPECT_EQ(host.message(), "chunk:1: " + rangeError(size, size)) << call;

        int result = 7;
        EXPECT_THROW(host.script.callMethod("f", std::tie(result), 1), std::out_of_range) << call;
        EXPECT_EQ(result, 7) << call;

        EXPECT_EQ(host.run("function f() pcall(function() " + call + " end) end"), "");
        EXPECT_NO_THROW(host.call("f")) << call;
    }
}

TEST_F(BaseLuaApiTest, AnUnhandledHandlePastTheEndComesOutOfLoading)
{
    for (const HandleFunction& function : HANDLE_FUNCTIONS) {
        const int size = function.size(Host());
        const std::string call = function.call(std::to_string(size));
        const ScriptFile file("\n\n" + call);
        LuaScript script(file.path());

        LogCapture log;
        try {
            script.load();
            ADD_FAILURE() << call;
        } catch (const std::out_of_range& exception) {
            EXPECT_EQ(exception.what(), rangeError(size, size)) << call;
        }
        EXPECT_EQ(script.getLuaState(), nullptr) << call;
        EXPECT_THAT(log.lines(),
                    ElementsAre(LoggedIn("OxLuaScript.cpp", "onLoading",
                                         "filePath(" + file.path() + ") (1) (" + file.path() +
                                             ":3: " + rangeError(size, size) + ").")))
            << call;
    }
}

TEST_F(BaseLuaApiTest, AHandleThatIsNoNumberIsALuaError)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "no value"},    {"nil", "nil"},  {"'x'", "string"},    {"''", "string"},
        {"true", "boolean"}, {"{}", "table"}, {"print", "function"}};
    const Host host;
    for (const HandleFunction& function : HANDLE_FUNCTIONS) {
        for (const auto& [argument, type] : cases) {
            const std::string call = function.qualifiedName() + "(" + argument + ")";
            EXPECT_EQ(host.run(call), "error: chunk:1: bad argument #1 to '" + function.name +
                                          "' (number expected, got " + type + ")");
        }
    }
}

TEST_F(BaseLuaApiTest, AHandleMayBeANumberInATextOrHaveAFraction)
{
    const Host host;
    EXPECT_EQ(host.run(R"(
        WaitingLoop.create() return WaitingLoop.isRunning(tostring(loop0)),
        WaitingLoop.isWaiting(loop0 + 0.25)
    )"),
              "false, false");
    LogCapture log;
    EXPECT_EQ(host.run("return WaitingLoop.isRunning('-1')"), "false");
    EXPECT_THAT(log.lines(), ElementsAre(invalidHandle()));
}

TEST_F(BaseLuaApiTest, AHandleBeyondTheRangeOfIntNamesNoObject)
{
    const Host host;
    EXPECT_EQ(host.run("WaitingLoop.create() Timer.start(3600000, '')"), "");
    for (const HandleFunction& function : HANDLE_FUNCTIONS) {
        const int size = function.size(host) + 1;
        const std::string zero = std::to_string(size - 1);
        for (const std::string& handle : {std::string("2^31"), "2^32 + " + zero}) {
            EXPECT_EQ(host.run(function.call(handle)),
                      "error: chunk:1: " + rangeError(size, std::numeric_limits<int>::max()))
                << function.call(handle);
        }
        for (const std::string& handle : {std::string("-2^31 - 1"), "-2^32 + " + zero}) {
            LogCapture log;
            EXPECT_EQ(host.run("return " + function.call(handle)), function.forNoObject);
            EXPECT_THAT(log.lines(), ElementsAre(invalidHandle())) << function.call(handle);
        }
    }
}

TEST_F(BaseLuaApiTest, TheIntervalIsReadBeforeTheHandleIsChecked)
{
    const Host host;
    for (const std::string name : {"waitTime", "runTime"}) {
        for (const std::string handle : {"-1", "loop0", "loop0 + 1000"}) {
            const std::string call = "WaitingLoop." + name + "(" + handle;
            const std::string message =
                "error: chunk:1: bad argument #2 to '" + name + "' (number expected, got ";
            EXPECT_EQ(host.run(call + ")"), message + "no value)");
            EXPECT_EQ(host.run(call + ", nil)"), message + "nil)");
            EXPECT_EQ(host.run(call + ", 'soon')"), message + "string)");
        }
    }
}

// ---- Timer --------------------------------------------------------------------------------------

TEST_F(BaseLuaApiTest, TimerStartChecksItsArguments)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "#1 to 'start' (number expected, got no value)"},
        {"nil, 'f'", "#1 to 'start' (number expected, got nil)"},
        {"'soon', 'f'", "#1 to 'start' (number expected, got string)"},
        {"{}, 'f'", "#1 to 'start' (number expected, got table)"},
        {"'soon', {}", "#1 to 'start' (number expected, got string)"},
        {"0", "#2 to 'start' (string expected, got no value)"},
        {"0, nil, true", "#2 to 'start' (string expected, got nil)"},
        {"0, true", "#2 to 'start' (string expected, got boolean)"},
        {"0, {}", "#2 to 'start' (string expected, got table)"},
        {"0, print", "#2 to 'start' (string expected, got function)"}};
    const Host host;
    for (const auto& [arguments, message] : cases) {
        EXPECT_EQ(host.run("Timer.start(" + arguments + ")"),
                  "error: chunk:1: bad argument " + message);
    }
    EXPECT_EQ(host.run("return pcall(Timer.start)"),
              "false, bad argument #1 to '?' (number expected, got no value)");
    EXPECT_EQ(host.run("return Timer.start(3600000, '') - timer0"), "0");
}

TEST_F(BaseLuaApiTest, ATimerCallsItsFunctionOnceUnlessToldToRepeat)
{
    struct Case {
        const char* third;
        bool repeats;
    };
    constexpr Case CASES[] = {
        {"", false},      {", nil", false}, {", false", false}, {", false, true", false},
        {", true", true}, {", 1", true},    {", 0", true},      {", ''", true},
        {", 'no'", true}, {", {}", true},   {", print", true},  {", true, false", true}};
    for (const Case& timer : CASES) {
        Host host("calls = 0 function tick() calls = calls + 1 end");
        EXPECT_EQ(
            host.run("return Timer.start(0, 'tick'" + std::string(timer.third) + ") - timer0"),
            "0");
        EXPECT_TRUE(host.reaches("calls", timer.repeats ? 3 : 1)) << timer.third;
        if (!timer.repeats) {
            iterateFor(3ms);
            EXPECT_EQ(host.number("calls"), 1) << timer.third;
        }
        // Whether it has fired or not: it is there until it is stopped.
        EXPECT_EQ(host.run("return Timer.stop(timer0)"), "") << timer.third;
        const int calls = host.number("calls");
        iterateFor(3ms);
        EXPECT_EQ(host.number("calls"), calls) << timer.third;
        EXPECT_THAT(host.run("Timer.stop(timer0)"), StartsWith("error: ")) << timer.third;
    }
}

TEST_F(BaseLuaApiTest, ARepeatingTimerKeepsItsInterval)
{
    Host host("calls = 0 function tick() calls = calls + 1 end");
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(host.run("handle = Timer.start(100, 'tick', true) return handle - timer0"), "0");

    EXPECT_TRUE(host.reaches("calls", 1));
    EXPECT_GE(Clock::now() - start, 99ms);
    EXPECT_TRUE(host.reaches("calls", 3));
    EXPECT_GE(Clock::now() - start, 299ms);

    EXPECT_EQ(host.run("Timer.stop(handle)"), "");
    iterateFor(110ms);
    EXPECT_EQ(host.number("calls"), 3);
}

TEST_F(BaseLuaApiTest, TheIntervalMayBeANumberInATextOrHaveAFraction)
{
    Host host("calls = 0 function tick() calls = calls + 1 end");
    EXPECT_EQ(host.run("Timer.start('1', 'tick') Timer.start(1.25, 'tick') "
                       "Timer.start(0.25, 'tick')"),
              "");
    EXPECT_TRUE(host.reaches("calls", 3));
}

TEST_F(BaseLuaApiTest, ANegativeIntervalIsAVeryLongOne)
{
    Host host("calls = 0 function tick() calls = calls + 1 end");
    EXPECT_EQ(host.run(R"(
        return Timer.start(-1, 'tick') - timer0,
        Timer.start(-2147483648, 'tick', true) - timer0
    )"),
              "0, 1");
    iterateFor(20ms);
    EXPECT_EQ(host.number("calls"), 0);
}

TEST_F(BaseLuaApiTest, ATimerWithoutNameCallsNothing)
{
    Host host("_G[''] = function() called = 1 end");
    EXPECT_EQ(host.run("return Timer.start(0, '', true) - timer0, Timer.start(0, '') - timer0"),
              "0, 1");
    const int top = host.top();
    iterateFor(5ms);
    EXPECT_EQ(host.number("called"), 0);
    EXPECT_EQ(host.top(), top);
    EXPECT_EQ(host.script.getMethodName(), "");
}

TEST_F(BaseLuaApiTest, ANumberIsANameLikeAnyOther)
{
    Host host("called = 0 _G['5'] = function() called = called + 1 end");
    EXPECT_EQ(host.run("Timer.start(0, 5)"), "");
    EXPECT_TRUE(host.reaches("called", 1));
}

TEST_F(BaseLuaApiTest, TheFunctionGetsNoArgumentsAndItsResultsAreDropped)
{
    Host host(
        R"(
        arguments, calls = -1, 0
        function tick(...) arguments = select('#', ...) calls = calls + 1
        return 1, 'two', {} end
    )");
    const int top = host.top();
    EXPECT_EQ(host.run("Timer.start(0, 'tick', true)"), "");
    EXPECT_TRUE(host.reaches("calls", 3));
    EXPECT_EQ(host.number("arguments"), 0);
    EXPECT_EQ(host.top(), top);
    EXPECT_EQ(host.script.getMethodName(), "tick");
    EXPECT_EQ(host.script.getReturnCount(), 0);
    EXPECT_EQ(host.script.getParameterCount(), 0);
}

TEST_F(BaseLuaApiTest, TheFunctionIsLookedUpAtEachExpiry)
{
    Host host("calls = 0 new = 0");
    const int top = host.top();
    EXPECT_EQ(host.run("Timer.start(0, 'tick', true)"), "");
    // There is no such function at first.
    EXPECT_TRUE(iterateUntil([&] { return host.top() >= top + 2; }, LIMIT));
    EXPECT_EQ(host.message(), "attempt to call a nil value");

    EXPECT_EQ(host.run("function tick() calls = calls + 1 end"), "");
    EXPECT_TRUE(host.reaches("calls", 2));
    EXPECT_EQ(host.run("function tick() new = new + 1 end"), "");
    EXPECT_TRUE(host.reaches("new", 2));
}

TEST_F(BaseLuaApiTest, ALongNameIsKept)
{
    const std::string name(1000, 'n');
    Host host("called = 0 _G[('n'):rep(1000)] = function() called = called + 1 end");
    EXPECT_EQ(host.run("Timer.start(0, ('n'):rep(1000)) collectgarbage()"), "");
    EXPECT_TRUE(host.reaches("called", 1));
    EXPECT_EQ(host.script.getMethodName(), name);
}

TEST_F(BaseLuaApiTest, AFunctionThatFailsIsCalledAgainAndLeavesItsMessages)
{
    Host host("calls = 0 function boom() calls = calls + 1 error('number ' .. calls, 0) end");
    const int top = host.top();
    EXPECT_EQ(host.run("timer = Timer.start(0, 'boom', true)"), "");
    EXPECT_TRUE(host.reaches("calls", 300));
    EXPECT_EQ(host.run("Timer.stop(timer)"), "");

    const int calls = host.number("calls");
    ASSERT_EQ(host.top(), top + calls);
    for (int i = 1; i <= calls; ++i) {
        EXPECT_EQ(inWords(host.state(), top + i), "number " + std::to_string(i));
    }
}

TEST_F(BaseLuaApiTest, AFunctionThatFailsAMillionTimesDoesNoHarm)
{
    constexpr int CALLS = 1000000;
    Host host(
        R"(
        calls = 0 function boom() calls = calls + 1 error('boom', 0) end
        function works() return 6 * 7 end
    )");
    // The stack of a LuaJIT state has an end. The last calls that it has room for fail with a
    // message that says so, for want of the 20 places that each C function asks for; then the
    // library refuses, and nothing is left behind any more.
    const bool limited = host.run("return jit ~= nil") == "true";
    const int top = host.top();

    int failed = 0;
    LogCapture log;
    while (failed < CALLS && host.call("boom") == STATUS_SUCCESS) {
        ++failed;
    }
    EXPECT_EQ(host.top(), top + failed);
    if (!limited) {
        EXPECT_EQ(failed, CALLS);
        EXPECT_THAT(log.lines(), IsEmpty());
    } else {
        const auto refused = LoggedIn("OxScript.cpp", "callMethod", "Invalid state.");
        EXPECT_GT(failed, 50000);
        EXPECT_LT(failed, CALLS);
        EXPECT_THAT(log.lines(), ElementsAre(refused));
        for (int i = 0; i < 1000; ++i) {
            log.clear();
            EXPECT_EQ(host.call("boom"), STATUS_INVALID_STATE);
            EXPECT_THAT(log.lines(), ElementsAre(refused));
        }
        EXPECT_EQ(host.top(), top + failed);
    }

    int overflows = 0;
    for (int i = 1; i <= failed; ++i) {
        const std::string message = inWords(host.state(), top + i);
        if (message != "boom") {
            ASSERT_THAT(message, HasSubstr("stack overflow"));
            ++overflows;
        }
    }
    EXPECT_LE(overflows, limited ? 30 : 0);

    lua_settop(host.state(), top);
    EXPECT_LE(host.number("calls"), failed);
    EXPECT_GE(host.number("calls"), failed - overflows);
    int answer = 0;
    EXPECT_EQ(host.script.callMethod("works", std::tie(answer)), STATUS_SUCCESS);
    EXPECT_EQ(answer, 42);
}

TEST_F(BaseLuaApiTest, ATimerMayBeStoppedAndStartedFromItsOwnFunction)
{
    for (const std::string repeat : {"false", "true"}) {
        Host host("repeats = " + repeat + R"(
            calls, other = 0, 0
            function tick()
              calls = calls + 1
              Timer.stop(timer)
              timer = Timer.start(0, 'tock', repeats)
            end
            function tock() other = other + 1 Timer.stop(timer) end
            timer = Timer.start(0, 'tick', repeats)
        )");
        const int top = host.top();
        EXPECT_TRUE(host.reaches("other", 1));
        iterateFor(3ms);
        EXPECT_EQ(host.number("calls"), 1);
        EXPECT_EQ(host.number("other"), 1);
        EXPECT_EQ(host.top(), top) << host.message();
        EXPECT_EQ(host.run("return Timer.start(3600000, '') - timer0"), "0");
        EXPECT_EQ(host.run("Timer.stop(timer0)"), "");
    }
}

TEST_F(BaseLuaApiTest, ATimerMayBeStoppedWhileItsFunctionBlocks)
{
    Host host(R"(
        calls, left = 0, 0
        function stop() Timer.stop(timer) collectgarbage() end
        function tick()
          calls = calls + 1
          Timer.start(0, 'stop')
          WaitingLoop.runTime(WaitingLoop.create(), 5)
          left = left + 1
        end
        timer = Timer.start(0, 'tick', true)
    )");
    const int top = host.top();
    EXPECT_TRUE(host.reaches("left", 1));
    iterateFor(3ms);
    EXPECT_EQ(host.number("calls"), 1);
    EXPECT_EQ(host.top(), top) << host.message();
}

TEST_F(BaseLuaApiTest, AFunctionMayStopOtherTimersThatAreDue)
{
    Host host(
        R"(
        first, second = 0, 0
        function one() first = first + 1 Timer.stop(timer0 + 1) Timer.stop(timer0) end
        function two() second = second + 1 Timer.stop(timer0 + 1) Timer.stop(timer0) end
        Timer.start(0, 'one', true) Timer.start(0, 'two', true)
    )");
    const int top = host.top();
    EXPECT_TRUE(
        iterateUntil([&] { return host.number("first") + host.number("second") > 0; }, LIMIT));
    iterateFor(3ms);
    EXPECT_EQ(host.number("first") + host.number("second"), 1);
    EXPECT_EQ(host.top(), top) << host.message();
}

TEST_F(BaseLuaApiTest, HandlesPastTheEndInATimersFunctionEndWithIt)
{
    Host host(
        R"(
        calls = 0
        function tick() calls = calls + 1 WaitingLoop.go(loop0 + 5) end
        timer = Timer.start(0, 'tick', true)
    )");
    const int top = host.top();
    EXPECT_TRUE(host.reaches("calls", 3));
    EXPECT_EQ(host.run("Timer.stop(timer)"), "");
    EXPECT_EQ(host.top(), top + host.number("calls"));
    const int loops = host.number("loop0");
    EXPECT_THAT(host.message(), EndsWith(": " + rangeError(loops, loops + 5)));
}

TEST_F(BaseLuaApiTest, ATimerOutlivesItsScriptAndSaysSoAtEachExpiry)
{
    Host survivor("calls = 0 function tick() calls = calls + 1 end");
    auto gone = std::make_unique<Host>(
        R"(
        function tick() end
        Timer.start(1, 'tick', true) Timer.start(1, '', true)
        Timer.start(1, '')
    )");
    const lua_State* state = gone->state();
    gone.reset();

    LogCapture log;
    EXPECT_TRUE(iterateUntil([&] { return log.lines().size() >= 6; }, LIMIT));
    EXPECT_EQ(survivor.run("return Timer.stop(timer0)"), "");
    ASSERT_EQ(log.lines().size() % 2, 0u);
    for (std::size_t i = 0; i < log.lines().size(); i += 2) {
        EXPECT_THAT(log.lines()[i], unknownState());
        EXPECT_THAT(log.lines()[i + 1], expiredWithoutScript(state));
    }
    EXPECT_EQ(survivor.number("calls"), 0);

    log.clear();
    iterateFor(5ms);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(BaseLuaApiTest, AOneShotTimerThatOutlivesItsScriptSaysSoOnce)
{
    auto gone = std::make_unique<Host>("function tick() end Timer.start(0, 'tick')");
    const lua_State* state = gone->state();
    gone.reset();

    LogCapture log;
    EXPECT_TRUE(iterateUntil([&] { return !log.lines().empty(); }, LIMIT));
    iterateFor(3ms);
    EXPECT_THAT(log.lines(), ElementsAre(unknownState(), expiredWithoutScript(state)));
}

TEST_F(BaseLuaApiTest, ATimerNeverCallsIntoAnotherScriptWhoseStateHasGotTheSameAddress)
{
    const std::string file = "calls = 0 function tick() calls = calls + 1 end ";
    LuaStates states;
    states.reuse();
    auto gone = std::make_unique<Host>(file + "Timer.start(1, 'tick', true)");
    const lua_State* state = gone->state();
    gone.reset();

    Host other(file);
    ASSERT_EQ(other.state(), state);
    LogCapture log;
    EXPECT_TRUE(iterateUntil([&] { return log.lines().size() >= 4; }, LIMIT));
    EXPECT_EQ(other.number("calls"), 0);
    for (std::size_t i = 0; i < 4; i += 2) {
        EXPECT_THAT(log.lines()[i], unknownState());
        EXPECT_THAT(log.lines()[i + 1], expiredWithoutScript(state));
    }

    // Its own ones do.
    EXPECT_EQ(other.run("Timer.start(1, 'tick')"), "");
    EXPECT_TRUE(other.reaches("calls", 1));
}

TEST_F(BaseLuaApiTest, TimersOfAScriptThatIsLoadedAgainCallIntoItsNewState)
{
    Host host("calls = 0 function tick() calls = calls + 1 end Timer.start(1, 'tick', true)");
    EXPECT_TRUE(host.reaches("calls", 1));

    host.file.write("calls = 0 function tick() calls = calls - 1 end");
    const lua_State* before = host.state();
    ASSERT_EQ(host.script.load(), STATUS_SUCCESS);
    ASSERT_NE(host.state(), before);
    EXPECT_EQ(host.number("calls"), 0);
    EXPECT_TRUE(iterateUntil([&] { return host.number("calls") <= -2; }, LIMIT));
}

TEST_F(BaseLuaApiTest, TimersOfAStateThatIsClosedAreLeftAloneWhenTheScriptGoes)
{
    auto gone = std::make_unique<Host>("function tick() end Timer.start(1, 'tick', true)");
    const lua_State* state = gone->state();
    gone->file.write("");
    ASSERT_EQ(gone->script.load(), STATUS_SUCCESS);
    gone.reset();

    LogCapture log;
    EXPECT_TRUE(iterateUntil([&] { return log.lines().size() >= 2; }, LIMIT));
    EXPECT_THAT(log.lines()[0], unknownState());
    EXPECT_THAT(log.lines()[1], expiredWithoutScript(state));
}

TEST_F(BaseLuaApiTest, TimersOfAScriptThatFailedToLoadAreRefusedAtEachExpiry)
{
    const ScriptFile file("function tick() end Timer.start(0, 'tick', true) error('no')");
    LuaScript script(file.path());

    LogCapture log;
    EXPECT_EQ(script.load(), STATUS_INVALID_STATE);
    log.clear();
    EXPECT_TRUE(iterateUntil([&] { return log.lines().size() >= 3; }, LIMIT));
    EXPECT_THAT(log.lines(), Each(LoggedIn("OxScript.cpp", "callMethod", "Invalid state.")));
}

TEST_F(BaseLuaApiTest, ATimerStartedInACoroutineFindsNoScript)
{
    Host host(
        R"(
        calls = 0 function tick() calls = calls + 1 end
        co = coroutine.create(function()
          Timer.start(0, 'tick') WaitingLoop.runTime(WaitingLoop.create(), 1)
        end)
    )");
    lua_getglobal(host.state(), "co");
    const lua_State* coroutine = lua_tothread(host.state(), -1);
    lua_pop(host.state(), 1);

    LogCapture log;
    EXPECT_EQ(host.run("return coroutine.resume(co)"), "true");
    EXPECT_THAT(log.lines(), ElementsAre(unknownState(), expiredWithoutScript(coroutine)));
    EXPECT_EQ(host.number("calls"), 0);
}

TEST_F(BaseLuaApiTest, ATimersFunctionMayWorkWithCoroutines)
{
    Host host(
        R"(
        sum = 0
        worker = coroutine.wrap(function() while true do sum = sum + 1 coroutine.yield() end
        end)
        function tick() worker() end Timer.start(0, 'tick', true)
    )");
    EXPECT_TRUE(host.reaches("sum", 5));
}

TEST_F(BaseLuaApiTest, WithoutMemoryForATimerThereIsNone)
{
    Host host(
        R"(
        calls = 0 function tick() calls = calls + 1 end
        function f() handle = Timer.start(0, 'tick', true) end
    )");
    lua_getglobal(host.state(), "f");
    {
        AllocationFailure failure(Allocation::NothrowNew);
        EXPECT_EQ(lua_pcall(host.state(), 0, 0, 0), 0);
        EXPECT_TRUE(failure.happened());
    }
    EXPECT_EQ(host.number("handle"), -1);
    iterateFor(3ms);
    EXPECT_EQ(host.number("calls"), 0);
    EXPECT_EQ(host.run("return Timer.start(3600000, '') - timer0"), "0");
}

TEST_F(BaseLuaApiTest, ATimerThatCouldNotBeArmedProperlyIsATimerAllTheSame)
{
    Host host(
        R"(
        calls = 0 function tick() calls = calls + 1 end
        function f() handle = Timer.start(0, 'tick') end
    )");
    lua_getglobal(host.state(), "f");

    LogCapture log;
    {
        AllocationFailure failure(Allocation::NothrowNew, 2);
        EXPECT_EQ(lua_pcall(host.state(), 0, 0, 0), 0);
        EXPECT_TRUE(failure.happened());
    }
    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxTimer.cpp", "__start", "Memory allocation failed.")));
    EXPECT_EQ(host.number("handle"), host.number("timer0"));

    // Nobody owns the source, but it calls.
    log.clear();
    EXPECT_TRUE(host.reaches("calls", 1));
    EXPECT_EQ(host.run("Timer.stop(handle)"), "");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(BaseLuaApiTest, ATimerThatCouldNotBeArmedProperlyIsSilentOnceItIsStopped)
{
    Host host(
        R"(
        calls = 0 function tick() calls = calls + 1 end
        function f() handle = Timer.start(0, 'tick') end
    )");
    lua_getglobal(host.state(), "f");
    {
        LogCapture log;
        AllocationFailure failure(Allocation::NothrowNew, 2);
        EXPECT_EQ(lua_pcall(host.state(), 0, 0, 0), 0);
        EXPECT_TRUE(failure.happened());
    }

    EXPECT_EQ(host.run("Timer.stop(handle)"), "");

    iterateFor(10ms);
    EXPECT_EQ(host.number("calls"), 0);
}

// Has a function create objects, and each time lets one allocation after the other fail; goes on
// until the registry must have grown. Returns how many failed.
int failEveryAllocation(Host& host, const char* function, const char* handle, const char* first)
{
    int failures = 0;
    int objects = 0;
    for (int nth = 1; objects < 20 || (failures == 0 && objects < 100000);) {
        lua_getglobal(host.state(), function);
        int status = 0;
        bool happened = false;
        {
            AllocationFailure failure(Allocation::ThrowingNew, nth);
            status = lua_pcall(host.state(), 0, 0, 0);
            happened = failure.happened();
        }
        EXPECT_EQ(status, happened ? LUA_ERRRUN : 0) << objects << ", allocation " << nth;
        if (happened) {
            EXPECT_THAT(host.message(), HasSubstr(std::bad_alloc().what()));
            lua_pop(host.state(), 1);
            ++failures;
            ++nth;
        } else {
            // The handle after the last one: the failed ones have left nothing behind.
            EXPECT_EQ(host.number(handle), host.number(first) + objects);
            ++objects;
            nth = 1;
        }
    }
    return failures;
}

TEST_F(BaseLuaApiTest, ATimerThatCannotBeRegisteredIsALuaErrorAndNeverFires)
{
    Host host(
        R"(
        function f() handle = Timer.start(0, 'a name of more than a few letters', true)
          Timer.stop(handle)
          handle = Timer.start(3600000, 'a name of more than a few letters') end
        _G['a name of more than a few letters'] = function()
          error('a timer that was not made') end
    )");
    const int top = host.top();
    EXPECT_GT(failEveryAllocation(host, "f", "handle", "timer0"), 20);
    iterateFor(5ms);
    EXPECT_EQ(host.top(), top);
}

TEST_F(BaseLuaApiTest, ALoopThatCannotBeRegisteredIsALuaError)
{
    Host host("function f() handle = WaitingLoop.create() end");
    EXPECT_GT(failEveryAllocation(host, "f", "handle", "loop0"), 0);
}

TEST_F(BaseLuaApiTest, UnhandledExhaustionComesOutOfTheCall)
{
    for (const char* call :
         {"Timer.start(3600000, ('x'):rep(1000))", "while true do WaitingLoop.create() end"}) {
        Host host("function f() " + std::string(call) + " end");
        const int top = host.top();
        bool threw = false;
        {
            AllocationFailure failure(Allocation::ThrowingNew);
            try {
                host.script.callMethod("f", 0);
            } catch (const std::bad_alloc&) {
                threw = true;
            }
        }
        EXPECT_TRUE(threw) << call;
        EXPECT_EQ(host.top(), top + 1) << call;
    }
}

// ---- WaitingLoop --------------------------------------------------------------------------------

TEST_F(BaseLuaApiTest, WithoutMemoryForALoopThereIsNone)
{
    Host host("function f() handle = WaitingLoop.create() end");
    lua_getglobal(host.state(), "f");
    {
        AllocationFailure failure(Allocation::NothrowNew);
        EXPECT_EQ(lua_pcall(host.state(), 0, 0, 0), 0);
        EXPECT_TRUE(failure.happened());
    }
    EXPECT_EQ(host.number("handle"), -1);
    EXPECT_EQ(host.run("return WaitingLoop.create() - loop0"), "0");
}

TEST_F(BaseLuaApiTest, ALoopWithoutMemoryForATimeOutEndsOnlyWhenTold)
{
    struct Case {
        int nth;
        const char* functions;
        const char* starter;
    };
    for (const Case& loop : {Case{2, "WaitingLoop.runTime, WaitingLoop.quit", "__startRunTimer"},
                             Case{3, "WaitingLoop.waitTime, WaitingLoop.go", "__startWaitTimer"}}) {
        Host host("enterTime, leave = " + std::string(loop.functions) + R"(
            function f() handle = WaitingLoop.create() end
            function tell() told = true leave(handle) end
        )");
        lua_getglobal(host.state(), "f");
        {
            AllocationFailure failure(Allocation::NothrowNew, loop.nth);
            EXPECT_EQ(lua_pcall(host.state(), 0, 0, 0), 0);
            EXPECT_TRUE(failure.happened());
        }
        EXPECT_EQ(host.number("handle"), host.number("loop0"));

        LogCapture log;
        EXPECT_EQ(host.run(R"(
            local timer = Timer.start(5, 'tell')
            enterTime(handle, 0)
            Timer.stop(timer) WaitingLoop.destroy(handle)
            return told
        )"),
                  "true");
        EXPECT_THAT(log.lines(),
                    ElementsAre(LoggedIn("OxWaitingLoop.cpp", loop.starter, "Invalid state.")));
    }
}

// What holds for run mode and for wait mode.
class LuaLoopModeTest : public BaseLuaApiTest, public testing::WithParamInterface<const char*> {
protected:
    // A script with the functions of the mode in globals, and a loop of its own.
    std::string with(const std::string& content) const
    {
        return "local mine = '" + std::string(GetParam()) + R"('
            local W = WaitingLoop
            local modes = {run = {W.run, W.runTime, W.quit, W.isRunning},
                           wait = {W.wait, W.waitTime, W.go, W.isWaiting}}
            enter, enterTime, leave, isIn = unpack(modes[mine])
            otherEnter, otherEnterTime, otherLeave, otherIsIn =
              unpack(modes[mine == 'run' and 'wait' or 'run'])
            loop, trace = W.create(), {}
            function note(what) trace[#trace + 1] = what end
            function state() note(tostring(isIn(loop)) .. ' ' .. tostring(otherIsIn(loop))) end
        )" + content;
    }

    // Calls the function f and returns what it noted.
    static std::string traceOf(Host& host)
    {
        const int top = host.top();
        EXPECT_EQ(host.call("f"), STATUS_SUCCESS);
        EXPECT_EQ(host.top(), top) << host.message();
        return host.run("return table.concat(trace, ', ')");
    }
};

INSTANTIATE_TEST_SUITE_P(Modes, LuaLoopModeTest, testing::Values("run", "wait"),
                         [](const auto& mode) { return std::string(mode.param); });

TEST_P(LuaLoopModeTest, BlocksUntilItIsTold)
{
    Host host(with(R"(
        function tell() state() note('results ' .. select('#', leave(loop))) state() end
        function f() state() Timer.start(0, 'tell')
          note('results ' .. select('#', enter(loop))) state() end
    )"));
    EXPECT_EQ(traceOf(host),
              "false false, true false, results 0, false false, results 0, false false");
}

TEST_P(LuaLoopModeTest, BlocksUntilTheTimeIsOver)
{
    Host host(with(R"(
        function look() state() end
        function f() Timer.start(5, 'look')
          note('results ' .. select('#', enterTime(loop, 30))) state() end
    )"));
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(traceOf(host), "true false, results 0, false false");
    EXPECT_GE(Clock::now() - start, 29ms);
}

TEST_P(LuaLoopModeTest, AnyIntervalButMinusOneIsATimeOut)
{
    Host host(with(R"(
        function tell() note('told') leave(loop) end
        function f()
          enterTime(loop, 0) note('zero')
          enterTime(loop, '1') note('text')
          enterTime(loop, 0.25) note('fraction')
          Timer.start(10, 'tell') enterTime(loop, -1) note('minus one') end
    )"));
    EXPECT_EQ(traceOf(host), "zero, text, fraction, told, minus one");
}

TEST_P(LuaLoopModeTest, ToldToLeaveTheOtherModeItStays)
{
    Host host(with(R"(
        function other() otherLeave(loop) state() end
        function tell() leave(loop) end
        function f() Timer.start(0, 'other') Timer.start(5, 'tell') enter(loop) state()
        end
    )"));
    EXPECT_EQ(traceOf(host), "true false, false false");
}

TEST_P(LuaLoopModeTest, AnIdleLoopMayBeToldAnything)
{
    Host host(with(R"(
        function f() leave(loop) otherLeave(loop) leave(loop) state()
        enterTime(loop, 0) state() end
    )"));
    EXPECT_EQ(traceOf(host), "false false, false false");
}

TEST_P(LuaLoopModeTest, TimersGoOnInTheSameState)
{
    Host host(with(R"(
        calls = 0
        function tick() calls = calls + 1 if calls == 5 then leave(loop) end end
        function f() local own = 'kept'
          local timer = Timer.start(0, 'tick', true) enter(loop) Timer.stop(timer)
          note(own .. ' ' .. calls) end
    )"));
    EXPECT_EQ(traceOf(host), "kept 5");
}

TEST_P(LuaLoopModeTest, TheTimeOutOfTheInnerModeEndsBoth)
{
    Host host(with(R"(
        function inner() state() otherEnterTime(loop, 1) note('inner') end
        function look() state() end
        function f() Timer.start(0, 'inner') Timer.start(0, 'look')
          enter(loop) note('outer') state() end
    )"));
    EXPECT_EQ(traceOf(host), "true false, true true, inner, outer, false false");
}

TEST_P(LuaLoopModeTest, TheTimeOutOfTheOuterModeEndsBoth)
{
    Host host(with(R"(
        function inner() otherEnter(loop) note('inner') end
        function f() Timer.start(0, 'inner') enterTime(loop, 5) note('outer') state()
        end
    )"));
    EXPECT_EQ(traceOf(host), "inner, outer, false false");
}

TEST_P(LuaLoopModeTest, TheModesAreToldOneByOne)
{
    Host host(with(R"(
        function inner() Timer.start(0, 'tellInner') otherEnter(loop) note('inner')
          state() leave(loop) end
        function tellInner() state() otherLeave(loop) state() end
        function f() Timer.start(0, 'inner') enter(loop) note('outer') state() end
    )"));
    EXPECT_EQ(traceOf(host), "true true, true false, inner, true false, outer, false false");
}

TEST_P(LuaLoopModeTest, EachLoopIsItsOwn)
{
    Host host(with(R"(
        second = WaitingLoop.create()
        function inner() enterTime(second, 1) note(tostring(isIn(second))) state()
          leave(second) leave(loop) end
        function f() Timer.start(0, 'inner') enter(loop) state() end
    )"));
    EXPECT_EQ(traceOf(host), "false, true false, false false");
}

TEST_P(LuaLoopModeTest, BlocksWhileTheScriptIsLoaded)
{
    const Host host(with(R"(
        calls = 0 function tick() calls = calls + 1
          if calls == 3 then leave(loop) end end
        timer = Timer.start(0, 'tick', true) enter(loop) Timer.stop(timer)
        note('calls ' .. calls)
    )"));
    EXPECT_EQ(host.run("return table.concat(trace, ', ')"), "calls 3");
}

TEST_P(LuaLoopModeTest, BlocksInACoroutine)
{
    Host host(with(R"(
        function tell() leave(loop) end
        function f() Timer.start(0, 'tell')
          coroutine.wrap(function() enter(loop) coroutine.yield(note('yield')) end)()
          note('resumed') end
    )"));
    EXPECT_EQ(traceOf(host), "yield, resumed");
}

TEST_P(LuaLoopModeTest, ACallWithResultsIsNotDisturbedByThoseOfTimers)
{
    Host host(with(R"(
        calls = 0
        function tick() calls = calls + 1 if calls == 3 then leave(loop) end
          return 'not this' end
        function ask(question) local timer = Timer.start(0, 'tick', true) enter(loop)
          Timer.stop(timer) return calls, question .. '!' end
    )"));
    const int top = host.top();
    int number = 0;
    std::string text;
    EXPECT_EQ(host.script.callMethod("ask", std::tie(number, text), "why"), STATUS_SUCCESS);
    EXPECT_EQ(number, 3);
    EXPECT_EQ(text, "why!");
    EXPECT_EQ(host.top(), top);
}

TEST_P(LuaLoopModeTest, ALoopMayBeDestroyedByAFunctionThatItDispatches)
{
    Host host(with(R"(
        later = WaitingLoop.create()
        function tell() leave(loop) WaitingLoop.destroy(loop) note('destroyed') end
        function f() Timer.start(0, 'tell') enter(loop) note('left') state() end
    )"));
    // What is looked at afterwards is the later loop, which has moved down.
    EXPECT_EQ(traceOf(host), "destroyed, left, false false");
    EXPECT_EQ(host.run("return WaitingLoop.create() - loop0"), "1");
}

TEST_F(BaseLuaApiTest, DestroyingALoopEndsItsWait)
{
    Host host(
        R"(
        loop = WaitingLoop.create()
        function tell() WaitingLoop.destroy(loop) end
        function f() Timer.start(0, 'tell') WaitingLoop.wait(loop) left = 1 end
        function g() loop = WaitingLoop.create() Timer.start(0, 'tell')
          WaitingLoop.waitTime(loop, 3600000) left = 2 end
    )");
    EXPECT_EQ(host.call("f"), STATUS_SUCCESS);
    EXPECT_EQ(host.number("left"), 1);
    EXPECT_EQ(host.call("g"), STATUS_SUCCESS);
    EXPECT_EQ(host.number("left"), 2);
    EXPECT_EQ(host.run("return WaitingLoop.create() - loop0"), "0");
}

TEST_F(BaseLuaApiTest, LoopsNestInTurn)
{
    // A run in a wait in a run, and so on, each ended after the one inside it.
    Host host(
        R"(
        depth, trace = 0, {}
        function go()
          depth = depth + 1 local mine = depth
          local loop = WaitingLoop.create()
          if mine < 7 then Timer.start(0, 'go') end
          local enter = mine % 2 == 1 and WaitingLoop.runTime or WaitingLoop.waitTime
          enter(loop, 2)
          trace[#trace + 1] = mine
        end
    )");
    const int top = host.top();
    EXPECT_EQ(host.call("go"), STATUS_SUCCESS);
    EXPECT_EQ(host.top(), top) << host.message();
    EXPECT_EQ(host.run("return table.concat(trace, ' ')"), "7 6 5 4 3 2 1");
}

TEST_F(BaseLuaApiTest, NestingTooDeepIsALuaErrorAtMost)
{
    struct Case {
        int depth;
        bool mustSucceed;
    };
    // Lua refuses about 200 native calls within each other.
    for (const Case& nesting : {Case{50, true}, Case{400, false}}) {
        Host host("limit = " + std::to_string(nesting.depth) + R"(
            started, finished = 0, 0
            function nest()
              started = started + 1
              if started < limit then
                local loop = WaitingLoop.create()
                Timer.start(0, 'nest')
                WaitingLoop.runTime(loop, 1)
              end
              finished = finished + 1
            end
            function works() return 42 end
        )");
        const int top = host.top();
        EXPECT_EQ(host.call("nest"), STATUS_SUCCESS);
        const int errors = host.top() - top;
        EXPECT_GE(host.number("started"), 50);
        if (nesting.mustSucceed) {
            EXPECT_EQ(errors, 0) << host.message();
            EXPECT_EQ(host.number("started"), nesting.depth);
        }
        // Whoever was refused a deeper call left one message, and everybody else came back.
        EXPECT_LE(host.number("started") - host.number("finished"), errors);
        for (int i = 1; i <= errors; ++i) {
            EXPECT_THAT(inWords(host.state(), top + i), HasSubstr("stack overflow"));
        }
        lua_settop(host.state(), top);
        int answer = 0;
        EXPECT_EQ(host.script.callMethod("works", std::tie(answer)), STATUS_SUCCESS);
        EXPECT_EQ(answer, 42);
        EXPECT_EQ(host.run(R"(
        local last = Timer.start(3600000, '')
        for handle = last, timer0, -1 do Timer.stop(handle) end
    )"),
                  "");
    }
}

// ---- Several scripts ----------------------------------------------------------------------------

TEST_F(BaseLuaApiTest, ScriptsHaveTimersAndLoopsOfTheirOwn)
{
    Host first(
        R"(
        calls, name = 0, 'first'
        function tick() calls = calls + 1
          if calls == 20 then WaitingLoop.quit(loop) end end
        function f() loop = WaitingLoop.create() Timer.start(0, 'tick', true)
          WaitingLoop.run(loop) end
    )");
    Host second(
        R"(
        calls, name = 0, 'second'
        function tick() calls = calls + 1
          if calls == 3 then block() end end
        function leave() left = 1 WaitingLoop.go(loop) end
        function block() loop = WaitingLoop.create() Timer.start(0, 'leave')
          WaitingLoop.wait(loop) blocked = 1 end
        Timer.start(0, 'tick', true)
    )");
    const int tops[] = {first.top(), second.top()};
    EXPECT_EQ(first.call("f"), STATUS_SUCCESS);
    EXPECT_EQ(second.number("blocked"), 1);
    EXPECT_GT(first.number("calls"), 3);
    EXPECT_GT(second.number("calls"), 3);
    EXPECT_EQ(first.run("return name"), "first");
    EXPECT_EQ(second.run("return name"), "second");
    EXPECT_EQ(first.top(), tops[0]) << first.message();
    EXPECT_EQ(second.top(), tops[1]) << second.message();
}

TEST_F(BaseLuaApiTest, ScriptsShareTheHandles)
{
    Host first(
        R"(
        calls = 0 function tick() calls = calls + 1 end
    )");
    Host second(
        R"(
        calls = 0 function tick() calls = calls + 1 end
        function quit() WaitingLoop.quit(loop0) end
    )");
    EXPECT_EQ(first.run("return Timer.start(0, 'tick', true) - timer0"), "0");
    EXPECT_EQ(second.run("return Timer.start(0, 'tick', true) - timer0"), "1");
    EXPECT_EQ(second.run("return Timer.stop(timer0)"), "");
    EXPECT_TRUE(second.reaches("calls", 3));
    EXPECT_EQ(first.number("calls"), 0);

    EXPECT_EQ(first.run("return WaitingLoop.create() - loop0"), "0");
    EXPECT_EQ(second.run("Timer.start(0, 'quit')"), "");
    EXPECT_EQ(first.run("WaitingLoop.run(loop0) return 'quit by the other'"), "quit by the other");
    EXPECT_EQ(second.run("return WaitingLoop.destroy(loop0)"), "");
    EXPECT_THAT(first.run("WaitingLoop.isRunning(loop0)"), StartsWith("error: "));
}

TEST_F(BaseLuaApiTest, ObjectsLiveUntilTheyAreDestroyedByWhicheverScript)
{
    const Host heir;
    {
        const Host gone("Timer.start(3600000, 'f') WaitingLoop.create() WaitingLoop.create()");
    }
    EXPECT_EQ(heir.run(R"(
        return WaitingLoop.isRunning(loop0), WaitingLoop.isWaiting(loop0 + 1),
        WaitingLoop.create() - loop0, Timer.start(3600000, '') - timer0
    )"),
              "false, false, 2, 1");
    EXPECT_EQ(heir.run(R"(
        WaitingLoop.runTime(loop0, 1) WaitingLoop.waitTime(loop0 + 1, 1)
        Timer.stop(timer0) WaitingLoop.destroy(loop0)
        return WaitingLoop.create() - loop0, Timer.start(3600000, '') - timer0
    )"),
              "2, 1");
}

}  // namespace
}  // namespace oxil::test
