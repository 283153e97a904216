#include "OxLuaApi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <lua.hpp>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "LoadedScript.h"
#include "NativeApi.h"
#include "OxLogMatchers.h"
#include "OxLuaScript.h"
#include "OxStatus.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;

static_assert(std::is_abstract_v<LuaApi> && std::has_virtual_destructor_v<LuaApi>);
static_assert(!std::is_copy_constructible_v<LuaApi> && !std::is_copy_assignable_v<LuaApi>);

const LoggedBy logged("OxLuaApi.cpp");

/** Has only what every API has. */
class PlainApi : public LuaApi {
public:
    int onLoading() override { return 0; }
};

/** Answers as told, and notes what its hooks see. */
class NotingApi : public LuaApi {
public:
    int onLoading() override { return note("loading", loadResult); }
    int onUnloading() override { return note("unloading", unloadResult); }

    struct Note {
        std::string hook;
        LuaScript* script;
        bool loaded;

        bool operator==(const Note& other) const
        {
            return std::tie(hook, script, loaded) ==
                   std::tie(other.hook, other.script, other.loaded);
        }
    };

    int loadResult = 0;
    int unloadResult = 0;
    std::vector<Note> notes;

private:
    int note(const std::string& hook, int result)
    {
        notes.push_back({hook, getLuaScript(), isLoaded()});
        return result;
    }
};

using Note = NotingApi::Note;

int one(lua_State* state)
{
    lua_pushinteger(state, 1);
    return 1;
}

int two(lua_State* state)
{
    lua_pushinteger(state, 2);
    return 1;
}

constexpr luaL_Reg NOTHING[] = {{nullptr, nullptr}};
constexpr luaL_Reg ONE[] = {{"one", one}, {nullptr, nullptr}};
constexpr luaL_Reg ONE_AND_TWO[] = {{"one", one}, {"two", two}, {nullptr, nullptr}};
constexpr luaL_Reg TWO_AS_ONE[] = {{"one", two}, {nullptr, nullptr}};

/** What a Lua expression is, as text. */
std::string evaluated(const LoadedScript& loaded, const std::string& expression)
{
    const std::string code = "return tostring(" + expression + ")";
    lua_State* state = loaded.state();
    if (luaL_dostring(state, code.c_str()) != 0) {
        ADD_FAILURE() << expression << ": " << lua_tostring(state, -1);
    }
    const std::string result = lua_tostring(state, -1);
    lua_pop(state, 1);
    return result;
}

TEST(LuaApiTest, StartsWithoutScript)
{
    const PlainApi api;

    EXPECT_EQ(api.getLuaScript(), nullptr);
    EXPECT_FALSE(api.isLoaded());
}

TEST(LuaApiTest, UnloadingNeedsNothingByDefault)
{
    PlainApi api;

    EXPECT_EQ(api.onUnloading(), 0);
}

TEST(LuaApiTest, DestructionUnloadsNothing)
{
    class Leaving : public PlainApi {
    public:
        explicit Leaving(std::vector<std::string>& events) : __events(events) {}
        ~Leaving() override { __events.emplace_back("destroyed"); }
        int onUnloading() override
        {
            __events.emplace_back("unloading");
            return 0;
        }

    private:
        std::vector<std::string>& __events;
    };
    LuaScript script;
    std::vector<std::string> events;
    std::unique_ptr<LuaApi> api = std::make_unique<Leaving>(events);
    ASSERT_EQ(api->load(&script), STATUS_SUCCESS);

    api.reset();

    EXPECT_THAT(events, ElementsAre("destroyed"));
}

TEST(LuaApiTest, LoadRemembersTheScriptBeforeTheHook)
{
    LuaScript first;
    LuaScript second;
    NotingApi api;

    EXPECT_EQ(api.load(&first), STATUS_SUCCESS);
    EXPECT_TRUE(api.isLoaded());
    EXPECT_EQ(api.getLuaScript(), &first);

    EXPECT_EQ(api.load(&second), STATUS_SUCCESS);
    EXPECT_TRUE(api.isLoaded());
    EXPECT_EQ(api.getLuaScript(), &second);

    EXPECT_THAT(api.notes,
                ElementsAre(Note{"loading", &first, false}, Note{"loading", &second, true}));
}

