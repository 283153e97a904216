// Counts down twice: in C++, and in countdown.lua, which uses timers, waiting loops and the log.
//
// Prints, beside the script's lines in the platform's log (3, 2, 1, lift-off):
//   3
//   2
//   1
//   lift-off
//   3 ticks, then lift-off

#include <chrono>
#include <cstdio>
#include <string>

#include <Oxil.h>

using namespace std::chrono_literals;

namespace {

//! [errors]
// What is called by a timer or by callMethod() fails in silence, unless somebody asks to be told.
void printError(const std::string& function, const std::string& message,
                const std::string& traceback)
{
    std::fprintf(stderr, "%s: %s\n%s\n", function.c_str(), message.c_str(), traceback.c_str());
}
//! [errors]

}  // namespace

int main(int argc, char** argv)
{
    //! [countdown]
    oxil::WaitingLoop loop;
    oxil::Timer timer;
    int left = 3;
    timer.start(
        10ms,
        [&] {
            std::printf("%d\n", left);
            if (--left == 0) {
                timer.cancel();
                loop.quit();
            }
        },
        oxil::REPEATABLE);
    loop.run();
    //! [countdown]

    //! [wait]
    // Asks every 10 milliseconds; the third answer ends the run.
    int questions = 0;
    loop.run(10ms, [&] { return ++questions == 3; });
    //! [wait]
    std::printf("lift-off\n");

    //! [script]
    oxil::LuaScript script(argc > 1 ? argv[1] : "countdown.lua");
    script.setErrorHandler(printError);
    if (script.load() != oxil::STATUS_SUCCESS) {
        return 1;
    }
    int ticks = 0;
    std::string last;
    script.callMethod("countDown", std::tie(ticks, last), 3, "lift-off");
    std::printf("%d ticks, then %s\n", ticks, last.c_str());
    //! [script]
    return ticks == 3 && last == "lift-off" ? 0 : 1;
}
