#include "Fuzz.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "OxPlatform.h"

namespace oxil::fuzz {
namespace {

constexpr std::string_view FRAME = "%s: %s(%d) > ";

constexpr std::size_t MOST_KEPT = 65536;

std::string explanation;
std::string logged;
int lineCount = 0;

[[gnu::format(printf, 1, 0)]] std::string formatted(const char* format, va_list arguments)
{
    va_list copy;
    va_copy(copy, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    FUZZ_REQUIRE(length >= 0);

    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

}  // namespace

void fail(const char* file, int line, const char* condition)
{
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
    tell();
    std::abort();
}

void tell()
{
    if (!explanation.empty()) {
        std::fprintf(stderr, "with:\n%s\n", explanation.c_str());
    }
    std::fprintf(stderr, "logged:\n%s\n", logged.c_str());
}

void explain(const std::string& what)
{
    explanation = what;
}

const std::string& getLog()
{
    return logged;
}

int countLogged()
{
    return lineCount;
}

void clearLog()
{
    logged.clear();
    lineCount = 0;
}

}  // namespace oxil::fuzz

// Stands before the platform's logger, because a definition in the executable wins. Quiet, but every
// message is made: a sanitizer sees a format that asks for what is not there.
[[gnu::format(printf, 4, 5)]] int __dlog_print(int logId, int priority, const char* tag,
                                               const char* format, ...)
{
    using namespace oxil::fuzz;

    FUZZ_REQUIRE(logId == 0 && (priority == 4 || priority == 6));
    FUZZ_REQUIRE(std::string_view(tag) == "OX");
    FUZZ_REQUIRE(std::string_view(format).substr(0, FRAME.size()) == FRAME);

    va_list arguments;
    va_start(arguments, format);
    const std::string_view file = va_arg(arguments, const char*);
    const std::string_view function = va_arg(arguments, const char*);
    const int line = va_arg(arguments, int);
    const std::string message = formatted(format + FRAME.size(), arguments);
    va_end(arguments);

    FUZZ_REQUIRE(file.substr(0, 2) == "Ox" && !function.empty() && line > 0);
    ++lineCount;
    if (logged.size() < MOST_KEPT) {
        logged.append(function).append(": ").append(message).append("\n");
    }
    return 0;
}
