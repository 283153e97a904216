// Runs scripts that nobody has looked at: they compute for so long and with so much memory, and call
// what the application offers. What a script says of itself is asked for in two ways, by running the
// file and by calling a function.
//
// Usage: guests SCRIPT.LUA...
//
// Prints, for the scripts here, beside the platform's log, which has the reasons:
//   polite.lua: 42
//   exit.lua: refused
//   loop.lua: refused
//   pattern.lua: refused
//   finalizer.lua: refused
//   memory.lua: refused
//   late.lua: /.../late.lua:4: instruction limit reached

#include <cstdio>
#include <string>

#include <Oxil.h>

namespace {

std::string ask(const std::string& path)
{
    //! [limits]
    // A million instructions for each call, and four megabytes.
    oxil::LuaLimits limits(1000 * 1000, 4 * 1024 * 1024);
    oxil::LuaScript script(path);
    script.addLuaApi(&limits);
    if (script.load() != oxil::STATUS_SUCCESS) {
        return "refused";
    }
    const auto answer = script.call<std::string>("answer");
    return answer ? *answer : answer.getMessage();
    //! [limits]
}

}  // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        const std::string path = argv[i];
        const std::string answer = ask(path);
        std::printf("%s: %s\n", path.substr(path.rfind('/') + 1).c_str(), answer.c_str());
    }
}
