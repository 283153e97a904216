#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <lua.hpp>
#include <string>

#include "LoadedScript.h"
#include "NativeApi.h"
#include "OxLogMatchers.h"
#include "OxLuaApi.h"
#include "OxLuaScript.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;

/** Lets a state run out of memory: the n-th request for more fails, and perhaps all behind it. */
class MemoryShortage {
public:
    MemoryShortage(lua_State* state, int nth, bool lasting)
        : __state(state), __left(nth), __lasting(lasting)
    {
        __allocator = lua_getallocf(state, &__data);
        lua_setallocf(state, allocate, this);
    }

    ~MemoryShortage() { lua_setallocf(__state, __allocator, __data); }

    MemoryShortage(const MemoryShortage&) = delete;
    MemoryShortage& operator=(const MemoryShortage&) = delete;

    bool happened() const { return __left <= 0; }

private:
    static void* allocate(void* self, void* block, std::size_t oldSize, std::size_t newSize)
    {
        auto& shortage = *static_cast<MemoryShortage*>(self);
        if (newSize > oldSize) {
            --shortage.__left;
            if (shortage.__left == 0 || (shortage.__left < 0 && shortage.__lasting)) {
                return nullptr;
            }
        }
        return shortage.__allocator(shortage.__data, block, oldSize, newSize);
    }

    lua_State* __state;
    int __left;
    bool __lasting;
    lua_Alloc __allocator;
    void* __data = nullptr;
};

int one(lua_State* state)
{
    lua_pushinteger(state, 1);
    return 1;
}

constexpr luaL_Reg MANY[] = {{"a", one}, {"b", one}, {"c", one}, {"d", one},        {"e", one},
                             {"f", one}, {"g", one}, {"h", one}, {nullptr, nullptr}};

/** A table that is registered, and how the script sees it. */
struct Case {
    const char* description;
    const char* before;  // the script
    const char* name;
};

const Case CASES[] = {
    {"a new table", "", "fresh"},
    {"a new table in new tables", "", "fresh.inner.most"},
    {"a new table in a table of the script", "own = {x = 1}", "own.inner"},
    {"a table of the script", "own = {x = 1, a = 'mine', c = 'mine'}", "own"},
    {"a table that is registered", "native.b = 'mine'", "native"},
};

// All that is reachable from the globals and the list of loaded modules, as text.
constexpr const char* DESCRIBE = R"(
    function describe()
        local lines, seen = {}, {}
        local function visit(name, value)
            lines[#lines + 1] = name .. '=' .. tostring(value)
            if type(value) == 'table' and not seen[value] then
                seen[value] = true
                for key, field in pairs(value) do visit(name .. '.' .. tostring(key), field) end
            end
        end
        visit('_G', _G)
        table.sort(lines)
        return table.concat(lines, '\n')
    end
)";

std::string describe(LoadedScript& loaded)
{
    std::string text;
    lua_gc(loaded.state(), LUA_GCCOLLECT, 0);
    EXPECT_EQ(loaded.script.callMethod("describe", std::tie(text)), 0);
    return text;
}

TEST(RegisterTableTest, WithoutMemoryEverythingIsAsItWas)
{
    for (const Case& each : CASES) {
        for (const bool lasting : {false, true}) {
            SCOPED_TRACE(each.description);
            NativeApi api;
            LoadedScript loaded(std::string(DESCRIBE) + each.before, {&api});
            const std::string before = describe(loaded);
            int failures = 0;
            for (int nth = 1;; ++nth) {
                const int top = loaded.top();
                LogCapture log;
                bool happened = false;
                {
                    const MemoryShortage shortage(loaded.state(), nth, lasting);
                    api.registerApiTable(each.name, MANY);
                    happened = shortage.happened();
                }
                if (!happened) {
                    break;
                }
                ++failures;
                EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxLuaApi.cpp", "registerApiTable",
                                                              "Invalid state")));
                EXPECT_EQ(loaded.top(), top);
                ASSERT_EQ(describe(loaded), before) << nth;
            }
            EXPECT_GT(failures, 8) << "one function each, at least";

            EXPECT_EQ(luaL_dostring(loaded.state(),
                                    (std::string("return ") + each.name + ".h()").c_str()),
                      0);
            EXPECT_EQ(lua_tointeger(loaded.state(), -1), 1);
        }
    }
}

}  // namespace
}  // namespace oxil::test
