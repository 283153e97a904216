#include "LogCapture.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string_view>

#include "OxPlatform.h"

namespace oxil::test {
namespace {

constexpr std::string_view FRAME = "%s: %s(%d) > ";

std::mutex mutex;
LogCapture* innermost = nullptr;

[[gnu::format(printf, 1, 0)]] std::string formatted(const char* format, va_list arguments)
{
    va_list copy;
    va_copy(copy, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);

    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

}  // namespace

void PrintTo(const LogLine& line, std::ostream* stream)
{
    *stream << "[log " << line.logId << ", priority " << line.priority << ", tag " << line.tag
            << (line.framed ? "" : ", without frame") << "] " << line.file << ": " << line.function
            << "(" << line.line << ") > " << line.message;
}

LogCapture::LogCapture() : LogCapture(SIZE_MAX) {}

LogCapture::LogCapture(std::size_t most) : __most(most)
{
    const std::lock_guard<std::mutex> lock(mutex);
    __outer = innermost;
    innermost = this;
}

LogCapture::~LogCapture()
{
    const std::lock_guard<std::mutex> lock(mutex);
    innermost = __outer;
}

void LogCapture::add(const LogLine& line)
{
    ++__count;
    if (__lines.size() < __most) {
        __lines.push_back(line);
    }
}

testing::Matcher<const LogLine&> Logged(const std::string& function, const std::string& message)
{
    return testing::AllOf(
        testing::Field("logId", &LogLine::logId, 0),
        testing::Field("priority", &LogLine::priority, 6),
        testing::Field("tag", &LogLine::tag, "OX"),
        testing::Field("framed", &LogLine::framed, true),
        testing::Field("file", &LogLine::file, testing::MatchesRegex("Ox[A-Za-z]+[.](cpp|h)")),
        testing::Field("line", &LogLine::line, testing::Gt(0)),
        testing::Field("function", &LogLine::function, function),
        testing::Field("message", &LogLine::message, message));
}

testing::Matcher<const LogLine&> LoggedIn(const std::string& file, const std::string& function,
                                          const std::string& message)
{
    return testing::AllOf(Logged(function, message), testing::Field("file", &LogLine::file, file));
}

}  // namespace oxil::test

// Stands before the platform's logger, because a definition in the executable wins.
[[gnu::format(printf, 4, 5)]] int __dlog_print(int logId, int priority, const char* tag,
                                               const char* format, ...)
{
    using namespace oxil::test;

    LogLine line;
    line.logId = logId;
    line.priority = priority;
    line.tag = tag;
    line.framed = std::string_view(format).substr(0, FRAME.size()) == FRAME;

    va_list arguments;
    va_start(arguments, format);
    if (line.framed) {
        line.file = va_arg(arguments, const char*);
        line.function = va_arg(arguments, const char*);
        line.line = va_arg(arguments, int);
        format += FRAME.size();
    }
    line.message = formatted(format, arguments);
    va_end(arguments);

    const std::lock_guard<std::mutex> lock(mutex);
    if (innermost != nullptr) {
        innermost->add(line);
    } else {
        ADD_FAILURE() << "unexpected log line: " << testing::PrintToString(line);
    }
    return 0;
}