TEST(LuaApiTest, LoadWithoutScriptChangesNothing)
{
    LuaScript script;
    NotingApi api;
    LogCapture log;

    EXPECT_EQ(api.load(nullptr), STATUS_INVALID_PARAMETER);
    EXPECT_THAT(log.lines(), ElementsAre(logged("load", "Invalid parameter")));
    EXPECT_EQ(api.getLuaScript(), nullptr);
    EXPECT_FALSE(api.isLoaded());

    ASSERT_EQ(api.load(&script), STATUS_SUCCESS);
    EXPECT_EQ(api.load(nullptr), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(api.getLuaScript(), &script);
    EXPECT_TRUE(api.isLoaded());
    EXPECT_THAT(api.notes, ElementsAre(Note{"loading", &script, false}));
}

TEST(LuaApiTest, FailedLoadKeepsTheScriptAndWhatWasLoaded)
{
    for (const int code : {-7, 3, STATUS_INVALID_PARAMETER}) {
        LuaScript first;
        LuaScript second;
        NotingApi api;
        api.loadResult = code;
        {
            LogCapture log;
            EXPECT_EQ(api.load(&first), code);
            EXPECT_THAT(log.lines(), ElementsAre(logged("load", std::to_string(code))));
            EXPECT_EQ(api.getLuaScript(), &first);
            EXPECT_FALSE(api.isLoaded());
        }
        api.loadResult = 0;
        ASSERT_EQ(api.load(&first), STATUS_SUCCESS);
        api.loadResult = code;
        {
            LogCapture log;
            EXPECT_EQ(api.load(&second), code);
            EXPECT_THAT(log.lines(), ElementsAre(logged("load", std::to_string(code))));
            EXPECT_EQ(api.getLuaScript(), &second);
            EXPECT_TRUE(api.isLoaded());
        }
    }
}

TEST(LuaApiTest, UnloadKeepsTheScript)
{
    LuaScript script;
    NotingApi api;
    ASSERT_EQ(api.load(&script), STATUS_SUCCESS);

    EXPECT_EQ(api.unload(), STATUS_SUCCESS);
    EXPECT_FALSE(api.isLoaded());
    EXPECT_EQ(api.getLuaScript(), &script);

    // Whether there is anything to unload is the hook's business.
    EXPECT_EQ(api.unload(), STATUS_SUCCESS);
    EXPECT_FALSE(api.isLoaded());

    EXPECT_THAT(api.notes,
                ElementsAre(Note{"loading", &script, false}, Note{"unloading", &script, true},
                            Note{"unloading", &script, false}));
}

TEST(LuaApiTest, FailedUnloadLeavesItLoaded)
{
    for (const int code : {-9, 4}) {
        LuaScript script;
        NotingApi api;
        ASSERT_EQ(api.load(&script), STATUS_SUCCESS);
        api.unloadResult = code;
        LogCapture log;

        EXPECT_EQ(api.unload(), code);
        EXPECT_THAT(log.lines(), ElementsAre(logged("unload", std::to_string(code))));
        EXPECT_TRUE(api.isLoaded());
        EXPECT_EQ(api.getLuaScript(), &script);
    }
}

TEST(LuaApiTest, FailedUnloadLeavesItUnloadedToo)
{
    NotingApi api;
    api.unloadResult = -1;
    LogCapture log;

    EXPECT_EQ(api.unload(), -1);
    EXPECT_THAT(log.lines(), ElementsAre(logged("unload", "-1")));
    EXPECT_FALSE(api.isLoaded());
}

TEST(LuaApiTest, TableIsGlobalAndStaysOnTheStack)
{
    LoadedScript loaded("");
    PlainApi api;
    ASSERT_EQ(api.load(&loaded.script), STATUS_SUCCESS);

    api.registerApiTable("numbers", ONE_AND_TWO);

    EXPECT_EQ(loaded.top(), BUILT_IN + 1);
    lua_getglobal(loaded.state(), "numbers");
    EXPECT_TRUE(lua_istable(loaded.state(), -1));
    EXPECT_TRUE(lua_rawequal(loaded.state(), -1, -2));
    EXPECT_EQ(evaluated(loaded, "numbers.one() + numbers.two()"), "3");
    EXPECT_EQ(evaluated(loaded, "require 'numbers' == numbers"), "true");
}

TEST(LuaApiTest, TableMayBeEmpty)
{
    LoadedScript loaded("");
    PlainApi api;
    ASSERT_EQ(api.load(&loaded.script), STATUS_SUCCESS);

    api.registerApiTable("nothing", NOTHING);

    EXPECT_EQ(evaluated(loaded, "type(nothing)"), "table");
    EXPECT_EQ(evaluated(loaded, "next(nothing)"), "nil");
}

TEST(LuaApiTest, ExistingTableIsUsedAgain)
{
    LoadedScript loaded("shelf = {mine = 5}; sameShelf = shelf");
    PlainApi api;
    ASSERT_EQ(api.load(&loaded.script), STATUS_SUCCESS);

    api.registerApiTable("shelf", ONE_AND_TWO);
    EXPECT_EQ(evaluated(loaded, "shelf == sameShelf"), "true");
    EXPECT_EQ(evaluated(loaded, "shelf.mine + shelf.one() + shelf.two()"), "8");

    api.registerApiTable("shelf", TWO_AS_ONE);
    EXPECT_EQ(evaluated(loaded, "shelf == sameShelf"), "true");
    EXPECT_EQ(evaluated(loaded, "shelf.mine + shelf.one() + shelf.two()"), "9");

    api.registerApiTable("string", ONE);
    EXPECT_EQ(evaluated(loaded, "string.one() .. string.upper('a')"), "1A");

    EXPECT_EQ(loaded.top(), BUILT_IN + 3);
}

TEST(LuaApiTest, DotsInANameMakeTablesInTables)
{
    LoadedScript loaded("");
    PlainApi api;
    ASSERT_EQ(api.load(&loaded.script), STATUS_SUCCESS);

    api.registerApiTable("shop.shelf", ONE);

    EXPECT_EQ(evaluated(loaded, "shop.shelf.one()"), "1");
}

TEST(LuaApiTest, TableGoesIntoTheScriptLoadedIntoLast)
{
    LoadedScript first("");
    LoadedScript second("");
    PlainApi api;
    ASSERT_EQ(api.load(&first.script), STATUS_SUCCESS);
    ASSERT_EQ(api.load(&second.script), STATUS_SUCCESS);
    ASSERT_EQ(api.unload(), STATUS_SUCCESS);

    api.registerApiTable("numbers", ONE);

    EXPECT_EQ(evaluated(first, "numbers"), "nil");
    EXPECT_EQ(evaluated(second, "numbers.one()"), "1");
}

TEST(LuaApiTest, TableNeedsANameAndFunctions)
{
    LoadedScript loaded("");
    PlainApi api;
    const auto expectRefusal = [&](const std::string& name, const luaL_Reg* functions) {
        LogCapture log;
        api.registerApiTable(name, functions);
        EXPECT_THAT(log.lines(), ElementsAre(logged("registerApiTable", "Invalid parameter")));
    };

    // Also without a script, which would be refused as well.
    expectRefusal("", ONE);
    expectRefusal("numbers", nullptr);

    ASSERT_EQ(api.load(&loaded.script), STATUS_SUCCESS);
    expectRefusal("", ONE);
    expectRefusal("numbers", nullptr);
    expectRefusal("", nullptr);
    EXPECT_EQ(loaded.top(), BUILT_IN);
    EXPECT_EQ(evaluated(loaded, "numbers"), "nil");
}

TEST(LuaApiTest, TableNeedsALoadedScript)
{
    LuaScript script;
    PlainApi api;
    LogCapture log;

    api.registerApiTable("numbers", ONE);
    EXPECT_THAT(log.lines(), ElementsAre(logged("registerApiTable", "Invalid state")));
    log.clear();

    ASSERT_EQ(api.load(&script), STATUS_SUCCESS);
    api.registerApiTable("numbers", ONE);
    EXPECT_THAT(log.lines(), ElementsAre(logged("registerApiTable", "Invalid state")));
}

TEST(LuaApiTest, TakenNameIsLeftAlone)
{
    struct Case {
        std::string name;
        std::string global;
        std::string type;
    };
    const std::vector<Case> cases = {
        {"number", "number", "number"},      {"text", "text", "string"},
        {"flag", "flag", "boolean"},         {"print", "print", "function"},
        {"number.part", "number", "number"}, {"table.concat", "table.concat", "function"}};
    LoadedScript loaded("number = 5; text = 'text'; flag = false");
    PlainApi api;
    ASSERT_EQ(api.load(&loaded.script), STATUS_SUCCESS);

    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        LogCapture log;

        api.registerApiTable(test.name, ONE);

        EXPECT_THAT(log.lines(), ElementsAre(logged("registerApiTable", "Invalid state")));
        EXPECT_EQ(evaluated(loaded, "type(" + test.global + ")"), test.type);
        EXPECT_EQ(loaded.top(), BUILT_IN);
    }
    api.registerApiTable("free", ONE);
    EXPECT_EQ(evaluated(loaded, "free.one()"), "1");
}

TEST(LuaApiTest, ScriptMayForbidNewGlobals)
{
    LoadedScript loaded(
        "known = {}\n"
        "setmetatable(_G, {__newindex = function(_, name) error('no ' .. name) end})");
    PlainApi api;
    ASSERT_EQ(api.load(&loaded.script), STATUS_SUCCESS);
    LogCapture log;

    api.registerApiTable("numbers", ONE);
    EXPECT_THAT(log.lines(), ElementsAre(logged("registerApiTable", "Invalid state")));
    EXPECT_EQ(evaluated(loaded, "rawget(_G, 'numbers')"), "nil");
    EXPECT_EQ(loaded.top(), BUILT_IN);

    api.registerApiTable("known", ONE);
    EXPECT_EQ(evaluated(loaded, "known.one()"), "1");
}

}  // namespace
}  // namespace oxil::test
