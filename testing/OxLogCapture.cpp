#include "OxLogCapture.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string_view>
#include <utility>

#include "OxPlatform.h"

namespace oxil::test {
namespace {

constexpr std::string_view FRAME = "%s: %s(%d) > ";

std::mutex mutex;
LogCapture* innermost = nullptr;
LogCapture::UnexpectedLine told = nullptr;

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

std::ostream& operator<<(std::ostream& stream, const LogLine& line)
{
    return stream << "[log " << line.logId << ", priority " << line.priority << ", tag " << line.tag
                  << (line.framed ? "" : ", without frame") << "] " << line.file << ": "
                  << line.function << "(" << line.line << ") > " << line.message;
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

LogCapture::UnexpectedLine LogCapture::onUnexpected(UnexpectedLine function)
{
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(told, function);
}

void LogCapture::__add(const LogLine& line)
{
    std::unique_lock<std::mutex> lock(mutex);
    if (innermost != nullptr) {
        ++innermost->__count;
        if (innermost->__lines.size() < innermost->__most) {
            innermost->__lines.push_back(line);
        }
        return;
    }
    const UnexpectedLine function = told;
    lock.unlock();  // the function may log, too
    if (function == nullptr) {
        std::cerr << "unexpected log line: " << line << std::endl;
        std::abort();
    }
    function(line);
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
    line.tag = tag == nullptr ? "(null)" : tag;
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

    LogCapture::__add(line);
    return 0;
}
