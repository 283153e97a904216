#include "OxBaseLuaApi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
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
#include "BaseLuaApiFixture.h"
#include "LoadedScript.h"
#include "LuaChunk.h"
#include "MainLoop.h"
#include "OxLogMatchers.h"
#include "OxLuaScript.h"
#include "OxStatus.h"
#include "ScriptFile.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

static_assert(std::is_base_of_v<LuaApi, BaseLuaApi>);

class BaseLuaApiTest : public BaseLuaApiFixture {};

auto invalidHandle()
{
    return LoggedIn("OxObjectManager.h", "getObject", "Invalid parameter.");
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
    EXPECT_THAT(log.lines(), ElementsAre(Printed("loading")));
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
        EXPECT_THAT(log.lines(), ElementsAre(Printed(message))) << arguments;
    }
}

TEST_F(BaseLuaApiTest, PrintHasNoResultsAlsoForAnotherPrint)
{
    const Host host;
    LogCapture log;
    EXPECT_EQ(host.run("return select('#', Log.print(1, 2, 3))"), "0");
    EXPECT_EQ(host.run("Log.print('outer', Log.print('inner'))"), "");
    EXPECT_THAT(log.lines(), ElementsAre(Printed("1 2 3"), Printed("inner"), Printed("outer")));
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
    EXPECT_THAT(log.lines(), ElementsAre(Printed("7 8")));
}

TEST_F(BaseLuaApiTest, PrintTakesLongTexts)
{
    const Host host;
    LogCapture log;
    EXPECT_EQ(host.run("local text = string.rep('x', 100000) Log.print(text, 'and', text)"), "");
    const std::string text(100000, 'x');
    EXPECT_THAT(log.lines(), ElementsAre(Printed(text + " and " + text)));
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
    EXPECT_THAT(log.lines(), ElementsAre(Printed(message)));
}

TEST_F(BaseLuaApiTest, PrintWorksInACoroutine)
{
    const Host host;
    LogCapture log;
    EXPECT_EQ(host.run("coroutine.wrap(function(...) Log.print('in', ...) end)('a', 1)"), "");
    EXPECT_THAT(log.lines(), ElementsAre(Printed("in a 1")));
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

// ---- Without memory for the registries -----------------------------------------------------------

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
