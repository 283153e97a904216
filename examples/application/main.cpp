// Dims a lamp, a step in each interval of as many milliseconds as the argument says, until it is dark
// or the program is told to end (SIGTERM, SIGINT).
//
// Prints, beside the script's line in the platform's log (good night):
//   60 %
//   40 %
//   20 %
//   0 %

#include <glib-unix.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "nightlight.h"

namespace {

//! [script]
// The script is found from where the program is, so both work wherever they are unpacked.
std::string findScript()
{
    const auto program = std::filesystem::read_symlink("/proc/self/exe");
    return program.parent_path() / SCRIPTS / "nightlight.lua";
}
//! [script]

gboolean quit(gpointer loop)
{
    static_cast<oxil::WaitingLoop*>(loop)->quit();
    return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char** argv)
{
    //! [loop]
    oxil::WaitingLoop loop;
    Lamp lamp(80, [&loop](int brightness) {
        std::cout << brightness << " %" << std::endl;
        if (brightness == 0) {
            loop.quit();
        }
    });
    Nightlight nightlight(lamp, findScript());
    if (!nightlight.start(std::chrono::milliseconds(argc > 1 ? std::atoi(argv[1]) : 500))) {
        return 1;
    }

    // The script's timer and GLib's own sources are in one main loop.
    g_unix_signal_add(SIGTERM, quit, &loop);
    g_unix_signal_add(SIGINT, quit, &loop);
    loop.run();
    //! [loop]
}
