#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <lua.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "CallLater.h"
#include "LoadedScript.h"
#include "LuaChunk.h"
#include "MainLoop.h"

namespace oxil::test {

inline constexpr std::chrono::seconds LIMIT(10);  // far more than anything here takes

// The handles that the next timer and the next loop get. The registries are the process's: what
// earlier tests left there stays below.
inline constexpr const char* NEXT_HANDLES =
    "timer0 = Timer.start(3600000, '') Timer.stop(timer0) "
    "loop0 = WaitingLoop.create() WaitingLoop.destroy(loop0) ";

/** A script that finds the next handles in the globals timer0 and loop0. */
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

/** Stops and destroys what a test has left, and guards against loops that nobody ends. */
class BaseLuaApiFixture : public testing::Test {
protected:
    BaseLuaApiFixture() : __watchdog(std::chrono::seconds(60)) {}

    ~BaseLuaApiFixture() override
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

/** What the bounds-checked access to so many objects says. */
inline std::string rangeError(int size, int handle)
{
    try {
        static_cast<void>(std::vector<void*>(static_cast<std::size_t>(size))
                              .at(static_cast<std::size_t>(handle)));
    } catch (const std::out_of_range& exception) {
        return exception.what();
    }
    return "no error";
}

}  // namespace oxil::test
