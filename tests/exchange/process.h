#pragma once

#include <sys/utsname.h>

#include <string>

namespace oxil::test {

/** What kind of process this is, "32-bit armv7l" say. An emulator tells the machine that it plays. */
inline std::string thisProcess()
{
    utsname names = {};
    uname(&names);
    return std::to_string(8 * sizeof(void*)) + "-bit " + names.machine;
}

}  // namespace oxil::test
