// Offers native functions of the application to a Lua script, and calls the script's.
//
// Prints:
//   bolt 12, nut 40
//   total 52
//   label: nut (40)
//   no washer: unknown article washer
//   and out of the script: unknown article gasket

#include <cstdio>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

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

    std::vector<oxil::KeyValues> list(int minimum) const
    {
        std::vector<oxil::KeyValues> articles;
        for (const auto& [name, count] : counts_) {
            if (count >= minimum) {
                articles.push_back({{"name", name}, {"count", count}});
            }
        }
        return articles;
    }

private:
    std::map<std::string, int> counts_;
};
//! [shelf]

//! [native]
// By hand, where bind() is not enough: what may raise a Lua error stands outside the guard and holds
// plain values only, what may throw stands inside.
int label(lua_State* state)
{
    oxil::LuaValue::check<oxil::KeyValues>(state, 1);
    int r = oxil::STATUS_FAILURE;

    oxil::LuaGuard guard(state);
    const bool done = guard.run([&] {
        oxil::KeyValues article;
        oxil::LuaValue::get(state, 1, article);
        const std::string text =
            article.get("name", "?") + " (" + std::to_string(article.get("count", 0)) + ")";
        r = oxil::LuaValue::push(state, text);
    });
    if (!done) {
        return guard.raise();
    }
    return r == oxil::STATUS_SUCCESS ? 1 : luaL_error(state, "no memory");
}
//! [native]

//! [api]
class ShelfApi : public oxil::LuaApi {
public:
    explicit ShelfApi(Shelf& shelf) : shelf_(shelf) {}

    int onLoading() override
    {
        bind("Shelf.put", &shelf_, &Shelf::put);
        bind("Shelf.count", &shelf_, &Shelf::count);
        bind("Shelf.list", [this](std::optional<int> minimum) {  // which may be left out
            return shelf_.list(minimum.value_or(0));
        });
        static const luaL_Reg functions[] = {{"label", label}, {nullptr, nullptr}};
        registerApiTable("Shelf", functions);
        return oxil::STATUS_SUCCESS;
    }

private:
    Shelf& shelf_;
};
//! [api]

}  // namespace

int main(int argc, char** argv)
{
    //! [load]
    Shelf shelf;
    ShelfApi api(shelf);
    oxil::LuaScript script(argc > 1 ? argv[1] : "inventory.lua");
    script.addLuaApi(&api);  // before load(): the file itself may use it
    if (script.load() != oxil::STATUS_SUCCESS) {
        return 1;
    }
    std::printf("%s\n", script.call<std::string>("stock")->c_str());
    //! [load]

    //! [call]
    const auto total = script.call<int>("total", "bolt", "nut");
    if (!total) {
        std::fprintf(stderr, "%s\n%s\n", total.getMessage().c_str(), total.getTraceback().c_str());
        return 1;
    }
    std::printf("total %d\n", *total);
    //! [call]

    const oxil::KeyValues nut = {{"name", "nut"}, {"count", shelf.count("nut")}};
    std::printf("label: %s\n", script.call<std::string>("describe", nut)->c_str());

    // The script handles the error ...
    std::printf("no washer: %s\n", script.call<std::string>("explain", "washer")->c_str());

    //! [exception]
    // ... or does not, and what was thrown behind it comes out here.
    try {
        std::printf("total %d\n", *script.call<int>("total", "gasket", "nut"));
    } catch (const std::invalid_argument& exception) {
        std::printf("and out of the script: %s\n", exception.what());
    }
    //! [exception]
    return *total == 52 ? 0 : 1;
}
