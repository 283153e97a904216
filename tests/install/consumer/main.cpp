#include <OxPlatform.h>
#include <Oxil.h>

#include <cstdarg>
#include <cstdio>

// A definition in the executable wins over the platform's.
int __dlog_print(int, int, const char*, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::printf("captured: ");
    std::vprintf(format, arguments);
    std::printf("\n");
    va_end(arguments);
    return 0;
}

int main()
{
    oxil::KeyValues record;
    record.add("answer", 42);
    const oxil::KeyValues copy = record;
    std::printf("answer = %d\n", copy.getValue("answer").toInt());
    return record.getValue("question").empty() ? 0 : 1;
}
