// Offers native functions of the application to a Lua script.
//
// Prints:
//   stock: bolt 12, nut 40
//   total 52
//   no washer: unknown article washer
//   and out of the script: unknown article gasket

#include <cstdio>
#include <map>
#include <stdexcept>
#include <string>

#include <Oxil.h>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

namespace {

//! [shelf]
// The application's own C++, which knows nothing of Lua and reports with exceptions.
class Shelf {
public:
    void put(const std::string& article, int count) { counts_[article] += count; }

    int count(const std::string& article) const
    {
        const auto place = counts_.find(article);
        if (place == counts_.end()) {
            throw std::invalid_argument("unknown article " + article);
        }
        return place->second;
    }

private:
    std::map<std::string, int> counts_;
};

Shelf shelf;
//! [shelf]

//! [functions]
// Between the two: what may raise a Lua error stands outside the guard and holds plain values only,
// what may throw stands inside.

int put(lua_State* state)
{
    const char* article = luaL_checkstring(state, 1);
    const int count = static_cast<int>(luaL_checkinteger(state, 2));

    oxil::LuaGuard guard(state);
    return guard.run([&] { shelf.put(article, count); }) ? 0 : guard.raise();
}

int count(lua_State* state)
{
    const char* article = luaL_checkstring(state, 1);
    int found = 0;

    oxil::LuaGuard guard(state);
    if (!guard.run([&] { found = shelf.count(article); })) {
        return guard.raise();
    }
    lua_pushinteger(state, found);
    return 1;
}
//! [functions]

//! [api]
class ShelfApi : public oxil::LuaApi {
public:
    int onLoading() override
    {
        static const luaL_Reg functions[] = {{"put", put}, {"count", count}, {nullptr, nullptr}};
        registerApiTable("Shelf", functions);
        return oxil::STATUS_SUCCESS;
    }
};
//! [api]

void printError(const std::string& function, const std::string& message,
                const std::string& traceback)
{
    std::fprintf(stderr, "%s: %s\n%s\n", function.c_str(), message.c_str(), traceback.c_str());
}

}  // namespace

int main(int argc, char** argv)
{
    //! [load]
    ShelfApi api;
    oxil::LuaScript script(argc > 1 ? argv[1] : "inventory.lua");
    script.setErrorHandler(printError);
    script.addLuaApi(&api);  // before load(): the file itself may use it
    if (script.load() != oxil::STATUS_SUCCESS) {
        return 1;
    }

    std::string stock;
    script.callMethod("stock", std::tie(stock));
    std::printf("stock: %s\n", stock.c_str());

    int total = 0;
    script.callMethod("total", std::tie(total), "bolt", "nut");
    std::printf("total %d\n", total);
    //! [load]

    // The script handles the error ...
    std::string reason;
    script.callMethod("explain", std::tie(reason), "washer");
    std::printf("no washer: %s\n", reason.c_str());

    //! [exception]
    // ... or does not, and what was thrown behind it comes out here.
    try {
        script.callMethod("total", std::tie(total), "gasket", "nut");
    } catch (const std::invalid_argument& exception) {
        std::printf("and out of the script: %s\n", exception.what());
    }
    //! [exception]
    return total == 52 ? 0 : 1;
}
