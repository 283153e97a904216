#pragma once

#include <libxml/globals.h>
#include <libxslt/xsltutils.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "AllocationFailure.h"

namespace oxil::test {

/** Takes what libxml2 and libxslt would write to the standard error output while it lives. */
class EngineMessages {
public:
    EngineMessages()
    {
        xmlSetGenericErrorFunc(&__text, add);
        xsltSetGenericErrorFunc(&__text, add);
    }

    ~EngineMessages()
    {
        xmlSetGenericErrorFunc(__xmlContext, __xmlHandler);
        xsltSetGenericErrorFunc(__xsltContext, __xsltHandler);
    }

    EngineMessages(const EngineMessages&) = delete;
    EngineMessages& operator=(const EngineMessages&) = delete;

    const std::string& text() const { return __text; }

private:
    [[gnu::format(printf, 2, 3)]] static void add(void* text, const char* format, ...)
    {
        const AllocationPause pause;  // what is kept is the test's
        char message[1024];
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(message, sizeof message, format, arguments);
        va_end(arguments);
        static_cast<std::string*>(text)->append(message);
    }

    std::string __text;
    xmlGenericErrorFunc __xmlHandler = xmlGenericError;
    void* __xmlContext = xmlGenericErrorContext;
    xmlGenericErrorFunc __xsltHandler = xsltGenericError;
    void* __xsltContext = xsltGenericErrorContext;
};

}  // namespace oxil::test
