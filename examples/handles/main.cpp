// Two scripts in one process, which share the numbers of their timers and loops.
//
// Usage: handles PANEL.LUA
//
// Prints:
//   both tick
//   refresh: no such handle
//   all is stopped

#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>

#include <Oxil.h>

using namespace std::chrono_literals;

namespace {

void printError(const std::string& function, const std::string& message,
                const std::string& traceback)
{
    std::fprintf(stderr, "%s: %s\n%s\n", function.c_str(), message.c_str(), traceback.c_str());
}

bool ticks(oxil::LuaScript& script)
{
    return *script.call<int>("getTicks") > 0;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string path = argc > 1 ? argv[1] : "panel.lua";
    oxil::LuaScript left(path);
    oxil::LuaScript right(path);
    left.setErrorHandler(printError);
    right.setErrorHandler(printError);
    if (left.load() != oxil::STATUS_SUCCESS || right.load() != oxil::STATUS_SUCCESS) {
        return 1;
    }
    oxil::WaitingLoop loop;
    loop.run(1ms, [&] { return ticks(left) && ticks(right); });
    std::printf("both tick\n");

    //! [timer]
    // A callback must not throw, but a call of a script may: a handle past the end comes out of it
    // as an exception. Out of the callback it would end the process.
    oxil::Timer timer;
    timer.start(1ms, [&] {
        try {
            left.callMethod("refresh");
        } catch (const std::out_of_range&) {
            std::printf("refresh: no such handle\n");
        }
        loop.quit();
    });
    loop.run();
    //! [timer]

    // The script that was loaded last stops first.
    if (*right.call<bool>("stop") && *left.call<bool>("stop")) {
        std::printf("all is stopped\n");
    }
}
