#pragma once

#include <OxLuaApi.h>

#include <functional>
#include <string>
#include <utility>

struct lua_State;

namespace oxil::test {

/**
 * Native functions as an application offers them: a table with one function, `run(text)`, which
 * does what the test wants and may throw.
 */
class NativeApi : public LuaApi {
public:
    using Body = std::function<void(lua_State* state, const std::string& text)>;

    explicit NativeApi(
        Body whatRunDoes = [](lua_State*, const std::string&) {},
        const std::string& tableName = "native")
        : body(std::move(whatRunDoes)), table(tableName)
    {
    }

    int onLoading() override;
    int onUnloading() override;

    Body body;
    std::string table;
    std::function<void()> whenLoading = [] {};  ///< called before the table is registered
    int loadResult = 0;
    int unloadResult = 0;
    int loads = 0;
    int unloads = 0;
};

}  // namespace oxil::test
