#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/**
 * A target: looks at what the library makes of these bytes, and ends the process if that is wrong.
 *
 * libFuzzer calls it with what it makes up, and the test of the target with each of its seeds.
 */
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

namespace oxil::fuzz {

/** Ends the process, after telling what does not hold. */
[[noreturn]] void fail(const char* file, int line, const char* condition);

/** As assert(), in every kind of build. */
#define FUZZ_REQUIRE(condition)                                 \
    do {                                                        \
        if (!(condition)) {                                     \
            ::oxil::fuzz::fail(__FILE__, __LINE__, #condition); \
        }                                                       \
    } while (false)

/** Keeps what the bytes stand for, where they don't tell, for the two that print it. */
void explain(const std::string& what);

/** Prints that, and the log. */
void tell();

/** What the library has logged since clearLog(): "function: message", a line each. Very many lines
 *  are no longer kept, but counted. */
const std::string& getLog();

int countLogged();

void clearLog();

}  // namespace oxil::fuzz
