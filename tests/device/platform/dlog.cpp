#include <cstdarg>
#include <cstdio>

extern "C" [[gnu::format(printf, 4, 5)]] int __dlog_print(int logId, int priority, const char* tag,
                                                          const char* format, ...)
{
    std::printf("dlog: %d %d %s ", logId, priority, tag);

    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vprintf(format, arguments);
    va_end(arguments);

    std::printf("\n");
    return length;
}
